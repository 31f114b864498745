// SPDX-License-Identifier: MIT
#include "engine.h"

#include <ModemManagerQt/Manager>
#include <NetworkManagerQt/Settings>
#include <NetworkManagerQt/WirelessNetwork>

namespace Lanvoy
{

using NetworkManager::Device;
using NetworkManager::ModemDevice;
using NetworkManager::WirelessDevice;

namespace
{

constexpr int scanIntervalMs = 30000;
constexpr int addedDeviceDelayMs = 1000;

} // namespace

void Engine::reload()
{
    log(Log::Info, "Reloading all devices and connections.");
    ipc->bus().start();
    ipc->publishNetworkStatus();
    ipc->publishNetworkInfo();
    monitorNetwork();
    if (follower)
        follower->start();
    const Device::List devices = NetworkManager::networkInterfaces();
    for (const Device::Ptr& device : devices) {
        if (!device->isValid() || isLoopback(device))
            continue;
        log(Log::Info, "[%s] Device found: %s (active=%d, managed=%d)",
            qPrintable(deviceTypeToString(device->type())), qPrintable(device->interfaceName()),
            device->isActive(), device->managed());
        reloadDevice(device);
    }
}

void Engine::monitorNetwork()
{
    // Only connections of this object: the libraries depend on connections of their own.
    disconnect(NetworkManager::settingsNotifier(), nullptr, this, nullptr);
    NetworkManager::Notifier* notifier = NetworkManager::notifier();
    disconnect(notifier, nullptr, this, nullptr);
    connect(notifier, &NetworkManager::Notifier::statusChanged, this, &Engine::onStatusChanged);
    connect(notifier, &NetworkManager::Notifier::primaryConnectionChanged, this,
            &Engine::onPrimaryConnectionChanged);
    connect(notifier, &NetworkManager::Notifier::deviceAdded, this, &Engine::onDeviceAdded);
    connect(notifier, &NetworkManager::Notifier::deviceRemoved, this, &Engine::onDeviceRemoved);
}

void Engine::reloadDevice(const DevicePtr& device)
{
    if (!classFitsType(device)) {
        log(Log::Error, "Device could not be read, skipping it: %s", qPrintable(device->interfaceName()));
        return;
    }
    monitorDevice(device);
    updateConnection(device, *configuration);
    switch (device->type()) {
    case Device::Ethernet: {
        const auto wired = device.objectCast<NetworkManager::WiredDevice>();
        ipc->publishEthernetState(wired);
        ipc->publishEthernetConfig(wired);
        break;
    }
    case Device::Wifi: {
        const auto wireless = device.objectCast<WirelessDevice>();
        ipc->publishWifiState(wireless);
        ipc->publishWifiConfig(wireless);
        ipc->publishWifiAccessPoints(wireless);
        ipc->publishWifiNetworks(wireless);
        break;
    }
    case Device::Modem: {
        const auto modem = device.objectCast<ModemDevice>();
        ipc->publishModemState(modem);
        ipc->publishModemConfig(modem);
        ipc->publishDeviceModemSignal(modem);
        followModemStats(mapDeviceState(device->state()));
        break;
    }
    default:
        log(Log::Warning, "Skipping device: %s", qPrintable(device->interfaceName()));
        break;
    }
    if (follower)
        follower->deviceLoaded(device);
}

void Engine::monitorDevice(const DevicePtr& device)
{
    log(Log::Info, "[%s] Started monitoring device: %s", qPrintable(deviceTypeToString(device->type())),
        qPrintable(device->interfaceName()));
    // Only connections of this object: others of a wireless device keep its list of networks correct.
    disconnect(device.data(), nullptr, this, nullptr);
    connect(device.data(), &Device::stateChanged, this, &Engine::onDeviceStateChanged);
    connect(device.data(), &Device::managedChanged, this, &Engine::onDeviceManagedChanged);
    connect(device.data(), &Device::interfaceNameChanged, this, &Engine::onInterfaceNameChanged);
    // Compatibility: a wired device's carrier is not followed; it is tested when a connection is provisioned.
    if (device->type() == Device::Wifi)
        monitorWifi(device.objectCast<WirelessDevice>());
    else if (device->type() == Device::Modem)
        monitorModem(device.objectCast<ModemDevice>());
}

void Engine::monitorWifi(const WirelessDevice::Ptr& device)
{
    // The handlers keep the path, not the pointer: a kept device would come back to life after a restart.
    const QString uni = device->uni();
    connect(device.data(), &WirelessDevice::accessPointAppeared, this,
            [this, uni](const QString& point) { onAccessPointAppeared(uni, point); });
    connect(device.data(), &WirelessDevice::networkAppeared, this,
            [this, uni](const QString& ssid) { onNetworkAppeared(uni, ssid); });
    scanTimer.reset(new QTimer(this));
    connect(scanTimer.data(), &QTimer::timeout, this, [this, uni] { onScanTimer(uni); });
    scanTimer->start(scanIntervalMs);
}

void Engine::monitorModem(const ModemDevice::Ptr& device)
{
    const ModemManager::ModemDevice::Ptr known = ModemManager::findModemDevice(device->udi());
    const ModemManager::Modem::Ptr modem = known ? known->modemInterface() : nullptr;
    if (!modem)
        return;
    const QString uni = device->uni();
    const QString udi = device->udi();
    // The bus watch's signals, because the library's leave out what changes while it reads the modem. The
    // context is the library's object, so that these connections end with it.
    BusWatch& bus = ipc->bus();
    disconnect(&bus, nullptr, modem.data(), nullptr);
    connect(&bus, &BusWatch::signalQualityChanged, modem.data(), [=](const QString& path, uint quality) {
        if (path == udi)
            onSignalQuality(uni, quality);
    });
    connect(&bus, &BusWatch::accessTechnologiesChanged, modem.data(),
            [=](const QString& path, BusWatch::Technologies technologies) {
                if (path == udi)
                    onAccessTechnologies(uni, technologies);
            });
    onAccessTechnologies(uni, bus.accessTechnologiesOf(*modem));
    onSignalQuality(uni, bus.signalQualityOf(*modem));
}

void Engine::followModemStats(DeviceState state)
{
    if (state == Connected)
        startMonitorModemStats();
    else
        stopMonitorModemStats();
}

void Engine::onAccessPointAppeared(const QString& uni, const QString& point)
{
    const auto device = deviceAt<WirelessDevice>(uni);
    const auto accessPoint = device ? device->findAccessPoint(point) : nullptr;
    if (!accessPoint)
        return;
    log(Log::Info, "[Wifi] AccessPoint '%s' appeared (dev=%s, signal=%d%%).", qPrintable(accessPoint->ssid()),
        qPrintable(device->interfaceName()), accessPoint->signalStrength());
}

void Engine::onNetworkAppeared(const QString& uni, const QString& ssid)
{
    const auto device = deviceAt<WirelessDevice>(uni);
    const auto network = device ? device->findNetwork(ssid) : nullptr;
    if (!network)
        return;
    log(Log::Info, "[Wifi] Network '%s' found (dev=%s, signal=%d%%).", qPrintable(network->ssid()),
        qPrintable(device->interfaceName()), network->signalStrength());
    ipc->publishWifiNetworks(device);
}

void Engine::onScanTimer(const QString& uni)
{
    const QString type = deviceTypeToString(Device::Wifi);
    log(Log::Debug, "[%s] Scanning for  Wifi networks.", qPrintable(type));
    const auto device = deviceAt<WirelessDevice>(uni);
    if (!device) {
        log(Log::Info, "[%s] Failed to scan for Wifi networks: %s", qPrintable(type), "Device not found");
        return;
    }
    QDBusPendingReply<> reply = device->requestScan();
    reply.waitForFinished(); // blocks the event loop until NetworkManager answers
    if (reply.isValid()) {
        ipc->publishWifiAccessPoints(device);
        ipc->publishWifiNetworks(device);
    } else {
        log(Log::Info, "[%s] Failed to scan for Wifi networks: %s", qPrintable(type),
            qPrintable(reply.error().message()));
    }
}

void Engine::onSignalQuality(const QString& uni, uint quality)
{
    const auto device = deviceAt<ModemDevice>(uni);
    if (!device)
        return;
    log(Log::Info, "[Modem] Signal changed '%u' (dev=%s).", quality, qPrintable(device->interfaceName()));
    ipc->publishDeviceModemSignal(device);
}

void Engine::onAccessTechnologies(const QString& uni, QFlags<MMModemAccessTechnology> technologies)
{
    const auto device = deviceAt<ModemDevice>(uni);
    if (!device)
        return;
    log(Log::Info, "[Modem] Access Technologies changed '%s' (dev=%s).",
        qPrintable(accessTechnologiesToString(technologies)), qPrintable(device->interfaceName()));
    ipc->publishDeviceModemSignal(device);
}

void Engine::onStatusChanged(NetworkManager::Status status)
{
    log(Log::Info, "[Network] Status changed: %d (%s)", status, qPrintable(statusToString(status)));
    ipc->publishNetworkStatus();
}

void Engine::onPrimaryConnectionChanged(const QString& uni)
{
    const NetworkManager::ActiveConnection::Ptr connection = getConnectionFromUni(uni);
    if (!connection)
        return;
    const NetworkManager::Connection::Ptr profile = connection->connection();
    log(Log::Info, "[Network] Primary connection changed: %s",
        qPrintable(profile ? profile->name() : QString()));
    ipc->publishNetworkStatus();
}

void Engine::onDeviceAdded(const QString& uni)
{
    const DevicePtr device = getDeviceFromUni(uni);
    if (!device || !device->isValid())
        return;
    log(Log::Info, "Device added: %s (dev=%s, active=%d, managed=%d)",
        qPrintable(deviceTypeToString(device->type())), qPrintable(device->interfaceName()),
        device->isActive(), device->managed());
    if (isLoopback(device))
        return;
    // NetworkManager reuses paths after a restart: the same path may be another device, and the library would
    // list the old connections without names.
    QTimer::singleShot(addedDeviceDelayMs, this, [this, device, instance = ipc->bus().networkManager()] {
        if (ipc->bus().libraryHasRead(instance))
            reloadDevice(device);
        reportStatus();
    });
}

void Engine::onDeviceRemoved(const QString& uni)
{
    log(Log::Info, "Device removed: %s", qPrintable(uni));
    reportStatus();
}

void Engine::onDeviceStateChanged(Device::State newstate, Device::State oldstate,
                                  Device::StateChangeReason reason)
{
    const DevicePtr device = getDeviceFromSender(sender());
    if (!device)
        return;
    const DeviceState state = mapDeviceState(newstate);
    if (state == mapDeviceState(oldstate))
        return;
    log(Log::Info, "[%s] State changed: %s (dev=%s, reason=%s).",
        qPrintable(deviceTypeToString(device->type())), qPrintable(deviceStateToString(state)),
        qPrintable(device->interfaceName()), qPrintable(stateChangeReasonToString(reason)));
    ipc->publishDeviceState(device);
    if (device->type() == Device::Modem)
        followModemStats(state);
    reportStatus();
}

void Engine::onDeviceManagedChanged()
{
    const DevicePtr device = getDeviceFromSender(sender());
    if (!device)
        return;
    log(Log::Info, "[%s] Device is %s managed (name=%s).", qPrintable(deviceTypeToString(device->type())),
        device->managed() ? "now" : "no longer", qPrintable(device->interfaceName()));
}

void Engine::onInterfaceNameChanged()
{
    const DevicePtr device = getDeviceFromSender(sender());
    if (!device)
        return;
    log(Log::Info, "[%s] Device interface name changed: %s.", qPrintable(deviceTypeToString(device->type())),
        qPrintable(device->interfaceName()));
}

} // namespace Lanvoy
