"""The manager object: overall state, the lists of devices and active connections, activation requests."""
import uuid

from gi.repository import GLib

from . import nm_activation, nm_profile
from .bus import BusObject, DBusError, method, typed
from .nm_active import ACTIVATED, ACTIVATING, DEACTIVATING
from .nm_states import DISCONNECTED, UNAVAILABLE, USER_REQUESTED

MANAGER = "org.freedesktop.NetworkManager"
BASE = "/org/freedesktop/NetworkManager"

STATE_ASLEEP, STATE_DISCONNECTED, STATE_DISCONNECTING, STATE_CONNECTING = 10, 20, 30, 40
STATE_LOCAL, STATE_SITE, STATE_GLOBAL = 50, 60, 70
CONNECTIVITY_NONE, CONNECTIVITY_FULL = 1, 4

# Not a slip: the daemon lets this error out without a name of its own.
UNMAPPED_UTILS_ERROR = "org.gtk.GDBus.UnmappedGError.Quark._nm_2dutils_2derror_2dquark.Code9"

PERMISSIONS = (
    "checkpoint-rollback", "enable-disable-connectivity-check", "enable-disable-network",
    "enable-disable-statistics", "enable-disable-wifi", "enable-disable-wimax", "enable-disable-wwan",
    "network-control", "reload", "settings.modify.global-dns", "settings.modify.hostname", "settings.modify.own",
    "settings.modify.system", "sleep-wake", "wifi.scan", "wifi.share.open", "wifi.share.protected")

DEFAULT_GROUP = {"wired": "802-3-ethernet", "wifi": "802-11-wireless", "modem": "gsm", "bridge": "bridge"}


class Manager(BusObject):
    properties = {MANAGER: {
        "Devices": "ao", "AllDevices": "ao", "Checkpoints": "ao", "NetworkingEnabled": "b", "WirelessEnabled": "b",
        "WirelessHardwareEnabled": "b", "WwanEnabled": "b", "WwanHardwareEnabled": "b", "WimaxEnabled": "b",
        "WimaxHardwareEnabled": "b", "RadioFlags": "u", "ActiveConnections": "ao", "PrimaryConnection": "o",
        "PrimaryConnectionType": "s", "Metered": "u", "ActivatingConnection": "o", "Startup": "b", "Version": "s",
        "VersionInfo": "au", "Capabilities": "au", "State": "u", "Connectivity": "u",
        "ConnectivityCheckAvailable": "b", "ConnectivityCheckEnabled": "b", "ConnectivityCheckUri": "s",
        "GlobalDnsConfiguration": "a{sv}"}}
    signals = {MANAGER: {"StateChanged": "u", "DeviceAdded": "o", "DeviceRemoved": "o", "CheckPermissions": ""}}
    writable = ("WirelessEnabled", "WwanEnabled", "ConnectivityCheckEnabled")

    def __init__(self, daemon):
        super().__init__(BASE)
        self.daemon = daemon
        self.forced = {}  # property values set by hand, which the calculation does not touch
        self.reset()

    def reset(self):
        """The values of a daemon that has just started."""
        self.actives = []  # newest first
        self._idle = None
        self.init(
            Devices=[], AllDevices=[], Checkpoints=[], NetworkingEnabled=True, WirelessEnabled=True,
            WirelessHardwareEnabled=True, WwanEnabled=True, WwanHardwareEnabled=True, WimaxEnabled=False,
            WimaxHardwareEnabled=False, RadioFlags=3, ActiveConnections=[], PrimaryConnection="/",
            PrimaryConnectionType="", Metered=0, ActivatingConnection="/", Startup=False, Version="1.42.4",
            VersionInfo=[(1 << 16) | (42 << 8) | 4], Capabilities=[1], State=STATE_DISCONNECTED,
            Connectivity=CONNECTIVITY_NONE, ConnectivityCheckAvailable=False, ConnectivityCheckEnabled=False,
            ConnectivityCheckUri="", GlobalDnsConfiguration={})
        self.init(**self.forced)

    def force(self, **values):
        """Sets State, Connectivity or PrimaryConnection by hand; None gives it back to the calculation."""
        for name, value in values.items():
            if value is None:
                self.forced.pop(name, None)
            else:
                self.forced[name] = value
                self._put(name, value)
        self.refresh_state()
        self.refresh_primary()
        self.refresh_connectivity()

    def _put(self, name, value):
        value = self.forced.get(name, value)
        changed = self.get(name) != value
        self.set(**{name: value})
        if name == "State" and changed:
            self.emit(MANAGER, "StateChanged", "u", value)

    # devices

    def refresh_devices(self):
        paths = [d.path for d in self.daemon.devices if d.bus]
        self.set(AllDevices=paths)
        self.set(Devices=paths)

    def device_added(self, device):
        paths = [d.path for d in self.daemon.devices if d.bus]
        self.set(AllDevices=paths)
        self.emit(MANAGER, "DeviceAdded", "o", device.path)
        self.set(Devices=paths)

    def device_removed(self, device):
        self.emit(MANAGER, "DeviceRemoved", "o", device.path)
        self.set(Devices=[d.path for d in self.daemon.devices if d.bus])

    # active connections and what follows from them

    def add_active(self, active):
        self.actives.insert(0, active)
        self.set(ActiveConnections=[a.path for a in self.actives])

    def remove_active(self, active):
        if active in self.actives:
            self.actives.remove(active)
            self.set(ActiveConnections=[a.path for a in self.actives])

    def refresh_state(self):
        """Works out State and ActivatingConnection from the active connections."""
        counted = [a for a in self.actives if a.begun and a.device.kind != "loopback"]
        activating = [a for a in counted if a.state == ACTIVATING]
        activated = [a for a in counted if a.state == ACTIVATED]
        default_waits = any(a.get("Default") for a in activating)
        if not self.get("NetworkingEnabled"):
            state = STATE_ASLEEP
        elif any(a.can_be_default for a in activated) and not default_waits:
            state = STATE_GLOBAL if self.get("Connectivity") == CONNECTIVITY_FULL else STATE_SITE
        elif activating:
            state = STATE_CONNECTING
        elif activated:
            state = STATE_LOCAL
        elif any(a.state == DEACTIVATING for a in counted):
            state = STATE_DISCONNECTING
        else:
            state = STATE_DISCONNECTED
        self._put("State", state)
        self.set(ActivatingConnection=activating[0].path if activating else "/")

    def refresh_primary(self):
        """Picks the default connection: configured, with a gateway, lowest metric."""
        usable = [a for a in self.actives if a.can_be_default and a.state in (ACTIVATING, ACTIVATED)]
        best = min(usable, key=lambda a: a.device.metric, default=None)
        for active in self.actives:
            if active is not best:
                active.set(Default=False)
        if best:
            best.set(Default=True)
        self.refresh_state()
        self._put("PrimaryConnection", best.path if best else "/")
        self.set(PrimaryConnectionType=best.profile.kind if best else "")

    def refresh_connectivity(self):
        connected = any(a.state == ACTIVATED and a.get("Default") for a in self.actives)
        value = self.forced.get("Connectivity", CONNECTIVITY_FULL if connected else CONNECTIVITY_NONE)
        if value != self.get("Connectivity"):
            self.values[MANAGER]["Connectivity"] = typed("u", value)
            self.refresh_state()
            self.touch("Connectivity")
        else:
            self.refresh_state()

    # connecting by itself

    def consider_autoconnect(self):
        """Looks, as soon as the loop is idle, for devices that can connect by themselves."""
        if not self._idle and self.bus and self.daemon.options["autoconnect"]:
            self._idle = GLib.idle_add(self._autoconnect)

    def _autoconnect(self):
        self._idle = None
        if self.bus:
            for device in self.daemon.devices:
                if device.state == DISCONNECTED and device.get("Autoconnect") and \
                        not any(a.device is device for a in self.actives):
                    self._autoconnect_device(device)
        return GLib.SOURCE_REMOVE

    def _autoconnect_device(self, device):
        in_use = [a.profile for a in self.actives]
        paths = list(device.get("AvailableConnections"))
        fitting = [p for p in self.daemon.profiles if p.path in paths and p not in in_use and
                   p.autoconnect_tries and p.group("connection").get("autoconnect", True)]
        best = max(fitting, key=lambda p: (p.group("connection").get("autoconnect-priority", 0), p.timestamp),
                   default=None)
        if best:
            nm_activation.activate(device, best, "/")

    # D-Bus: activation

    @method(MANAGER, "ooo", "o")
    def ActivateConnection(self, connection, device_path, specific_object):
        if connection == "/":
            profile = self._profile_for(device_path)
        else:
            profile = self.daemon.profile_by_path(connection)
        if profile is None:
            raise DBusError(MANAGER + ".UnknownConnection", "Connection could not be found.")
        device = self._device_for(profile, device_path)
        self._require_fit(profile, device)
        return nm_activation.activate(device, profile, specific_object).path

    @staticmethod
    def _require_fit(profile, device):
        obstacle = device.obstacle(profile)
        if obstacle:
            raise DBusError(MANAGER + ".UnknownConnection",
                            f"Connection '{profile.name}' is not available on device {device.interface} "
                            f"because {obstacle}")

    def _profile_for(self, device_path):
        if device_path == "/":
            raise DBusError(MANAGER + ".UnknownDevice",
                            "Only devices may be activated without a specifying a connection")
        device = self._device_for(None, device_path)
        paths = device.get("AvailableConnections")
        if not paths:
            raise DBusError(MANAGER + ".UnknownConnection",
                            f"The device '{device.interface}' has no connections available for activation.")
        return self.daemon.profile_by_path(paths[0])

    def _device_for(self, profile, path):
        if path == "/":
            obstacles = [(d, d.obstacle(profile)) for d in self.daemon.devices]
            fitting = next((d for d, obstacle in obstacles if not obstacle), None)
            if fitting is None:
                device, obstacle = next(((d, o) for d, o in obstacles if profile.kind in d.profile_types), obstacles[0])
                raise DBusError(MANAGER + ".UnknownDevice",
                                "No suitable device found for this connection "
                                f"(device {device.interface} not available because {obstacle}).")
            return fitting
        device = self.daemon.device_by_path(path)
        if device is None:
            raise DBusError(MANAGER + ".UnknownDevice", "Device not found")
        return device

    @method(MANAGER, "a{sa{sv}}oo", "oo")
    def AddAndActivateConnection(self, settings, device_path, specific_object):
        return self._add_and_activate(settings, device_path, specific_object)

    @method(MANAGER, "a{sa{sv}}ooa{sv}", "ooa{sv}")
    def AddAndActivateConnection2(self, settings, device_path, specific_object, _options):
        return self._add_and_activate(settings, device_path, specific_object) + ({},)

    def _add_and_activate(self, settings, device_path, specific_object):
        device = self.daemon.device_by_path(device_path)
        if device is None:
            raise DBusError(MANAGER + ".UnknownDevice", "Device not found")
        settings = nm_profile.readable(settings)
        device.complete(settings, specific_object)
        kind = DEFAULT_GROUP.get(device.kind, "generic")
        settings.setdefault(kind, {})
        group = settings.setdefault("connection", {})
        group["type"] = typed("s", kind)
        group.setdefault("uuid", typed("s", str(uuid.uuid4())))
        group.setdefault("id", typed("s", device.new_profile_name(settings)))
        if group.setdefault("interface-name", typed("s", device.interface)) != device.interface:
            raise DBusError(UNMAPPED_UTILS_ERROR, "mismatching interface name")
        profile = self.daemon.settings.new(settings, with_secrets=False)
        self._require_fit(profile, device)
        self.daemon.settings.store(profile)
        active = nm_activation.activate(device, profile, specific_object)
        return profile.path, active.path

    @method(MANAGER, "o")
    def DeactivateConnection(self, path):
        active = next((a for a in self.actives if a.path == path), None)
        if active is None:
            raise DBusError(MANAGER + ".ConnectionNotActive", "The connection was not active.")
        active.profile.autoconnect_tries = 0
        nm_activation.deactivate(active.device, USER_REQUESTED)

    # D-Bus: questions

    @method(MANAGER, "", "ao")
    def GetDevices(self):
        return self.get("Devices")

    @method(MANAGER, "", "ao")
    def GetAllDevices(self):
        return self.get("AllDevices")

    @method(MANAGER, "s", "o")
    def GetDeviceByIpIface(self, interface):
        for device in self.daemon.devices:
            if interface in (device.interface, device.get("IpInterface")):
                return device.path
        raise DBusError(MANAGER + ".UnknownDevice", "No device found for the requested iface.")

    @method(MANAGER, "", "a{ss}")
    def GetPermissions(self):
        return {f"{MANAGER}.{name}": "yes" for name in PERMISSIONS}

    @method(MANAGER, "", "u")
    def state(self):
        return self.get("State")

    @method(MANAGER, "", "u")
    def CheckConnectivity(self):
        return self.get("Connectivity")

    @method(MANAGER, "", "ss")
    def GetLogging(self):
        return "INFO", "DEFAULT"

    @method(MANAGER, "ss")
    def SetLogging(self, _level, _domains):
        pass

    @method(MANAGER, "u")
    def Reload(self, _flags):
        pass

    @method(MANAGER, "b")
    def Enable(self, enable):
        self.set(NetworkingEnabled=enable)
        for device in self.daemon.devices:
            device.set_managed(bool(enable))
        self.refresh_state()

    def on_set(self, name, value):
        self.set(**{name: value})
        if name == "WirelessEnabled":
            for device in self.daemon.devices:
                if device.kind == "wifi" and device.state >= UNAVAILABLE:
                    device.radio_changed()


class AgentManager(BusObject):
    """Takes agents' registrations and never asks them."""

    INTERFACE = MANAGER + ".AgentManager"
    properties = {INTERFACE: {}}

    def __init__(self):
        super().__init__(BASE + "/AgentManager")

    @method(INTERFACE, "s")
    def Register(self, _identifier):
        pass

    @method(INTERFACE, "su")
    def RegisterWithCapabilities(self, _identifier, _capabilities):
        pass

    @method(INTERFACE)
    def Unregister(self):
        pass


class DnsManager(BusObject):
    INTERFACE = MANAGER + ".DnsManager"
    properties = {INTERFACE: {"Mode": "s", "RcManager": "s", "Configuration": "aa{sv}"}}

    def __init__(self):
        super().__init__(BASE + "/DnsManager")
        self.init(Mode="default", RcManager="unmanaged", Configuration=[])
