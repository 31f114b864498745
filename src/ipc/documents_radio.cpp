// SPDX-License-Identifier: MIT
#include "documents.h"

#include "buswatch.h"
#include "jsonwriter.h"

#include <ModemManagerQt/Manager>
#include <NetworkManagerQt/WirelessNetwork>

#include <cmath>

namespace Lanvoy
{

namespace
{

using NetworkManager::AccessPoint;

// About what one access point takes in the two lists.
constexpr int accessPointBytes = 300;

AccessPointFacts factsOf(const AccessPoint::Ptr& point)
{
    return {
        point->ssid(),       point->frequency(),      point->hardwareAddress(),
        point->maxBitRate(), point->signalStrength(), apModeToString(point->mode()),
        apSecurity(point),
    };
}

/** Hands the members of the access-point object to @p add, in the order of their keys. */
template<typename Add> void addMembers(const AccessPointFacts& point, Add add)
{
    add("frequency", static_cast<qint64>(point.frequency));
    add("hardwareAddress", point.hardwareAddress);
    add("maxBitRate", static_cast<qint64>(point.maxBitRate));
    add("mode", point.mode);
    add("security", point.security);
    add("signalStrength", static_cast<qint64>(point.signalStrength));
    add("ssid", point.ssid);
}

void write(JsonWriter& json, const AccessPointFacts& point)
{
    addMembers(point, [&json](const char* key, const auto& value) { json.member(key, value); });
}

void writeList(JsonWriter& json, const char* key, const QVector<AccessPointFacts>& points)
{
    json.beginArray(key);
    for (const AccessPointFacts& point : points) {
        json.beginObject();
        write(json, point);
        json.endObject();
    }
    json.endArray();
}

// Half up. Compatibility: truncated, not floored, so a negative value comes out up to one hundredth higher.
double roundToHundredths(double value)
{
    return std::trunc(value * 100 + 0.5) / 100;
}

} // namespace

QJsonValue toJson(const AccessPoint::Ptr& accessPoint)
{
    if (!accessPoint)
        return QJsonValue::Null;
    QJsonObject object;
    addMembers(factsOf(accessPoint),
               [&object](const char* key, const auto& value) { object.insert(QLatin1String(key), value); });
    return object;
}

QByteArray accessPointsDocument(const QString& interfaceName, const QVector<AccessPointFacts>& points)
{
    JsonWriter json((points.size() + 1) * accessPointBytes);
    json.beginObject();
    writeList(json, "aps", points);
    json.member("interface", interfaceName);
    json.endObject();
    return json.result();
}

QByteArray networksDocument(const QString& interfaceName, const QVector<NetworkFacts>& networks)
{
    int points = 1;
    for (const NetworkFacts& network : networks)
        points += network.accessPoints.size() + 2;

    JsonWriter json(points * accessPointBytes);
    json.beginObject();
    json.member("interface", interfaceName);
    json.beginArray("networks");
    for (const NetworkFacts& network : networks) {
        json.beginObject();
        writeList(json, "accessPoints", network.accessPoints);
        json.member("device", network.device);
        if (network.referencePoint) {
            json.beginObject("referenceAP");
            write(json, *network.referencePoint);
            json.endObject();
        } else {
            json.nullMember("referenceAP");
        }
        json.member("signalStrength", static_cast<qint64>(network.signalStrength));
        json.member("ssid", network.ssid);
        json.endObject();
    }
    json.endArray();
    json.endObject();
    return json.result();
}

QVector<AccessPointFacts> accessPointsOf(NetworkManager::WirelessDevice& dev)
{
    const QStringList paths = dev.accessPoints();
    QVector<AccessPointFacts> points;
    points.reserve(paths.size());
    for (const QString& path : paths) {
        const AccessPoint::Ptr point = dev.findAccessPoint(path);
        // The library makes an empty object for a point that has disappeared meanwhile.
        if (point && !point->hardwareAddress().isEmpty())
            points.append(factsOf(point));
    }
    return points;
}

QVector<NetworkFacts> networksOf(const NetworkManager::WirelessDevice& dev)
{
    const NetworkManager::WirelessNetwork::List networks = dev.networks();
    QVector<NetworkFacts> result;
    result.reserve(networks.size());
    for (const NetworkManager::WirelessNetwork::Ptr& network : networks) {
        NetworkFacts facts;
        facts.ssid = network->ssid();
        facts.signalStrength = network->signalStrength();
        if (const auto device = NetworkManager::findNetworkInterface(network->device()))
            facts.device = device->interfaceName();
        if (const AccessPoint::Ptr reference = network->referenceAccessPoint())
            facts.referencePoint = factsOf(reference);
        const AccessPoint::List points = network->accessPoints();
        for (const AccessPoint::Ptr& point : points)
            facts.accessPoints.append(factsOf(point));
        result.append(facts);
    }
    return result;
}

QJsonObject modemSignalDocument(const NetworkManager::ModemDevice& dev, const BusWatch& bus)
{
    const ModemManager::ModemDevice::Ptr device = ModemManager::findModemDevice(dev.udi());
    const ModemManager::Modem::Ptr modem = device ? device->modemInterface() : nullptr;
    return {
        {"interface", dev.interfaceName()},
        {"quality", modem ? static_cast<qint64>(bus.signalQualityOf(*modem)) : 0},
        {"accessTechnologies",
         modem ? accessTechnologiesToJson(bus.accessTechnologiesOf(*modem)) : QJsonArray()},
    };
}

QJsonObject modemStatsDocument(const QMap<QString, QMap<QString, double>>& stats)
{
    QJsonObject document;
    for (auto month = stats.cbegin(); month != stats.cend(); ++month) {
        document.insert(month.key(),
                        QJsonObject {
                            {"upload", roundToHundredths(month->value(QStringLiteral("txbytes")))},
                            {"download", roundToHundredths(month->value(QStringLiteral("rxbytes")))},
                        });
    }
    return document;
}

} // namespace Lanvoy
