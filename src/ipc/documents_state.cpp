// SPDX-License-Identifier: MIT
#include "documents.h"

#include "buswatch.h"

#include <ModemManagerQt/Manager>
#include <ModemManagerQt/Modem3Gpp>
#include <ModemManagerQt/ModemCdma>
#include <NetworkManagerQt/Connection>
#include <NetworkManagerQt/Settings>

namespace Lanvoy
{

namespace
{

using NetworkManager::ActiveConnection;
using NetworkManager::Device;
using NetworkManager::IpConfig;

/** The members that the documents of all three device kinds share. */
QJsonObject deviceMembers(const Device& dev, DeviceState state)
{
    const Device::StateChangeReason reason = dev.stateReason().reason();
    return {
        {"interface", dev.interfaceName()},
        {"type", dev.type()},
        {"typeStr", deviceTypeToString(dev.type())},
        {"state", state},
        {"stateStr", deviceStateToString(state)},
        {"reason", reason},
        {"reasonStr", stateChangeReasonToString(reason)},
    };
}

/**
 * The IPv4 configuration of an active connection.
 *
 * Right after the activation it may still be empty, while the device's own is complete.
 */
IpConfig ipv4Of(const ActiveConnection& connection, const Device* dev, BusWatch& bus)
{
    IpConfig config = bus.ipv4Of(connection);
    return config.addresses().isEmpty() && dev ? bus.ipv4Of(*dev) : config;
}

QJsonValue ipv4Member(const Device& dev, DeviceState state, BusWatch& bus)
{
    const ActiveConnection::Ptr connection = dev.activeConnection();
    if (!connection || state != Connected)
        return QJsonValue::Null;
    return toJson(ipv4Of(*connection, &dev, bus));
}

void insertModemMembers(QJsonObject& document, const ModemManager::ModemDevice::Ptr& device,
                        const BusWatch& bus)
{
    const ModemManager::Modem::Ptr modem = device ? device->modemInterface() : nullptr;
    if (!modem)
        return;

    const ModemManager::Sim::Ptr sim = device->sim();
    document.insert(QStringLiteral("device"),
                    QJsonObject {
                        {"id", modem->deviceIdentifier()},
                        {"manufacturer", modem->manufacturer()},
                        {"model", modem->model()},
                        {"revision", modem->revision()},
                    });
    document.insert(QStringLiteral("sim"),
                    QJsonObject {
                        {"imsi", sim ? sim->imsi() : QString()},
                        {"id", sim ? sim->simIdentifier() : QString()},
                    });
    document.insert(QStringLiteral("signal"), static_cast<qint64>(bus.signalQualityOf(*modem)));
    document.insert(QStringLiteral("accessTechnologies"),
                    accessTechnologiesToJson(bus.accessTechnologiesOf(*modem)));
}

void insertNetworkKindMembers(QJsonObject& document, const ModemManager::ModemDevice& device)
{
    using ModemManager::ModemDevice;
    if (device.isGsmModem()) {
        if (const auto gsm
            = device.interface(ModemDevice::GsmInterface).objectCast<ModemManager::Modem3gpp>()) {
            document.insert(QStringLiteral("gsm"),
                            QJsonObject {
                                {"imei", gsm->imei()},
                                {"operatorCode", gsm->operatorCode()},
                                {"operatorName", gsm->operatorName()},
                            });
        }
        if (device.hasInterface(ModemDevice::GsmUssdInterface))
            document.insert(QStringLiteral("gsmUssd"), QJsonObject());
    }
    if (device.isCdmaModem()) {
        if (const auto cdma
            = device.interface(ModemDevice::CdmaInterface).objectCast<ModemManager::ModemCdma>()) {
            document.insert(QStringLiteral("cdma"),
                            QJsonObject {
                                {"meid", cdma->meid()},
                                {"esn", cdma->esn()},
                            });
        }
    }
}

} // namespace

QJsonObject networkInfoDocument()
{
    return {{"service", QJsonObject {{"type", "network"}, {"version", LANVOY_VERSION}}}};
}

QJsonObject networkStatusDocument(BusWatch& bus)
{
    const NetworkManager::Status status = NetworkManager::status();
    const NetworkManager::Connectivity connectivity = NetworkManager::connectivity();
    return {
        {"hostname", NetworkManager::hostname()},
        {"state", status},
        {"stateStr", statusToString(status)},
        {"connectivity", connectivity},
        {"connectivityStr", connectivityToString(connectivity)},
        {"primaryConnection", toJson(NetworkManager::primaryConnection(), bus)},
    };
}

QJsonObject ethernetStateDocument(const NetworkManager::WiredDevice& dev, BusWatch& bus)
{
    const DeviceState state = wiredState(dev.carrier(), dev.state());
    QJsonObject document = deviceMembers(dev, state);
    document.insert(QStringLiteral("mac"), dev.hardwareAddress());
    document.insert(QStringLiteral("ipv4"), ipv4Member(dev, state, bus));
    return document;
}

QJsonObject wifiStateDocument(const NetworkManager::WirelessDevice& dev, BusWatch& bus)
{
    const DeviceState state = mapDeviceState(dev.state());
    QJsonObject document = deviceMembers(dev, state);
    document.insert(QStringLiteral("mac"), dev.hardwareAddress());
    document.insert(QStringLiteral("ipv4"), ipv4Member(dev, state, bus));
    document.insert(QStringLiteral("ap"), toJson(dev.activeAccessPoint()));
    return document;
}

QJsonObject modemStateDocument(const NetworkManager::ModemDevice& dev, BusWatch& bus)
{
    const DeviceState state = mapDeviceState(dev.state());
    QJsonObject document = deviceMembers(dev, state);
    // Unlike the other two kinds, the device's own configuration, not the active connection's.
    const bool active = dev.activeConnection() && state == Connected;
    document.insert(QStringLiteral("ipv4"), active ? toJson(bus.ipv4Of(dev)) : QJsonValue::Null);

    const ModemManager::ModemDevice::Ptr device = ModemManager::findModemDevice(dev.udi());
    insertModemMembers(document, device, bus);
    if (device)
        insertNetworkKindMembers(document, *device);
    return document;
}

DeviceState wiredState(bool carrier, Device::State state)
{
    return carrier ? mapDeviceState(state) : Disconnected;
}

QJsonValue toJson(const IpConfig& config)
{
    QJsonObject object {{"gateway", config.gateway()}};
    const NetworkManager::IpAddresses addresses = config.addresses();
    if (!addresses.isEmpty()) {
        object.insert(QStringLiteral("address"), addresses.first().ip().toString());
        object.insert(QStringLiteral("netmask"), addresses.first().netmask().toString());
    }
    const QList<QHostAddress> servers = config.nameservers();
    for (int i = 0; i < servers.size(); ++i)
        object.insert(QStringLiteral("dns%1").arg(i), servers.at(i).toString());
    return object;
}

QJsonValue toJson(const ActiveConnection::Ptr& connection, BusWatch& bus)
{
    if (!connection || !connection->isValid())
        return QJsonValue::Null;

    const QStringList devices = connection->devices();
    const Device::Ptr dev
        = devices.isEmpty() ? Device::Ptr() : NetworkManager::findNetworkInterface(devices.first());
    const NetworkManager::Connection::Ptr profile = connection->connection();
    const DeviceState state = dev ? mapDeviceState(dev->state()) : Unavailable;
    // Until it is connected, the device still has the previous connection's configuration. Under a VPN it has
    // its own.
    const bool sharesIpv4 = state == Connected && !connection->vpn();
    return QJsonObject {
        {"interface", dev ? dev->interfaceName() : QJsonValue()},
        {"type", dev ? dev->type() : QJsonValue()},
        {"typeStr", dev ? deviceTypeToString(dev->type()) : QJsonValue()},
        {"state", dev ? state : QJsonValue()},
        {"stateStr", dev ? deviceStateToString(state) : QJsonValue()},
        {"connectionName", profile ? profile->name() : QString()},
        {"ipv4", toJson(ipv4Of(*connection, sharesIpv4 ? dev.data() : nullptr, bus))},
    };
}

QJsonObject errorDocument(const QString& command, const QString& error)
{
    return {{"command", command}, {"error", error}};
}

} // namespace Lanvoy
