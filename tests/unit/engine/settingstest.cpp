// SPDX-License-Identifier: MIT
#include "engine/engine.h"
#include "types/lanvoytypes.h"

#include <NetworkManagerQt/GsmSetting>
#include <NetworkManagerQt/WirelessSecuritySetting>
#include <NetworkManagerQt/WirelessSetting>

#include <QTemporaryDir>
#include <QTest>

using namespace Lanvoy;
using namespace NetworkManager;

namespace
{
/** Method, addresses with prefix and gateway, and name servers. */
QString textOf(const Ipv4Setting& setting)
{
    QString text = ipv4SettingMethodToString(setting.method());
    for (const IpAddress& a : setting.addresses())
        text += QString(" %1/%2>%3").arg(a.ip().toString()).arg(a.prefixLength()).arg(a.gateway().toString());
    for (const QHostAddress& server : setting.dns())
        text += ' ' + server.toString();
    return text;
}

const char* const ip = "10.0.0.5";
const char* const mask = "255.255.255.0";
const Config::Ipv4Config automatic {"auto", "", "", "", "", ""};
const Config::Ipv4Config bare {"manual", ip, mask, "", "", ""};
const Config::Ipv4Config manual {"manual", ip, mask, "10.0.0.1", "1.1.1.1", "2.2.2.2"};
} // namespace

class SettingsTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void ipv4FollowsTheRecord()
    {
        const struct {
            Config::Ipv4Config held, record;
            const char* result; // null: no change
        } rows[] = {
            {automatic, {"auto", ip, mask, "10.0.0.1", "1.1.1.1", ""}, nullptr},
            {manual, automatic, "auto 1.1.1.1 2.2.2.2"},
            {automatic, manual, "manual 10.0.0.5/24>10.0.0.1 1.1.1.1 2.2.2.2"},
            {bare, {"manual", "10.0.0.6", mask, "", "", ""}, "manual 10.0.0.6/24>"},
            {bare, {"manual", ip, "255.255.0.0", "", "", ""}, "manual 10.0.0.5/16>"},
            {manual, bare, "manual 10.0.0.5/24>"},
            {bare, {"manual", ip, mask, "0.0.0.0", "0.0.0.0", "fd00::1"}, nullptr}, // all of them are none
            {bare, {"manual", ip, mask, "fd00::1", "name", "2.2.2.2"}, "manual 10.0.0.5/24> 2.2.2.2"},
            {bare, {"manual", ip, mask, "", "1.1.1.1", "1.1.1.1"}, "manual 10.0.0.5/24> 1.1.1.1"},
            {automatic, {"Auto", "", "", "", "", ""}, "link-local"}, // like any other word
            {manual, {}, "link-local 10.0.0.5/24>10.0.0.1 1.1.1.1 2.2.2.2"},
        };
        for (const auto& row : rows) {
            const Ipv4Setting::Ptr setting(new Ipv4Setting);
            Engine::updateIpv4Configuration(setting, row.held);
            setting->setAddressData({{{"address", ip}, {"prefix", 24u}}}); // as NetworkManager tells it
            setting->setGateway("10.0.0.1");
            const QString before = textOf(*setting);
            QCOMPARE(Engine::updateIpv4Configuration(setting, row.record), row.result != nullptr);
            QCOMPARE(textOf(*setting), row.result ? row.result : before);
            const bool sameAddress = textOf(*setting).section(' ', 1, 1) == before.section(' ', 1, 1);
            QVERIFY2(sameAddress || (setting->addressData().isEmpty() && setting->gateway().isEmpty()),
                     row.result);
            QVERIFY(!setting->isNull());
            const Ipv4Setting::Ptr stored(new Ipv4Setting); // on its way through NetworkManager
            stored->fromMap(setting->toMap());
            QVERIFY2(!Engine::updateIpv4Configuration(stored, row.record), row.result);
        }
    }

    void eachFieldCountsAsAChangeOnce()
    {
        Config::Ethernet e {"Ethernet", true, manual};
        Config::Wifi w {"Wifi", true, "net", "password", automatic};
        Config::Modem m {"Modem", true, "user", "secret", "apn", "26201", "1234", automatic, 120};
        // What NetworkManager refuses, and how that is corrected, is tested with the installed one.
        const QPair<ConnectionSettings::ConnectionType, QVector<QString*>> rows[] = {
            {ConnectionSettings::Wired, {&e.ipv4.method}},
            {ConnectionSettings::Wireless, {&w.ssid, &w.key, &w.ipv4.method}},
            {ConnectionSettings::Gsm, {&m.username, &m.password, &m.apn, &m.network_id, &m.pin}},
        };
        for (const auto& [type, texts] : rows) {
            const ConnectionSettings::Ptr settings(new ConnectionSettings(type));
            const auto changes = [&] {
                config->setEthernet(e);
                config->setWifi(w);
                config->setModem(m);
                return Engine::updateConnectionSettings(settings, *config, "wpa2");
            };
            QVERIFY(changes() && !changes());
            for (QString* text : texts) {
                *text += '0';
                QVERIFY(changes() && !changes());
            }
            e.autocon = w.autocon = m.autocon = !m.autocon;
            QCOMPARE(changes(), type != ConnectionSettings::Gsm); // compatibility
            e.id = w.id = m.id = m.id + '0';
            QCOMPARE(changes(), type == ConnectionSettings::Wired); // compatibility: wifi has the ssid's
            QCOMPARE(settings->id(), type == ConnectionSettings::Wireless ? w.ssid : m.id);
            QCOMPARE(settings->autoconnect(), m.autocon);
        }
    }

    void foreignProfileIsAdopted()
    {
        const ConnectionSettings::Ptr settings(new ConnectionSettings(ConnectionSettings::Gsm));
        const auto gsm = settings->setting(Setting::Gsm).staticCast<GsmSetting>();
        config->setModem({"Modem", true, "user", "secret", "apn", "26201", "1234", automatic, 120});
        QVERIFY(Engine::updateConnectionSettings(settings, *config, ""));
        config->setModem({"Modem", true, "user", "secret", "apn ", "26201\t", "1234", automatic, 120});
        gsm->setNumber("*1#");
        gsm->setPasswordFlags(Setting::NotSaved);
        gsm->setPinFlags(Setting::NotRequired);
        QVERIFY(!Engine::updateConnectionSettings(settings, *config, "")); // NetworkManager strips the blanks
        QVERIFY(gsm->number() == "*99#" && gsm->passwordFlags() == Setting::None);
        QCOMPARE(gsm->pinFlags(), Setting::None);

        const ConnectionSettings::Ptr wifi(new ConnectionSettings(ConnectionSettings::Wireless));
        const auto security = wifi->setting(Setting::WirelessSecurity).staticCast<WirelessSecuritySetting>();
        config->setWifi({"Wifi", true, "caf\u00e9", "password", automatic});
        security->setPskFlags(Setting::AgentOwned); // that of the key that is written goes
        security->setWepKeyFlags(Setting::AgentOwned);
        for (const char* word : {"wpa2", "wep"}) {
            for (int run = 0; run < 2; ++run) // compatibility: a name beyond ASCII always counts as changed
                QVERIFY(Engine::updateConnectionSettings(wifi, *config, word));
            QCOMPARE(security->pskFlags(), Setting::None);
            QCOMPARE(security->wepKeyFlags() == Setting::None, !qstrcmp(word, "wep"));
        }
        QCOMPARE(wifi->toMap()["802-11-wireless"]["ssid"], QByteArray("caf\xc3\xa9"));
    }

private:
    QTemporaryDir folder;
    QScopedPointer<Config> config {new Config(folder.filePath("test.conf"), nullptr)};
};

QTEST_APPLESS_MAIN(SettingsTest)
#include "settingstest.moc"
