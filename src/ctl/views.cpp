// SPDX-License-Identifier: MIT
#include "views.h"

#include <QMap>
#include <QPair>

#include <algorithm>
#include <bitset>
#include <cmath>

namespace Ctl
{

namespace
{

constexpr Columns statusColumns = {
    {"DEVICE", "interface"},
    {"KIND", "typeStr"},
    {"STATE", "stateStr", Form::State},
    {"ADDRESS", "address"},
    {"NETWORK", "network", Form::Name},
    {"SIGNAL", "strength", Form::Bars},
    {"%", "strength", Form::Number},
};

constexpr Columns networkColumns = {
    {"", "inUse", Form::Mark},
    {"SSID", "ssid", Form::Name},
    {"%", "signal", Form::Number},
    {"BARS", "signal", Form::Bars},
    {"SECURITY", "security"},
    {"CHAN", "channel", Form::Number},
    {"BAND", "band"},
    {"APS", "accessPoints", Form::Number},
    {"DEVICE", "interface"},
};

constexpr Columns signalColumns = {
    {"DEVICE", "interface"},
    {"%", "signal", Form::Number},
    {"BARS", "signal", Form::Bars},
    {"TECHNOLOGY", "accessTechnologies"},
    {"OPERATOR", "operator", Form::Name},
};

constexpr Columns usageColumns = {
    {"MONTH", "month"},
    {"DOWN MB", "download", Form::Size},
    {"UP MB", "upload", Form::Size},
    {"", "share", Form::Share},
};

constexpr Columns stateLines = {
    {"State", "stateAndReason"},
    {"MAC address", "mac"},
    {"Address", "address"},
    {"Gateway", "ipv4.gateway"},
    {"Name servers", "servers"},
    {"Network", "ap.ssid"},
    {"Access point", "ap.hardwareAddress"},
    {"Mode", "ap.mode"},
    {"Security", "ap.security"},
    {"Frequency", "frequency"},
    {"Bit rate", "bitRate"},
    {"Modem", "model"},
    {"IMEI", "gsm.imei"},
    {"MEID", "cdma.meid"},
    {"IMSI", "sim.imsi"},
    {"SIM", "sim.id"},
    {"Operator", "operator"},
    {"Technology", "accessTechnologies"},
    {"Signal", "signalPercent"},
};

constexpr Columns configLines = {
    {"Method", "method"},     {"Address", "address"},
    {"Gateway", "gateway"},   {"Name servers", "servers"},
    {"Network", "ssid"},      {"Key", "key"},
    {"APN", "apn"},           {"User name", "username"},
    {"Password", "password"}, {"Network ID", "networkId"},
    {"PIN", "pin"},
};

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

QString joined(QStringList parts, const char* separator)
{
    parts.removeAll(QString());
    return parts.join(separator);
}

/** @return address and prefix length, such as 192.0.2.17/24; empty without an address */
QString addressOf(const QJsonObject& ipv4)
{
    const QString address = textAt(ipv4, "address");
    size_t prefix = 0;
    for (const QString& part : textAt(ipv4, "netmask").split('.'))
        prefix += std::bitset<8>(part.toUShort()).count();
    return address.isEmpty() ? address : QString("%1/%2").arg(address).arg(prefix);
}

QString serversOf(const QJsonObject& ipv4)
{
    QStringList servers;
    for (int i = 0; ipv4.contains(QString("dns%1").arg(i)); ++i)
        servers.append(textOf(ipv4[QString("dns%1").arg(i)]));
    return joined(servers, ", ");
}

QString withUnit(const QJsonValue& number, const char* unit)
{
    return number.isDouble() ? QString("%1 %2").arg(number.toDouble()).arg(unit) : QString();
}

/** @return the state document with what the tables and lines show beside its members */
QJsonObject rowOf(QJsonObject state)
{
    const auto text = [state](const char* path) { return textAt(state, path); };
    const QStringList noReasons = {"unknown", "Unknown", "UnknownReason", "NoReason"};
    const QString reason = noReasons.contains(text("reasonStr")) ? QString() : text("reasonStr");
    const QString mobile = joined({text("gsm.operatorName"), text("accessTechnologies")}, ", ");
    const QJsonObject ipv4 = state["ipv4"].toObject();
    const QJsonObject point = state["ap"].toObject();
    const QJsonValue bitRate = point["maxBitRate"]; // kbit/s
    // A wifi device has the strength of its access point, a modem its own.
    const QJsonValue strength
        = point["signalStrength"].isDouble() ? point["signalStrength"] : state["signal"];
    state["stateAndReason"] = joined({text("stateStr"), reason}, ", ");
    state["address"] = addressOf(ipv4);
    state["servers"] = serversOf(ipv4);
    state["network"] = text("ap.ssid").isEmpty() ? mobile : text("ap.ssid");
    state["strength"] = strength;
    state["signalPercent"] = withUnit(strength, "%");
    state["frequency"] = withUnit(point["frequency"], "MHz");
    state["bitRate"] = bitRate.isDouble() ? withUnit(bitRate.toDouble() / 1000, "Mbit/s") : QString();
    state["model"]
        = joined({text("device.manufacturer"), text("device.model"), text("device.revision")}, " ");
    state["operator"] = joined({text("gsm.operatorName"), text("gsm.operatorCode")}, ", ");
    return state;
}

QString deviceText(const QJsonObject& state, QJsonObject config, const Look& look)
{
    QString result = painted(textAt(state, "interface"), Tone::Bold, look)
        + QString(" (%1)\n").arg(textAt(state, "typeStr")) + lines(stateLines, rowOf(state));
    if (config.isEmpty())
        return result;
    config["servers"] = serversOf(config);
    config["address"] = addressOf(config);
    return result + "  Configuration\n" + lines(configLines, config);
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

QString statusText(const QJsonObject& overview, const Look& look)
{
    const QJsonObject status = overview["status"].toObject();
    const QString state = textAt(status, "stateStr");
    const QJsonObject primary = status["primaryConnection"].toObject();
    const QStringList place = {textAt(primary, "interface"), addressOf(primary["ipv4"].toObject())};
    QJsonArray rows;
    for (const QJsonValue& device : entriesOf(overview["devices"]))
        rows.append(rowOf(device.toObject()));
    return QString("%1: %2, connectivity %3 (lanvoy %4)\n")
               .arg(painted(textAt(status, "hostname"), Tone::Bold, look),
                    painted(state, toneOf(state), look), textAt(status, "connectivityStr"),
                    textAt(overview, "info.service.version"))
        + (primary.isEmpty() ? QString("No primary connection\n")
                             : QString("Primary connection: %1 (%2)\n")
                                   .arg(textAt(primary, "connectionName"), joined(place, ", ")))
        + '\n' + table(statusColumns, rows, look);
}

QString devicesText(const QJsonObject& devices, const Look& look)
{
    QStringList texts;
    for (const QJsonValue& device : entriesOf(devices["devices"]))
        texts.append(deviceText(device["state"].toObject(), device["config"].toObject(), look));
    return texts.join('\n');
}

QString networksText(const QJsonObject& networks, const Look& look)
{
    return table(networkColumns, networks["networks"].toArray(), look);
}

QString signalText(const QJsonObject& modems, const Look& look)
{
    return table(signalColumns, modems["modems"].toArray(), look);
}

QString usageText(const QJsonObject& usage, const Look& look)
{
    const auto total
        = [](const QJsonValue& row) { return row["download"].toDouble() + row["upload"].toDouble(); };
    const QJsonArray months = usage["months"].toArray();
    double most = 0.01; // at the least, in MB
    for (const QJsonValue& month : months)
        most = std::max(most, total(month));
    QJsonArray rows;
    for (const QJsonValue& month : months) {
        QJsonObject row = month.toObject();
        row["share"] = total(month) / most;
        rows.append(row);
    }
    QJsonObject sum = usage;
    sum["month"] = "Sum";
    rows.append(sum);
    return table(usageColumns, rows, look);
}

} // namespace Ctl
