// SPDX-License-Identifier: MIT
#include "settings.h"

#include <NetworkManagerQt/Setting>

namespace Lanvoy
{

namespace
{

using NetworkManager::ConnectionSettings;
using NetworkManager::Setting;

constexpr char gsmGroup[] = "gsm";
constexpr char ipv4Group[] = "ipv4";
constexpr char wirelessGroup[] = "802-11-wireless";

// The properties of "gsm" that every update carries, empty where there is none.
constexpr const char* gsmSecrets[] = {"password", "pin"};

struct Secret {
    const char* group;
    const char* key;
};

constexpr Secret secrets[] = {
    {"gsm", "password"},
    {"gsm", "pin"},
    {"802-11-wireless-security", "psk"},
    {"802-11-wireless-security", "wep-key0"},
    {"802-11-wireless-security", "wep-key1"},
    {"802-11-wireless-security", "wep-key2"},
    {"802-11-wireless-security", "wep-key3"},
};

bool removeEmpty(QVariantMap& group, const char* key)
{
    const auto entry = group.find(QLatin1String(key));
    if (entry == group.end() || !entry->toString().isEmpty())
        return false;
    group.erase(entry);
    return true;
}

// NetworkManager rejects an empty gsm.password in any profile, even a wired one.
bool dropEmptyGsmSecrets(NMVariantMapMap& map, const ConnectionSettings& /*settings*/)
{
    QVariantMap group = map.value(QLatin1String(gsmGroup));
    bool dropped = false;
    for (const char* key : gsmSecrets)
        dropped |= removeEmpty(group, key);
    if (group.isEmpty())
        map.remove(QLatin1String(gsmGroup));
    else
        map.insert(QLatin1String(gsmGroup), group);
    return dropped;
}

// The profile of an open network is refused without the group that names the network.
bool addWirelessGroup(NMVariantMapMap& map, const ConnectionSettings& settings)
{
    const Setting::Ptr wireless = settings.setting(Setting::Wireless);
    if (!wireless || map.contains(QLatin1String(wirelessGroup)))
        return false;
    map.insert(QLatin1String(wirelessGroup), wireless->toMap());
    return true;
}

// Static addresses and name servers are not allowed for every method.
bool dropStaticIpv4(NMVariantMapMap& map, const ConnectionSettings& /*settings*/)
{
    QVariantMap group = map.value(QLatin1String(ipv4Group));
    if (group.value(QStringLiteral("method")) == QLatin1String("manual"))
        return false;
    int dropped = 0;
    for (const char* key :
         {"addresses", "address-data", "gateway", "dns", "dns-data", "dns-search", "dns-options"})
        dropped += group.remove(QLatin1String(key));
    map.insert(QLatin1String(ipv4Group), group);
    return dropped > 0;
}

struct Correction {
    const char* refusal; // how NetworkManager's message begins; the rest may be translated
    bool (*apply)(NMVariantMapMap& map, const ConnectionSettings& settings);
};

constexpr Correction corrections[] = {
    {"gsm.password:", dropEmptyGsmSecrets}, {"gsm.pin:", dropEmptyGsmSecrets},
    {"802-11-wireless:", addWirelessGroup}, {"ipv4.addresses:", dropStaticIpv4},
    {"ipv4.gateway:", dropStaticIpv4},      {"ipv4.dns", dropStaticIpv4},
};

} // namespace

void addEmptyGsmSecrets(NMVariantMapMap& map)
{
    QVariantMap& group = map[QLatin1String(gsmGroup)];
    for (const char* key : gsmSecrets) {
        if (!group.contains(QLatin1String(key)))
            group.insert(QLatin1String(key), QString::fromLatin1(""));
    }
}

bool correctRefusedMap(NMVariantMapMap& map, const ConnectionSettings& settings, const QString& error)
{
    for (const Correction& correction : corrections) {
        if (error.startsWith(QLatin1String(correction.refusal)))
            return correction.apply(map, settings);
    }
    return false;
}

bool hasSecret(const NMVariantMapMap& map)
{
    for (const Secret& secret : secrets) {
        if (!map.value(QLatin1String(secret.group)).value(QLatin1String(secret.key)).toString().isEmpty())
            return true;
    }
    return false;
}

NMVariantMapMap withoutSecrets(NMVariantMapMap map)
{
    for (const Secret& secret : secrets) {
        const auto group = map.find(QLatin1String(secret.group));
        if (group != map.end())
            group->remove(QLatin1String(secret.key));
    }
    return map;
}

} // namespace Lanvoy
