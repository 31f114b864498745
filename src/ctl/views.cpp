// SPDX-License-Identifier: MIT
#include "views.h"

#include <QJsonArray>
#include <QStringList>

#include <algorithm>
#include <bitset>

namespace Ctl
{

namespace
{

QString joined(QStringList parts, const char* separator)
{
    parts.removeAll(QString());
    return parts.join(separator);
}

// Cells: each from one member of a row.

Cell address(const QJsonValue& ipv4, const Look&)
{
    return {addressOf(ipv4.toObject())};
}

Cell servers(const QJsonValue& ipv4, const Look&)
{
    QStringList result;
    for (int i = 0; ipv4.toObject().contains(QString("dns%1").arg(i)); ++i)
        result.append(textOf(ipv4[QString("dns%1").arg(i)]));
    return {result.join(", ")};
}

Cell stateWord(const QJsonValue& word, const Look&)
{
    return {textOf(word), toneOf(word.toString())};
}

Cell reason(const QJsonValue& state, const Look&)
{
    const QString word = textOf(state["reasonStr"]);
    const bool saysNothing
        = word.compare("unknown", Qt::CaseInsensitive) == 0 || word == "UnknownReason" || word == "NoReason";
    return {joined({textOf(state["stateStr"]), saysNothing ? QString() : word}, ", ")};
}

Cell signalBars(const QJsonValue& percent, const Look& look)
{
    const int value = percent.toInt();
    const Tone tone = value > 55 ? Tone::Good : value > 30 ? Tone::Busy : Tone::Bad;
    return {percent.isDouble() ? bars(value, look) : QString(), tone};
}

// A wifi device has the strength of its access point, a modem its own.
QJsonValue strengthOf(const QJsonValue& state)
{
    const QJsonValue strength = state["ap"]["signalStrength"];
    return strength.isDouble() ? strength : state["signal"];
}

Cell strength(const QJsonValue& state, const Look&)
{
    return {textOf(strengthOf(state))};
}

Cell strengthBars(const QJsonValue& state, const Look& look)
{
    return signalBars(strengthOf(state), look);
}

Cell network(const QJsonValue& state, const Look&)
{
    const QString ssid = textOf(state["ap"]["ssid"]);
    const QStringList mobile = {textOf(state["gsm"]["operatorName"]), textOf(state["accessTechnologies"])};
    return {ssid.isEmpty() ? joined(mobile, ", ") : ssid};
}

Cell star(const QJsonValue& inUse, const Look&)
{
    return {inUse.toBool() ? "*" : "", Tone::Good};
}

Cell megahertz(const QJsonValue& value, const Look&)
{
    return {value.isDouble() ? textOf(value) + " MHz" : QString()};
}

Cell megabits(const QJsonValue& kilobits, const Look&)
{
    return {kilobits.isDouble() ? QString("%1 Mbit/s").arg(kilobits.toDouble() / 1000) : QString()};
}

Cell percent(const QJsonValue& state, const Look&)
{
    return {strengthOf(state).isDouble() ? textOf(strengthOf(state)) + " %" : QString()};
}

Cell maker(const QJsonValue& device, const Look&)
{
    return {
        joined({textOf(device["manufacturer"]), textOf(device["model"]), textOf(device["revision"])}, " ")};
}

Cell mobileOperator(const QJsonValue& gsm, const Look&)
{
    return {joined({textOf(gsm["operatorName"]), textOf(gsm["operatorCode"])}, ", ")};
}

Cell megabytes(const QJsonValue& value, const Look&)
{
    return {QString::number(value.toDouble(), 'f', 2)};
}

Cell shareBar(const QJsonValue& share, const Look& look)
{
    constexpr int longest = 30;
    return {bar(share.toDouble(), longest, look), Tone::Good};
}

const Columns statusColumns = {
    {"DEVICE", "interface"},
    {"KIND", "typeStr"},
    {"STATE", "stateStr", stateWord},
    {"ADDRESS", "ipv4", address},
    {"NETWORK", "", network, false, true},
    {"SIGNAL", "", strengthBars},
    {"%", "", strength, true},
};

const Columns networkColumns = {
    {"", "inUse", star},
    {"SSID", "ssid", nullptr, false, true},
    {"%", "signal", nullptr, true},
    {"BARS", "signal", signalBars},
    {"SECURITY", "security"},
    {"CHAN", "channel", nullptr, true},
    {"BAND", "band"},
    {"APS", "accessPoints", nullptr, true},
    {"DEVICE", "interface"},
};

const Columns signalColumns = {
    {"DEVICE", "interface"},
    {"%", "signal", nullptr, true},
    {"BARS", "signal", signalBars},
    {"TECHNOLOGY", "accessTechnologies"},
    {"OPERATOR", "operator", nullptr, false, true},
};

const Columns usageColumns = {
    {"MONTH", "month"},
    {"DOWN MB", "download", megabytes, true},
    {"UP MB", "upload", megabytes, true},
    {"", "share", shareBar},
};

const Columns stateLines = {
    {"State", "", reason},
    {"MAC address", "mac"},
    {"Address", "ipv4", address},
    {"Gateway", "ipv4.gateway"},
    {"Name servers", "ipv4", servers},
    {"Network", "ap.ssid"},
    {"Access point", "ap.hardwareAddress"},
    {"Mode", "ap.mode"},
    {"Security", "ap.security"},
    {"Frequency", "ap.frequency", megahertz},
    {"Bit rate", "ap.maxBitRate", megabits},
    {"Modem", "device", maker},
    {"IMEI", "gsm.imei"},
    {"MEID", "cdma.meid"},
    {"IMSI", "sim.imsi"},
    {"SIM", "sim.id"},
    {"Operator", "gsm", mobileOperator},
    {"Technology", "accessTechnologies"},
    {"Signal", "", percent},
};

const Columns configLines = {
    {"Method", "method"},     {"Address", "", address},
    {"Gateway", "gateway"},   {"Name servers", "", servers},
    {"Network", "ssid"},      {"Key", "key"},
    {"APN", "apn"},           {"User name", "username"},
    {"Password", "password"}, {"Network ID", "networkId"},
    {"PIN", "pin"},
};

double totalOf(const QJsonObject& month)
{
    return month["download"].toDouble() + month["upload"].toDouble();
}

} // namespace

QString addressOf(const QJsonObject& ipv4)
{
    const QString address = textAt(ipv4, "address");
    if (address.isEmpty())
        return {};
    size_t prefix = 0;
    for (const QString& part : textAt(ipv4, "netmask").split('.'))
        prefix += std::bitset<8>(part.toUShort()).count();
    return QString("%1/%2").arg(address).arg(prefix);
}

Tone toneOf(const QString& stateWord)
{
    if (stateWord.startsWith("Connected"))
        return Tone::Good;
    return stateWord.endsWith("ing") ? Tone::Busy : Tone::Bad;
}

QString statusText(const QJsonObject& info, const QJsonObject& status, const QVector<QJsonObject>& devices,
                   const Look& look)
{
    const QString state = textAt(status, "stateStr");
    const QJsonObject primary = status["primaryConnection"].toObject();
    const QStringList place = {textAt(primary, "interface"), addressOf(primary["ipv4"].toObject())};
    return QString("%1: %2, connectivity %3 (lanvoy %4)\n")
               .arg(painted(textAt(status, "hostname"), Tone::Bold, look),
                    painted(state, toneOf(state), look), textAt(status, "connectivityStr"),
                    textAt(info, "service.version"))
        + (primary.isEmpty() ? QString("No primary connection\n")
                             : QString("Primary connection: %1 (%2)\n")
                                   .arg(textAt(primary, "connectionName"), joined(place, ", ")))
        + '\n' + table(statusColumns, devices, look);
}

QString deviceText(const QJsonObject& state, const QJsonObject& config, const Look& look)
{
    QString result = painted(textAt(state, "interface"), Tone::Bold, look)
        + QString(" (%1)\n").arg(textAt(state, "typeStr")) + lines(stateLines, state, look);
    if (!config.isEmpty())
        result += "  Configuration\n" + lines(configLines, config, look);
    return result;
}

QString networksText(const QVector<QJsonObject>& networks, const Look& look)
{
    return table(networkColumns, networks, look);
}

QString signalText(const QVector<QJsonObject>& modems, const Look& look)
{
    return table(signalColumns, modems, look);
}

QString usageText(const QJsonObject& usage, const Look& look)
{
    QVector<QJsonObject> rows;
    double most = 0;
    for (const QJsonValue& month : entriesOf(usage["months"])) {
        rows.append(month.toObject());
        most = std::max(most, totalOf(rows.last()));
    }
    for (QJsonObject& row : rows)
        row.insert("share", most > 0 ? totalOf(row) / most : 0);
    QJsonObject sum = usage;
    sum.insert("month", "Sum");
    rows.append(sum);
    return table(usageColumns, rows, look);
}

} // namespace Ctl
