// SPDX-License-Identifier: MIT
#include "engine.h"

#include "config/diskroom.h"
#include "snapshot.h"
#include "usage.h"

#include <ModemManagerQt/Manager>

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QTextStream>

#include <limits>

namespace Lanvoy
{

using NetworkManager::Device;

namespace
{

// Under /tmp it vanishes at a reboot, when the kernel's counters start from 0.
constexpr char snapshotPath[] = "/tmp/modem-snapshot.ini";

/** The kernel's folder about a network interface; it exists while the interface does. */
QString interfacePath(const QString& interface)
{
    return QLatin1String("/sys/class/net/") + interface;
}

} // namespace

qint64 Engine::readIntegerFromFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    return QTextStream(&file).readLine().toLongLong();
}

void Engine::wireStatsTimer()
{
    const quint64 intervalMs = configuration->modem().usageSec * Q_UINT64_C(1000);
    if (intervalMs == 0)
        return;
    connect(&statsTimer, &QTimer::timeout, this, &Engine::updateModemStats);
    statsTimer.setInterval(static_cast<int>(qMin<quint64>(intervalMs, std::numeric_limits<int>::max())));
}

void Engine::pruneStats()
{
    if (!hasRoomToSave(statsStore.fileName()))
        return;
    const QDateTime now = QDateTime::currentDateTime();
    const QStringList groups = statsStore.childGroups();
    for (const QString& group : groups) {
        if (isOutdatedMonth(group, now))
            statsStore.remove(group);
    }
}

void Engine::startMonitorModemStats()
{
    if (configuration->modem().usageSec == 0 || statsTimer.isActive())
        return;
    log(Log::Info, "[Modem] Started monitoring Data usage");
    statsTimer.start();
    publishModemStats();
}

void Engine::stopMonitorModemStats()
{
    if (!statsTimer.isActive())
        return;
    log(Log::Info, "[Modem] Stopped monitoring Data usage");
    statsTimer.stop();
}

Engine::DevicePtr Engine::connectedModem()
{
    const Device::List devices = NetworkManager::networkInterfaces();
    for (const Device::Ptr& device : devices) {
        if (device->isValid() && !isLoopback(device) && device->type() == Device::Modem
            && classFitsType(device) && mapDeviceState(device->state()) == Connected)
            return device;
    }
    return {};
}

// Source: the kernel's counters of the data interface that ModemManager names in the modem's first bearer,
// or, where that is no network interface, of the one that NetworkManager names.
ModemStats Engine::getModemStats(const NetworkManager::ModemDevice::Ptr& device)
{
    const ModemManager::ModemDevice::Ptr known = ModemManager::findModemDevice(device->udi());
    const ModemManager::Modem::Ptr modem = known ? known->modemInterface() : nullptr;
    const ModemManager::Bearer::List bearers = modem ? modem->listBearers() : ModemManager::Bearer::List();
    if (bearers.isEmpty())
        return {};
    QString interface = bearers.first()->interface();
    // During a dialled call the bearer names the serial port; the data passes through the interface above it.
    if (interface.isEmpty() || !QFileInfo::exists(interfacePath(interface)))
        interface = device->ipInterfaceName();
    ModemStats stats;
    const QString counters = interfacePath(interface) + QLatin1String("/statistics/");
    stats.rxbytes = static_cast<quint64>(readIntegerFromFile(counters + QLatin1String("rx_bytes")));
    stats.txbytes = static_cast<quint64>(readIntegerFromFile(counters + QLatin1String("tx_bytes")));
    return stats;
}

void Engine::updateModemStats()
{
    const DevicePtr device = connectedModem();
    if (!device)
        return;
    const ModemStats stats = getModemStats(device.objectCast<NetworkManager::ModemDevice>());
    // A sample that cannot be kept is skipped, and its bytes are booked by the next one that can.
    if (const auto snapshot = openSnapshot(QLatin1String(snapshotPath));
        snapshot && hasRoomToSave(statsStore.fileName()))
        bookSample(stats, *snapshot);
    publishModemStats();
}

void Engine::bookSample(const ModemStats& stats, QSettings& snapshot)
{
    // Compatibility: the kernel counts 64 bits, only the low 32 are booked.
    const Usage counters {static_cast<quint32>(stats.rxbytes), static_cast<quint32>(stats.txbytes)};
    const QDateTime now = QDateTime::currentDateTime();
    const QString month = monthName(now);
    const Usage booked = bookedUsage(readUsage(statsStore, month), counters, readUsage(snapshot, QString()));
    writeUsage(statsStore, month, booked);
    statsStore.sync();

    snapshot.setValue(QStringLiteral("timestamp"), static_cast<quint32>(now.toSecsSinceEpoch()));
    snapshot.setValue(QStringLiteral("duration"), stats.duration);
    snapshot.setValue(QStringLiteral("rxbytes"), stats.rxbytes);
    snapshot.setValue(QStringLiteral("txbytes"), stats.txbytes);
    snapshot.sync();
}

void Engine::publishModemStats()
{
    const QString rx = QStringLiteral("rxbytes");
    const QString tx = QStringLiteral("txbytes");
    QMap<QString, QMap<QString, double>> totals;
    const QStringList groups = statsStore.childGroups();
    for (const QString& group : groups) {
        const Usage usage = readUsage(statsStore, group);
        totals.insert(group, {{rx, megabytes(usage.rxbytes)}, {tx, megabytes(usage.txbytes)}});
    }
    const QString month = monthName(QDateTime::currentDateTime());
    const QMap<QString, double> current = totals.value(month);
    log(Log::Info, "[Modem] Publishing Data usage statistics (%s | U:%.1fM | D:%.1fM)", qPrintable(month),
        current.value(tx), current.value(rx));
    ipc->publishModemStats(totals);
}

} // namespace Lanvoy
