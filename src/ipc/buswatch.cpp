// SPDX-License-Identifier: MIT
#include "buswatch.h"

#include <ModemManagerQt/Modem>

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusServiceWatcher>

namespace Lanvoy
{

namespace
{

constexpr char networkManagerService[] = "org.freedesktop.NetworkManager";
constexpr char ip4ConfigInterface[] = "org.freedesktop.NetworkManager.IP4Config";
constexpr char modemManagerService[] = "org.freedesktop.ModemManager1";
constexpr char modemInterface[] = "org.freedesktop.ModemManager1.Modem";
constexpr char propertiesInterface[] = "org.freedesktop.DBus.Properties";
constexpr char objectManagerInterface[] = "org.freedesktop.DBus.ObjectManager";

/** The present owner of NetworkManager's name, empty without one; nothing if the bus could not tell. */
std::optional<QString> ownerNow()
{
    const QDBusConnectionInterface* const bus = QDBusConnection::systemBus().interface();
    if (bus == nullptr) // there is no system bus
        return std::nullopt;
    const QDBusReply<QString> reply = bus->serviceOwner(networkManagerService);
    const bool hasAnswer = reply.isValid()
        || reply.error().name() == QLatin1String("org.freedesktop.DBus.Error.NameHasNoOwner");
    return hasAnswer ? std::optional(reply.value()) : std::nullopt;
}

/**
 * Has the bus deliver all of NetworkManager's signals.
 *
 * The library subscribes to each object by itself, but the bus grants a connection 512 match rules only: with
 * some hundred access points the later ones would keep the values they were first seen with.
 */
void subscribeToAllSignals()
{
    QDBusMessage addMatch = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("AddMatch"));
    addMatch << QStringLiteral("type='signal',sender='%1'").arg(networkManagerService);
    QDBusConnection::systemBus().send(addMatch);
}

template<typename Object>
NetworkManager::IpConfig freshIpv4(const QString& path, QHash<QString, NetworkManager::IpConfig>& known)
{
    const auto entry = known.constFind(path);
    if (entry != known.constEnd())
        return *entry;
    // A new object of the library has no old values. An empty configuration is about to be filled: not kept.
    NetworkManager::IpConfig config = Object(path).ipV4Config();
    if (!config.addresses().isEmpty())
        known.insert(path, config);
    return config;
}

} // namespace

BusWatch::BusWatch()
{
    // QtDBus holds back what a new connection receives until the event loop turns, and then can deliver the
    // newest signal before those: a device's last state would be overwritten by an older one. Now there is
    // none yet.
    QDBusConnection::systemBus().connect(QString(), QStringLiteral("/org/freedesktop/DBus/Local"),
                                         QStringLiteral("org.freedesktop.DBus.Local"),
                                         QStringLiteral("Disconnected"), this, SIGNAL(disconnected()));
}

void BusWatch::start()
{
    if (started)
        return;
    started = true;
    subscribeToAllSignals();
    followOwners();
    followProperties();
}

void BusWatch::followOwners()
{
    auto* const watcher = new QDBusServiceWatcher(this);
    watcher->setConnection(QDBusConnection::systemBus());
    watcher->setWatchMode(QDBusServiceWatcher::WatchForOwnerChange);
    watcher->setWatchedServices({networkManagerService, modemManagerService});
    connect(watcher, &QDBusServiceWatcher::serviceOwnerChanged, this,
            [this](const QString& service, const QString&, const QString& newOwner) {
                if (service == QLatin1String(modemManagerService)) {
                    modems.clear();
                    return;
                }
                owner = newOwner;
                ipv4.clear();
                ipv4Changed = false;
            });
    ownerRead = ownerNow();
    owner = ownerRead.value_or(QString());
}

void BusWatch::followProperties()
{
    QDBusConnection bus = QDBusConnection::systemBus();
    const QString anyPath;
    const QString anySignature;
    // "Ip4Config" of the latter two is the path of the configuration in use.
    for (const char* interface : {ip4ConfigInterface, "org.freedesktop.NetworkManager.Device",
                                  "org.freedesktop.NetworkManager.Connection.Active"})
        bus.connect(networkManagerService, anyPath, propertiesInterface, QStringLiteral("PropertiesChanged"),
                    QStringList(interface), anySignature, this,
                    SLOT(onNetworkManagerChanged(QString, QVariantMap)));
    bus.connect(modemManagerService, anyPath, propertiesInterface, QStringLiteral("PropertiesChanged"),
                QStringList(modemInterface), anySignature, this,
                SLOT(onModemChanged(QString, QVariantMap, QStringList, QDBusMessage)));
    bus.connect(modemManagerService, anyPath, objectManagerInterface, QStringLiteral("InterfacesRemoved"),
                this, SLOT(onModemInterfacesRemoved(QDBusObjectPath, QStringList)));
}

void BusWatch::followModems()
{
    QDBusConnection bus = QDBusConnection::systemBus();
    const QString anyPath;
    for (const char* interface :
         {"org.freedesktop.ModemManager1.Modem.Modem3gpp", "org.freedesktop.ModemManager1.Modem.ModemCdma",
          "org.freedesktop.ModemManager1.Sim"})
        bus.connect(modemManagerService, anyPath, propertiesInterface, QStringLiteral("PropertiesChanged"),
                    QStringList(interface), QString(), this, SIGNAL(modemChanged()));
    bus.connect(modemManagerService, anyPath, objectManagerInterface, QStringLiteral("InterfacesAdded"), this,
                SIGNAL(modemChanged()));
}

bool BusWatch::libraryHasRead(const QString& instance)
{
    if (instance != owner)
        return false;
    ownerRead = instance;
    return true;
}

bool BusWatch::libraryIsStale() const
{
    const std::optional<QString> present = ownerNow();
    return present && ownerRead && present != ownerRead;
}

NetworkManager::IpConfig BusWatch::ipv4Of(const NetworkManager::ActiveConnection& connection)
{
    return ipv4Changed ? freshIpv4<NetworkManager::ActiveConnection>(connection.path(), ipv4)
                       : connection.ipV4Config();
}

NetworkManager::IpConfig BusWatch::ipv4Of(const NetworkManager::Device& device)
{
    return ipv4Changed ? freshIpv4<NetworkManager::Device>(device.uni(), ipv4) : device.ipV4Config();
}

uint BusWatch::signalQualityOf(const ModemManager::Modem& modem) const
{
    const std::optional<uint> announced = modems.value(modem.uni()).signalQuality;
    return announced ? *announced : modem.signalQuality().signal;
}

BusWatch::Technologies BusWatch::accessTechnologiesOf(const ModemManager::Modem& modem) const
{
    const std::optional<Technologies> announced = modems.value(modem.uni()).accessTechnologies;
    return announced ? *announced : modem.accessTechnologies();
}

void BusWatch::onNetworkManagerChanged(const QString& interface, const QVariantMap& changed)
{
    if (interface != QLatin1String(ip4ConfigInterface) && !changed.contains(QStringLiteral("Ip4Config")))
        return;
    ipv4Changed = true;
    ipv4.clear();
    Q_EMIT ipv4ConfigChanged();
}

void BusWatch::onModemChanged(const QString& /*interface*/, const QVariantMap& changed,
                              const QStringList& /*invalidated*/, const QDBusMessage& message)
{
    const QVariant technologies = changed.value(QStringLiteral("AccessTechnologies"));
    const QVariant quality = changed.value(QStringLiteral("SignalQuality"));
    if (technologies.isValid()) {
        const Technologies flags(static_cast<int>(technologies.toUInt()));
        modems[message.path()].accessTechnologies = flags;
        Q_EMIT accessTechnologiesChanged(message.path(), flags);
    }
    if (quality.isValid()) {
        const uint percent = qdbus_cast<ModemManager::SignalQualityPair>(quality).signal;
        modems[message.path()].signalQuality = percent;
        Q_EMIT signalQualityChanged(message.path(), percent);
    }
    Q_EMIT modemChanged();
}

void BusWatch::onModemInterfacesRemoved(const QDBusObjectPath& modem, const QStringList& interfaces)
{
    if (interfaces.contains(QLatin1String(modemInterface)))
        modems.remove(modem.path());
    Q_EMIT modemChanged();
}

} // namespace Lanvoy
