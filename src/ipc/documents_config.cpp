// SPDX-License-Identifier: MIT
#include "documents.h"

#include <NetworkManagerQt/GsmSetting>
#include <NetworkManagerQt/WirelessSetting>

namespace Lanvoy
{

namespace
{

using NetworkManager::ConnectionSettings;
using NetworkManager::Setting;

/** A group of the connection; null when NetworkManager holds none (the library makes an empty object then).
 */
template<typename T>
QSharedPointer<T> held(const ConnectionSettings::Ptr& settings, Setting::SettingType type)
{
    const Setting::Ptr setting = settings->setting(type);
    return setting && !setting->isNull() ? setting.staticCast<T>() : nullptr;
}

/** What all three documents have in common. */
QJsonObject commonMembers(const QString& interfaceName, const ConnectionSettings::Ptr& settings)
{
    QJsonObject document;
    if (settings)
        document = toJson(held<NetworkManager::Ipv4Setting>(settings, Setting::Ipv4)).toObject();
    else
        document.insert(QStringLiteral("method"), QStringLiteral("unknown"));
    document.insert(QStringLiteral("interface"), interfaceName);
    return document;
}

} // namespace

QJsonValue toJson(const NetworkManager::Ipv4Setting::Ptr& setting)
{
    if (!setting)
        return QJsonValue::Null;
    QJsonObject object {{"method", ipv4SettingMethodToString(setting->method())}};
    const QList<NetworkManager::IpAddress> addresses = setting->addresses();
    if (!addresses.isEmpty()) {
        const NetworkManager::IpAddress& address = addresses.first();
        object.insert(QStringLiteral("address"), address.ip().toString());
        object.insert(QStringLiteral("netmask"), address.netmask().toString());
        object.insert(QStringLiteral("gateway"), address.gateway().toString());
    }
    // Compatibility: at most two, although the state documents list all of them.
    const QList<QHostAddress> dns = setting->dns();
    if (dns.size() > 0)
        object.insert(QStringLiteral("dns0"), dns.at(0).toString());
    if (dns.size() > 1)
        object.insert(QStringLiteral("dns1"), dns.at(1).toString());
    return object;
}

QJsonObject ethernetConfigDocument(const QString& interfaceName, const ConnectionSettings::Ptr& settings)
{
    return commonMembers(interfaceName, settings);
}

QJsonObject wifiConfigDocument(const QString& interfaceName, const ConnectionSettings::Ptr& settings,
                               const std::optional<QVariantMap>& secrets)
{
    QJsonObject document = commonMembers(interfaceName, settings);
    if (!settings) {
        document.insert(QStringLiteral("ssid"), QJsonValue::Null);
        document.insert(QStringLiteral("key"), QJsonValue::Null);
        return document;
    }
    if (const auto wireless = held<NetworkManager::WirelessSetting>(settings, Setting::Wireless))
        document.insert(QStringLiteral("ssid"), QString::fromUtf8(wireless->ssid()));
    if (secrets)
        document.insert(QStringLiteral("key"), secrets->value(QStringLiteral("psk")).toString());
    return document;
}

QJsonObject modemConfigDocument(const QString& interfaceName, const ConnectionSettings::Ptr& settings,
                                const std::optional<QVariantMap>& secrets)
{
    QJsonObject document = commonMembers(interfaceName, settings);
    const auto heldGsm = settings ? held<NetworkManager::GsmSetting>(settings, Setting::Gsm) : nullptr;
    if (!heldGsm)
        return document;
    // A copy: the settings object is the library's own, and secrets must not stay in it.
    NetworkManager::GsmSetting gsm(heldGsm);
    if (secrets)
        gsm.secretsFromMap(*secrets);
    document.insert(QStringLiteral("apn"), gsm.apn());
    document.insert(QStringLiteral("username"), gsm.username());
    document.insert(QStringLiteral("password"), gsm.password());
    document.insert(QStringLiteral("networkId"), gsm.networkId());
    document.insert(QStringLiteral("pin"), gsm.pin());
    return document;
}

} // namespace Lanvoy
