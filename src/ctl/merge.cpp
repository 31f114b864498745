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

const QVector<Field> ipv4Fields = {{"method", "method"},   {"address", "address"}, {"netmask", "mask"},
                                   {"gateway", "gateway"}, {"dns0", "dns0"},       {"dns1", "dns1"}};

const QStringList methods = {"auto", "manual", "link-local"};

bool isAddress(const QString& text)
{
    return text.count('.') == 3 && QHostAddress(text).protocol() == QAbstractSocket::IPv4Protocol;
}

bool isNetmask(const QString& text)
{
    const quint32 holes = ~QHostAddress(text).toIPv4Address();
    return isAddress(text) && (holes & (holes + 1)) == 0;
}

QString netmaskOf(int prefix)
{
    return QHostAddress(static_cast<quint32>(0xffffffffULL << (32 - prefix))).toString();
}

/** Splits an address with prefix length into address and netmask. @return the problem, empty for none */
QString splitPrefix(Record& given)
{
    const QStringList parts = given.value("address").split('/');
    if (parts.size() == 1)
        return {};
    bool isNumber = false;
    const int prefix = parts.at(1).toInt(&isNumber);
    if (parts.size() > 2 || !isNumber || prefix < 1 || prefix > 32)
        return QString("'%1' is no address with prefix length.").arg(given["address"]);
    given["address"] = parts.first();
    given["netmask"] = netmaskOf(prefix);
    return {};
}

// The service takes any text, so a slip would be found out only by losing the device.
QString problemOf(const Record& given)
{
    for (auto field = given.begin(); field != given.end(); ++field) {
        const QString value = field.value();
        if (field.key() == "method" && !methods.contains(value))
            return QString("method is one of %1, not '%2'.").arg(methods.join(", "), value);
        const bool isIpv4 = std::any_of(ipv4Fields.begin() + 1, ipv4Fields.end(),
                                        [&](const Field& f) { return field.key() == f.name; });
        if (isIpv4 && !value.isEmpty() && !(field.key() == "netmask" ? isNetmask(value) : isAddress(value)))
            return QString("%1: '%2' is no IPv4 %3.")
                .arg(field.key(), value, field.key() == "netmask" ? "netmask" : "address");
    }
    return {};
}

/** Why the document cannot show the configured profile; empty when nothing speaks against it. */
QString doubtOf(const QString& kind, const QJsonObject& config, const QJsonObject& state,
                const QJsonObject& status, const QString& wantedSsid)
{
    const QString method = config["method"].toString();
    if (!methods.contains(method))
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

const QVector<Field>& fieldsOf(const QString& kind)
{
    static const QMap<QString, QVector<Field>> fields
        = {{"ethernet", ipv4Fields},
           {"wifi", ipv4Fields + QVector<Field> {{"ssid", "ssid"}, {"key", "key", true}}},
           {"modem",
            ipv4Fields
                + QVector<Field> {{"apn", "apn"},
                                  {"username", "username"},
                                  {"password", "password", true},
                                  {"networkId", "network_id"},
                                  {"pin", "pin", true}}}};
    static const QVector<Field> none;
    const auto found = fields.find(kind);
    return found == fields.end() ? none : found.value();
}

Present presentOf(const QString& kind, const QSettings& file)
{
    Present present;
    const QString group = kind.left(1).toUpper() + kind.mid(1) + '/';
    for (const Field& field : fieldsOf(kind)) {
        const bool isModemMask = kind == "modem" && field.key == QLatin1String("mask");
        const QString key = group + (isModemMask ? "netmask" : field.key);
        // What the service takes for a key that is missing.
        const char* const fallback = key.endsWith("/method") ? "auto" : key == "Modem/apn" ? "internet" : "";
        present.record[field.name] = file.value(key, fallback).toString();
    }
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
        merged.problem = problemOf(wanted);
    if (!merged.problem.isEmpty())
        return merged;

    QStringList missing;
    for (const Field& field : fieldsOf(kind)) {
        const QString name = field.name;
        const bool isKnown = !replace && !present.unknown.contains(name);
        if (!wanted.contains(name) && !isKnown && !replace)
            missing.append(name);
        const QString before = present.unknown.contains(name) ? QString("?") : present.record.value(name);
        const QString after = wanted.value(name, isKnown ? present.record.value(name) : QString());
        merged.record[name] = after;
        if (before != after)
            merged.changes.append({name, before, after});
    }
    if (!missing.isEmpty())
        merged.problem
            = QString(
                  "The present configuration is not known: %1. Name %2 too, or use --replace, which empties "
                  "what is not named.")
                  .arg(present.doubt, missing.join(", "));
    else if (replace && !wanted.contains("method"))
        merged.problem
            = "With --replace a method is needed: without one the device gets a link-local address.";
    else if (merged.record["method"] == "manual"
             && (merged.record["address"].isEmpty() || merged.record["netmask"].isEmpty()))
        merged.problem = "Method manual needs an address and a netmask.";
    return merged;
}

} // namespace Ctl
