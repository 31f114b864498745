#pragma once

#include "config/config.h"

#include <NetworkManagerQt/ConnectionSettings>
#include <NetworkManagerQt/Ipv4Setting>

#include <QString>
#include <QStringList>

/** What provisioning decides about connection settings, without talking to NetworkManager. */
namespace Lanvoy
{

/**
 * Writes the configuration of a device kind into connection settings.
 *
 * @param settings changed in place; its type tells the kind, other types are left alone
 * @param security of the access point, as apSecurity() names it; wifi only
 * @return true when something that counts as a change was written
 */
bool updateConnectionSettings(const NetworkManager::ConnectionSettings::Ptr& settings, const Config& config,
                              const QString& security);

/**
 * Writes one IPv4 record into an IPv4 setting.
 *
 * Addresses compare as IPv4 values: empty, unreadable and IPv6 texts and 0.0.0.0 are the same "none".
 *
 * @return true when it changed anything
 */
bool updateIpv4Configuration(const NetworkManager::Ipv4Setting::Ptr& setting, const Config::Ipv4Config& ipv4);

/** The secrets that a configuration can set, in a fixed order; empty where there is none. */
QStringList secretsOf(const NetworkManager::ConnectionSettings::Ptr& settings);

/** True when a secret of @p before is empty in @p after, which NetworkManager's update cannot express. */
bool losesSecret(const QStringList& before, const QStringList& after);

/** Puts an empty "password" and "pin" into the map's "gsm" group where it has none. */
void addEmptyGsmSecrets(NMVariantMapMap& map);

/**
 * Mends a settings map after NetworkManager refused it for something that the map itself carries or lacks.
 *
 * @param map      changed in place
 * @param settings what the map was made of
 * @param error    NetworkManager's message, "group.property: reason"
 * @return false when there is nothing to mend: the refusal is final then
 */
bool correctRefusedMap(NMVariantMapMap& map, const NetworkManager::ConnectionSettings& settings,
                       const QString& error);

/** The map without its secrets: what NetworkManager itself tells of a connection. */
NMVariantMapMap withoutSecrets(NMVariantMapMap map);

} // namespace Lanvoy
