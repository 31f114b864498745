// SPDX-License-Identifier: MIT
#include "merge.h"

#include "text.h"

#include <QHostAddress>
#include <QSettings>

#include <algorithm>

namespace Ctl
{

namespace
{

constexpr const char* all = "ethernet wifi modem";

constexpr Field fields[] = {
    {"method", "method", all, Rule::Method, "auto"},
    {"address", "address", all, Rule::Address},
    {"netmask", "mask", "ethernet wifi", Rule::Netmask},
    {"netmask", "netmask", "modem", Rule::Netmask},
    {"gateway", "gateway", all, Rule::Address},
    {"dns0", "dns0", all, Rule::Address},
    {"dns1", "dns1", all, Rule::Address},
    {"ssid", "ssid", "wifi"},
    {"key", "key", "wifi", Rule::Secret},
    {"apn", "apn", "modem", Rule::Any, "internet"},
    {"username", "username", "modem"},
    {"password", "password", "modem", Rule::Secret},
    {"networkId", "network_id", "modem"},
    {"pin", "pin", "modem", Rule::Secret},
};

constexpr const char* methods[] = {"auto", "manual", "link-local"};

bool isMethod(const QString& word)
{
    return std::find(std::begin(methods), std::end(methods), word) != std::end(methods);
}

bool isAddress(const QString& text)
{
    return text.count('.') == 3 && QHostAddress(text).protocol() == QAbstractSocket::IPv4Protocol;
}

bool isNetmask(const QString& text)
{
    const quint32 holes = ~QHostAddress(text).toIPv4Address();
    return isAddress(text) && (holes & (holes + 1)) == 0;
}

/** Splits an address with prefix length into address and netmask. @return the problem, empty for none */
QString splitPrefix(Record& given)
{
    const QString address = given.value("address");
    if (!address.contains('/'))
        return {};
    const int prefix = QHostAddress::parseSubnet(address).second;
    if (prefix < 1 || prefix > 32) // of IPv6
        return QString("'%1' is no address with prefix length.").arg(address);
    given["address"] = address.section('/', 0, 0);
    given["netmask"] = QHostAddress(static_cast<quint32>(0xffffffffULL << (32 - prefix))).toString();
    return {};
}

// The service takes any text, so a slip would be found out only by losing the device.
QString problemOf(const QString& kind, const Record& given)
{
    for (const Field& field : fieldsOf(kind)) {
        const QString value = given.value(field.name);
        if (field.rule == Rule::Method && given.contains(field.name) && !isMethod(value))
            return QString("method is one of auto, manual, link-local, not '%1'.").arg(value);
        if (field.rule == Rule::Address && !value.isEmpty() && !isAddress(value))
            return QString("%1: '%2' is no IPv4 address.").arg(field.name, value);
        if (field.rule == Rule::Netmask && !value.isEmpty() && !isNetmask(value))
            return QString("%1: '%2' is no IPv4 netmask.").arg(field.name, value);
    }
    return {};
}

/** Why the document cannot show the configured profile; empty when nothing speaks against it. */
QString doubtOf(const QString& kind, const QJsonObject& config, const QJsonObject& state,
                const QJsonObject& status, const QString& wantedSsid)
{
    const QString method = config["method"].toString();
    if (!isMethod(method))
        return QString("NetworkManager shows no profile that the service could have made (method %1)")
            .arg(method);
    const QJsonObject primary = status["primaryConnection"].toObject();
    const QString name = primary["connectionName"].toString();
    const bool isPrimary = primary["interface"] == config["interface"];
    const QString ssid = config["ssid"].toString();
    if (kind == "wifi" && !wantedSsid.isEmpty() && ssid == wantedSsid)
        return {};
    const bool isConnected = state["stateStr"] == QJsonValue("Connected");
    const QString used = valueAt(state, "ap.ssid").toString();
    if (kind == "wifi" && isConnected && used != ssid)
        return QString("NetworkManager shows the profile of '%1', but '%2' is in use").arg(ssid, used);
    if (isPrimary && (kind == "wifi" ? name != ssid : name.startsWith("Wired connection")))
        return QString("the connection '%1' in use is not the service's").arg(name);
    if (isConnected && method == "manual" && config["address"] != valueAt(state, "ipv4.address"))
        return "NetworkManager shows a profile that is not in use";
    return {};
}

} // namespace

QVector<Field> fieldsOf(const QString& kind)
{
    QVector<Field> result;
    std::copy_if(std::begin(fields), std::end(fields), std::back_inserter(result),
                 [&](const Field& field) { return QString(field.kinds).contains(kind); });
    return result;
}

Present presentOf(const QString& kind, const QSettings& file)
{
    Present present;
    const QString group = kind.left(1).toUpper() + kind.mid(1) + '/';
    for (const Field& field : fieldsOf(kind))
        present.record[field.name] = file.value(group + field.key, field.fallback).toString();
    return present;
}

Present presentOf(const QString& kind, const QJsonObject& config, const QJsonObject& state,
                  const QJsonObject& status, const QString& ssid)
{
    Present present;
    present.doubt = doubtOf(kind, config, state, status, ssid);
    for (const Field& field : fieldsOf(kind)) {
        const QString value = config[field.name].toString();
        present.record[field.name] = value == "0.0.0.0" ? QString() : value;
        if (!present.doubt.isEmpty())
            present.unknown.insert(field.name);
    }
    const QString security = valueAt(state, "ap.security").toString("unknown");
    if (kind == "wifi" && present.doubt.isEmpty() && !config.contains("key") && security != "none") {
        present.unknown.insert("key");
        present.doubt = "the present key cannot be read";
    }
    // The service shows the same when there are none and when it may not read them.
    if (kind == "modem" && present.record["password"].isEmpty() && present.record["pin"].isEmpty())
        present.note
            = "The service shows neither password nor PIN: if there is one, name it, or it is emptied.";
    return present;
}

Merged merge(const QString& kind, const Present& present, const Record& given, bool replace)
{
    Merged merged;
    Record wanted = given;
    merged.problem = splitPrefix(wanted);
    if (merged.problem.isEmpty())
        merged.problem = problemOf(kind, wanted);
    if (!merged.problem.isEmpty())
        return merged;

    QStringList missing;
    for (const Field& field : fieldsOf(kind)) {
        const QString name = field.name;
        const bool isUnknown = present.unknown.contains(name);
        const QString before = isUnknown ? QString("?") : present.record.value(name);
        const QString after = wanted.value(name, replace || isUnknown ? QString() : before);
        if (isUnknown && !replace && !wanted.contains(name))
            missing.append(name);
        merged.record[name] = after;
        const auto shown = [&](const QString& value) {
            const bool isHidden = field.rule == Rule::Secret && !value.isEmpty();
            return isHidden ? QString("******") : value;
        };
        if (before != after)
            merged.changes.append(QJsonObject {
                {"field", name}, {"from", isUnknown ? before : shown(before)}, {"to", shown(after)}});
    }
    const Record& record = merged.record;
    if (!missing.isEmpty())
        merged.problem = QString("The present configuration is not known: %1. Name %2 too, or use --replace, "
                                 "which empties what is not named.")
                             .arg(present.doubt, missing.join(", "));
    else if (replace && !wanted.contains("method"))
        merged.problem
            = "With --replace a method is needed: without one the device gets a link-local address.";
    else if (record["method"] == "manual" && (record["address"].isEmpty() || record["netmask"].isEmpty()))
        merged.problem = "Method manual needs an address and a netmask.";
    return merged;
}

} // namespace Ctl
