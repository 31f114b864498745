// SPDX-License-Identifier: MIT
// Runs against a real NetworkManager on the bus that DBUS_SYSTEM_BUS_ADDRESS names; see
// test_real_networkmanager.py.

#include "engine/engine.h"
#include "engine/settings.h"

#include <NetworkManagerQt/Connection>
#include <NetworkManagerQt/Settings>

#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <QTest>

using namespace Lanvoy;
using NetworkManager::Connection;
using NetworkManager::ConnectionSettings;
using NetworkManager::Setting;

namespace
{

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
        // A profile of each kind is created by the group's first row and updated by the following ones.
        QFile table(QStringLiteral(PROFILES));
        QVERIFY(table.open(QIODevice::ReadOnly));
        const QJsonArray rows = QJsonDocument::fromJson(table.readAll()).array();
        QVERIFY(!rows.isEmpty());
        const QMap<QString, ConnectionSettings::ConnectionType> types
            = {{"Ethernet", ConnectionSettings::Wired},
               {"Wifi", ConnectionSettings::Wireless},
               {"Modem", ConnectionSettings::Gsm}};
        const QTemporaryDir folder;
        QMap<QString, QString> paths; // by group
        QFile file(folder.filePath("lanvoy.conf"));
        QVERIFY(file.open(QIODevice::ReadWrite));
        for (const QJsonValue& row : rows) {
            const QString group = row["group"].toString(), name = row["name"].toString();
            const QJsonArray keys = row["keys"].toArray();
            for (const QJsonValue& key : keys) // a later section or key takes the place of an earlier one
                file.write(QString("[%1]\n%2\n").arg(group, key.toString()).toUtf8());
            file.flush();
            const Config config(file.fileName(), nullptr);
            const QString security = row["security"].toString(), expected = row["refusal"].toString();
            QString& path = paths[group];
            const ConnectionSettings::Ptr settings = held(path, types[group]);
            const bool hadSecret = hasSecret(settings->toMap());
            QString refusal;
            if (Engine::updateConnectionSettings(settings, config, security))
                refusal = save(path, *settings, hadSecret);
            QVERIFY2(expected.isEmpty() ? refusal.isEmpty() : refusal.startsWith(expected),
                     qPrintable(name + ": " + refusal));
            if (expected.isEmpty())
                QVERIFY2(!Engine::updateConnectionSettings(held(path, {}), config, security),
                         qPrintable(name));
        }
    }
};

QTEST_GUILESS_MAIN(RealNetworkManagerTest)
#include "realnetworkmanagertest.moc"
