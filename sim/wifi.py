# SPDX-License-Identifier: MIT
"""Wifi: access points, scans, and how a wireless device connects."""
import itertools
import time

from . import device as dev
from .interfaces import ACCESS_POINT, CONNECTION, DEVICE, WIRELESS
from .table import Item, method, refuse, run, typed, world

GROUP, SECURITY = "802-11-wireless", "802-11-wireless-security"
# What an access point of each kind announces: Flags, WpaFlags, RsnFlags.
SECURITIES = {
    "none": (0x0, 0x0, 0x0),
    "wep": (0x1, 0x0, 0x0),
    "wpa1": (0x1, 0x144, 0x0),
    "wpa2": (0x1, 0x0, 0x188),
    "wpa1-wpa2": (0x1, 0x14c, 0x148),
    "wpa3": (0x1, 0x0, 0x488),
    "unknown": (0x0, 0x144, 0x0),  # WPA without the privacy bit: no such thing in order, but seen in the field
}
MODES = {"unknown": 0, "adhoc": 1, "infra": 2, "apmode": 3}


def access_point(ssid="", security="none", strength=60, frequency=2412, bitrate=54000, mode="infra", bssid="",
                 key=None):
    """Percent, MHz, kbit/s; `key` is what a client must know, None accepts any. SSIDs are text or bytes."""
    number = next(world.bssids).to_bytes(4, "big")
    flags, wpa_flags, rsn_flags = SECURITIES[security]
    return Item(ACCESS_POINT, key=key).begin(
        Flags=flags, WpaFlags=wpa_flags, RsnFlags=rsn_flags, Ssid=ssid.encode() if isinstance(ssid, str) else ssid,
        Frequency=frequency, HwAddress=bssid or "02:AA:%02X:%02X:%02X:%02X" % tuple(number), Mode=MODES[mode],
        MaxBitrate=bitrate, Strength=strength, LastSeen=100)


def add_points(device, points):
    """Access points come into range: each is announced, the list of them all once at the end."""
    device.points = [*device.points, *points]
    if device.service:
        for point in points:
            world.nm.show(point, "AccessPoint")
            device.emit(WIRELESS, "AccessPointAdded", "o", point.path)
        _list_points(device)


def remove_points(device, points):
    """Access points go out of range. A connection moves to another one of its SSID, or fails."""
    gone = set(map(id, points))
    device.points = [p for p in device.points if id(p) not in gone]
    if not device.service:
        return
    for point in points:
        device.emit(WIRELESS, "AccessPointRemoved", "o", point.path)
    if device.point and device.point is not device.placeholder and id(device.point) in gone:
        use_point(device, _strongest(device, device.point["Ssid"]))
        if not device.point:
            dev.fail(device, dev.SUPPLICANT_DISCONNECT)
    _list_points(device)
    for point in points:
        world.nm.hide(point)


def _list_points(device):
    device.put(AccessPoints=[point.path for point in device.points])
    dev.refresh_available()


def _strongest(device, ssid):
    return max((p for p in device.points if p["Ssid"] == ssid), key=lambda point: point["Strength"], default=None)


def use_point(device, point):
    device.point = point
    device.put(ActiveAccessPoint=point.path if point else "/", Bitrate=point["MaxBitrate"] if point else 0)


def scan(device, wait_ms):
    """After a while the access points are found that nobody has seen yet."""
    def steps():
        yield wait_ms
        found, device.unseen = device.unseen, []
        if found:
            add_points(device, found)
        device.put(LastScan=int(time.clock_gettime(time.CLOCK_BOOTTIME) * 1000))
    run(device, steps(), "scan")


@method(WIRELESS, "a{sv}")
def RequestScan(device, _options):
    if device["State"] < dev.DISCONNECTED:
        refuse(DEVICE + ".NotAllowed", "Scanning not allowed while unavailable")
    if device.scan:
        refuse(DEVICE + ".NotAllowed", "Scanning not allowed while already scanning")
    scan(device, world.options["scan_ms"])


def _appeared(device):
    """The daemon starts without results of a scan; with the option first_scan_ms they take that long to come."""
    points, device.points = device.points, []
    if world.options["first_scan_ms"]:
        device.unseen = [*points, *device.unseen]
        scan(device, world.options["first_scan_ms"])
    else:
        add_points(device, points)


def _key(profile):
    secrets = profile.secrets.get(SECURITY, {})
    return secrets.get("psk") or secrets.get("wep-key0")


def _ssid(profile):
    return bytes(profile.settings[GROUP].get("ssid", b""))


def _fits(device, profile):
    """An access point has to be in range, unless the network is hidden."""
    return profile.settings[GROUP].get("hidden") or _ssid(profile) in {point["Ssid"] for point in device.points}


def _bring_up(device, active):
    step_ms, profile = world.options["step_ms"], active.profile
    point = _point_for(device, active)
    use_point(device, point)
    dev.change_state(device, dev.CONFIG)
    if SECURITY in profile.settings:
        yield step_ms
        dev.change_state(device, dev.NEED_AUTH)
        yield step_ms
        if not _key(profile):
            return dev.NO_SECRETS
        dev.change_state(device, dev.PREPARE)
        yield step_ms
        dev.change_state(device, dev.CONFIG)
    yield step_ms
    if point is device.placeholder:
        yield world.options["search_ms"]
        return dev.SSID_NOT_FOUND
    if point.key is not None and _key(profile) != point.key:
        dev.change_state(device, dev.NEED_AUTH, dev.SUPPLICANT_DISCONNECT)
        yield step_ms
        return dev.NO_SECRETS
    return dev.NONE


def _point_for(device, active):
    """The access point to use. When there is none the daemon makes one up, and looks for it in vain."""
    ssid, wanted = _ssid(active.profile), active["SpecificObject"]
    point = next((p for p in device.points if p.path == wanted and p["Ssid"] == ssid), _strongest(device, ssid))
    if point is None:
        security = "wpa2" if SECURITY in active.profile.settings else "none"
        point = device.placeholder = access_point(ssid, security, strength=0, frequency=0, bitrate=0)
        add_points(device, [point])
    active.put(SpecificObject=point.path)
    return point


def _link_down(device):
    point, device.placeholder = device.placeholder, None
    if point in device.points:
        remove_points(device, [point])
    use_point(device, None)


def complete(device, settings, path):
    """Fills the gaps of a new profile from the access point of that path."""
    point = next((p for p in device.points if p.path == path), None)
    if point is None:
        refuse(DEVICE + ".SpecificObjectNotFound", f"The access point {path} was not in the scan list.")
    wireless = settings.setdefault(GROUP, {})
    if bytes(wireless.setdefault("ssid", point["Ssid"])) != point["Ssid"]:
        refuse(CONNECTION + ".InvalidProperty", f"{GROUP}.ssid: connection does not match access point")
    wpa = point["WpaFlags"] or point["RsnFlags"]
    if point["Flags"] & 1 or wpa:
        wireless.setdefault("security", typed("s", SECURITY))
        security = settings.setdefault(SECURITY, {})
        security.setdefault("key-mgmt", typed("s", "wpa-psk" if wpa else "none"))
        security.setdefault("auth-alg", typed("s", "open"))
    elif SECURITY in settings:
        refuse(CONNECTION + ".InvalidSetting",
               f"{SECURITY}: Access point is unencrypted but setting specifies security")


dev.KINDS["wifi"] = dev.Kind(
    2, WIRELESS, GROUP, 600, fits=_fits, bring_up=_bring_up, link_down=_link_down, appeared=_appeared,
    hidden={"points": [], "unseen": [], "point": None, "placeholder": None},
    values=lambda device: {"Mode": 2, "LastScan": -1})
