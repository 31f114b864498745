// SPDX-License-Identifier: MIT
#include "ipc.h"

#include "documents.h"
#include "topics.h"

#include <QJsonDocument>
#include <QScopedValueRollback>

#include <optional>
#include <string_view>

namespace Lanvoy
{

namespace
{

using NetworkManager::Connection;
using NetworkManager::Device;
using NetworkManager::Setting;

/** What NetworkManager holds for a device: the settings of its first available connection, and secrets. */
struct HeldConfig {
    NetworkManager::ConnectionSettings::Ptr settings; // null without an available connection
    std::optional<QVariantMap> secrets; // none when there is no such group or they are refused
};

/** @param secretType the group whose secrets NetworkManager is asked for; none for no secrets */
HeldConfig heldConfig(Device& dev, std::optional<Setting::SettingType> secretType = std::nullopt)
{
    const Connection::List connections = dev.availableConnections();
    if (connections.isEmpty())
        return {};
    HeldConfig held {connections.first()->settings(), std::nullopt};
    const Setting::Ptr setting = secretType ? held.settings->setting(*secretType) : nullptr;
    if (!setting || setting->isNull())
        return held;
    QDBusPendingReply<NMVariantMapMap> reply = connections.first()->secrets(setting->name());
    reply.waitForFinished(); // blocks the event loop until NetworkManager answers
    if (reply.isValid())
        held.secrets = reply.value().value(setting->name());
    return held;
}

} // namespace

void IPC::publishNetworkStatus()
{
    publish(Topics::status, networkStatusDocument(watch));
}

void IPC::publishNetworkInfo()
{
    publish(Topics::info, networkInfoDocument());
}

void IPC::publishDeviceState(Device::Ptr dev)
{
    if (!dev)
        return;
    switch (dev->type()) {
    case Device::Ethernet:
        publishEthernetState(dev.objectCast<NetworkManager::WiredDevice>());
        break;
    case Device::Wifi:
        publishWifiState(dev.objectCast<NetworkManager::WirelessDevice>());
        break;
    case Device::Modem:
        publishModemState(dev.objectCast<NetworkManager::ModemDevice>());
        break;
    default:
        break;
    }
}

void IPC::publishDeviceConfig(Device::Ptr dev)
{
    if (!dev)
        return;
    switch (dev->type()) {
    case Device::Ethernet:
        publishEthernetConfig(dev.objectCast<NetworkManager::WiredDevice>());
        break;
    case Device::Wifi:
        publishWifiConfig(dev.objectCast<NetworkManager::WirelessDevice>());
        break;
    case Device::Modem:
        publishModemConfig(dev.objectCast<NetworkManager::ModemDevice>());
        break;
    default:
        break;
    }
}

void IPC::publishEthernetState(NetworkManager::WiredDevice::Ptr dev)
{
    publish(Topics::ethernetState, ethernetStateDocument(*dev, watch), dev->interfaceName());
}

void IPC::publishEthernetConfig(NetworkManager::WiredDevice::Ptr dev)
{
    const QString interface = dev->interfaceName();
    const HeldConfig held = heldConfig(*dev);
    publish(Topics::ethernetConfig, ethernetConfigDocument(interface, held.settings), interface);
}

void IPC::publishWifiState(NetworkManager::WirelessDevice::Ptr dev)
{
    publish(Topics::wifiState, wifiStateDocument(*dev, watch), dev->interfaceName());
}

void IPC::publishWifiConfig(NetworkManager::WirelessDevice::Ptr dev)
{
    const QString interface = dev->interfaceName();
    const HeldConfig held = heldConfig(*dev, Setting::WirelessSecurity);
    publish(Topics::wifiConfig, wifiConfigDocument(interface, held.settings, held.secrets), interface);
}

void IPC::publishWifiAccessPoints(NetworkManager::WirelessDevice::Ptr dev)
{
    const QString interface = dev->interfaceName();
    publish(Topics::wifiAccessPoints, accessPointsDocument(interface, accessPointsOf(*dev)), interface);
}

void IPC::publishWifiNetworks(NetworkManager::WirelessDevice::Ptr dev)
{
    const QString interface = dev->interfaceName();
    publish(Topics::wifiNetworks, networksDocument(interface, networksOf(*dev)), interface);
}

void IPC::publishModemState(NetworkManager::ModemDevice::Ptr modem)
{
    publish(Topics::modemState, modemStateDocument(*modem, watch), modem->interfaceName());
}

void IPC::publishModemStats(QMap<QString, QMap<QString, double>> stats)
{
    publish(Topics::modemStats, modemStatsDocument(stats));
}

void IPC::publishModemConfig(NetworkManager::ModemDevice::Ptr dev)
{
    const QString interface = dev->interfaceName();
    const HeldConfig held = heldConfig(*dev, Setting::Gsm);
    publish(Topics::modemConfig, modemConfigDocument(interface, held.settings, held.secrets), interface);
}

void IPC::publishDeviceModemSignal(NetworkManager::ModemDevice::Ptr modem)
{
    publish(Topics::modemSignal, modemSignalDocument(*modem, watch), modem->interfaceName());
}

void IPC::publishError(const QString& command, const QString& error)
{
    publish(Topics::error, errorDocument(command, error));
}

int IPC::publishChanges(const std::function<void()>& publish)
{
    publishedCount = 0;
    const QScopedValueRollback<bool> rollback(changesOnly, true);
    publish();
    return publishedCount;
}

bool IPC::isRepetition(const Topic& topic, const QByteArray& data, const QString& interface)
{
    if (!remembers || !topic.retain)
        return false;
    const QString key = QLatin1String(topic.name) + QLatin1Char(' ') + interface;
    const std::string_view bytes(data.constData(), static_cast<std::size_t>(data.size()));
    const std::size_t hash = std::hash<std::string_view> {}(bytes);
    const auto last = lastPublished.constFind(key);
    const bool same = last != lastPublished.constEnd() && *last == hash;
    lastPublished.insert(key, hash);
    return same;
}

void IPC::publish(const Topic& topic, const QByteArray& data, const QString& interface)
{
    if (isRepetition(topic, data, interface) && changesOnly)
        return;
    ++publishedCount;
    publish(QLatin1String(topic.name), data, topic.qos, topic.retain);
}

void IPC::publish(const Topic& topic, const QJsonObject& document, const QString& interface)
{
    publish(topic, QJsonDocument(document).toJson(), interface);
}

} // namespace Lanvoy
