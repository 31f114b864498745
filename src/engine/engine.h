// SPDX-License-Identifier: MIT
#pragma once

#include "config/config.h"
#include "follower.h"
#include "ipc/ipc.h"
#include "log/log.h"
#include "servicestatus.h"
#include "types/lanvoytypes.h"

#include <NetworkManagerQt/ActiveConnection>
#include <NetworkManagerQt/Connection>
#include <NetworkManagerQt/ConnectionSettings>
#include <NetworkManagerQt/Ipv4Setting>
#include <NetworkManagerQt/Manager>

#include <QJsonObject>
#include <QMap>
#include <QObject>
#include <QScopedPointer>
#include <QSettings>
#include <QTimer>

#include <optional>

namespace Lanvoy
{

/** The data counters of a network interface at one moment. */
struct ModemStats {
    quint64 duration = 0; // always 0
    quint64 txbytes = 0;
    quint64 rxbytes = 0;
};

/**
 * The service itself: owns configuration and messaging, watches NetworkManager's devices, carries out
 * commands, provisions connections and counts the modem's data usage.
 *
 * Devices and connections are looked up whenever they are needed; none is kept.
 */
class Engine : public QObject
{
    Q_OBJECT

public:
    /** Reads or creates @p configFile; NetworkManager is not touched before the broker session is up. */
    Engine(const QString& configFile, QObject* parent);
    ~Engine() override;

    /** Starts the broker session. */
    void start();

    /**
     * Writes the configuration of a device kind into connection settings.
     *
     * @param settings changed in place; its type tells the kind, null and other types are left alone
     * @param security of the access point, as apSecurity() names it; wifi only
     * @return true when something that counts as a change was written
     */
    static bool updateConnectionSettings(const QSharedPointer<NetworkManager::ConnectionSettings>& settings,
                                         const Config& config, const QString& security);

    /**
     * Writes one IPv4 record into an IPv4 setting.
     *
     * Addresses compare as IPv4 values: empty, unreadable and IPv6 texts and 0.0.0.0 are the same "none".
     *
     * @return true when it changed anything
     */
    static bool updateIpv4Configuration(const QSharedPointer<NetworkManager::Ipv4Setting>& setting,
                                        const Config::Ipv4Config& ipv4);

    /**
     * Reads one kernel byte counter.
     *
     * @param path counter file, such as /sys/class/net/wwan0/statistics/rx_bytes
     * @return bytes; 0 when the file cannot be read or holds no number
     */
    static qint64 readIntegerFromFile(const QString& path);

public Q_SLOTS:
    // Order and names of parameters are part of the interface: the method table shows them.
    void onIPCConnected(const QString&);
    void onIPCDiscconnected(); // the name keeps its double "c"
    void onIPCCommandReceived(const QString& command, const QJsonObject& data);
    void onStatusChanged(NetworkManager::Status status);
    void onPrimaryConnectionChanged(const QString&);
    void onDeviceAdded(const QString&);
    void onDeviceRemoved(const QString&);
    void onDeviceStateChanged(NetworkManager::Device::State newstate, NetworkManager::Device::State oldstate,
                              NetworkManager::Device::StateChangeReason reason);
    void onDeviceManagedChanged();
    void onInterfaceNameChanged();

private:
    using CommandHandler = void (Engine::*)(const QJsonObject&);
    using DevicePtr = QSharedPointer<NetworkManager::Device>;

    // Monitoring: engine_monitor.cpp
    void reload();
    void monitorNetwork();
    void reloadDevice(const DevicePtr& device);
    void monitorDevice(const DevicePtr& device);
    void monitorWifi(const NetworkManager::WirelessDevice::Ptr& device);
    void monitorModem(const NetworkManager::ModemDevice::Ptr& device);
    void followModemStats(DeviceState state);
    void onAccessPointAppeared(const QString& uni, const QString& point);
    void onNetworkAppeared(const QString& uni, const QString& ssid);
    void onScanTimer(const QString& uni);
    void onSignalQuality(const QString& uni, uint quality);
    void onAccessTechnologies(const QString& uni, QFlags<MMModemAccessTechnology> technologies);

    // Lookups: engine_lookup.cpp
    bool isCarrierDetected(const DevicePtr& device);
    /**
     * Whether the library could read the device's type. If not, it has made a plain Device instead of a
     * WiredDevice, WirelessDevice or ModemDevice.
     */
    static bool classFitsType(const DevicePtr& device);
    static bool isLoopback(const DevicePtr& device);
    DevicePtr getDeviceFromUni(const QString& uni);
    DevicePtr getDeviceFromSender(QObject* sender);
    QSharedPointer<NetworkManager::ActiveConnection> getConnectionFromUni(const QString& uni);
    DevicePtr findDevice(const QString& name, NetworkManager::Device::Type type);
    template<typename T> static QSharedPointer<T> deviceAt(const QString& uni)
    {
        return NetworkManager::findNetworkInterface(uni).objectCast<T>();
    }
    QSharedPointer<NetworkManager::AccessPoint> findAccessPoint(const DevicePtr& device, const QString& ssid);
    QSharedPointer<NetworkManager::Connection> findConnection(const QString& name, const DevicePtr& device);

    // Commands: engine_commands.cpp, engine_config_commands.cpp
    void fillCommandTable();
    void processNetworkStatusCommand(const QJsonObject& data);
    void processNetworkInfoCommand(const QJsonObject& data);
    void processEthernetStateGetCommand(const QJsonObject& data);
    void processEthernetConfigGetCommand(const QJsonObject& data);
    void processEthernetConfigSetCommand(const QJsonObject& data);
    void processWifiStateGetCommand(const QJsonObject& data);
    void processWifiConfigGetCommand(const QJsonObject& data);
    void processWifiConfigSetCommand(const QJsonObject& data);
    void processWifiApsGetCommand(const QJsonObject& data);
    void processWifiNetworksGetCommand(const QJsonObject& data);
    void processModemStateGetCommand(const QJsonObject& data);
    void processModemStatsGetCommand(const QJsonObject& data);
    void processModemConfigGetCommand(const QJsonObject& data);
    void processModemConfigSetCommand(const QJsonObject& data);
    /** The interface that a command names; empty for none and for anything but a text. */
    static QString requestedName(const QJsonObject& data);
    /** The device that a command names, or null after an error document for @p command. */
    DevicePtr requestedDevice(const QJsonObject& data, NetworkManager::Device::Type type,
                              const QString& command);

    // Provisioning: engine_provision.cpp
    /** What is provisioned: a device and the connection that belongs to it. */
    struct Target {
        DevicePtr device;
        QString name; // of the connection, looked up and written as its id; empty for nothing to provision
        NetworkManager::ConnectionSettings::ConnectionType type;
        QString specificObject = {}; // path of the access point; wifi only
        QString security = QStringLiteral("unknown"); // of the access point, as apSecurity() names it
    };
    using ConnectionPtr = QSharedPointer<NetworkManager::Connection>;
    using SettingsPtr = QSharedPointer<NetworkManager::ConnectionSettings>;

    /**
     * Brings a device's connection in line with the configuration: creates, updates and activates it.
     *
     * The only place where the service writes to NetworkManager. Every request blocks the event loop until
     * NetworkManager answers.
     *
     * @return the connection that is configured now; null when provisioning stopped or failed
     */
    ConnectionPtr updateConnection(const DevicePtr& device, const Config& config);
    /** The device type's word, which every message about a target starts with. */
    static QString kindOf(const Target& target);
    std::optional<Target> chooseTarget(const DevicePtr& device, const Config& config);
    std::optional<Target> chooseAccessPoint(const DevicePtr& device, const QString& ssid);
    ConnectionPtr createConnection(const Target& target, const Config& config);
    ConnectionPtr refreshConnection(const Target& target, const ConnectionPtr& connection,
                                    const Config& config);
    void fetchSecrets(const Target& target, NetworkManager::Connection& connection,
                      const SettingsPtr& settings);
    void clearSecrets(const Target& target, NetworkManager::Connection& connection);
    bool saveSettings(const Target& target, NetworkManager::Connection& connection,
                      const SettingsPtr& settings);
    /** Corrects a refused map; false when the refusal is final. */
    bool correctForRetry(NMVariantMapMap& map, const NetworkManager::ConnectionSettings& settings,
                         const QDBusError& error, const Target& target);
    bool mustWait(const Target& target);
    bool lacksCarrier(const DevicePtr& device);
    bool activate(const Target& target, const NetworkManager::Connection& connection);

    // Data usage: engine_stats.cpp
    void startMonitorModemStats();
    void stopMonitorModemStats();
    void updateModemStats();
    void publishModemStats();
    void wireStatsTimer();
    void pruneStats();
    DevicePtr connectedModem();
    void bookSample(const ModemStats& stats, QSettings& snapshot);
    ModemStats getModemStats(const QSharedPointer<NetworkManager::ModemDevice>& device);

    void onBusDisconnected();
    void reportStatus();
    static void log(Log::Level level, const char* format, ...) Q_ATTRIBUTE_FORMAT_PRINTF(2, 3);

    QTimer statsTimer;
    QSettings statsStore; // one group per month
    QScopedPointer<Config> configuration;
    QScopedPointer<IPC> ipc;
    QScopedPointer<Follower> follower; // null unless LANVOY_FOLLOW asks for it
    ServiceStatus serviceStatus;
    QScopedPointer<QTimer> scanTimer; // null until a wifi device is wired
    QMap<QString, CommandHandler> commands;
};

} // namespace Lanvoy
