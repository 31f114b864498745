// SPDX-License-Identifier: MIT
#include "views.h"

#include <QJsonArray>
#include <QMap>
#include <QPair>
#include <QStringList>

#include <algorithm>
#include <cmath>
#include <tuple>

namespace Ctl
{

namespace
{

struct Band {
    int firstMhz;
    int lastMhz;
    int zeroMhz; // of channel 0
    const char* name;
};

constexpr Band bands[] = {
    {2412, 2472, 2407, "2.4 GHz"},
    {2484, 2484, 2414, "2.4 GHz"}, // channel 14
    {5160, 5885, 5000, "5 GHz"},
    {5955, 7115, 5950, "6 GHz"},
};

/** @return channel and band of a frequency, null each when it is in no known band */
QPair<QJsonValue, QJsonValue> channelOf(int mhz)
{
    constexpr int spacing = 5; // MHz between channels
    for (const Band& band : bands) {
        if (mhz >= band.firstMhz && mhz <= band.lastMhz)
            return {(mhz - band.zeroMhz) / spacing, band.name};
    }
    return {QJsonValue(), QJsonValue()};
}

double cents(double value)
{
    return std::round(value * 100) / 100;
}

// The service counts in 32 bits and reads them as signed.
double megabytesOf(const QJsonValue& value)
{
    constexpr double wrap = 4294.97;
    return value.toDouble() < 0 ? value.toDouble() + wrap : value.toDouble();
}

using Members = QMap<QString, QString>;

void flatten(const QJsonValue& value, const QString& path, Members& members)
{
    if (value.isObject()) {
        const QJsonObject object = value.toObject();
        for (auto member = object.begin(); member != object.end(); ++member) {
            const QString name = member.key();
            const bool isTold = object.contains(name + "Str") // its word is enough
                || name == "accessPoints" || name == "referenceAP"; // these are in "wifi/aps"
            if (!isTold)
                flatten(member.value(), path.isEmpty() ? name : path + '.' + name, members);
        }
    } else if (value.isArray() && value[0].isObject()) {
        for (const QJsonValue& entry : entriesOf(value)) {
            const QString address = entry["hardwareAddress"].toString();
            flatten(entry, path + '[' + (address.isEmpty() ? entry["ssid"].toString() : address) + ']',
                    members);
        }
    } else {
        members[path] = textOf(value);
    }
}

} // namespace

QJsonObject withoutSecrets(QJsonObject document)
{
    for (const char* name : {"key", "password", "pin"}) {
        if (!document.value(name).toString().isEmpty())
            document.insert(name, "******");
    }
    return document;
}

QJsonArray networksOf(const QJsonObject& networks, const QJsonObject& state)
{
    QMultiMap<QPair<int, QString>, QJsonObject> sorted; // the strongest first
    const bool isConnected = textAt(state, "stateStr") == "Connected";
    for (const QJsonValue& network : entriesOf(networks["networks"])) {
        const QJsonValue point = network["referenceAP"];
        const auto [channel, band] = channelOf(point["frequency"].toInt());
        const QPair rank(-network["signalStrength"].toInt(), network["ssid"].toString());
        sorted.insert(rank,
                      {{"interface", networks["interface"]},
                       {"ssid", network["ssid"]},
                       {"inUse", isConnected && valueAt(state, "ap.ssid") == network["ssid"]},
                       {"signal", network["signalStrength"]},
                       {"security", point["security"].toString("unknown")},
                       {"channel", channel},
                       {"band", band},
                       {"accessPoints", network["accessPoints"].toArray().size()}});
    }
    QJsonArray result;
    for (const QJsonObject& network : sorted)
        result.append(network);
    return result;
}

QJsonObject signalOf(const QJsonObject& state)
{
    return {{"interface", state["interface"]},
            {"signal", state["signal"].toInt()},
            {"accessTechnologies", state["accessTechnologies"].toArray()},
            {"operator", valueAt(state, "gsm.operatorName").toString()}};
}

QJsonObject usageOf(const QJsonObject& stats)
{
    QJsonArray months;
    double download = 0;
    double upload = 0;
    for (auto month = stats.begin(); month != stats.end(); ++month) {
        const double down = megabytesOf(month.value()["download"]);
        const double up = megabytesOf(month.value()["upload"]);
        months.append(QJsonObject {{"month", month.key()}, {"download", cents(down)}, {"upload", cents(up)}});
        download += down;
        upload += up;
    }
    return {{"months", months}, {"download", cents(download)}, {"upload", cents(upload)}};
}

QVector<Difference> differences(const QJsonObject& before, const QJsonObject& now)
{
    Members old;
    Members present;
    flatten(before, {}, old);
    flatten(now, {}, present);
    QStringList members = old.keys() + present.keys();
    members.sort();
    members.removeDuplicates();
    QVector<Difference> result;
    for (const QString& member : members) {
        if (old.value(member) != present.value(member))
            result.append({printable(member), old.value(member), present.value(member)});
    }
    return result;
}

} // namespace Ctl
