#include "engine.h"

#include "settings.h"

#include <NetworkManagerQt/Settings>

#include <QDateTime>

namespace Lanvoy
{

using NetworkManager::Connection;
using NetworkManager::ConnectionSettings;
using NetworkManager::Device;
using NetworkManager::Setting;

// Failures are logged at info level and end the call; the next device event, reload or command starts over.

QSharedPointer<Connection> Engine::updateConnection(const DevicePtr& device, const Config& config)
{
    if (!device || !device->isValid())
        return {};
    Target target;
    if (!chooseTarget(device, config, target))
        return {};
    log(Log::Info, "[%s] Checking connection: %s", qPrintable(target.kind), qPrintable(target.name));
    if (target.name.isEmpty())
        return {};
    const Connection::Ptr connection = findConnection(target.name, DevicePtr());
    return connection ? refreshConnection(target, connection, config) : createConnection(target, config);
}

bool Engine::chooseTarget(const DevicePtr& device, const Config& config, Target& target)
{
    target.device = device;
    target.kind = deviceTypeToString(device->type());
    switch (device->type()) {
    case Device::Ethernet:
        target.name = config.ethernet().id;
        target.type = ConnectionSettings::Wired;
        return true;
    case Device::Wifi:
        return chooseAccessPoint(config.wifi().ssid, target);
    case Device::Modem:
        target.name = config.modem().id;
        target.type = ConnectionSettings::Gsm;
        return true;
    default:
        return true; // without a name: nothing to provision
    }
}

bool Engine::chooseAccessPoint(const QString& ssid, Target& target)
{
    if (ssid.isEmpty()) {
        log(Log::Info, "[%s] SSID not configured. Will not attempt to connect.", qPrintable(target.kind));
        return false;
    }
    const NetworkManager::AccessPoint::Ptr accessPoint = findAccessPoint(target.device, ssid);
    if (!accessPoint) {
        log(Log::Info, "[Wifi] Configured access point '%s' not in range. Will not attempt to connect.",
            qPrintable(ssid));
        return false;
    }
    target.name = ssid;
    target.type = ConnectionSettings::Wireless;
    target.specificObject = accessPoint->uni();
    target.security = apSecurity(accessPoint);
    return true;
}

QSharedPointer<Connection> Engine::createConnection(const Target& target, const Config& config)
{
    log(Log::Info, "[%s] Connection '%s' does not exist. Creating and activating.", qPrintable(target.kind),
        qPrintable(target.name));
    if (lacksCarrier(target.device) || mustWait(target))
        return {};

    const ConnectionSettings::Ptr settings(new ConnectionSettings(target.type));
    settings->setUuid(ConnectionSettings::createNewUuid());
    settings->setTimestamp(QDateTime::currentDateTime());
    updateConnectionSettings(settings, config, target.security);

    NMVariantMapMap map = settings->toMap();
    QDBusPendingReply<QDBusObjectPath, QDBusObjectPath> reply;
    do {
        reply = NetworkManager::addAndActivateConnection(map, target.device->uni(), target.specificObject);
        reply.waitForFinished(); // blocks the event loop until NetworkManager answers, as every request here
    } while (reply.isError() && mendRefused(map, *settings, reply.error(), target));

    if (!reply.isValid()) {
        log(Log::Info, "[%s] Failed to create connection '%s' : %s", qPrintable(target.kind),
            qPrintable(target.name), qPrintable(reply.error().message()));
        return {};
    }
    log(Log::Info, "[%s] Connection '%s' created successfully.", qPrintable(target.kind),
        qPrintable(target.name));
    return NetworkManager::findConnection(reply.argumentAt<0>().path());
}

QSharedPointer<Connection> Engine::refreshConnection(const Target& target, const Connection::Ptr& connection,
                                                     const Config& config)
{
    log(Log::Info, "[%s] Connection '%s' already exists.", qPrintable(target.kind), qPrintable(target.name));
    // A copy: the object that the library hands out is its cache, and must go on showing what is in force.
    const ConnectionSettings::Ptr settings(new ConnectionSettings(connection->settings()->toMap()));
    fetchSecrets(target, *connection, settings);
    const bool hadSecret = hasSecret(settings->toMap());

    if (updateConnectionSettings(settings, config, target.security)) {
        log(Log::Info, "[%s] Connection settings have changed. Applying new settings.",
            qPrintable(target.kind));
        if (mustWait(target))
            return {};
        if (!saveSettings(target, *connection, settings))
            return {};
        if (hadSecret && !hasSecret(settings->toMap()))
            clearSecrets(target, *connection);
        if (lacksCarrier(target.device) || !activate(target, *connection))
            return {};
        log(Log::Info, "[%s] Connection '%s' updated.", qPrintable(target.kind), qPrintable(target.name));
        return connection;
    }

    log(Log::Info, "[%s] No update required for connection '%s'.", qPrintable(target.kind),
        qPrintable(target.name));
    if (lacksCarrier(target.device))
        return {};
    const NetworkManager::ActiveConnection::Ptr active = target.device->activeConnection();
    if (active && active->connection() == connection)
        return connection;
    log(Log::Info, "[%s] Connection '%s' not active. Activating.", qPrintable(target.kind),
        qPrintable(target.name));
    if (!activate(target, *connection))
        return {};
    log(Log::Info, "[%s] Connection '%s' activated.", qPrintable(target.kind), qPrintable(target.name));
    return connection;
}

void Engine::fetchSecrets(const Target& target, Connection& connection,
                          const ConnectionSettings::Ptr& settings)
{
    const Setting::Ptr security = settings->setting(Setting::WirelessSecurity);
    if (target.device->type() == Device::Wifi && security) {
        QDBusPendingReply<NMVariantMapMap> reply = connection.secrets(security->name());
        reply.waitForFinished();
        if (reply.isValid())
            security->fromMap(reply.value().value(security->name()));
        else
            log(Log::Info, "[%s] Failed to get secrets: '%s' : %s", qPrintable(target.kind),
                qPrintable(target.name), qPrintable(reply.error().message()));
    }
    if (settings->connectionType() == ConnectionSettings::Gsm) {
        const Setting::Ptr gsm = settings->setting(Setting::Gsm);
        QDBusPendingReply<NMVariantMapMap> reply = connection.secrets(gsm->name());
        reply.waitForFinished();
        if (reply.isValid()) // deliberate: a refusal is not logged here
            gsm->secretsFromMap(reply.value().value(gsm->name()));
    }
}

// An update with any secret replaces them all, but one without keeps those that are stored. Only after it,
// because a refused update must not cost the secrets in force.
void Engine::clearSecrets(const Target& target, Connection& connection)
{
    QDBusPendingReply<> reply = connection.clearSecrets();
    reply.waitForFinished();
    if (reply.isError())
        log(Log::Debug, "[%s] Failed to clear secrets: '%s' : %s", qPrintable(target.kind),
            qPrintable(target.name), qPrintable(reply.error().message()));
}

bool Engine::saveSettings(const Target& target, Connection& connection,
                          const ConnectionSettings::Ptr& settings)
{
    NMVariantMapMap map = settings->toMap();
    addEmptyGsmSecrets(map); // deliberate: whatever the kind of the connection
    QDBusPendingReply<> reply;
    do {
        reply = connection.update(map);
        reply.waitForFinished();
    } while (reply.isError() && mendRefused(map, *settings, reply.error(), target));

    if (!reply.isValid()) {
        log(Log::Info, "[%s] Failed to update connection '%s' : %s", qPrintable(target.kind),
            qPrintable(target.name), qPrintable(reply.error().message()));
        return false;
    }
    // The library would learn of the change only later, and documents of this very moment show its cache.
    const ConnectionSettings::Ptr cache = connection.settings();
    cache->setAutoconnect(settings->autoconnect());
    cache->fromMap(withoutSecrets(map));
    return true;
}

bool Engine::mendRefused(NMVariantMapMap& map, const ConnectionSettings& settings, const QDBusError& error,
                         const Target& target)
{
    if (!correctRefusedMap(map, settings, error.message()))
        return false;
    log(Log::Debug, "[%s] Settings of connection '%s' refused, sending them corrected : %s",
        qPrintable(target.kind), qPrintable(target.name), qPrintable(error.message()));
    return true;
}

// A request now would go to another connection, or add one a second time. NetworkManager will announce each
// device again, and that starts over.
bool Engine::mustWait(const Target& target)
{
    if (!ipc->bus().libraryIsStale())
        return false;
    log(Log::Info, "[%s] NetworkManager restarts. Connection '%s' will be checked again.",
        qPrintable(target.kind), qPrintable(target.name));
    return true;
}

bool Engine::lacksCarrier(const DevicePtr& device)
{
    return device->type() == Device::Ethernet && !isCarrierDetected(device);
}

bool Engine::activate(const Target& target, const Connection& connection)
{
    if (mustWait(target))
        return false;
    QDBusPendingReply<QDBusObjectPath> reply
        = NetworkManager::activateConnection(connection.path(), target.device->uni(), target.specificObject);
    reply.waitForFinished();
    if (!reply.isValid()) {
        log(Log::Info, "[%s] Failed to activate connection: %s", qPrintable(target.kind),
            qPrintable(reply.error().message()));
        return false;
    }
    return true;
}

} // namespace Lanvoy
