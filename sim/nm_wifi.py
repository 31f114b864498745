"""Wifi: access points and the wireless device."""
import itertools

from . import nm_activation, nm_profile
from .bus import BusObject, DBusError, method, typed
from .nm_devices import DEVICE, Device
from .nm_states import CONFIG, DISCONNECTED, NEED_AUTH, NO_SECRETS, NONE, PREPARE, SSID_NOT_FOUND, \
    SUPPLICANT_AVAILABLE, SUPPLICANT_DISCONNECT, UNAVAILABLE
from .script import Script

WIRELESS = DEVICE + ".Wireless"
ACCESS_POINT = "org.freedesktop.NetworkManager.AccessPoint"
SECURITY_GROUP = "802-11-wireless-security"

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


class AccessPoint(BusObject):
    """One access point in range of one device."""

    properties = {ACCESS_POINT: {
        "Flags": "u", "WpaFlags": "u", "RsnFlags": "u", "Ssid": "ay", "Frequency": "u", "HwAddress": "s",
        "Mode": "u", "MaxBitrate": "u", "Strength": "y", "LastSeen": "i"}}
    numbers = itertools.count(1)  # for BSSIDs

    def __init__(self, ssid, security="none", strength=60, frequency=2412, bssid="", bitrate=54000, mode="infra",
                 key=None, flags=None, wpa_flags=None, rsn_flags=None):
        """
        ssid      bytes (empty for a hidden one) or text
        strength  percent;  frequency  MHz;  bitrate  kbit/s
        key       what a client must know; None accepts any
        flags, wpa_flags, rsn_flags  override what `security` stands for
        """
        super().__init__("")
        number = next(AccessPoint.numbers)
        self.ssid = ssid.encode() if isinstance(ssid, str) else bytes(ssid)
        self.key = key
        self.bssid = bssid or "02:AA:%02X:%02X:%02X:%02X" % tuple(number.to_bytes(4, "big"))
        words = SECURITIES[security]
        given = (flags, wpa_flags, rsn_flags)
        flags, wpa_flags, rsn_flags = (w if g is None else g for w, g in zip(words, given))
        self.init(Flags=flags, WpaFlags=wpa_flags, RsnFlags=rsn_flags, Ssid=self.ssid, Frequency=frequency,
                  HwAddress=self.bssid, Mode=MODES[mode], MaxBitrate=bitrate, Strength=strength, LastSeen=100)

    @property
    def secured(self):
        return bool(self.get("Flags") & 1 or self.get("WpaFlags") or self.get("RsnFlags"))


class WifiDevice(Device):
    properties = {WIRELESS: {
        "HwAddress": "s", "PermHwAddress": "s", "Mode": "u", "Bitrate": "u", "AccessPoints": "ao",
        "ActiveAccessPoint": "o", "WirelessCapabilities": "u", "LastScan": "x"}}
    signals = {WIRELESS: {"AccessPointAdded": "o", "AccessPointRemoved": "o"}}
    kind = "wifi"
    type_number = 2
    driver = "iwlwifi"
    metric = 600
    profile_types = ("802-11-wireless",)

    def __init__(self, daemon, interface, mac, address=""):
        super().__init__(daemon, interface, mac, address)
        self.access_points = []  # in range
        self.unseen = []  # in range, but found by the next scan only
        self.point = None  # the one it is connected to
        self._placeholder = None  # stands for a network that is not in range
        self._scan = None

    def initial(self):
        super().initial()
        self.init(WIRELESS, HwAddress=self.mac, PermHwAddress=self.mac, Mode=2, Bitrate=0,
                  AccessPoints=[], ActiveAccessPoint="/", WirelessCapabilities=2047, LastScan=-1)

    def appear(self):
        super().appear()
        points, self.access_points = self.access_points, []
        self.add_points(points)

    def disappear(self):
        bus = self.daemon.bus
        self._stop_scan()
        super().disappear()
        for point in self.access_points:
            bus.unexport(point)

    def switch_off(self):
        super().switch_off()
        self._stop_scan()
        self.access_points = [p for p in self.access_points if p is not self._placeholder]
        self.point = self._placeholder = None

    def _stop_scan(self):
        if self._scan:
            self._scan.cancel()
        self._scan = None

    def ready(self):
        return bool(self.daemon.manager.get("WirelessEnabled"))

    # access points

    def _publish_points(self):
        self.set(AccessPoints=[p.path for p in self.access_points])
        self.daemon.refresh_available()

    def add_points(self, points):
        """Access points come into range: each is announced, the list of them all once at the end."""
        self.access_points += points
        if not self.bus:
            return
        for point in points:
            point.path = self.daemon.new_path("AccessPoint")
            self.daemon.bus.export(point)
            self.emit(WIRELESS, "AccessPointAdded", "o", point.path)
        self._publish_points()

    def remove_points(self, points):
        """Access points go out of range. A connection moves to another one of its SSID, or fails."""
        gone = {id(p) for p in points}
        self.access_points = [p for p in self.access_points if id(p) not in gone]
        if not self.bus:
            return
        for point in points:
            self.emit(WIRELESS, "AccessPointRemoved", "o", point.path)
        if self.point and self.point is not self._placeholder and id(self.point) in gone:
            self._use_point(self._strongest(self.point.ssid))
            if not self.point:
                nm_activation.fail(self, SUPPLICANT_DISCONNECT)
        self._publish_points()
        for point in points:
            self.daemon.bus.unexport(point)

    def find_points(self, key):
        """Access points by object path, BSSID or SSID text."""
        return [p for p in self.access_points if key in (p.path, p.bssid) or key.encode() == p.ssid]

    def _strongest(self, ssid):
        fitting = [p for p in self.access_points if p.ssid == ssid]
        return max(fitting, key=lambda p: p.get("Strength"), default=None)

    def _use_point(self, point):
        self.point = point
        if self.bus:
            self.set(ActiveAccessPoint=point.path if point else "/", Bitrate=point.get("MaxBitrate") if point else 0)

    # profiles

    def link_obstacle(self, _profile):
        # An access point need not be in range: a client may ask for a hidden network.
        return "" if self.ready() else "device is not available"

    def refresh_available(self):
        if self.bus:
            in_range = {p.ssid for p in self.access_points}
            self.set(AvailableConnections=sorted(
                p.path for p in self.daemon.profiles if p.bus and not self.obstacle(p) and p.ssid_fits(in_range)))

    def complete(self, settings, specific_object):
        wireless = settings.get("802-11-wireless")
        if specific_object == "/":
            if wireless is None:
                raise DBusError(DEVICE + ".InvalidConnection",
                                "A 'wireless' setting is required if no AP path was given.")
            point = self._strongest(_ssid(wireless))
        else:
            point = next((p for p in self.access_points if p.path == specific_object), None)
            if point is None:
                raise DBusError(DEVICE + ".SpecificObjectNotFound",
                                f"The access point {specific_object} was not in the scan list.")
        wireless = settings.setdefault("802-11-wireless", {})
        if specific_object != "/" and "ssid" in wireless and _ssid(wireless) != point.ssid:
            raise DBusError(nm_profile.CONNECTION_ERROR + "InvalidProperty",
                            "802-11-wireless.ssid: connection does not match access point")
        if point is None:
            wireless["hidden"] = typed("b", True)
            return
        wireless.setdefault("ssid", typed("ay", point.ssid))
        security = settings.get(SECURITY_GROUP)
        if not point.secured:
            if security is not None:
                raise DBusError(nm_profile.CONNECTION_ERROR + "InvalidSetting",
                                f"{SECURITY_GROUP}: Access point is unencrypted but setting specifies security")
        else:
            wireless.setdefault("security", typed("s", SECURITY_GROUP))
            security = settings.setdefault(SECURITY_GROUP, {})
            wpa = point.get("WpaFlags") or point.get("RsnFlags")
            security.setdefault("key-mgmt", typed("s", "wpa-psk" if wpa else "none"))
            security.setdefault("auth-alg", typed("s", "open"))

    def new_profile_name(self, settings):
        return _ssid(settings["802-11-wireless"]).decode(errors="replace")

    # connecting

    def bring_up(self, active):
        step_ms = self.daemon.options["step_ms"]
        profile = active.profile
        point = self._point_for(active)
        self._use_point(point)
        self.change_state(CONFIG)
        if profile.group(SECURITY_GROUP):
            yield step_ms
            self.change_state(NEED_AUTH)
            yield step_ms
            if not _key(profile):
                return NO_SECRETS
            self.change_state(PREPARE)
            yield step_ms
            self.change_state(CONFIG)
        yield step_ms
        if point is self._placeholder:
            yield self.daemon.options["search_ms"]
            return SSID_NOT_FOUND
        if point.secured and point.key is not None and _key(profile) != point.key:
            self.change_state(NEED_AUTH, SUPPLICANT_DISCONNECT)
            yield step_ms
            return NO_SECRETS
        return NONE

    def _point_for(self, active):
        """The access point to use. When there is none the daemon makes one up, and looks for it in vain."""
        wireless = active.profile.group("802-11-wireless")
        wanted = active.get("SpecificObject")
        point = next((p for p in self.access_points if p.path == wanted and p.ssid == _ssid(wireless)), None) or \
            self._strongest(_ssid(wireless))
        if point is None:
            security = "wpa2" if wireless.get("security") else "none"
            point = self._placeholder = AccessPoint(_ssid(wireless), security, strength=0, frequency=0, bitrate=0)
            self.add_points([point])
        active.set(SpecificObject=point.path)
        return point

    def link_down(self):
        point, self._placeholder = self._placeholder, None
        if point in self.access_points:
            self.remove_points([point])
        self._use_point(None)

    def radio_changed(self):
        """WirelessEnabled was switched."""
        if self.ready() and self.state == UNAVAILABLE:
            self.become_ready(SUPPLICANT_AVAILABLE)
        elif not self.ready():
            self.become_unavailable(NONE)

    # scanning

    @method(WIRELESS, "a{sv}")
    def RequestScan(self, _options):
        if self.state < DISCONNECTED:
            raise DBusError(DEVICE + ".NotAllowed", "Scanning not allowed while unavailable")
        if self._scan and self._scan.running:
            raise DBusError(DEVICE + ".NotAllowed", "Scanning not allowed while already scanning")
        self._scan = Script(self._scan_steps(), self.daemon.options["scan_ms"])

    def _scan_steps(self):
        found, self.unseen = self.unseen, []
        if found:
            self.add_points(found)
        self.set(LastScan=nm_activation.boot_time_ms())
        return
        yield

    @method(WIRELESS, "", "ao")
    def GetAccessPoints(self):
        return [p.path for p in self.access_points if p.ssid]

    @method(WIRELESS, "", "ao")
    def GetAllAccessPoints(self):
        return self.get("AccessPoints")


def _key(profile):
    return profile.secret(SECURITY_GROUP, "psk") or profile.secret(SECURITY_GROUP, "wep-key0")


def _ssid(wireless):
    return bytes(bytearray(wireless.get("ssid", b"")))
