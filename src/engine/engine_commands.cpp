// SPDX-License-Identifier: MIT
#include "engine.h"

namespace Lanvoy
{

using NetworkManager::Device;

void Engine::fillCommandTable()
{
    commands = {
        {QStringLiteral("status/get"), &Engine::processNetworkStatusCommand},
        {QStringLiteral("info/get"), &Engine::processNetworkInfoCommand},
        {QStringLiteral("ethernet/state/get"), &Engine::processEthernetStateGetCommand},
        {QStringLiteral("ethernet/config/get"), &Engine::processEthernetConfigGetCommand},
        {QStringLiteral("ethernet/config/set"), &Engine::processEthernetConfigSetCommand},
        {QStringLiteral("wifi/state/get"), &Engine::processWifiStateGetCommand},
        {QStringLiteral("wifi/config/get"), &Engine::processWifiConfigGetCommand},
        {QStringLiteral("wifi/config/set"), &Engine::processWifiConfigSetCommand},
        {QStringLiteral("wifi/aps/get"), &Engine::processWifiApsGetCommand},
        {QStringLiteral("wifi/networks/get"), &Engine::processWifiNetworksGetCommand},
        {QStringLiteral("modem/state/get"), &Engine::processModemStateGetCommand},
        {QStringLiteral("modem/stats/get"), &Engine::processModemStatsGetCommand},
        {QStringLiteral("modem/config/get"), &Engine::processModemConfigGetCommand},
        {QStringLiteral("modem/config/set"), &Engine::processModemConfigSetCommand},
    };
}

void Engine::onIPCCommandReceived(const QString& command, const QJsonObject& data)
{
    const CommandHandler handler = commands.value(command);
    if (!handler) {
        log(Log::Error, "Unsupported command '%s'", qPrintable(command));
        ipc->publishError(command, QStringLiteral("Unsupported command"));
        return;
    }
    log(Log::Info, "Command Received : %s", qPrintable(command));
    (this->*handler)(data);
}

QString Engine::requestedName(const QJsonObject& data)
{
    return data.value(QLatin1String("interface")).toString();
}

Engine::DevicePtr Engine::requestedDevice(const QJsonObject& data, Device::Type type, const QString& command)
{
    const QString name = requestedName(data);
    DevicePtr device = findDevice(name, type);
    if (!device)
        ipc->publishError(command, QLatin1String("Invalid device specified: ") + name);
    return device;
}

void Engine::processNetworkStatusCommand(const QJsonObject& /*data*/)
{
    ipc->publishNetworkStatus();
}

void Engine::processNetworkInfoCommand(const QJsonObject& /*data*/)
{
    ipc->publishNetworkInfo();
}

void Engine::processEthernetStateGetCommand(const QJsonObject& data)
{
    if (const DevicePtr device
        = requestedDevice(data, Device::Ethernet, QStringLiteral("ethernet/state/get")))
        ipc->publishDeviceState(device);
}

void Engine::processEthernetConfigGetCommand(const QJsonObject& data)
{
    const QString command = QStringLiteral("ethernet/config/get");
    const DevicePtr device = requestedDevice(data, Device::Ethernet, command);
    if (!device)
        return;
    if (device->type() != Device::Ethernet) { // a safeguard: the lookup has selected by kind
        ipc->publishError(command, QLatin1String("Not an Ethernet device: ") + requestedName(data));
        return;
    }
    ipc->publishDeviceConfig(device);
}

void Engine::processWifiStateGetCommand(const QJsonObject& data)
{
    if (const DevicePtr device = requestedDevice(data, Device::Wifi, QStringLiteral("wifi/state/get")))
        ipc->publishDeviceState(device);
}

void Engine::processWifiConfigGetCommand(const QJsonObject& data)
{
    if (const DevicePtr device = requestedDevice(data, Device::Wifi, QStringLiteral("wifi/config/get")))
        ipc->publishDeviceConfig(device);
}

void Engine::processWifiApsGetCommand(const QJsonObject& data)
{
    if (const DevicePtr device = requestedDevice(data, Device::Wifi, QStringLiteral("wifi/aps/get")))
        ipc->publishWifiAccessPoints(device.objectCast<NetworkManager::WirelessDevice>());
}

void Engine::processWifiNetworksGetCommand(const QJsonObject& data)
{
    if (const DevicePtr device = requestedDevice(data, Device::Wifi, QStringLiteral("wifi/networks/get")))
        ipc->publishWifiNetworks(device.objectCast<NetworkManager::WirelessDevice>());
}

void Engine::processModemStateGetCommand(const QJsonObject& data)
{
    if (const DevicePtr device = requestedDevice(data, Device::Modem, QStringLiteral("modem/state/get")))
        ipc->publishDeviceState(device);
}

void Engine::processModemStatsGetCommand(const QJsonObject& data)
{
    // The device only has to exist: usage is counted per month, not per device.
    if (requestedDevice(data, Device::Modem, QStringLiteral("modem/stats/get")))
        publishModemStats();
}

void Engine::processModemConfigGetCommand(const QJsonObject& data)
{
    if (const DevicePtr device = requestedDevice(data, Device::Modem, QStringLiteral("modem/config/get")))
        ipc->publishDeviceConfig(device);
}

} // namespace Lanvoy
