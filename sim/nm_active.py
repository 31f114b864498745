"""Active connections and the IP configuration objects of devices."""
import ipaddress
import struct

from .bus import BusObject, typed

ACTIVE = "org.freedesktop.NetworkManager.Connection.Active"
IP4CONFIG = "org.freedesktop.NetworkManager.IP4Config"
DHCP4CONFIG = "org.freedesktop.NetworkManager.DHCP4Config"

ACTIVATING, ACTIVATED, DEACTIVATING, DEACTIVATED = 1, 2, 3, 4
REASON_DEVICE_DISCONNECTED = 3


def address_number(text):
    """An IPv4 address as NetworkManager's old-style number: its four bytes in memory order."""
    return struct.unpack("=I", ipaddress.IPv4Address(text).packed)[0]


class ActiveConnection(BusObject):
    """A profile in use on a device. Its state follows the device's."""

    properties = {ACTIVE: {
        "Connection": "o", "SpecificObject": "o", "Id": "s", "Uuid": "s", "Type": "s", "Devices": "ao", "State": "u",
        "StateFlags": "u", "Default": "b", "Ip4Config": "o", "Dhcp4Config": "o", "Default6": "b", "Ip6Config": "o",
        "Dhcp6Config": "o", "Vpn": "b", "Controller": "o", "Master": "o"}}
    signals = {ACTIVE: {"StateChanged": "uu"}}

    def __init__(self, profile, device, specific_object):
        super().__init__(profile.daemon.new_path("ActiveConnection"))
        self.profile = profile
        self.device = device
        self.begun = False  # until the device takes it up it only waits, though its State says activating
        self.init(Connection=profile.path, SpecificObject=specific_object, Id=profile.name, Uuid=profile.uuid,
                  Type=profile.kind, Devices=[device.path], State=ACTIVATING, StateFlags=0, Default=False,
                  Ip4Config="/", Dhcp4Config="/", Default6=False, Ip6Config="/", Dhcp6Config="/", Vpn=False,
                  Controller="/", Master="/")

    @property
    def state(self):
        return self.get("State")

    @property
    def can_be_default(self):
        """Whether it has a configuration with a gateway in force."""
        return self.device.active is self and self.device.ip4 is not None and bool(self.device.ip4.get("Gateway"))

    def change_state(self, state, reason=0):
        if state != self.state or not self.begun:
            self.begun = True
            self.emit(ACTIVE, "StateChanged", "uu", state, reason)
            self.init(State=state)
            self.touch("State")


class Ip4Config(BusObject):
    """The IPv4 configuration of one device; it stays while the device exists, empty when nothing is configured."""

    properties = {IP4CONFIG: {
        "Addresses": "aau", "AddressData": "aa{sv}", "Gateway": "s", "Routes": "aau", "RouteData": "aa{sv}",
        "NameserverData": "aa{sv}", "Nameservers": "au", "Domains": "as", "Searches": "as", "DnsOptions": "as",
        "DnsPriority": "i", "WinsServerData": "as", "WinsServers": "au"}}

    def __init__(self, daemon):
        super().__init__(daemon.new_path("IP4Config"))
        self.init(**ip4_values([], "", []))

    def fill(self, addresses, gateway, nameservers, metric):
        self.set(**ip4_values(addresses, gateway, nameservers, metric))

    def clear(self):
        self.set(**ip4_values([], "", []))


def ip4_values(addresses, gateway, nameservers, metric=0):
    """The properties of an IP4Config for addresses [(address, prefix)], a gateway ("" for none) and name servers."""
    routes = []
    for address, prefix in addresses:
        net = ipaddress.IPv4Network((address, prefix), strict=False)
        routes.append((str(net.network_address), prefix, ""))
    if gateway:
        routes.append(("0.0.0.0", 0, gateway))
    return {
        "Addresses": [[address_number(a), p, address_number(gateway) if gateway and i == 0 else 0]
                      for i, (a, p) in enumerate(addresses)],
        "AddressData": [{"address": typed("s", a), "prefix": typed("u", p)} for a, p in addresses],
        "Gateway": gateway,
        "Routes": [[address_number(d), p, 0, metric] for d, p, _ in routes if p],
        "RouteData": [dict({"dest": typed("s", d), "prefix": typed("u", p), "metric": typed("u", metric)},
                           **({"next-hop": typed("s", via)} if via else {})) for d, p, via in routes],
        "NameserverData": [{"address": typed("s", n)} for n in nameservers],
        "Nameservers": [address_number(n) for n in nameservers],
        "Domains": [], "Searches": [], "DnsOptions": [], "DnsPriority": 100 if addresses else 0,
        "WinsServerData": [], "WinsServers": [],
    }


class Dhcp4Config(BusObject):
    """What the DHCP server gave; exists while the lease is in use."""

    properties = {DHCP4CONFIG: {"Options": "a{sv}"}}

    def __init__(self, daemon, lease):
        super().__init__(daemon.new_path("DHCP4Config"))
        self.init(Options={k: typed("s", v) for k, v in {
            "ip_address": lease["address"], "subnet_mask": str(ipaddress.IPv4Network(
                (0, lease["prefix"])).netmask), "routers": lease["gateway"],
            "domain_name_servers": " ".join(lease["dns"]), "dhcp_lease_time": "3600",
            "dhcp_server_identifier": lease["gateway"]}.items()})
