// SPDX-License-Identifier: MIT
#include "lanvoytypes.h"

#include "names.h"

namespace Lanvoy
{

namespace
{

using NetworkManager::Device;

struct StateRow {
    Device::State state;
    DeviceState mapped;
};

constexpr StateRow stateRows[] = {
    {Device::Failed, Unavailable}, // Compatibility: not Disconnected.
    {Device::UnknownState, Unavailable},
    {Device::Unavailable, Unavailable},
    {Device::Unmanaged, Unavailable},
    {Device::Disconnected, Disconnected},
    {Device::Deactivating, Disconnecting},
    {Device::Preparing, Connecting},
    {Device::ConfiguringHardware, Connecting},
    {Device::NeedAuth, Connecting},
    {Device::ConfiguringIp, Connecting},
    {Device::CheckingIp, Connecting},
    {Device::WaitingForSecondaries, Connecting},
    {Device::Activated, Connected},
};

constexpr Name deviceStateNames[] = {
    {Unavailable, "Unavailable"}, {Disconnected, "Disconnected"}, {Disconnecting, "Disconnecting"},
    {Connecting, "Connecting"},   {Connected, "Connected"},
};

constexpr Name deviceTypeNames[] = {
    {Device::UnknownType, "UnkownType"}, // Compatibility: the spelling.
    {Device::Ethernet, "Ethernet"},
    {Device::Wifi, "Wifi"},
    {Device::Unused1, "Unused1"},
    {Device::Unused2, "Unused2"},
    {Device::Bluetooth, "Bluetooth"},
    {Device::OlpcMesh, "OlpcMesh"},
    {Device::Wimax, "Wimax"},
    {Device::Modem, "Modem"},
    {Device::InfiniBand, "InfiniBand"},
    {Device::Bond, "Bond"},
    {Device::Vlan, "Vlan"},
    {Device::Adsl, "Adsl"},
    {Device::Bridge, "Bridge"},
    {Device::Generic, "Generic"},
    {Device::Team, "Team"},
    {Device::Gre, "Gre"},
    {Device::MacVlan, "MacVlan"},
    {Device::Tun, "Tun"},
    {Device::Veth, "Veth"},
};

constexpr Name statusNames[] = {
    {NetworkManager::Unknown, "Unknown"},
    {NetworkManager::Asleep, "Asleep"},
    {NetworkManager::Disconnected, "Disconnected"},
    {NetworkManager::Disconnecting, "Disconnecting"},
    {NetworkManager::Connecting, "Connecting"},
    {NetworkManager::ConnectedLinkLocal, "ConnectedLinkLocal"},
    {NetworkManager::ConnectedSiteOnly, "ConnectedSiteOnly"},
    {NetworkManager::Connected, "Connected"},
};

constexpr Name connectivityNames[] = {
    {NetworkManager::UnknownConnectivity, "UnknownConnectivity"},
    {NetworkManager::NoConnectivity, "NoConnectivity"},
    {NetworkManager::Portal, "Portal"},
    {NetworkManager::Limited, "Limited"},
    {NetworkManager::Full, "Full"},
};

constexpr Name mqttErrorNames[] = {
    {QMqttClient::NoError, "NoError"},
    {QMqttClient::InvalidProtocolVersion, "InvalidProtocolVersion"},
    {QMqttClient::IdRejected, "IdRejected"},
    {QMqttClient::ServerUnavailable, "ServerUnavailable"},
    {QMqttClient::BadUsernameOrPassword, "BadUsernameOrPassword"},
    {QMqttClient::NotAuthorized, "NotAuthorized"},
    {QMqttClient::TransportInvalid, "TransportInvalid"},
    {QMqttClient::ProtocolViolation, "ProtocolViolation"},
    {QMqttClient::UnknownError, "UnknownError"},
};

// The word of a reason is the enumerator's own name.
#define REASON(name)                                                                                         \
    {                                                                                                        \
        Device::name, #name                                                                                  \
    }
constexpr Name reasonNames[] = {
    REASON(UnknownReason),
    REASON(NoReason),
    // Compatibility: NowManagedReason (2) has no word.
    REASON(NowUnmanagedReason),
    REASON(ConfigFailedReason),
    REASON(ConfigUnavailableReason),
    REASON(ConfigExpiredReason),
    REASON(NoSecretsReason),
    REASON(AuthSupplicantDisconnectReason),
    REASON(AuthSupplicantConfigFailedReason),
    REASON(AuthSupplicantFailedReason),
    REASON(AuthSupplicantTimeoutReason),
    REASON(PppStartFailedReason),
    REASON(PppDisconnectReason),
    REASON(PppFailedReason),
    REASON(DhcpStartFailedReason),
    REASON(DhcpErrorReason),
    REASON(DhcpFailedReason),
    REASON(SharedStartFailedReason),
    REASON(SharedFailedReason),
    REASON(AutoIpStartFailedReason),
    REASON(AutoIpErrorReason),
    REASON(AutoIpFailedReason),
    REASON(ModemBusyReason),
    REASON(ModemNoDialToneReason),
    REASON(ModemNoCarrierReason),
    REASON(ModemDialTimeoutReason),
    REASON(ModemDialFailedReason),
    REASON(ModemInitFailedReason),
    REASON(GsmApnSelectFailedReason),
    REASON(GsmNotSearchingReason),
    REASON(GsmRegistrationDeniedReason),
    REASON(GsmRegistrationTimeoutReason),
    REASON(GsmRegistrationFailedReason),
    REASON(GsmPinCheckFailedReason),
    REASON(FirmwareMissingReason),
    REASON(DeviceRemovedReason),
    REASON(SleepingReason),
    REASON(ConnectionRemovedReason),
    REASON(UserRequestedReason),
    REASON(CarrierReason),
    REASON(ConnectionAssumedReason),
    REASON(SupplicantAvailableReason),
    REASON(ModemNotFoundReason),
    REASON(BluetoothFailedReason),
    REASON(GsmSimNotInserted),
    REASON(GsmSimPinRequired),
    REASON(GsmSimPukRequired),
    REASON(GsmSimWrong),
    REASON(InfiniBandMode),
    REASON(DependencyFailed),
    REASON(Br2684Failed),
    REASON(ModemManagerUnavailable),
    REASON(SsidNotFound),
    REASON(SecondaryConnectionFailed),
    REASON(DcbFcoeFailed),
    REASON(TeamdControlFailed),
    REASON(ModemFailed),
    REASON(ModemAvailable),
    REASON(SimPinIncorrect),
    REASON(NewActivation),
    REASON(ParentChanged),
    REASON(ParentManagedChanged),
};
#undef REASON

constexpr Name ipv4MethodNames[] = {
    {NetworkManager::Ipv4Setting::Automatic, "auto"},
    {NetworkManager::Ipv4Setting::LinkLocal, "link-local"},
    {NetworkManager::Ipv4Setting::Manual, "manual"},
    {NetworkManager::Ipv4Setting::Shared, "shared"},
    {NetworkManager::Ipv4Setting::Disabled, "disabled"},
};

} // namespace

DeviceState mapDeviceState(Device::State state)
{
    for (const StateRow& row : stateRows) {
        if (row.state == state)
            return row.mapped;
    }
    return Unavailable;
}

QString deviceStateToString(DeviceState state)
{
    return wordFor(deviceStateNames, state);
}

QString deviceTypeToString(Device::Type type)
{
    return wordFor(deviceTypeNames, type);
}

QString statusToString(NetworkManager::Status status)
{
    return wordFor(statusNames, status);
}

QString connectivityToString(NetworkManager::Connectivity connectivity)
{
    return wordFor(connectivityNames, connectivity);
}

QString mqttErrorToString(QMqttClient::ClientError error)
{
    return wordFor(mqttErrorNames, error);
}

QString stateChangeReasonToString(Device::StateChangeReason reason)
{
    return wordFor(reasonNames, reason);
}

QString ipv4SettingMethodToString(NetworkManager::Ipv4Setting::ConfigMethod method)
{
    return wordFor(ipv4MethodNames, method);
}

} // namespace Lanvoy
