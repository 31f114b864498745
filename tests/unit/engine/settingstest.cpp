#include "engine/settings.h"
#include "types/lanvoytypes.h"

#include <NetworkManagerQt/GsmSetting>
#include <NetworkManagerQt/Ipv6Setting>
#include <NetworkManagerQt/WirelessSecuritySetting>
#include <NetworkManagerQt/WirelessSetting>

#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

using namespace Lanvoy;
using NetworkManager::ConnectionSettings;
using NetworkManager::GsmSetting;
using NetworkManager::IpAddress;
using NetworkManager::Ipv4Setting;
using NetworkManager::Ipv6Setting;
using NetworkManager::Setting;
using NetworkManager::WirelessSecuritySetting;
using NetworkManager::WirelessSetting;

namespace
{

template<typename T>
QSharedPointer<T> settingOf(const ConnectionSettings::Ptr& settings, Setting::SettingType type)
{
    return settings->setting(type).staticCast<T>();
}

/** An IPv4 setting from a text like "manual 10.0.0.5/24>10.0.0.1 1.1.1.1": method, addresses, servers. */
Ipv4Setting::Ptr ipv4From(const QString& text)
{
    const Ipv4Setting::Ptr setting(new Ipv4Setting);
    for (const auto method : {Ipv4Setting::Manual, Ipv4Setting::LinkLocal}) {
        if (text.startsWith(ipv4SettingMethodToString(method)))
            setting->setMethod(method);
    }
    QList<IpAddress> addresses;
    QList<QHostAddress> servers;
    for (const QString& word : text.split(QLatin1Char(' ')).mid(1)) {
        const QStringList parts = word.split(QRegularExpression(QStringLiteral("[/>]")));
        IpAddress address;
        address.setIp(QHostAddress(parts.at(0)));
        address.setPrefixLength(parts.value(1).toInt());
        address.setGateway(QHostAddress(parts.value(2)));
        if (parts.size() == 3)
            addresses.append(address);
        else
            servers.append(address.ip());
    }
    setting->setAddresses(addresses);
    setting->setDns(servers);
    return setting;
}

QString textOf(const Ipv4Setting& setting)
{
    QString text = ipv4SettingMethodToString(setting.method());
    for (const IpAddress& a : setting.addresses())
        text += QStringLiteral(" %1/%2>%3")
                    .arg(a.ip().toString(), QString::number(a.prefixLength()), a.gateway().toString());
    for (const QHostAddress& server : setting.dns())
        text += QLatin1Char(' ') + server.toString();
    return text;
}

/** What a later run finds: the settings on their way through NetworkManager. */
ConnectionSettings::Ptr stored(const ConnectionSettings::Ptr& settings)
{
    return ConnectionSettings::Ptr(new ConnectionSettings(settings->toMap()));
}

const QString staticText = QStringLiteral("manual 10.0.0.5/24>10.0.0.1 1.1.1.1 2.2.2.2");
const Config::Ipv4Config automatic {"auto", "", "", "", "", ""};
const Config::Ipv4Config manual {"manual", "10.0.0.5", "255.255.255.0", "10.0.0.1", "1.1.1.1", "2.2.2.2"};

} // namespace

class SettingsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { config.reset(new Config(folder.filePath(QStringLiteral("test.conf")), nullptr)); }
    void ipv4FollowsTheRecord_data();
    void ipv4FollowsTheRecord();
    void noStaticAddressStaysBehind();
    void wiredProfileConverges();
    void wirelessProfileFollowsTheSecurityWord_data();
    void wirelessProfileFollowsTheSecurityWord();
    void ssidBeyondAsciiAlwaysCountsAsChanged();
    void gsmProfileCountsOnlyItsFields();
    void refusedMapIsMendedOnce();
    void secretsAreToldApart();

private:
    QTemporaryDir folder;
    QScopedPointer<Config> config;
};

void SettingsTest::ipv4FollowsTheRecord_data()
{
    QTest::addColumn<QString>("current");
    QTest::addColumn<QStringList>("record"); // method, address, mask, gateway, dns0, dns1
    QTest::addColumn<QString>("result"); // equal to current: no change
    const auto row = [](const char* name, const QString& current, const char* record, const QString& result) {
        QTest::newRow(name) << current << QString::fromLatin1(record).split(QLatin1Char(',')) << result;
    };
    const char* const same = "manual,10.0.0.5,255.255.255.0,10.0.0.1,1.1.1.1,2.2.2.2";
    row("auto ignores static values", "auto", "auto,10.0.0.5,255.255.255.0,10.0.0.1,1.1.1.1,2.2.2.2", "auto");
    row("manual to auto", staticText, "auto,,,,,", "auto 1.1.1.1 2.2.2.2");
    row("auto to manual", "auto", same, staticText);
    row("nothing new", staticText, same, staticText);
    row("other address", "manual 10.0.0.6/24>10.0.0.1 1.1.1.1 2.2.2.2", same, staticText);
    row("other mask", "manual 10.0.0.5/16>10.0.0.1 1.1.1.1 2.2.2.2", same, staticText);
    row("no gateway yet", "manual 10.0.0.5/24>0.0.0.0 1.1.1.1 2.2.2.2", same, staticText);
    row("second address", "manual 10.0.0.5/24>10.0.0.1 10.0.0.6/24>0.0.0.0 1.1.1.1 2.2.2.2", same,
        staticText);
    row("other order of servers", "manual 10.0.0.5/24>10.0.0.1 2.2.2.2 1.1.1.1", same, staticText);

    const QString bare = QStringLiteral("manual 10.0.0.5/24>0.0.0.0");
    row("gateway emptied", staticText, "manual,10.0.0.5,255.255.255.0,,1.1.1.1,2.2.2.2",
        "manual 10.0.0.5/24> 1.1.1.1 2.2.2.2");
    row("empty gateway is none", bare, "manual,10.0.0.5,255.255.255.0,,,", bare);
    row("0.0.0.0 as gateway is none", bare, "manual,10.0.0.5,255.255.255.0,0.0.0.0,,", bare);
    row("IPv6 gateway is none", bare, "manual,10.0.0.5,255.255.255.0,fd00::1,,", bare);
    row("unreadable gateway is none", bare, "manual,10.0.0.5,255.255.255.0,gate,,", bare);
    row("servers emptied", bare + " 1.1.1.1", "manual,10.0.0.5,255.255.255.0,,,", bare);
    row("second server alone", bare, "manual,10.0.0.5,255.255.255.0,,,2.2.2.2", bare + " 2.2.2.2");
    row("unusable servers are none", bare, "manual,10.0.0.5,255.255.255.0,,fd00::1,name", bare);
    row("0.0.0.0 as server is none", bare, "manual,10.0.0.5,255.255.255.0,,0.0.0.0,", bare);
    row("one server twice", bare + " 1.1.1.1", "manual,10.0.0.5,255.255.255.0,,1.1.1.1,1.1.1.1",
        bare + " 1.1.1.1");
    row("0.0.0.0 held as server", bare + " 1.1.1.1 0.0.0.0", "manual,10.0.0.5,255.255.255.0,,1.1.1.1,",
        bare + " 1.1.1.1 0.0.0.0");
    row("unreadable address", "auto", "manual,here,255.255.255.0,,,", "manual /-1>");
    row("unreadable mask", "auto", "manual,10.0.0.5,255.0.255.0,,,", "manual 10.0.0.5/-1>");

    row("any other method is link-local", "auto", "shared,,,,,", "link-local");
    row("letter case counts", "auto", "Auto,,,,,", "link-local");
    row("link-local already", "link-local", ",,,,,", "link-local");
    row("link-local changes the method alone", staticText, ",,,,,", "link-local" + staticText.mid(6));
}

void SettingsTest::ipv4FollowsTheRecord()
{
    QFETCH(QString, current);
    QFETCH(QStringList, record);
    QFETCH(QString, result);
    const Config::Ipv4Config ipv4 {record.at(0), record.at(1), record.at(2),
                                   record.at(3), record.at(4), record.at(5)};
    const Ipv4Setting::Ptr setting = ipv4From(current);
    QCOMPARE(updateIpv4Configuration(setting, ipv4), current != result);
    QCOMPARE(textOf(*setting), result);
    QVERIFY(!setting->isNull());

    QVERIFY(!updateIpv4Configuration(setting, ipv4));
    const Ipv4Setting::Ptr held(new Ipv4Setting);
    held->fromMap(setting->toMap());
    QVERIFY2(!updateIpv4Configuration(held, ipv4), qPrintable(textOf(*held)));
}

void SettingsTest::noStaticAddressStaysBehind()
{
    for (const Config::Ipv4Config& ipv4 :
         {automatic, Config::Ipv4Config {"manual", "10.0.0.9", "255.0.0.0", "", "", ""}}) {
        const Ipv4Setting::Ptr setting = ipv4From(staticText);
        setting->setAddressData({{{"address", "10.0.0.5"}, {"prefix", 24u}}});
        setting->setGateway(QStringLiteral("10.0.0.1"));
        QVERIFY(updateIpv4Configuration(setting, ipv4));
        const QVariantMap map = setting->toMap();
        QCOMPARE(map.contains("addresses"), ipv4.method == "manual");
        QVERIFY(!map.contains("address-data"));
        QVERIFY(!map.contains("gateway"));
    }
}

void SettingsTest::wiredProfileConverges()
{
    const ConnectionSettings::Ptr settings(new ConnectionSettings(ConnectionSettings::Wired));
    const auto changes = [&](const Config::Ethernet& record) {
        config->setEthernet(record);
        const bool changed = updateConnectionSettings(settings, *config, "unknown");
        return changed && !updateConnectionSettings(stored(settings), *config, "unknown");
    };
    QVERIFY(changes({"Ethernet", true, manual}));
    QVERIFY(changes({"Other", true, manual}));
    QVERIFY(changes({"Other", false, manual}));
    QVERIFY(changes({"Other", false, automatic}));
    QVERIFY(!changes({"Other", false, automatic}));
    QCOMPARE(settings->id(), QStringLiteral("Other"));
    QVERIFY(!settings->autoconnect());

    const ConnectionSettings::Ptr bridge(new ConnectionSettings(ConnectionSettings::Bridge));
    QVERIFY(!updateConnectionSettings(bridge, *config, "unknown"));
    QVERIFY(bridge->id().isEmpty());
    QVERIFY(!updateConnectionSettings({}, *config, "unknown"));
}

void SettingsTest::wirelessProfileFollowsTheSecurityWord_data()
{
    QTest::addColumn<int>("keyMgmt");
    QTest::addColumn<QStringList>("secrets"); // psk, WEP key
    for (const char* word : {"wpa1", "wpa2", "wpa1-wpa2"})
        QTest::newRow(word) << int(WirelessSecuritySetting::WpaPsk) << QStringList {"password", ""};
    QTest::newRow("wep") << int(WirelessSecuritySetting::Wep) << QStringList {"", "password"};
    for (const char* word : {"none", "unknown", "something new"})
        QTest::newRow(word) << int(WirelessSecuritySetting::Unknown) << QStringList {"", ""};
}

void SettingsTest::wirelessProfileFollowsTheSecurityWord()
{
    const QString word = QString::fromLatin1(QTest::currentDataTag());
    const ConnectionSettings::Ptr settings(new ConnectionSettings(ConnectionSettings::Wireless));
    const auto changes = [&](const Config::Wifi& record) {
        config->setWifi(record);
        return updateConnectionSettings(settings, *config, word);
    };
    const auto wireless = settingOf<WirelessSetting>(settings, Setting::Wireless);
    const auto security = settingOf<WirelessSecuritySetting>(settings, Setting::WirelessSecurity);
    const auto ipv6 = settingOf<Ipv6Setting>(settings, Setting::Ipv6);
    Config::Wifi record {"Wifi", true, "net", "password", automatic};
    QVERIFY(changes(record));
    QTEST(int(security->keyMgmt()), "keyMgmt");
    QTEST(secretsOf(settings), "secrets");
    const bool secured = security->keyMgmt() != WirelessSecuritySetting::Unknown;
    QCOMPARE(settings->id(), QStringLiteral("net")); // not the record's id
    QCOMPARE(wireless->ssid(), QByteArray("net"));
    QCOMPARE(wireless->security(), secured ? security->name() : QString());
    QCOMPARE(wireless->isNull() && security->isNull(), !secured);
    QCOMPARE(security->wepKeyType(),
             word == "wep" ? WirelessSecuritySetting::Passphrase : WirelessSecuritySetting::NotSpecified);
    QVERIFY(ipv6->method() == Ipv6Setting::Ignored && !ipv6->isNull());
    QVERIFY(!secured || !updateConnectionSettings(stored(settings), *config, word));

    record.id = QStringLiteral("Other");
    QVERIFY(!changes(record));
    record.key = QStringLiteral("another1");
    QCOMPARE(changes(record), secured);
    record.autocon = false;
    QVERIFY(changes(record));
    record.ipv4 = manual;
    QVERIFY(changes(record));
    ipv6->setMethod(Ipv6Setting::Automatic);
    QVERIFY(changes(record));
    settings->setId(QStringLiteral("renamed"));
    QVERIFY(changes(record));
    wireless->setSsid("net2");
    QVERIFY(changes(record));
}

void SettingsTest::ssidBeyondAsciiAlwaysCountsAsChanged()
{
    const ConnectionSettings::Ptr settings(new ConnectionSettings(ConnectionSettings::Wireless));
    config->setWifi({"Wifi", true, "caf\u00e9", "password", automatic});
    for (int run = 0; run < 2; ++run) {
        QVERIFY(updateConnectionSettings(settings, *config, "wpa2"));
        QCOMPARE(settingOf<WirelessSetting>(settings, Setting::Wireless)->ssid(), QByteArray("caf\xc3\xa9"));
    }
    // Deliberate: what is held is read as Latin-1, and up to its first zero byte.
    settingOf<WirelessSetting>(settings, Setting::Wireless)->setSsid(QByteArray("caf\xe9\0tail", 9));
    QVERIFY(!updateConnectionSettings(settings, *config, "wpa2"));
}

void SettingsTest::gsmProfileCountsOnlyItsFields()
{
    const ConnectionSettings::Ptr settings(new ConnectionSettings(ConnectionSettings::Gsm));
    const auto changes = [&](const Config::Modem& record) {
        config->setModem(record);
        const bool changed = updateConnectionSettings(settings, *config, "unknown");
        return changed && !updateConnectionSettings(stored(settings), *config, "unknown");
    };
    Config::Modem record {"Broadband", true, "user", "secret", "internet", "26201", "1234", automatic, 120};
    QVERIFY(changes(record));
    const auto gsm = settingOf<GsmSetting>(settings, Setting::Gsm);
    for (QString* field :
         {&record.apn, &record.username, &record.network_id, &record.password, &record.pin}) {
        *field += QLatin1Char('0');
        QVERIFY(changes(record));
    }
    record.ipv4 = manual;
    QVERIFY(changes(record));

    // Deliberate: written without counting.
    record.id = QStringLiteral("Other");
    record.autocon = false;
    gsm->setNumber(QStringLiteral("*1#"));
    gsm->setPasswordFlags(Setting::NotSaved);
    gsm->setPinFlags(Setting::NotRequired);
    QVERIFY(!changes(record));
    QCOMPARE(settings->id(), QStringLiteral("Other"));
    QVERIFY(!settings->autoconnect());
    const QStringList fields
        = {gsm->apn(), gsm->username(), gsm->networkId(), gsm->password(), gsm->pin(), gsm->number()};
    QCOMPARE(fields, QStringList({"internet0", "user0", "262010", "secret0", "12340", "*99#"}));
    QCOMPARE(gsm->passwordFlags(), Setting::SecretFlags(Setting::None));
    QCOMPARE(gsm->pinFlags(), Setting::SecretFlags(Setting::None));
}

void SettingsTest::refusedMapIsMendedOnce()
{
    const ConnectionSettings settings(ConnectionSettings::Wireless);
    const QVariantMap wireless = settings.setting(Setting::Wireless)->toMap();
    const NMVariantMapMap plain = {{"connection", {{"id", "x"}}}};
    const NMVariantMapMap open = {{"connection", {{"id", "x"}}}, {"802-11-wireless", wireless}};
    const NMVariantMapMap gsm = {{"gsm", {{"apn", "a"}, {"pin", "1234"}}}};
    const NMVariantMapMap real = {{"gsm", {{"password", "p"}, {"pin", "x"}}}};
    NMVariantMapMap plainPlus = plain; // with the empty password and pin that every update carries
    addEmptyGsmSecrets(plainPlus);
    NMVariantMapMap gsmPlus = gsm;
    addEmptyGsmSecrets(gsmPlus);
    QCOMPARE(plainPlus.value("gsm"), (QVariantMap {{"password", ""}, {"pin", ""}}));
    QCOMPARE(gsmPlus.value("gsm"), (QVariantMap {{"apn", "a"}, {"password", ""}, {"pin", "1234"}}));
    const QVariantMap statics
        = {{"addresses", 1}, {"address-data", 1}, {"gateway", "g"}, {"dns", 1}, {"dns-data", 1}};
    NMVariantMapMap local = {{"ipv4", {{"method", "link-local"}, {"may-fail", true}}}};
    NMVariantMapMap localPlus = local;
    NMVariantMapMap manualPlus = {{"ipv4", {{"method", "manual"}}}};
    for (const QString& key : statics.keys())
        localPlus["ipv4"][key] = manualPlus["ipv4"][key] = statics.value(key);

    const NMVariantMapMap final; // nothing to mend
    const struct {
        const char* error;
        NMVariantMapMap map;
        NMVariantMapMap mended;
    } rows[] = {
        {"gsm.password: property is empty", plainPlus, plain},
        {"gsm.pin: Eigenschaft ist leer", plainPlus, plain},
        {"gsm.password: property is empty", gsmPlus, gsm},
        {"gsm.pin: property is invalid", real, final},
        {"gsm.network-id: property is invalid", gsmPlus, final},
        {"802-11-wireless: setting required for connection of type '802-11-wireless'", plain, open},
        {"802-11-wireless-security.psk: property is invalid", plain, final},
        {"ipv4.addresses: this property is not allowed for 'method=link-local'", localPlus, local},
        {"ipv4.gateway: this property is not allowed", localPlus, local},
        {"ipv4.dns: this property is not allowed", localPlus, local},
        {"ipv4.addresses: this property cannot be empty for 'method=manual'", manualPlus, final},
        {"Insufficient privileges", plainPlus, final},
        {"", plainPlus, final},
    };
    for (const auto& row : rows) {
        NMVariantMapMap map = row.map;
        QVERIFY2(correctRefusedMap(map, settings, row.error) != row.mended.isEmpty(), row.error);
        if (!row.mended.isEmpty())
            QCOMPARE(map, row.mended);
        QVERIFY2(!correctRefusedMap(map, settings, row.error), row.error);
    }
}

void SettingsTest::secretsAreToldApart()
{
    QVERIFY(!losesSecret({}, {}));
    QVERIFY(!losesSecret({"a", ""}, {"c", "d"}));
    QVERIFY(losesSecret({"a", "b"}, {"a", ""}));
    QVERIFY(losesSecret({"a", "b"}, {"", "b"}));

    const ConnectionSettings::Ptr gsm(new ConnectionSettings(ConnectionSettings::Gsm));
    settingOf<GsmSetting>(gsm, Setting::Gsm)->setPin(QStringLiteral("1234"));
    QCOMPARE(secretsOf(gsm), QStringList({"", "1234"}));
    QCOMPARE(secretsOf(ConnectionSettings::Ptr(new ConnectionSettings(ConnectionSettings::Wired))),
             QStringList());

    const QString security = QStringLiteral("802-11-wireless-security");
    const NMVariantMapMap plain = {{"gsm", {{"apn", "a"}}}, {security, {{"key-mgmt", "k"}}}, {"ipv4", {}}};
    NMVariantMapMap map = plain;
    for (const char* key : {"password", "pin"})
        map["gsm"].insert(key, "x");
    for (const char* key : {"psk", "wep-key0", "wep-key1", "wep-key2", "wep-key3"})
        map[security].insert(key, "x");
    QCOMPARE(withoutSecrets(map), plain);
    QCOMPARE(withoutSecrets({{"ipv4", {}}}).keys(), QStringList("ipv4"));
}

QTEST_APPLESS_MAIN(SettingsTest)
#include "settingstest.moc"
