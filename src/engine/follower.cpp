// SPDX-License-Identifier: MIT
#include "follower.h"

#include "ipc/ipc.h"

#include <NetworkManagerQt/Manager>
#include <NetworkManagerQt/Settings>

#include <algorithm>
#include <cstdarg>

namespace Lanvoy
{

using NetworkManager::Connection;
using NetworkManager::Device;
using NetworkManager::Notifier;
using NetworkManager::SettingsNotifier;
using NetworkManager::WiredDevice;
using NetworkManager::WirelessDevice;

namespace
{

// However long a storm of events lasts, there are at most five rounds a second.
constexpr int roundDelayMs = 200;
// The scan lists are large, and in a crowded place access points come and go all the time.
constexpr int scanPauseMs = 2000;

bool lists(Device& device, const QString& profile)
{
    const Connection::List connections = device.availableConnections();
    return std::any_of(connections.cbegin(), connections.cend(),
                       [&profile](const Connection::Ptr& c) { return c->path() == profile; });
}

} // namespace

Follower::Follower(IPC& messaging)
    : ipc(messaging)
{
    ipc.rememberPublished();
    timer.setSingleShot(true);
    scanPause.setSingleShot(true);
    connect(&timer, &QTimer::timeout, this, &Follower::checkNext);
    connect(&scanPause, &QTimer::timeout, this, [this] {
        if (!marks.empty() && !timer.isActive())
            timer.start(0);
    });
    // The next session begins with the publication of everything.
    connect(&ipc, &IPC::disconnected, this, &Follower::forgetMarks);
}

void Follower::start()
{
    if (started)
        return;
    started = true;
    const Notifier* notifier = NetworkManager::notifier();
    connect(notifier, &Notifier::connectivityChanged, this, &Follower::markStatus);
    connect(notifier, &Notifier::primaryConnectionChanged, this, &Follower::markStatus);
    connect(notifier, &Notifier::activeConnectionsChanged, this, &Follower::markStatus);
    connect(notifier, &Notifier::deviceRemoved, this, &Follower::onDeviceRemoved);
    const SettingsNotifier* settings = NetworkManager::settingsNotifier();
    connect(settings, &SettingsNotifier::hostnameChanged, this, &Follower::markStatus);
    connect(settings, &SettingsNotifier::connectionAdded, this, [this] { markAll(Config); });
    connect(settings, &SettingsNotifier::connectionRemoved, this, [this] { markAll(Config); });
    connect(&ipc.bus(), &BusWatch::ipv4ConfigChanged, this, [this] {
        markStatus();
        markAll(State);
    });
    ipc.bus().followModems();
    connect(&ipc.bus(), &BusWatch::modemChanged, this, &Follower::markModems);
}

void Follower::deviceLoaded(const Device::Ptr& device)
{
    const QString uni = device->uni();
    loaded.insert(uni, device->type());
    disconnect(device.data(), nullptr, this, nullptr);
    connect(device.data(), &Device::connectionStateChanged, this, [this, uni] { announced.insert(uni); });
    connect(device.data(), &Device::stateChanged, this, [this, uni] {
        announced.remove(uni);
        markStatus();
        mark(State, uni);
    });
    for (auto signal : {&Device::activeConnectionChanged, &Device::managedChanged})
        connect(device.data(), signal, this, [this, uni] { mark(State, uni); });
    connect(device.data(), &Device::interfaceNameChanged, this, [this, uni] {
        markStatus();
        for (const Part part : {State, Config, Scan})
            mark(part, uni);
    });
    connect(device.data(), &Device::availableConnectionChanged, this, [this, uni] {
        mark(Config, uni);
        if (const Device::Ptr present = NetworkManager::findNetworkInterface(uni))
            followProfiles(*present);
    });
    followProfiles(*device);
    if (const auto wired = device.objectCast<WiredDevice>())
        followWired(*wired);
    else if (const auto wireless = device.objectCast<WirelessDevice>())
        followWireless(*wireless);
    markStatus(); // the states that it has had before were not followed
}

void Follower::followWired(const WiredDevice& device)
{
    const auto markState = [this, uni = device.uni()] { mark(State, uni); };
    connect(&device, &WiredDevice::carrierChanged, this, markState);
    connect(&device, &WiredDevice::hardwareAddressChanged, this, markState);
}

void Follower::followWireless(const WirelessDevice& device)
{
    const QString uni = device.uni();
    const auto markState = [this, uni] { mark(State, uni); };
    const auto markScan = [this, uni] { mark(Scan, uni); };
    connect(&device, &WirelessDevice::hardwareAddressChanged, this, markState);
    connect(&device, &WirelessDevice::activeAccessPointChanged, this, markState);
    // The one in use is the reference point of its network.
    for (auto signal : {&WirelessDevice::activeAccessPointChanged, &WirelessDevice::accessPointAppeared,
                        &WirelessDevice::accessPointDisappeared, &WirelessDevice::networkAppeared,
                        &WirelessDevice::networkDisappeared})
        connect(&device, signal, this, markScan);
}

void Follower::followProfiles(Device& device)
{
    const Connection::List connections = device.availableConnections();
    for (const Connection::Ptr& connection : connections)
        connect(connection.data(), &Connection::updated, this, &Follower::onProfileUpdated,
                Qt::UniqueConnection);
}

void Follower::onDeviceRemoved(const QString& uni)
{
    loaded.remove(uni);
    announced.remove(uni);
    markStatus();
}

void Follower::onProfileUpdated()
{
    const auto* profile = qobject_cast<Connection*>(sender());
    if (!profile)
        return;
    markStatus(); // it shows the name of the primary connection's profile
    const QStringList unis = loaded.keys();
    for (const QString& uni : unis) {
        const Device::Ptr device = NetworkManager::findNetworkInterface(uni);
        if (device && lists(*device, profile->path()))
            mark(Config, uni);
    }
}

void Follower::mark(Part part, const QString& uni)
{
    if (!ipc.hasSession() || (part != Status && !loaded.contains(uni)))
        return;
    if (marks.empty() && round.empty())
        log(Log::Debug, "Something has changed.");
    marks.insert({part, uni});
    if (!timer.isActive() && !(part == Scan && scanPause.isActive()))
        timer.start(roundDelayMs);
}

void Follower::markAll(Part part)
{
    for (auto device = loaded.cbegin(); device != loaded.cend(); ++device)
        mark(part, device.key());
}

void Follower::markModems()
{
    for (auto device = loaded.cbegin(); device != loaded.cend(); ++device) {
        if (*device == Device::Modem)
            mark(State, device.key());
    }
}

void Follower::forgetMarks()
{
    timer.stop();
    scanPause.stop();
    marks.clear();
    round.clear();
}

// Scan lists come last, so that they can be left for a later round.
void Follower::beginRound()
{
    const Mark firstScan(Scan, QString());
    const auto last = scanPause.isActive() ? marks.lower_bound(firstScan) : marks.end();
    round.insert(marks.begin(), last);
    marks.erase(marks.begin(), last);
    if (round.lower_bound(firstScan) != round.end())
        scanPause.start(scanPauseMs);
    checked = published = 0;
}

// One document per turn of the event loop: each may wait for NetworkManager, and commands go in between.
void Follower::checkNext()
{
    if (round.empty())
        beginRound();
    if (!round.empty())
        check(round.extract(round.begin()).value());
    if (!round.empty()) {
        timer.start(0);
        return;
    }
    log(Log::Debug, "Checked: %d, published: %d, waiting: %d.", checked, published,
        static_cast<int>(marks.size()));
    const bool scanOnly = !marks.empty() && marks.begin()->first == Scan;
    if (!marks.empty() && !(scanOnly && scanPause.isActive()))
        timer.start(roundDelayMs);
}

void Follower::check(const Mark& mark)
{
    const auto& [part, uni] = mark;
    const Device::Ptr device
        = loaded.contains(uni) ? NetworkManager::findNetworkInterface(uni) : Device::Ptr();
    if (part != Status && !device)
        return;
    // The engine publishes the new state first. A second time it does not wait: the signal may be lost.
    if (part == State && announced.remove(uni)) {
        this->mark(part, uni);
        return;
    }
    ++checked;
    published += ipc.publishChanges([this, part = part, &device] { publish(part, device); });
}

void Follower::publish(Part part, const Device::Ptr& device)
{
    switch (part) {
    case Status:
        ipc.publishNetworkStatus();
        break;
    case State:
        ipc.publishDeviceState(device);
        if (const auto modem = device.objectCast<NetworkManager::ModemDevice>())
            ipc.publishDeviceModemSignal(modem);
        break;
    case Config:
        ipc.publishDeviceConfig(device);
        break;
    case Scan:
        if (const auto wireless = device.objectCast<WirelessDevice>()) {
            ipc.publishWifiAccessPoints(wireless);
            ipc.publishWifiNetworks(wireless);
        }
        break;
    }
}

void Follower::log(Log::Level level, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    Log::vprint(level, "[Follower] ", format, args);
    va_end(args);
}

} // namespace Lanvoy
