// Runs against a real NetworkManager on the bus that DBUS_SYSTEM_BUS_ADDRESS names; see
// test_real_networkmanager.py.

#include "engine/engine.h"
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
    QString group;
    QStringList keys; // of the group, beyond what the rows before have set
    const char* security = "";
    const char* refusal = ""; // how NetworkManager's last answer begins; empty for accepted
};

// A profile of each kind is created by the group's first row and updated by the following ones.
const Row rows[] = {
    {"wired auto", "Ethernet", {}},
    {"static", "Ethernet", {"method=manual", "address=10.0.0.5", "mask=255.255.255.0"}},
    {"gateway and servers", "Ethernet", {"gateway=10.0.0.1", "dns0=1.1.1.1", "dns1=x"}},
    {"other address", "Ethernet", {"address=10.0.0.6", "gateway="}},
    {"any network", "Ethernet", {"mask=0.0.0.0", "dns0=0.0.0.0"}},
    {"no address", "Ethernet", {"address="}, "", "ipv4.addresses:"},
    {"mask as a number", "Ethernet", {"address=10.0.0.6", "mask=24"}, "", "ipv4.addresses:"},
    {"no link", "Ethernet", {"method="}},
    {"no autoconnect", "Ethernet", {"autocon=false", "method=auto"}},
    {"back to a static address", "Ethernet", {"method=manual", "mask=255.0.0.0"}},
    {"and to auto", "Ethernet", {"method=auto", "autocon=true"}},
    {"open", "Wifi", {"ssid=net"}, "none"},
    {"key", "Wifi", {"key=12345678"}, "wpa2"},
    {"odd key", "Wifi", {"key=\" a\\\"b,c;d%e\\\\f=g \""}, "wpa1-wpa2"},
    {"key of 64 characters", "Wifi", {"key=" + QString(64, 'a')}, "wpa1"},
    {"short key", "Wifi", {"key=1234567"}, "wpa2", "802-11-wireless-security.psk:"},
    {"key removed", "Wifi", {"key="}, "wpa2"},
    {"wep", "Wifi", {"key=abcde"}, "wep"},
    {"static wifi", "Wifi", {"method=manual", "address=10.1.0.5", "mask=255.255.0.0"}, "wep"},
    {"link-local wifi", "Wifi", {"method=x"}, "wep"},
    {"apn", "Modem", {}},
    {"everything", "Modem", {"username=u", "password=p", "pin=1234", "network_id=00101"}},
    {"pin removed", "Modem", {"pin="}}, // with a password: only the PIN is empty
    {"password removed", "Modem", {"password=", "apn="}},
    {"network that is none", "Modem", {"network_id=1"}, "", "gsm.network-id:"},
    {"manual", "Modem", {"network_id=", "method=manual", "address=10.2.0.5", "netmask=255.255.255.255"}},
    {"servers", "Modem", {"dns0=9.9.9.9", "dns1=9.9.9.9"}},
};

/** What NetworkManager holds under @p path, secrets included; new settings without a path. */
ConnectionSettings::Ptr held(const QString& path, ConnectionSettings::ConnectionType type)
{
    if (path.isEmpty()) {
        const ConnectionSettings::Ptr settings(new ConnectionSettings(type));
        settings->setUuid(ConnectionSettings::createNewUuid());
        return settings;
    }
    Connection connection(path); // a new one, without the library's cache
    const ConnectionSettings::Ptr settings(new ConnectionSettings(connection.settings()->toMap()));
    for (const auto group : {Setting::WirelessSecurity, Setting::Gsm}) {
        const Setting::Ptr setting = settings->setting(group);
        if (!setting || setting->isNull())
            continue;
        QDBusPendingReply<NMVariantMapMap> reply = connection.secrets(setting->name());
        reply.waitForFinished();
        if (reply.isValid())
            setting->fromMap(reply.value().value(setting->name()));
    }
    return settings;
}

/** Adds or updates as the service does; sets @p path and returns how NetworkManager has refused. */
QString save(QString& path, const ConnectionSettings& settings, bool hadSecret)
{
    NMVariantMapMap map = settings.toMap();
    if (!path.isEmpty())
        addEmptyGsmSecrets(map);
    QDBusError error;
    do {
        QDBusPendingCall call = path.isEmpty() ? QDBusPendingCall(NetworkManager::addConnection(map))
                                               : QDBusPendingCall(Connection(path).update(map));
        call.waitForFinished();
        error = call.error();
        if (path.isEmpty() && !error.isValid())
            path = QDBusPendingReply<QDBusObjectPath>(call).value().path();
    } while (error.isValid() && correctRefusedMap(map, settings, error.message()));
    if (!error.isValid() && hadSecret && !hasSecret(settings.toMap()))
        Connection(path).clearSecrets().waitForFinished();
    return error.message();
}

} // namespace

class RealNetworkManagerTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    // What NetworkManager took is what it gives back: the next run changes nothing.
    void acceptsWhatIsSent()
    {
        const QMap<QString, ConnectionSettings::ConnectionType> types
            = {{"Ethernet", ConnectionSettings::Wired},
               {"Wifi", ConnectionSettings::Wireless},
               {"Modem", ConnectionSettings::Gsm}};
        const QTemporaryDir folder;
        QMap<QString, QString> paths; // by group
        QFile file(folder.filePath("lanvoy.conf"));
        QVERIFY(file.open(QIODevice::ReadWrite));
        for (const Row& row : rows) {
            for (const QString& key : row.keys) // a later section or key takes the place of an earlier one
                file.write(QString("[%1]\n%2\n").arg(row.group, key).toUtf8());
            file.flush();
            const Config config(file.fileName(), nullptr);
            QString& path = paths[row.group];
            const ConnectionSettings::Ptr settings = held(path, types[row.group]);
            const bool hadSecret = hasSecret(settings->toMap());
            if (Engine::updateConnectionSettings(settings, config, row.security)) {
                const QString refusal = save(path, *settings, hadSecret);
                QVERIFY2(*row.refusal ? refusal.startsWith(row.refusal) : refusal.isEmpty(),
                         qPrintable(row.name + (": " + refusal)));
            }
            if (!*row.refusal)
                QVERIFY2(!Engine::updateConnectionSettings(held(path, {}), config, row.security), row.name);
        }
    }
};

QTEST_GUILESS_MAIN(RealNetworkManagerTest)
#include "realnetworkmanagertest.moc"
