// SPDX-License-Identifier: MIT
#pragma once

#include <ModemManager/ModemManager.h>
#include <NetworkManagerQt/AccessPoint>
#include <NetworkManagerQt/Device>
#include <NetworkManagerQt/Ipv4Setting>
#include <NetworkManagerQt/Manager>
#include <QMqttClient>

#include <QJsonArray>
#include <QString>

/**
 * The words that documents and log lines use for enumerated values, and the service's own device state.
 *
 * The words are interface: clients compare them letter for letter. A value without a word is "unknown".
 */
namespace Lanvoy
{

/** The service's own coarse device state; Connected is the one state that counts as connected everywhere. */
enum DeviceState : int {
    Unavailable = 0,
    Disconnected = 1,
    Disconnecting = 2,
    Connecting = 3,
    Connected = 4,
};

/** Maps NetworkManager's device state to the service's own; an unlisted state counts as Unavailable. */
DeviceState mapDeviceState(NetworkManager::Device::State state);

QString deviceStateToString(DeviceState state);
QString deviceTypeToString(NetworkManager::Device::Type type);
QString statusToString(NetworkManager::Status status);
QString connectivityToString(NetworkManager::Connectivity connectivity);
QString mqttErrorToString(QMqttClient::ClientError error);
QString stateChangeReasonToString(NetworkManager::Device::StateChangeReason reason);
QString ipv4SettingMethodToString(NetworkManager::Ipv4Setting::ConfigMethod method);
QString apModeToString(NetworkManager::AccessPoint::OperationMode mode);

/**
 * Names the security of an access point: "none", "wep", "wpa1", "wpa2", "wpa1-wpa2" or "unknown".
 *
 * @param accessPoint may be null, which is "unknown"
 */
QString apSecurity(const QSharedPointer<NetworkManager::AccessPoint>& accessPoint);

/** The same from the values that an access point advertises. */
QString apSecurity(NetworkManager::AccessPoint::Capabilities capabilities,
                   NetworkManager::AccessPoint::WpaFlags wpa, NetworkManager::AccessPoint::WpaFlags rsn);

/** Names the access technologies in ascending bit order, joined by commas; none is "UNKNOWN". */
QString accessTechnologiesToString(QFlags<MMModemAccessTechnology> technologies);

/** The same names as an array of texts. */
QJsonArray accessTechnologiesToJson(QFlags<MMModemAccessTechnology> technologies);

} // namespace Lanvoy
