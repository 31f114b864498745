# SPDX-License-Identifier: MIT
"""The simulated gateway as a whole: its life, and the hardware that it has when nothing else is asked for."""
import collections
import itertools

from . import device as dev
from . import libnm, manager, modem, settings, wifi
from .interfaces import MM, NM, SETTINGS
from .table import Item, Service, world

OPTIONS = {
    "step_ms": 4,  # from one device state to the next
    "dhcp_ms": 15,  # until a lease comes
    "link_local_ms": 15,  # until a link-local address comes; the device is activated before that
    "carrier_ms": 100,  # how long a device without cable stays connected (6 s in the daemon)
    "scan_ms": 60,  # a wifi scan
    "first_scan_ms": 0,  # the scan when NetworkManager starts; with 0 it knows all access points at once
    "search_ms": 500,  # how long a wifi network that is not in range is searched (25 s in the daemon)
    "autoconnect": True,  # profiles with autoconnect connect by themselves
}

# One access point for each outcome of a client's security question, and the odd ones.
ACCESS_POINTS = (
    dict(ssid="Gateway-Home", security="wpa2", key="correct horse", strength=82, frequency=2437),
    dict(ssid="Gateway-Home", security="wpa2", key="correct horse", strength=54, frequency=5180, bitrate=300000),
    dict(ssid="Cafe", security="none", strength=67, frequency=2412),
    dict(ssid="OldRouter", security="wep", key="abcde", strength=35, frequency=2462, bitrate=11000),
    dict(ssid="Printer", security="wpa1", key="printer-1234", strength=48, frequency=2427),
    dict(ssid="Mixed", security="wpa1-wpa2", key="mixed-1234", strength=58, frequency=2452),
    dict(ssid="Strange", security="unknown", strength=22, frequency=2472),
    dict(ssid="", security="wpa2", key="hidden-1234", strength=41, frequency=5240),
    dict(ssid=b"Caf\xe9 \xff", security="wpa2", key="latin-1234", strength=29, frequency=5500),
    dict(ssid="Laptop", security="none", strength=18, frequency=2412, mode="adhoc"),
    dict(ssid="Hotspot", security="wpa2", key="hotspot-1234", strength=74, frequency=2417, mode="apmode"),
)


def fill(address):
    """Puts the default world together, with options, faults and log as at the start; its services are not started."""
    vars(world).update(
        address=address, options=dict(OPTIONS), rules=[], log=collections.deque(maxlen=100000), held={}, devices=[],
        modems=[], profiles=[], hostname="gateway", autoconnect_pending=False, bssids=itertools.count(1),
        manager=manager.new(), settings=Item(SETTINGS, path=settings.BASE + "/Settings"))
    world.nm = Service(NM, settings.BASE, Item(path="/org/freedesktop"), 1, world.log, world.rules)
    base = "/org/freedesktop/ModemManager1"
    world.mm = Service(MM, base, Item(MM, path=base).begin(Version="1.20.4"), 0, world.log, world.rules)
    settings.store(settings.new(libnm.from_plain(settings.LOOPBACK)))
    dev.plug("loopback", "lo", "00:00:00:00:00:00")
    dev.plug("wired", "eth0", address="192.0.2.17/24")
    wlan0 = dev.plug("wifi", "wlan0", address="198.51.100.23/24")
    wifi.add_points(wlan0, [wifi.access_point(**point) for point in ACCESS_POINTS])
    modem.plug()
    dev.plug("bridge", "br0")


def start_nm():
    """Hardware and profiles outlive a stop, paths do not: each start numbers everything anew, as the daemon does."""
    if not world.nm.connection:
        world.nm.start()
        manager.begin(world.manager)
        world.settings.begin(Hostname=world.hostname, CanModify=True)
        for item in (world.settings, world.manager):
            world.nm.show(item)
        for profile in world.profiles:
            settings.appear(profile)
        for device in list(world.devices):
            dev.appear(device)


def stop_nm():
    if world.nm.connection:
        world.nm.stop()
        for device in world.devices:
            device.script = device.cable = device.scan = None
            device.kind.link_down(device)
            device.active = None


def start_mm():
    """ModemManager comes back; NetworkManager then shows its modems again."""
    if not world.mm.connection:
        world.mm.start()
        for item in world.modems:
            modem.appear(item)
        for device in [item.device for item in world.modems if item.device not in world.devices]:
            dev.add(device)


def stop_mm():
    """ModemManager goes; NetworkManager drops its modem devices."""
    for device in [device for device in world.devices if device.word == "modem"]:
        dev.unplug(device)
    if world.mm.connection:
        world.mm.stop()


def start():
    start_mm()
    start_nm()


def stop():
    stop_nm()
    stop_mm()
