#include "engine.h"

#include <QCoreApplication>

#include <cstdarg>
#include <cstdlib>

namespace Lanvoy
{

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
    wireStatsTimer();
    pruneStats();
}

Engine::~Engine()
{
    commands.clear();
    scanTimer.reset();
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
}

void Engine::onIPCDiscconnected()
{
    log(Log::Info, "IPC Disconnected.");
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
