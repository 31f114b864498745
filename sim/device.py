# SPDX-License-Identifier: MIT
"""Devices: how they come, get connected and disconnected, with NetworkManager's walk through the states."""
import dataclasses
import ipaddress
import time

from gi.repository import GLib

from . import manager
from .interfaces import ACTIVE, BRIDGE, DEVICE, IP4CONFIG, LOOPBACK, WIRED
from .manager import ACTIVATED, ACTIVATING, DEACTIVATED, DEACTIVATING
from .table import Item, ip_number, run, typed, world

# NMDeviceState and NMDeviceStateReason
UNMANAGED, UNAVAILABLE, DISCONNECTED, PREPARE, CONFIG, NEED_AUTH = 10, 20, 30, 40, 50, 60
IP_CONFIG, IP_CHECK, SECONDARIES, CONNECTED, LEAVING, FAILED = 70, 80, 90, 100, 110, 120
NONE, NOW_MANAGED, NOW_UNMANAGED, NO_SECRETS, SUPPLICANT_DISCONNECT = 0, 2, 3, 7, 8
REMOVED, CONNECTION_REMOVED, USER_REQUESTED, CARRIER, SSID_NOT_FOUND, NEW_ACTIVATION = 36, 38, 39, 40, 53, 60
DEVICE_DISCONNECTED = 3  # NMActiveConnectionStateReason
AUTOCONNECT_TRIES = 4  # failed ones, until a profile is left alone


def configure(device, _active):
    """Brings the link up, from state 40 to just before 70; returns the reason of a failure."""
    change_state(device, CONFIG)
    yield world.options["step_ms"]
    return NONE


@dataclasses.dataclass
class Kind:
    """What a kind of devices does its own way."""

    number: int  # NMDeviceType
    interface: str
    profile: str  # the connection type it can use
    metric: int  # the lowest active one is the primary connection
    managed: bool = True
    values: object = lambda device: {}  # properties of a device just found
    fits: object = lambda device, profile: True  # whether the profile counts as available
    bring_up: object = configure
    link_down: object = lambda device: None
    appeared: object = lambda device: None
    removed_reason: int = NOW_UNMANAGED
    hidden: dict = dataclasses.field(default_factory=dict)  # attributes of a device just plugged in


KINDS = {
    "wired": Kind(1, WIRED, "802-3-ethernet", 100),
    "bridge": Kind(13, BRIDGE, "bridge", 425, managed=False),  # not one that NetworkManager has made
    "loopback": Kind(32, LOOPBACK, "loopback", 100)}


def plug(word, interface, mac="", address="", carrier=True, metric=None, **hidden):
    """Plugs a device in. `address` is its lease in CIDR form; gateway and name server are host 1 there."""
    kind = KINDS[word]
    number = len(world.devices) + 1
    device = Item(kind.interface, DEVICE, word=word, kind=kind, interface=interface, carrier=carrier,
                  mac=mac or f"02:00:00:00:00:{number:02X}", lease=address or f"203.0.113.{10 + number}/24",
                  metric=metric or kind.metric, managed=kind.managed, active=None, ip4=None, cable=None, scan=None,
                  **kind.hidden, **hidden)
    return add(device)


def add(device):
    world.devices.append(device)
    if world.nm.connection:
        appear(device)
    return device


def appear(device):
    """Puts the device on the bus under a new path and manages it, in the daemon's order of signals."""
    kind, bus = device.kind, world.nm
    device.active = device.script = None
    device.ip4 = None if kind.removed_reason == REMOVED else bus.show(Item(IP4CONFIG), "IP4Config")
    device.begin(**{
        "Udi": f"/sys/devices/platform/sim/net/{device.interface}", "Interface": device.interface,
        "IpInterface": device.interface, "DeviceType": kind.number, "HwAddress": device.mac, "Autoconnect": True,
        "PermHwAddress": device.mac, "Carrier": device.carrier, "Speed": 1000 * device.carrier,
        "Ip4Config": device.ip4.path if device.ip4 else "/", "State": UNMANAGED, "StateReason": (UNMANAGED, NONE),
        **kind.values(device)})
    bus.show(device, "Devices")
    manager.list_devices("DeviceAdded", device)
    if device.managed:
        manage(device)
    kind.appeared(device)


def unplug(device):
    world.devices.remove(device)
    if not device.service:
        return
    manager.list_devices("DeviceRemoved", device)
    drop(device, UNMANAGED, device.kind.removed_reason)
    device.put(Managed=False)
    world.nm.hide(device)
    world.nm.hide(device.ip4)


def manage(device):
    change_state(device, UNAVAILABLE, NOW_MANAGED)
    device.put(IpInterface="", Managed=True)
    if device.carrier:
        become_ready(device, NONE)


def become_ready(device, reason):
    refresh_available()
    change_state(device, DISCONNECTED, reason)


def set_managed(device, managed):
    if managed == device.managed:
        return
    device.managed = managed
    if device.service and managed:
        manage(device)
    elif device.service:
        drop(device, UNMANAGED, NOW_UNMANAGED)
        device.put(Managed=False)
        refresh_available()


def set_carrier(device, carrier):
    """Plugs the cable in or out; a connection is given up after the option carrier_ms."""
    if carrier == device.carrier:
        return
    device.carrier = carrier
    device.put(Carrier=carrier, Speed=1000 * carrier)
    device.cable = None
    if carrier and device.service and device["State"] == UNAVAILABLE:
        become_ready(device, CARRIER)
    elif not carrier and device.active:
        run(device, _leave(device, UNAVAILABLE, CARRIER, "carrier_ms"), "cable")
    elif not carrier and device.service and device["State"] > UNAVAILABLE:
        drop(device, UNAVAILABLE, CARRIER)
        refresh_available()


def change_state(device, state, reason=NONE):
    """Properties first, then the signal, then what follows from it, as the daemon does."""
    old = device["State"]
    device.put(State=state)
    device.put(StateReason=(state, reason))
    device.emit(DEVICE, "StateChanged", "uuu", state, old, reason)
    manager.list_actives(always=True)
    if device.active:
        _follow(device.active, state)
    manager.refresh_state()


def _follow(active, device_state):
    """Gives an active connection the state that its device's state means."""
    state = ACTIVATING if PREPARE <= device_state < CONNECTED else {
        CONNECTED: ACTIVATED, LEAVING: DEACTIVATING}.get(device_state, DEACTIVATED)
    if state != active["State"] or not active.begun:
        active.begun = True
        active.emit(ACTIVE, "StateChanged", "uu", state, DEVICE_DISCONNECTED if state == DEACTIVATED else NONE)
        active.put(always=True, State=state)


# profiles that devices can use

def obstacle(device, profile):
    """Why the device cannot use the profile now, as NetworkManager words it; "" if it can."""
    wanted = device.kind.profile
    if profile.connection.get_connection_type() != wanted:
        return f'profile is not compatible with device (connection type is not "{wanted}")'
    if profile.connection.get_interface_name() not in (None, "", device.interface):
        return "profile is not compatible with device (mismatching interface name)"
    if device["State"] < UNAVAILABLE:
        return "device is not available" if device.managed else "device is strictly unmanaged"
    return "" if device.carrier else "device has no carrier"


def refresh_available():
    """Works out which profiles devices can use; they may connect by themselves as soon as the loop is idle."""
    def autoconnect():
        world.autoconnect_pending = False
        for device in world.devices if world.nm.connection else ():
            if device["State"] == DISCONNECTED and device["Autoconnect"] and \
                    not any(a.device is device for a in world.manager.actives):
                in_use = [a.profile for a in world.manager.actives]
                paths = device["AvailableConnections"]
                fitting = [p for p in world.profiles if p.path in paths and p not in in_use and p.tries
                           and p.settings["connection"].get("autoconnect", True)]
                if fitting:
                    activate(device, max(fitting, key=lambda p: p.timestamp))
        return GLib.SOURCE_REMOVE

    for device in world.devices:
        if device.service:
            device.put(AvailableConnections=sorted(p.path for p in world.profiles if p.service and not obstacle(
                device, p) and device.kind.fits(device, p)))
    if world.options["autoconnect"] and not world.autoconnect_pending:
        world.autoconnect_pending = True
        GLib.idle_add(autoconnect)


# connecting and disconnecting

def activate(device, profile, specific_object="/"):
    """Starts connecting; a device in use is disconnected first. Returns the new active connection."""
    _end_waiting(device)
    in_use = device.active is not None
    if in_use and device["State"] != LEAVING:
        change_state(device, LEAVING, NEW_ACTIVATION)
    # `begun`: until the device takes it up it only waits, though its State says activating
    active = Item(ACTIVE, profile=profile, device=device, begun=False)
    active.put(Connection=profile.path, SpecificObject=specific_object, Id=profile.connection.get_id(),
               Uuid=profile.connection.get_uuid(), Type=device.kind.profile, Devices=[device.path], State=ACTIVATING)
    world.nm.show(active, "ActiveConnection")
    world.manager.actives.insert(0, active)
    manager.list_actives()
    run(device, _walk(device, active, in_use))
    return active


def _walk(device, active, in_use):
    step_ms = world.options["step_ms"]
    if in_use:
        yield step_ms
        drop(device, DISCONNECTED, NEW_ACTIVATION, stop=False)
    if not active.service:  # its profile was deleted meanwhile
        refresh_available()
        return
    device.active = active
    device.put(ActiveConnection=active.path, Autoconnect=True)
    change_state(device, PREPARE)
    yield step_ms
    reason = yield from device.kind.bring_up(device, active)
    if reason:
        yield from _fail(device, active, reason)
        return
    change_state(device, IP_CONFIG)
    method = active.profile.settings["ipv4"]["method"]
    yield world.options["dhcp_ms"] if method == "auto" else step_ms
    address(device)
    manager.refresh_primary()
    for state in (IP_CHECK, SECONDARIES):
        change_state(device, state)
        yield step_ms
    change_state(device, CONNECTED)
    vars(active.profile).update(timestamp=int(time.time()), tries=AUTOCONNECT_TRIES)
    # The daemon hands the configuration to the active connection only after it has told that it is activated.
    yield step_ms
    active.put(Ip4Config=device.ip4.path)
    manager.refresh_connectivity()
    if method == "link-local":
        yield world.options["link_local_ms"]
        address(device, link_local=True)


def _fail(device, active, reason):
    if active and reason == NO_SECRETS:
        active.profile.tries = 0
    elif active and device["State"] < CONNECTED:
        active.profile.tries = max(0, active.profile.tries - 1)
    change_state(device, FAILED, reason)
    yield from _leave(device, DISCONNECTED, NONE)


def _leave(device, state, reason, wait="step_ms"):
    """Gives up what the device has, after a while."""
    yield world.options[wait]
    if device["State"] > state:
        drop(device, state, reason)
        refresh_available()


def fail(device, reason):
    """Lets the device fail, whatever it is doing; it is disconnected a moment later."""
    run(device, _fail(device, device.active, reason))


def deactivate(device, reason):
    """Starts disconnecting in the orderly way, over the deactivating state."""
    if device["State"] > DISCONNECTED:
        if device["State"] != LEAVING:
            change_state(device, LEAVING, reason)
        run(device, _leave(device, DISCONNECTED, reason))


def drop(device, state, reason, stop=True):
    """Takes the connection off the device at once; with `stop` whatever the device was doing ends."""
    active = device.active
    if stop:
        device.script = None
    device.kind.link_down(device)
    device.active = None
    if active:
        active.put(Default=False)
    device.put(ActiveConnection="/")
    if device["State"] != state:
        change_state(device, state, reason)
    if active:
        _follow(active, state)
        manager.refresh_state()
        active.put(Devices=[])
    manager.refresh_primary()
    device.put(IpInterface="")
    if device.ip4:
        device.ip4.put(**ip4_values([], "", []))
    manager.refresh_connectivity()
    if active:
        _forget(active)
    if state <= UNAVAILABLE:
        _end_waiting(device)


def _forget(active):
    world.nm.hide(active)
    world.manager.actives.remove(active)
    manager.list_actives()


def _end_waiting(device, profile=None):
    """Ends activations that still wait for the device to be free; of one profile or of any."""
    for active in [a for a in world.manager.actives if a.device is device and a is not device.active]:
        if profile in (None, active.profile):
            _follow(active, DISCONNECTED)
            _forget(active)


def profile_removed(device, profile):
    _end_waiting(device, profile)
    if device.active and device.active.profile is profile:
        device.active.put(Connection="/")
        deactivate(device, CONNECTION_REMOVED)


# addresses

def address(device, link_local=False):
    """Fills the device's IP4Config, which stays the same object: static addresses, and the lease with method auto."""
    ipv4 = device.active.profile.settings["ipv4"]
    method = ipv4["method"]
    addresses = [(a["address"], a["prefix"]) for a in ipv4.get("address-data", ())]
    gateway, servers = ipv4.get("gateway", ""), list(ipv4.get("dns-data", ()))
    if method == "link-local" and link_local:
        addresses = [("169.254.7.%d" % (10 + device.kind.number), 16)]
    if method == "auto":
        lease = ipaddress.IPv4Interface(device.lease)
        router = str(lease.network.network_address + 1)
        addresses.append((str(lease.ip), lease.network.prefixlen))
        gateway = gateway or router
        servers.append(router)
    device.put(IpInterface=device.modem.data_interface if device.word == "modem" else device.interface)
    device.ip4.put(**ip4_values(addresses, gateway, servers))


def change_address(device):
    """The addresses of a connected device change in place, as with a new lease or a profile applied again."""
    if device.active and device["State"] == CONNECTED:
        address(device, link_local=True)
        manager.refresh_primary()
        manager.refresh_connectivity()


def ip4_values(addresses, gateway, servers):
    """The properties of an IP4Config for addresses [(address, prefix)], a gateway ("" for none) and name servers."""
    return {
        "Addresses": [(ip_number(a), p, ip_number(gateway) if gateway and not i else 0)
                      for i, (a, p) in enumerate(addresses)],
        "AddressData": [{"address": typed("s", a), "prefix": typed("u", p)} for a, p in addresses], "Gateway": gateway,
        "NameserverData": [{"address": typed("s", server)} for server in servers],
        "Nameservers": [ip_number(server) for server in servers]}
