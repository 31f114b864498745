// SPDX-License-Identifier: MIT
#pragma once

#include "types/lanvoytypes.h"

#include <NetworkManagerQt/ActiveConnection>
#include <NetworkManagerQt/ConnectionSettings>
#include <NetworkManagerQt/IpConfig>
#include <NetworkManagerQt/ModemDevice>
#include <NetworkManagerQt/WiredDevice>
#include <NetworkManagerQt/WirelessDevice>

#include <QJsonObject>
#include <QJsonValue>
#include <QMap>
#include <QVariantMap>
#include <QVector>

#include <optional>

/**
 * The documents as functions of what the libraries hold: nothing is published, logged or kept here.
 *
 * An enumerated value appears as a number and, under the same key with "Str" appended, as a word. A value
 * that is not available is null. Library getters that fail return empty texts and zeros.
 */
namespace Lanvoy
{

class BusWatch;

// State documents: IPv4 addresses and modem values come from the bus watch

/** {"service": …}: what this service is. */
QJsonObject networkInfoDocument();

/** Host name, overall state and connectivity, and the primary connection (NetworkManager's manager object).
 */
QJsonObject networkStatusDocument(BusWatch& bus);

QJsonObject ethernetStateDocument(const NetworkManager::WiredDevice& dev, BusWatch& bus);
QJsonObject wifiStateDocument(const NetworkManager::WirelessDevice& dev, BusWatch& bus);

/** NetworkManager's device joined with ModemManager's modem, whose members are left out if it is unknown. */
QJsonObject modemStateDocument(const NetworkManager::ModemDevice& dev, BusWatch& bus);

/**
 * The state that a wired device reports.
 *
 * @return Disconnected without a carrier, whatever NetworkManager says. Compatibility: wired devices only.
 */
DeviceState wiredState(bool carrier, NetworkManager::Device::State state);

/** First address, all name servers and the gateway of an IPv4 configuration. */
QJsonValue toJson(const NetworkManager::IpConfig& config);

/** An active connection and its device; null for a null or invalid one. */
QJsonValue toJson(const NetworkManager::ActiveConnection::Ptr& connection, BusWatch& bus);

/** {"command": …, "error": …} */
QJsonObject errorDocument(const QString& command, const QString& error);

// Configuration documents: what NetworkManager holds, secrets in clear

/** @param settings of the device's connection; null for none, here and in the two functions below */
QJsonObject ethernetConfigDocument(const QString& interfaceName,
                                   const NetworkManager::ConnectionSettings::Ptr& settings);

/** @param secrets of the group "802-11-wireless-security"; none when it does not exist or they were refused
 */
QJsonObject wifiConfigDocument(const QString& interfaceName,
                               const NetworkManager::ConnectionSettings::Ptr& settings,
                               const std::optional<QVariantMap>& secrets);

/** @param secrets of the group "gsm"; none when they were refused */
QJsonObject modemConfigDocument(const QString& interfaceName,
                                const NetworkManager::ConnectionSettings::Ptr& settings,
                                const std::optional<QVariantMap>& secrets);

/** Method, first address and the first two name servers of an IPv4 setting; null for a null one. */
QJsonValue toJson(const NetworkManager::Ipv4Setting::Ptr& setting);

// Scan, signal and usage documents

/** What the documents contain of one access point. */
struct AccessPointFacts {
    QString ssid;
    uint frequency = 0; // MHz
    QString hardwareAddress;
    uint maxBitRate = 0; // kbit/s
    int signalStrength = 0; // percent
    QString mode;
    QString security;
};

/** What the documents contain of one network, which is all access points of one SSID. */
struct NetworkFacts {
    QString ssid;
    int signalStrength = 0; // percent
    QString device; // interface name
    std::optional<AccessPointFacts> referencePoint;
    QVector<AccessPointFacts> accessPoints;
};

/** The access-point object; null for a null pointer. */
QJsonValue toJson(const NetworkManager::AccessPoint::Ptr& accessPoint);

/** @return the text of the document; these two lists may have a thousand points */
QByteArray accessPointsDocument(const QString& interfaceName, const QVector<AccessPointFacts>& points);
QByteArray networksDocument(const QString& interfaceName, const QVector<NetworkFacts>& networks);

/** The access points that a device sees, hidden ones included. */
QVector<AccessPointFacts> accessPointsOf(NetworkManager::WirelessDevice& dev);
/** The same grouped by SSID; hidden ones are in no group. */
QVector<NetworkFacts> networksOf(const NetworkManager::WirelessDevice& dev);

/** Signal quality and access technologies; 0 and none for a modem that ModemManager does not know. */
QJsonObject modemSignalDocument(const NetworkManager::ModemDevice& dev, const BusWatch& bus);

/**
 * Data usage by month.
 *
 * @param stats megabytes by month and then by "rxbytes" and "txbytes"; a missing one counts as 0
 * @return by month "upload" and "download", rounded to two decimals
 */
QJsonObject modemStatsDocument(const QMap<QString, QMap<QString, double>>& stats);

} // namespace Lanvoy
