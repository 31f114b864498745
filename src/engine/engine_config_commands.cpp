// SPDX-License-Identifier: MIT
#include "engine.h"

#include "configfields.h"

namespace Lanvoy
{

using NetworkManager::Device;

// Nothing is published on success: a client that wants to see the result asks for it.

void Engine::processEthernetConfigSetCommand(const QJsonObject& data)
{
    // Compatibility: the error for a missing device names the get command, here and for wifi.
    const DevicePtr device = requestedDevice(data, Device::Ethernet, QStringLiteral("ethernet/config/get"));
    if (!device)
        return;
    if (device->type() != Device::Ethernet) { // a safeguard: the lookup has selected by kind
        ipc->publishError(QStringLiteral("ethernet/config/set"),
                          QLatin1String("Not an Ethernet device: ") + requestedName(data));
        return;
    }
    Config::Ethernet record = configuration->ethernet();
    assignFields(record, data);
    configuration->setEthernet(record);
    updateConnection(device, *configuration);
}

void Engine::processWifiConfigSetCommand(const QJsonObject& data)
{
    const DevicePtr device = requestedDevice(data, Device::Wifi, QStringLiteral("wifi/config/get"));
    if (!device)
        return;
    if (device->type() != Device::Wifi) { // a safeguard, as above
        ipc->publishError(QStringLiteral("wifi/config/set"),
                          QLatin1String("Not a Wifi device: ") + requestedName(data));
        return;
    }
    Config::Wifi record = configuration->wifi();
    assignFields(record, data);
    configuration->setWifi(record);
    updateConnection(device, *configuration);
}

void Engine::processModemConfigSetCommand(const QJsonObject& data)
{
    const DevicePtr device = requestedDevice(data, Device::Modem, QStringLiteral("modem/config/set"));
    if (!device)
        return;
    Config::Modem record = configuration->modem();
    assignFields(record, data);
    configuration->setModem(record);
    updateConnection(device, *configuration);
}

} // namespace Lanvoy
