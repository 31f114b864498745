// Runs against a real NetworkManager on the bus that DBUS_SYSTEM_BUS_ADDRESS names; see
// real_networkmanager.py.

#include "engine/settings.h"

#include <NetworkManagerQt/Connection>
#include <NetworkManagerQt/Settings>

#include <QTemporaryDir>
#include <QTest>

using namespace Lanvoy;
using NetworkManager::Connection;
using NetworkManager::ConnectionSettings;
using NetworkManager::Setting;

namespace
{

struct Row {
    const char* name;
    ConnectionSettings::ConnectionType type;
    const char* security;
    QStringList keys; // "Group/key=value" beyond what the row before has set
    const char* refusal = ""; // how NetworkManager's last answer begins; empty for accepted
};

constexpr auto wired = ConnectionSettings::Wired;
constexpr auto wifi = ConnectionSettings::Wireless;
constexpr auto gsm = ConnectionSettings::Gsm;

// A profile of each kind is created by the kind's first row and updated by the following ones.
const Row rows[] = {
    {"wired auto", wired, "", {}},
    {"static",
     wired,
     "",
     {"Ethernet/method=manual", "Ethernet/address=10.0.0.5", "Ethernet/mask=255.255.255.0"}},
    {"gateway and servers",
     wired,
     "",
     {"Ethernet/gateway=10.0.0.1", "Ethernet/dns0=1.1.1.1", "Ethernet/dns1=x"}},
    {"other address", wired, "", {"Ethernet/address=10.0.0.6", "Ethernet/gateway="}},
    {"any network", wired, "", {"Ethernet/mask=0.0.0.0", "Ethernet/dns0=0.0.0.0"}},
    {"no address", wired, "", {"Ethernet/address="}, "ipv4.addresses:"},
    {"mask as a number", wired, "", {"Ethernet/address=10.0.0.6", "Ethernet/mask=24"}, "ipv4.addresses:"},
    {"no link", wired, "", {"Ethernet/method="}},
    {"no autoconnect", wired, "", {"Ethernet/autocon=false", "Ethernet/method=auto"}},
    {"back to a static address", wired, "", {"Ethernet/method=manual", "Ethernet/mask=255.0.0.0"}},
    {"and to auto", wired, "", {"Ethernet/method=auto", "Ethernet/autocon=true"}},
    {"open", wifi, "none", {"Wifi/ssid=net"}},
    {"key", wifi, "wpa2", {"Wifi/key=12345678"}},
    {"odd key", wifi, "wpa1-wpa2", {"Wifi/key=\" a\\\"b,c;d%e\\\\f=g \""}},
    {"key of 64 characters", wifi, "wpa1", {"Wifi/key=" + QString(64, 'a')}},
    {"short key", wifi, "wpa2", {"Wifi/key=1234567"}, "802-11-wireless-security.psk:"},
    {"key removed", wifi, "wpa2", {"Wifi/key="}},
    {"wep", wifi, "wep", {"Wifi/key=abcde"}},
    {"static wifi", wifi, "wep", {"Wifi/method=manual", "Wifi/address=10.1.0.5", "Wifi/mask=255.255.0.0"}},
    {"link-local wifi", wifi, "wep", {"Wifi/method=x"}},
    {"apn", gsm, "", {}},
    {"everything",
     gsm,
     "",
     {"Modem/username=u", "Modem/password=p", "Modem/pin=1234", "Modem/network_id=00101"}},
    {"password removed", gsm, "", {"Modem/password="}},
    {"pin removed", gsm, "", {"Modem/pin=", "Modem/apn="}},
    {"network that is none", gsm, "", {"Modem/network_id=1"}, "gsm.network-id:"},
    {"servers",
     gsm,
     "",
     {"Modem/network_id=", "Modem/method=manual", "Modem/address=10.2.0.5", "Modem/netmask=255.255.255.255",
      "Modem/dns0=9.9.9.9", "Modem/dns1=9.9.9.9"}},
};

} // namespace

class RealNetworkManagerTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void acceptsWhatIsSent();

private:
    void mergeSecrets(Connection& connection, const ConnectionSettings::Ptr& settings);
    QString save(Connection& connection, const ConnectionSettings::Ptr& settings);

    QTemporaryDir folder;
};

void RealNetworkManagerTest::mergeSecrets(Connection& connection, const ConnectionSettings::Ptr& settings)
{
    for (const auto type : {Setting::WirelessSecurity, Setting::Gsm}) {
        const Setting::Ptr setting = settings->setting(type);
        if (!setting || setting->isNull())
            continue;
        QDBusPendingReply<NMVariantMapMap> reply = connection.secrets(setting->name());
        reply.waitForFinished();
        if (reply.isValid())
            setting->fromMap(reply.value().value(setting->name()));
    }
}

QString RealNetworkManagerTest::save(Connection& connection, const ConnectionSettings::Ptr& settings)
{
    NMVariantMapMap map = settings->toMap();
    addEmptyGsmSecrets(map);
    QDBusPendingReply<> reply;
    do {
        reply = connection.update(map);
        reply.waitForFinished();
    } while (reply.isError() && correctRefusedMap(map, *settings, reply.error().message()));
    return reply.isError() ? reply.error().message() : QString();
}

// What NetworkManager took is what it gives back: the next run finds nothing to change.
void RealNetworkManagerTest::acceptsWhatIsSent()
{
    QMap<int, QString> paths;
    QFile file(folder.filePath("lanvoy.conf"));
    QVERIFY(file.open(QIODevice::ReadWrite));
    for (const Row& row : rows) {
        for (const QString& key : row.keys) // a later section or key takes the place of an earlier one
            file.write(QString("[%1]\n%2\n").arg(key.section('/', 0, 0), key.section('/', 1)).toUtf8());
        file.flush();
        const Config config(file.fileName(), nullptr);
        const QByteArray context = row.name;

        if (!paths.contains(row.type)) {
            const ConnectionSettings::Ptr settings(new ConnectionSettings(row.type));
            settings->setUuid(ConnectionSettings::createNewUuid());
            updateConnectionSettings(settings, config, row.security);
            NMVariantMapMap map = settings->toMap();
            QDBusPendingReply<QDBusObjectPath> reply = NetworkManager::addConnection(map);
            reply.waitForFinished();
            if (reply.isError() && correctRefusedMap(map, *settings, reply.error().message())) {
                reply = NetworkManager::addConnection(map);
                reply.waitForFinished();
            }
            QVERIFY2(reply.isValid(), context + ": " + reply.error().message().toUtf8());
            paths.insert(row.type, reply.value().path());
        }
        const QString path = paths.value(row.type);
        const auto held = [&path] {
            Connection fresh(path); // not from the library's cache
            return ConnectionSettings::Ptr(new ConnectionSettings(fresh.settings()->toMap()));
        };
        Connection connection(path);
        ConnectionSettings::Ptr settings = held();
        mergeSecrets(connection, settings);
        const QStringList secrets = secretsOf(settings);
        if (updateConnectionSettings(settings, config, row.security)) {
            if (losesSecret(secrets, secretsOf(settings)))
                connection.clearSecrets().waitForFinished();
            const QString refusal = save(connection, settings);
            QVERIFY2(*row.refusal ? refusal.startsWith(row.refusal) : refusal.isEmpty(),
                     context + ": " + refusal.toUtf8());
        }
        if (*row.refusal)
            continue;
        settings = held();
        mergeSecrets(connection, settings);
        QVERIFY2(!updateConnectionSettings(settings, config, row.security), context + " does not converge");
    }
}

QTEST_GUILESS_MAIN(RealNetworkManagerTest)
#include "realnetworkmanagertest.moc"
