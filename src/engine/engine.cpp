// SPDX-License-Identifier: MIT
#include "engine.h"

#include <QCoreApplication>

#include <cstdarg>
#include <cstdlib>

namespace Lanvoy
{

using NetworkManager::Device;

Engine::Engine(const QString& configFile, QObject* parent)
    : QObject(parent)
    , statsStore(QStringLiteral("./stats/modem.ini"), QSettings::IniFormat)
{
    fillCommandTable();
    configuration.reset(new Config(configFile, parent));
    ipc.reset(new IPC(configuration.data(), parent));
    connect(ipc.data(), &IPC::connected, this, &Engine::onIPCConnected);
    connect(ipc.data(), &IPC::disconnected, this, &Engine::onIPCDiscconnected);
    connect(ipc.data(), &IPC::commandReceived, this, &Engine::onIPCCommandReceived);
    connect(&ipc->bus(), &BusWatch::disconnected, this, &Engine::onBusDisconnected);
    if (qgetenv("LANVOY_FOLLOW") == "1")
        follower.reset(new Follower(*ipc));
    wireStatsTimer();
    pruneStats();
}

Engine::~Engine()
{
    commands.clear();
    scanTimer.reset();
    follower.reset();
    ipc.reset();
    configuration.reset();
}

void Engine::start()
{
    ipc->connect();
}

void Engine::onIPCConnected(const QString& server)
{
    log(Log::Info, "IPC Connected to %s", qPrintable(server));
    reload();
    reportStatus();
}

void Engine::onIPCDiscconnected()
{
    log(Log::Info, "IPC Disconnected.");
    reportStatus();
}

void Engine::reportStatus()
{
    if (!serviceStatus.isWanted())
        return;
    QString line = ipc->hasSession() ? QStringLiteral("Connected to the broker at %1")
                                     : QStringLiteral("No connection to the broker at %1");
    line = line.arg(configuration->mqtt().url);
    const Device::List devices
        = ipc->bus().isStarted() ? NetworkManager::networkInterfaces() : Device::List();
    for (const Device::Ptr& device : devices) {
        if (QList<Device::Type> {Device::Ethernet, Device::Wifi, Device::Modem}.contains(device->type()))
            line += QStringLiteral("; %1: %2")
                        .arg(device->interfaceName(), deviceStateToString(mapDeviceState(device->state())));
    }
    serviceStatus.report(line);
}

// Without the bus the libraries would keep showing their last values. The unit starts a new process.
void Engine::onBusDisconnected()
{
    log(Log::Error, "Lost the system bus, exiting.");
    QCoreApplication::exit(EXIT_FAILURE);
}

void Engine::log(Log::Level level, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    Log::vprint(level, "[Engine] ", format, args);
    va_end(args);
}

} // namespace Lanvoy
