// SPDX-License-Identifier: MIT
#include "engine.h"

#include <NetworkManagerQt/GsmSetting>
#include <NetworkManagerQt/Ipv6Setting>
#include <NetworkManagerQt/WirelessSecuritySetting>
#include <NetworkManagerQt/WirelessSetting>

#include <optional>

namespace Lanvoy
{

namespace
{

using NetworkManager::ConnectionSettings;
using NetworkManager::GsmSetting;
using NetworkManager::IpAddress;
using NetworkManager::Ipv4Setting;
using NetworkManager::Ipv6Setting;
using NetworkManager::Setting;
using NetworkManager::WirelessSecuritySetting;
using NetworkManager::WirelessSetting;

/** The key management that an access point's security word asks for; none for an open profile. */
std::optional<WirelessSecuritySetting::KeyMgmt> keyManagementFor(const QString& security)
{
    constexpr struct {
        const char* security;
        WirelessSecuritySetting::KeyMgmt management;
    } rows[] = {
        {"wep", WirelessSecuritySetting::Wep},
        {"wpa1", WirelessSecuritySetting::WpaPsk},
        {"wpa2", WirelessSecuritySetting::WpaPsk},
        {"wpa1-wpa2", WirelessSecuritySetting::WpaPsk},
    };
    for (const auto& row : rows) {
        if (security == QLatin1String(row.security))
            return row.management;
    }
    return std::nullopt;
}

template<typename T>
QSharedPointer<T> settingOf(const ConnectionSettings::Ptr& settings, Setting::SettingType type)
{
    return settings->setting(type).staticCast<T>();
}

/** Writes @p wanted through @p setter if it differs from @p current; returns whether it did. */
template<typename Object, typename Value, typename Argument>
bool setIfDifferent(Object& object, const Value& current, const Value& wanted,
                    void (Object::*setter)(Argument))
{
    if (current == wanted)
        return false;
    (object.*setter)(wanted);
    return true;
}

// 0 stands for "none": no text, no IPv4 address, 0.0.0.0.
quint32 ipv4Value(const QHostAddress& address)
{
    return address.toIPv4Address();
}

bool sameAddresses(const QList<IpAddress>& current, const IpAddress& wanted)
{
    return current.size() == 1 && ipv4Value(current.first().ip()) == ipv4Value(wanted.ip())
        && current.first().prefixLength() == wanted.prefixLength()
        && ipv4Value(current.first().gateway()) == ipv4Value(wanted.gateway());
}

/** The name servers as NetworkManager can hold them: IPv4 addresses, each once. */
QList<QHostAddress> nameServers(const QList<QHostAddress>& addresses)
{
    QList<QHostAddress> servers;
    for (const QHostAddress& address : addresses) {
        const QHostAddress server(ipv4Value(address));
        if (ipv4Value(address) != 0 && !servers.contains(server))
            servers.append(server);
    }
    return servers;
}

// The static address is stored in three places. One that is left in any of them stays in force.
void setAddresses(Ipv4Setting& setting, const QList<IpAddress>& addresses)
{
    setting.setAddresses(addresses);
    setting.setAddressData({});
    setting.setGateway(QString());
}

bool switchMethod(Ipv4Setting& setting, Ipv4Setting::ConfigMethod method)
{
    return setIfDifferent(setting, setting.method(), method, &Ipv4Setting::setMethod);
}

bool applyAuto(Ipv4Setting& setting)
{
    if (!switchMethod(setting, Ipv4Setting::Automatic))
        return false;
    setAddresses(setting, {});
    return true;
}

bool applyManual(Ipv4Setting& setting, const Config::Ipv4Config& ipv4)
{
    IpAddress address;
    address.setIp(QHostAddress(ipv4.address)); // first: a netmask without an ip is ignored
    address.setNetmask(QHostAddress(ipv4.mask));
    address.setGateway(QHostAddress(ipv4.gateway));

    bool changed = switchMethod(setting, Ipv4Setting::Manual);
    if (!sameAddresses(setting.addresses(), address)) {
        setAddresses(setting, {address});
        changed = true;
    }
    const QList<QHostAddress> servers = nameServers({QHostAddress(ipv4.dns0), QHostAddress(ipv4.dns1)});
    if (nameServers(setting.dns()) != servers) {
        setting.setDns(servers);
        changed = true;
    }
    return changed;
}

bool updateWired(const ConnectionSettings::Ptr& settings, const Config::Ethernet& record)
{
    bool changed = setIfDifferent(*settings, settings->id(), record.id, &ConnectionSettings::setId);
    changed |= setIfDifferent(*settings, settings->autoconnect(), record.autocon,
                              &ConnectionSettings::setAutoconnect);
    changed |= Engine::updateIpv4Configuration(settingOf<Ipv4Setting>(settings, Setting::Ipv4), record.ipv4);
    return changed;
}

bool updateSecurity(WirelessSecuritySetting& security, WirelessSecuritySetting::KeyMgmt management,
                    const QString& key)
{
    bool changed
        = setIfDifferent(security, security.keyMgmt(), management, &WirelessSecuritySetting::setKeyMgmt);
    // Flag None stores the key in the profile. GetSecrets does not return an agent's key, which would look
    // changed on every run.
    if (management == WirelessSecuritySetting::Wep) {
        changed |= setIfDifferent(security, security.wepKey0(), key, &WirelessSecuritySetting::setWepKey0);
        security.setWepKeyType(WirelessSecuritySetting::Passphrase);
        security.setWepKeyFlags(Setting::None);
    } else {
        changed |= setIfDifferent(security, security.psk(), key, &WirelessSecuritySetting::setPsk);
        security.setPskFlags(Setting::None);
    }
    security.setInitialized(true);
    return changed;
}

bool updateWireless(const ConnectionSettings::Ptr& settings, const Config::Wifi& record, const QString& word)
{
    const auto wireless = settingOf<WirelessSetting>(settings, Setting::Wireless);
    bool changed = setIfDifferent(*settings, settings->id(), record.ssid, &ConnectionSettings::setId);
    changed |= setIfDifferent(*settings, settings->autoconnect(), record.autocon,
                              &ConnectionSettings::setAutoconnect);

    // Compatibility: compared as Latin-1 but written as UTF-8, so a name beyond ASCII always counts as
    // changed.
    if (QString::fromLatin1(wireless->ssid().constData()) != record.ssid) {
        wireless->setSsid(record.ssid.toUtf8());
        changed = true;
    }
    if (const auto management = keyManagementFor(word)) {
        const auto security = settingOf<WirelessSecuritySetting>(settings, Setting::WirelessSecurity);
        changed |= updateSecurity(*security, *management, record.key);
        wireless->setSecurity(security->name());
        wireless->setInitialized(true);
    }
    changed |= Engine::updateIpv4Configuration(settingOf<Ipv4Setting>(settings, Setting::Ipv4), record.ipv4);

    const auto ipv6 = settingOf<Ipv6Setting>(settings, Setting::Ipv6);
    if (setIfDifferent(*ipv6, ipv6->method(), Ipv6Setting::Ignored, &Ipv6Setting::setMethod)) {
        ipv6->setInitialized(true);
        changed = true;
    }
    return changed;
}

bool updateGsm(const ConnectionSettings::Ptr& settings, const Config::Modem& record)
{
    // Compatibility: unlike for the other two kinds, these two never count as a change.
    settings->setId(record.id);
    settings->setAutoconnect(record.autocon);

    // NetworkManager strips these two, so that the text as given would never equal what is stored.
    const QString apn = record.apn.trimmed();
    const QString networkId = record.network_id.trimmed();
    const auto gsm = settingOf<GsmSetting>(settings, Setting::Gsm);
    bool changed = setIfDifferent(*gsm, gsm->apn(), apn, &GsmSetting::setApn);
    changed |= setIfDifferent(*gsm, gsm->username(), record.username, &GsmSetting::setUsername);
    changed |= setIfDifferent(*gsm, gsm->networkId(), networkId, &GsmSetting::setNetworkId);
    changed |= setIfDifferent(*gsm, gsm->password(), record.password, &GsmSetting::setPassword);
    changed |= setIfDifferent(*gsm, gsm->pin(), record.pin, &GsmSetting::setPin);
    gsm->setNumber(QStringLiteral("*99#"));
    gsm->setPasswordFlags(Setting::None);
    gsm->setPinFlags(Setting::None);
    gsm->setInitialized(true);

    changed |= Engine::updateIpv4Configuration(settingOf<Ipv4Setting>(settings, Setting::Ipv4), record.ipv4);
    return changed;
}

} // namespace

bool Engine::updateConnectionSettings(const ConnectionSettings::Ptr& settings, const Config& config,
                                      const QString& security)
{
    if (!settings)
        return false;
    switch (settings->connectionType()) {
    case ConnectionSettings::Wired:
        return updateWired(settings, config.ethernet());
    case ConnectionSettings::Wireless:
        if (security == QLatin1String("unknown"))
            log(Log::Error, "Could not determine Wifi security for AP '%s'. Defaulting to 'none'.",
                qPrintable(config.wifi().ssid));
        return updateWireless(settings, config.wifi(), security);
    case ConnectionSettings::Gsm:
        return updateGsm(settings, config.modem());
    default:
        return false;
    }
}

bool Engine::updateIpv4Configuration(const Ipv4Setting::Ptr& setting, const Config::Ipv4Config& ipv4)
{
    setting->setInitialized(true);
    if (ipv4.method == QLatin1String("auto"))
        return applyAuto(*setting);
    if (ipv4.method == QLatin1String("manual"))
        return applyManual(*setting, ipv4);
    return switchMethod(*setting, Ipv4Setting::LinkLocal);
}

} // namespace Lanvoy
