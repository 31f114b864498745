// SPDX-License-Identifier: MIT
#include "engine.h"

#include <NetworkManagerQt/Settings>
#include <NetworkManagerQt/WirelessNetwork>

namespace Lanvoy
{

using NetworkManager::Device;

// Source: the wired device's Carrier property.
bool Engine::isCarrierDetected(const DevicePtr& device)
{
    const auto wired = device.objectCast<NetworkManager::WiredDevice>();
    const bool carrier = wired && wired->carrier();
    const QString type = deviceTypeToString(device->type());
    if (carrier)
        log(Log::Info, "[%s] Carrier detected (cable is plugged).", qPrintable(type));
    else
        log(Log::Info, "[%s] Carrier not detected (cable unplugged). Will not attempt to connect.",
            qPrintable(type));
    return carrier;
}

bool Engine::classFitsType(const DevicePtr& device)
{
    switch (device->type()) {
    case Device::Ethernet:
        return !device.objectCast<NetworkManager::WiredDevice>().isNull();
    case Device::Wifi:
        return !device.objectCast<NetworkManager::WirelessDevice>().isNull();
    case Device::Modem:
        return !device.objectCast<NetworkManager::ModemDevice>().isNull();
    default:
        return true;
    }
}

bool Engine::isLoopback(const DevicePtr& device)
{
    return device->interfaceName() == QLatin1String("lo");
}

Engine::DevicePtr Engine::getDeviceFromUni(const QString& uni)
{
    DevicePtr device = NetworkManager::findNetworkInterface(uni);
    if (!device) // Compatibility: the message names the other lookup.
        log(Log::Error, "getDeviceFromSender(): No device found for %s", qPrintable(uni));
    return device;
}

Engine::DevicePtr Engine::getDeviceFromSender(QObject* sender)
{
    const auto* object = qobject_cast<Device*>(sender);
    const QString uni = object ? object->uni() : QString();
    DevicePtr device = NetworkManager::findNetworkInterface(uni);
    // The sender may predate a restart of NetworkManager; this is the object now at its path.
    if (device && classFitsType(device))
        return device;
    log(Log::Error, "getDeviceFromSender(): No device found for %s", qPrintable(uni));
    return {};
}

QSharedPointer<NetworkManager::ActiveConnection> Engine::getConnectionFromUni(const QString& uni)
{
    NetworkManager::ActiveConnection::Ptr connection = NetworkManager::findActiveConnection(uni);
    if (!connection)
        log(Log::Error, "getConnectionFromUni(): No connection found for %s", qPrintable(uni));
    return connection;
}

Engine::DevicePtr Engine::findDevice(const QString& name, Device::Type type)
{
    const bool anything = !name.isEmpty() || type != Device::UnknownType;
    const Device::List devices = NetworkManager::networkInterfaces();
    for (const Device::Ptr& device : devices) {
        const bool nameFits = name.isEmpty() || device->interfaceName() == name;
        const bool typeFits = type == Device::UnknownType || device->type() == type;
        if (anything && nameFits && typeFits && classFitsType(device))
            return device;
    }
    log(Log::Error, "ERROR: Could not find device with name=%s and type=%s", qPrintable(name),
        qPrintable(deviceTypeToString(type)));
    return {};
}

QSharedPointer<NetworkManager::AccessPoint> Engine::findAccessPoint(const DevicePtr& device,
                                                                    const QString& ssid)
{
    if (!device || device->type() != Device::Wifi)
        return {};
    const auto wireless = device.objectCast<NetworkManager::WirelessDevice>();
    const NetworkManager::WirelessNetwork::List networks = wireless->networks();
    for (const NetworkManager::WirelessNetwork::Ptr& network : networks) {
        if (network->ssid() == ssid)
            return network->referenceAccessPoint();
    }
    return {};
}

QSharedPointer<NetworkManager::Connection> Engine::findConnection(const QString& name,
                                                                  const DevicePtr& device)
{
    const NetworkManager::Connection::List connections
        = device ? device->availableConnections() : NetworkManager::listConnections();
    for (const NetworkManager::Connection::Ptr& connection : connections) {
        if (connection->name() == name)
            return connection;
    }
    return {};
}

} // namespace Lanvoy
