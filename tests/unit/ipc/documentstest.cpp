#include "ipc/documents.h"

#include <NetworkManagerQt/GsmSetting>
#include <NetworkManagerQt/WirelessSetting>

#include <QFile>
#include <QJsonDocument>
#include <QTest>

#include <limits>

using namespace Lanvoy;
using NetworkManager::ConnectionSettings;
using NetworkManager::Device;
using NetworkManager::IpAddress;
using NetworkManager::Setting;

namespace
{

const QList<QHostAddress> threeServers
    = {QHostAddress("10.0.0.2"), QHostAddress("10.0.0.3"), QHostAddress("9.9.9.9")};

IpAddress address(const char* ip, const char* mask, const char* gateway)
{
    IpAddress result;
    result.setIp(QHostAddress(QString::fromLatin1(ip)));
    result.setNetmask(QHostAddress(QString::fromLatin1(mask)));
    result.setGateway(QHostAddress(QString::fromLatin1(gateway)));
    return result;
}

/** The settings of a connection for which NetworkManager holds the groups @p held. */
ConnectionSettings::Ptr profile(ConnectionSettings::ConnectionType type,
                                const QList<Setting::SettingType>& held)
{
    const ConnectionSettings::Ptr settings(new ConnectionSettings(type));
    for (const Setting::SettingType group : held)
        settings->setting(group)->setInitialized(true);
    return settings;
}

ConnectionSettings::Ptr manualProfile()
{
    const auto settings = profile(ConnectionSettings::Wired, {Setting::Ipv4});
    const auto ipv4 = settings->setting(Setting::Ipv4).staticCast<NetworkManager::Ipv4Setting>();
    ipv4->setMethod(NetworkManager::Ipv4Setting::Manual);
    ipv4->setAddresses(
        {address("10.0.0.5", "255.255.255.0", "10.0.0.1"), address("10.9.0.5", "255.255.0.0", "10.9.0.1")});
    ipv4->setDns(threeServers);
    return settings;
}

ConnectionSettings::Ptr wifiProfile(const QList<Setting::SettingType>& held)
{
    const auto settings = profile(ConnectionSettings::Wireless, held);
    settings->setting(Setting::Wireless)
        .staticCast<NetworkManager::WirelessSetting>()
        ->setSsid("caf\xc3\xa9");
    return settings;
}

ConnectionSettings::Ptr modemProfile(const QList<Setting::SettingType>& held)
{
    const auto settings = profile(ConnectionSettings::Gsm, held);
    const auto gsm = settings->setting(Setting::Gsm).staticCast<NetworkManager::GsmSetting>();
    gsm->setApn(QStringLiteral("internet"));
    gsm->setUsername(QStringLiteral("user"));
    gsm->setNetworkId(QStringLiteral("26201"));
    return settings;
}

AccessPointFacts point(const QString& text, uint number)
{
    return {text,
            number,
            text + QLatin1Char('1'),
            number + 1,
            static_cast<int>(number % 101),
            QStringLiteral("infra"),
            text};
}

QJsonObject treeOf(const AccessPointFacts& p)
{
    return {{"ssid", p.ssid},
            {"frequency", static_cast<qint64>(p.frequency)},
            {"hardwareAddress", p.hardwareAddress},
            {"maxBitRate", static_cast<qint64>(p.maxBitRate)},
            {"signalStrength", p.signalStrength},
            {"mode", p.mode},
            {"security", p.security}};
}

QJsonObject treeOf(const NetworkFacts& n);

template<typename Facts> QJsonArray treesOf(const QVector<Facts>& all)
{
    QJsonArray trees;
    for (const Facts& facts : all)
        trees.append(treeOf(facts));
    return trees;
}

QJsonObject treeOf(const NetworkFacts& n)
{
    return {{"ssid", n.ssid},
            {"signalStrength", n.signalStrength},
            {"device", n.device},
            {"referenceAP", n.referencePoint ? QJsonValue(treeOf(*n.referencePoint)) : QJsonValue()},
            {"accessPoints", treesOf(n.accessPoints)}};
}

} // namespace

class DocumentsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void documentIsTheGoldenFile_data();
    void documentIsTheGoldenFile();
    void ipv4StateListsOneAddressAndAllServers();
    void configListsTwoServersAtMost();
    void noCarrierReportsDisconnected();
    void missingThingsAreNull();
    void usageIsRoundedToHundredths();
    void scanDocumentsEqualTheLibrarysText_data();
    void scanDocumentsEqualTheLibrarysText();
};

void DocumentsTest::documentIsTheGoldenFile_data()
{
    QTest::addColumn<QByteArray>("document");
    const auto row = [](const char* name, const QJsonObject& document) {
        QTest::newRow(name) << QJsonDocument(document).toJson();
    };
    const QString eth = QStringLiteral("eth0");
    const QString wlan = QStringLiteral("wlan0");
    const QString wwan = QStringLiteral("cdc-wdm0");
    const QVariantMap gsmSecrets = {{"password", "secret"}, {"pin", "1234"}};

    row("info", networkInfoDocument());
    row("error",
        errorDocument(QStringLiteral("wifi/config/get"), QStringLiteral("Invalid device specified: \"x\"")));

    row("ethernet-config-none", ethernetConfigDocument(eth, {}));
    row("ethernet-config-auto",
        ethernetConfigDocument(eth, profile(ConnectionSettings::Wired, {Setting::Ipv4})));
    row("ethernet-config-manual", ethernetConfigDocument(eth, manualProfile()));
    row("ethernet-config-no-ipv4", ethernetConfigDocument(eth, profile(ConnectionSettings::Wired, {})));

    const QList<Setting::SettingType> open = {Setting::Ipv4, Setting::Wireless};
    row("wifi-config-none", wifiConfigDocument(wlan, {}, std::nullopt));
    row("wifi-config-secrets",
        wifiConfigDocument(wlan, wifiProfile(open), QVariantMap {{"psk", "pass\"word"}}));
    row("wifi-config-refused", wifiConfigDocument(wlan, wifiProfile(open), std::nullopt));
    row("wifi-config-no-psk", wifiConfigDocument(wlan, wifiProfile(open), QVariantMap()));
    row("wifi-config-no-wireless", wifiConfigDocument(wlan, wifiProfile({Setting::Ipv4}), std::nullopt));

    const QList<Setting::SettingType> gsm = {Setting::Ipv4, Setting::Gsm};
    row("modem-config-none", modemConfigDocument(wwan, {}, std::nullopt));
    row("modem-config-secrets", modemConfigDocument(wwan, modemProfile(gsm), gsmSecrets));
    row("modem-config-refused", modemConfigDocument(wwan, modemProfile(gsm), std::nullopt));
    row("modem-config-no-gsm", modemConfigDocument(wwan, modemProfile({Setting::Ipv4}), gsmSecrets));

    row("modem-stats",
        modemStatsDocument(
            {{"2021-09", {{"txbytes", 2.344}, {"rxbytes", 1536.0}}}, {"2021-08", {{"rxbytes", 2.346}}}}));
    row("modem-stats-none", modemStatsDocument({}));

    const AccessPointFacts ap = {"caf\u00e9", 5180, "02:00:00:00:00:01", 540000, 71, "infra", "wpa2"};
    QTest::newRow("wifi-aps") << accessPointsDocument(wlan, {ap});
    QTest::newRow("wifi-networks") << networksDocument(
        wlan, {{ap.ssid, 71, wlan, ap, {ap}}, {"gone", 0, wlan, std::nullopt, {}}});
}

void DocumentsTest::documentIsTheGoldenFile()
{
    QFETCH(QByteArray, document);
    QFile golden(QStringLiteral(GOLDEN_DIR) + QLatin1String(QTest::currentDataTag())
                 + QLatin1String(".json"));
    QVERIFY2(golden.open(QIODevice::ReadOnly), qPrintable(golden.fileName()));
    QCOMPARE(QString::fromUtf8(document), QString::fromUtf8(golden.readAll()));
}

void DocumentsTest::ipv4StateListsOneAddressAndAllServers()
{
    const IpAddress first = address("10.0.0.5", "255.255.255.0", "");
    const IpAddress second = address("10.9.0.5", "255.255.0.0", "");
    const QJsonObject reported = {{"address", "10.0.0.5"}, {"netmask", "255.255.255.0"}, {"gateway", ""}};
    QJsonObject withServer = reported;
    withServer.insert(QStringLiteral("dns0"), QStringLiteral("10.0.0.2"));
    QJsonObject withServers = withServer;
    withServers.insert(QStringLiteral("dns1"), QStringLiteral("10.0.0.3"));
    withServers.insert(QStringLiteral("dns2"), QStringLiteral("9.9.9.9"));

    using NetworkManager::IpConfig;
    QCOMPARE(toJson(IpConfig()), QJsonValue(QJsonObject {{"gateway", ""}}));
    QCOMPARE(toJson(IpConfig({first}, {}, {}, {})), QJsonValue(reported));
    QCOMPARE(toJson(IpConfig({first, second}, threeServers.mid(0, 1), {}, {})), QJsonValue(withServer));
    QCOMPARE(toJson(IpConfig({first}, threeServers, {}, {})), QJsonValue(withServers));
}

void DocumentsTest::configListsTwoServersAtMost()
{
    const NetworkManager::Ipv4Setting::Ptr setting(new NetworkManager::Ipv4Setting);
    const QStringList keys[]
        = {{"method"}, {"dns0", "method"}, {"dns0", "dns1", "method"}, {"dns0", "dns1", "method"}};
    for (int count = 0; count <= 3; ++count) {
        setting->setDns(threeServers.mid(0, count));
        QCOMPARE(toJson(setting).toObject().keys(), keys[count]);
    }
}

void DocumentsTest::noCarrierReportsDisconnected()
{
    for (const Device::State state :
         {Device::Failed, Device::Unavailable, Device::Preparing, Device::Activated}) {
        QCOMPARE(wiredState(false, state), Disconnected); // deliberate: whatever NetworkManager says
        QCOMPARE(wiredState(true, state), mapDeviceState(state));
    }
}

void DocumentsTest::missingThingsAreNull()
{
    QCOMPARE(toJson(NetworkManager::Ipv4Setting::Ptr()), QJsonValue(QJsonValue::Null));
    QCOMPARE(toJson(NetworkManager::AccessPoint::Ptr()), QJsonValue(QJsonValue::Null));
    QCOMPARE(toJson(NetworkManager::ActiveConnection::Ptr()), QJsonValue(QJsonValue::Null));
}

void DocumentsTest::usageIsRoundedToHundredths()
{
    const QPair<double, double> rows[] = {
        {0, 0},
        {0.004, 0},
        {0.005, 0.01},
        {2.344, 2.34},
        {2.346, 2.35},
        {1536.0, 1536},
        {2147.483647, 2147.48},
        {-2147.483648, -2147.47}, // deliberate: half up, then cut towards zero
    };
    for (const auto& [value, rounded] : rows) {
        const QJsonObject month
            = modemStatsDocument({{"m", {{"txbytes", value}, {"rxbytes", -1.0}}}}).value("m").toObject();
        QCOMPARE(month.value("upload").toDouble(), rounded);
    }
}

void DocumentsTest::scanDocumentsEqualTheLibrarysText_data()
{
    QTest::addColumn<QString>("text");
    const auto units = [](int first, int last) {
        QString text;
        for (int unit = first; unit <= last; ++unit)
            text += QChar(unit);
        return text;
    };
    QTest::newRow("empty") << QString();
    QTest::newRow("controls, quotes, backslash, delete") << units(0, 0x7f);
    QTest::newRow("up to the surrogates") << units(0x80, 0xd7ff);
    QTest::newRow("beyond the surrogates") << units(0xe000, 0xffff);
    for (const char16_t* text :
         {u"\xd83d\xde00", u"a\xd83d", u"\xd83d\xd83d\xde00z", u"\xd83dz", u"\xde00z\xde00", u"\xde00\xd83d"})
        QTest::newRow(QJsonDocument(QJsonArray {QString::fromUtf16(text)}).toJson(QJsonDocument::Compact))
            << QString::fromUtf16(text);
}

void DocumentsTest::scanDocumentsEqualTheLibrarysText()
{
    QFETCH(QString, text);
    const AccessPointFacts plain = point(text, 2412);
    const AccessPointFacts large = point(text, std::numeric_limits<uint>::max() - 1);
    for (const QVector<AccessPointFacts>& points :
         QVector<QVector<AccessPointFacts>> {{}, {plain}, {large, plain}}) {
        const QJsonObject aps = {{"interface", text}, {"aps", treesOf(points)}};
        QCOMPARE(accessPointsDocument(text, points), QJsonDocument(aps).toJson());

        const NetworkFacts known = {text, 55, text, plain, points};
        const NetworkFacts unknown = {text, -1, QString(), std::nullopt, points};
        for (const QVector<NetworkFacts>& networks :
             QVector<QVector<NetworkFacts>> {{}, {known}, {unknown, known}}) {
            const QJsonObject tree = {{"interface", text}, {"networks", treesOf(networks)}};
            QCOMPARE(networksDocument(text, networks), QJsonDocument(tree).toJson());
        }
    }
}

QTEST_APPLESS_MAIN(DocumentsTest)
#include "documentstest.moc"
