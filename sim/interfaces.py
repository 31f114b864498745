# SPDX-License-Identifier: MIT
"""One signature table for each interface: what the service reads of NetworkManager and ModemManager."""
NM = "org.freedesktop.NetworkManager"
SETTINGS = NM + ".Settings"
CONNECTION = SETTINGS + ".Connection"
ACTIVE = NM + ".Connection.Active"
IP4CONFIG = NM + ".IP4Config"
ACCESS_POINT = NM + ".AccessPoint"
DEVICE = NM + ".Device"
WIRED, WIRELESS, NM_MODEM = DEVICE + ".Wired", DEVICE + ".Wireless", DEVICE + ".Modem"
BRIDGE, LOOPBACK = DEVICE + ".Bridge", DEVICE + ".Loopback"
MM = "org.freedesktop.ModemManager1"
MODEM = MM + ".Modem"
CDMA, MODEM_3GPP = MODEM + ".ModemCdma", MODEM + ".Modem3gpp"
USSD = MODEM_3GPP + ".Ussd"
SIM, BEARER = MM + ".Sim", MM + ".Bearer"
CONTROL = "lanvoy.Sim"

_TABLES = {
    NM: "Devices ao ActiveConnections ao PrimaryConnection o PrimaryConnectionType s ActivatingConnection o "
        "Version s State u Connectivity u",
    SETTINGS: "Connections ao Hostname s CanModify b",
    CONNECTION: "Unsaved b",
    ACTIVE: "Connection o SpecificObject o Id s Uuid s Type s Devices ao State u Default b Ip4Config o "
            "Ip6Config o Vpn b",
    IP4CONFIG: "Addresses aau AddressData aa{sv} Gateway s RouteData aa{sv} NameserverData aa{sv} Nameservers au "
               "Domains as Searches as DnsOptions as",
    ACCESS_POINT: "Flags u WpaFlags u RsnFlags u Ssid ay Frequency u HwAddress s Mode u MaxBitrate u Strength y "
                  "LastSeen i",
    DEVICE: "Udi s Interface s IpInterface s State u StateReason (uu) ActiveConnection o Ip4Config o Ip6Config o "
            "Managed b Autoconnect b DeviceType u AvailableConnections ao HwAddress s",
    WIRED: "HwAddress s PermHwAddress s Speed u Carrier b",
    WIRELESS: "HwAddress s PermHwAddress s Mode u Bitrate u AccessPoints ao ActiveAccessPoint o LastScan x",
    NM_MODEM: "ModemCapabilities u CurrentCapabilities u",
    BRIDGE: "HwAddress s",
    LOOPBACK: "",
    MM: "Version s",
    MODEM: "Sim o Bearers ao SupportedCapabilities au CurrentCapabilities u MaxBearers u MaxActiveBearers u "
           "Manufacturer s Model s Revision s DeviceIdentifier s Device s Drivers as Plugin s PrimaryPort s "
           "Ports a(su) EquipmentIdentifier s UnlockRequired u UnlockRetries a{uu} State i StateFailedReason u "
           "AccessTechnologies u SignalQuality (ub) OwnNumbers as PowerState u SupportedModes a(uu) "
           "CurrentModes (uu) SupportedBands au CurrentBands au SupportedIpFamilies u",
    MODEM_3GPP: "Imei s RegistrationState u OperatorCode s OperatorName s EnabledFacilityLocks u SubscriptionState u",
    USSD: "NetworkNotification s NetworkRequest s",
    CDMA: "ActivationState u Meid s Esn s Sid u Nid u Cdma1xRegistrationState u EvdoRegistrationState u",
    SIM: "SimIdentifier s Imsi s OperatorIdentifier s OperatorName s",
    BEARER: "Interface s Connected b Suspended b Ip4Config a{sv} Ip6Config a{sv} IpTimeout u Properties a{sv}",
    CONTROL: "",
}
# {interface: {property: signature}}
SIGNATURES = {i: dict(zip(words[::2], words[1::2])) for i, words in ((i, t.split()) for i, t in _TABLES.items())}
