// SPDX-License-Identifier: MIT
#pragma once

#include <NetworkManagerQt/ConnectionSettings>

#include <QString>

/** What provisioning decides about connection settings, without talking to NetworkManager. */
namespace Lanvoy
{

/** Whether a settings map holds any secret that a configuration can set. */
bool hasSecret(const NMVariantMapMap& map);

/** Puts an empty "password" and "pin" into the map's "gsm" group where it has none. */
void addEmptyGsmSecrets(NMVariantMapMap& map);

/**
 * Corrects a settings map that NetworkManager refused because of something the map itself carries or lacks.
 *
 * @param map      changed in place
 * @param settings what the map was made of
 * @param error    NetworkManager's message, "group.property: reason"
 * @return false when there is nothing to correct, which makes the refusal final
 */
bool correctRefusedMap(NMVariantMapMap& map, const NetworkManager::ConnectionSettings& settings,
                       const QString& error);

/** The map without its secrets, which is what NetworkManager publishes of a connection. */
NMVariantMapMap withoutSecrets(NMVariantMapMap map);

} // namespace Lanvoy
