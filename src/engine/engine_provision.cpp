// SPDX-License-Identifier: MIT
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
    const std::optional<Target> target = chooseTarget(device, config);
    if (!target)
        return {};
    log(Log::Info, "[%s] Checking connection: %s", qPrintable(kindOf(*target)), qPrintable(target->name));
    if (target->name.isEmpty())
        return {};
    const Connection::Ptr connection = findConnection(target->name, DevicePtr());
    return connection ? refreshConnection(*target, connection, config) : createConnection(*target, config);
}

QString Engine::kindOf(const Target& target)
{
    return deviceTypeToString(target.device->type());
}

std::optional<Engine::Target> Engine::chooseTarget(const DevicePtr& device, const Config& config)
{
    switch (device->type()) {
    case Device::Ethernet:
        return Target {device, config.ethernet().id, ConnectionSettings::Wired};
    case Device::Wifi:
        return chooseAccessPoint(device, config.wifi().ssid);
    case Device::Modem:
        return Target {device, config.modem().id, ConnectionSettings::Gsm};
    default:
        return Target {device, QString(), ConnectionSettings::Unknown};
    }
}

std::optional<Engine::Target> Engine::chooseAccessPoint(const DevicePtr& device, const QString& ssid)
{
    if (ssid.isEmpty()) {
        log(Log::Info, "[%s] SSID not configured. Will not attempt to connect.",
            qPrintable(deviceTypeToString(device->type())));
        return std::nullopt;
    }
    const NetworkManager::AccessPoint::Ptr accessPoint = findAccessPoint(device, ssid);
    if (!accessPoint) {
        log(Log::Info, "[Wifi] Configured access point '%s' not in range. Will not attempt to connect.",
            qPrintable(ssid));
        return std::nullopt;
    }
    return Target {device, ssid, ConnectionSettings::Wireless, accessPoint->uni(), apSecurity(accessPoint)};
}

QSharedPointer<Connection> Engine::createConnection(const Target& target, const Config& config)
{
    log(Log::Info, "[%s] Connection '%s' does not exist. Creating and activating.",
        qPrintable(kindOf(target)), qPrintable(target.name));
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
    } while (reply.isError() && correctForRetry(map, *settings, reply.error(), target));

    if (!reply.isValid()) {
        log(Log::Info, "[%s] Failed to create connection '%s' : %s", qPrintable(kindOf(target)),
            qPrintable(target.name), qPrintable(reply.error().message()));
        return {};
    }
    log(Log::Info, "[%s] Connection '%s' created successfully.", qPrintable(kindOf(target)),
        qPrintable(target.name));
    return NetworkManager::findConnection(reply.argumentAt<0>().path());
}

QSharedPointer<Connection> Engine::refreshConnection(const Target& target, const Connection::Ptr& connection,
                                                     const Config& config)
{
    log(Log::Info, "[%s] Connection '%s' already exists.", qPrintable(kindOf(target)),
        qPrintable(target.name));
    // A copy, because the library hands out its cache, which must keep showing what is in force.
    const ConnectionSettings::Ptr settings(new ConnectionSettings(connection->settings()->toMap()));
    fetchSecrets(target, *connection, settings);
    const bool hadSecret = hasSecret(settings->toMap());

    if (updateConnectionSettings(settings, config, target.security)) {
        log(Log::Info, "[%s] Connection settings have changed. Applying new settings.",
            qPrintable(kindOf(target)));
        if (mustWait(target))
            return {};
        if (!saveSettings(target, *connection, settings))
            return {};
        // Only after the update: a refused one must not cost the secrets that are in force.
        if (hadSecret && !hasSecret(settings->toMap()))
            clearSecrets(target, *connection);
        if (lacksCarrier(target.device) || !activate(target, *connection))
            return {};
        log(Log::Info, "[%s] Connection '%s' updated.", qPrintable(kindOf(target)), qPrintable(target.name));
        return connection;
    }

    log(Log::Info, "[%s] No update required for connection '%s'.", qPrintable(kindOf(target)),
        qPrintable(target.name));
    if (lacksCarrier(target.device))
        return {};
    const NetworkManager::ActiveConnection::Ptr active = target.device->activeConnection();
    if (active && active->connection() == connection)
        return connection;
    log(Log::Info, "[%s] Connection '%s' not active. Activating.", qPrintable(kindOf(target)),
        qPrintable(target.name));
    if (!activate(target, *connection))
        return {};
    log(Log::Info, "[%s] Connection '%s' activated.", qPrintable(kindOf(target)), qPrintable(target.name));
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
            log(Log::Info, "[%s] Failed to get secrets: '%s' : %s", qPrintable(kindOf(target)),
                qPrintable(target.name), qPrintable(reply.error().message()));
    }
    if (settings->connectionType() == ConnectionSettings::Gsm) {
        const Setting::Ptr gsm = settings->setting(Setting::Gsm);
        QDBusPendingReply<NMVariantMapMap> reply = connection.secrets(gsm->name());
        reply.waitForFinished();
        if (reply.isValid()) // Compatibility: a refusal is not logged here.
            gsm->secretsFromMap(reply.value().value(gsm->name()));
    }
}

// An update that carries any secret replaces them all; one that carries none keeps those that are stored.
void Engine::clearSecrets(const Target& target, Connection& connection)
{
    QDBusPendingReply<> reply = connection.clearSecrets();
    reply.waitForFinished();
    if (reply.isError())
        log(Log::Debug, "[%s] Failed to clear secrets: '%s' : %s", qPrintable(kindOf(target)),
            qPrintable(target.name), qPrintable(reply.error().message()));
}

bool Engine::saveSettings(const Target& target, Connection& connection,
                          const ConnectionSettings::Ptr& settings)
{
    NMVariantMapMap map = settings->toMap();
    addEmptyGsmSecrets(map); // Compatibility: whatever the kind of the connection.
    QDBusPendingReply<> reply;
    do {
        reply = connection.update(map);
        reply.waitForFinished();
    } while (reply.isError() && correctForRetry(map, *settings, reply.error(), target));

    if (!reply.isValid()) {
        log(Log::Info, "[%s] Failed to update connection '%s' : %s", qPrintable(kindOf(target)),
            qPrintable(target.name), qPrintable(reply.error().message()));
        return false;
    }
    // Documents published in this pass show the library's cache, which would learn of the change only later.
    const ConnectionSettings::Ptr cache = connection.settings();
    cache->setAutoconnect(settings->autoconnect());
    cache->fromMap(withoutSecrets(map));
    return true;
}

bool Engine::correctForRetry(NMVariantMapMap& map, const ConnectionSettings& settings,
                             const QDBusError& error, const Target& target)
{
    if (!correctRefusedMap(map, settings, error.message()))
        return false;
    log(Log::Debug, "[%s] Settings of connection '%s' refused, sending them corrected : %s",
        qPrintable(kindOf(target)), qPrintable(target.name), qPrintable(error.message()));
    return true;
}

// A request now could reach a different connection or create a duplicate. After the restart NetworkManager
// announces every device again, which provisions it again.
bool Engine::mustWait(const Target& target)
{
    if (!ipc->bus().libraryIsStale())
        return false;
    log(Log::Info, "[%s] NetworkManager restarts. Connection '%s' will be checked again.",
        qPrintable(kindOf(target)), qPrintable(target.name));
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
        log(Log::Info, "[%s] Failed to activate connection: %s", qPrintable(kindOf(target)),
            qPrintable(reply.error().message()));
        return false;
    }
    return true;
}

} // namespace Lanvoy
