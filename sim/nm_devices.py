"""Devices: what all kinds of them share."""
from . import nm_activation
from .bus import BusObject, DBusError, method
from .nm_active import Ip4Config
from .nm_states import (CONFIG, CONNECTION_ASSUMED, CONNECTION_REMOVED, DISCONNECTED, NONE, NOW_MANAGED,
                        NOW_UNMANAGED, UNAVAILABLE, UNMANAGED, USER_REQUESTED)
from .script import Script

DEVICE = "org.freedesktop.NetworkManager.Device"
STATISTICS = DEVICE + ".Statistics"

LINK_UP, LINK_DOWN = 65539, 1  # InterfaceFlags with and without carrier


class Device(BusObject):
    """One network device of any kind."""

    properties = {
        DEVICE: {
            "Udi": "s", "Path": "s", "Interface": "s", "IpInterface": "s", "Driver": "s", "DriverVersion": "s",
            "FirmwareVersion": "s", "Capabilities": "u", "Ip4Address": "u", "State": "u", "StateReason": "(uu)",
            "ActiveConnection": "o", "Ip4Config": "o", "Dhcp4Config": "o", "Ip6Config": "o", "Dhcp6Config": "o",
            "Managed": "b", "Autoconnect": "b", "FirmwareMissing": "b", "NmPluginMissing": "b", "DeviceType": "u",
            "AvailableConnections": "ao", "PhysicalPortId": "s", "Mtu": "u", "Metered": "u", "LldpNeighbors": "aa{sv}",
            "Real": "b", "Ip4Connectivity": "u", "Ip6Connectivity": "u", "InterfaceFlags": "u", "HwAddress": "s",
            "Ports": "ao"},
        STATISTICS: {"RefreshRateMs": "u", "TxBytes": "t", "RxBytes": "t"},
    }
    signals = {DEVICE: {"StateChanged": "uuu"}}
    writable = ("Managed", "Autoconnect", "RefreshRateMs")

    kind = ""  # word of the control interface
    type_number = 0  # NMDeviceType
    driver = "sim"
    metric = 100  # route metric: the lowest active one is the primary connection
    profile_types = ()  # connection types it can use
    capabilities = 1  # NM_DEVICE_CAP_*: supported, with carrier detection (2), software (4)
    own_ip_config = True  # has an Ip4Config object while not connected
    removed_reason = NOW_UNMANAGED

    def __init__(self, daemon, interface, mac, address=""):
        """`address` is what the DHCP server gives, in CIDR form; the gateway and name server are host 1 there."""
        super().__init__("")
        self.daemon = daemon
        self.interface = interface
        self.mac = mac
        self.lease = address
        self.managed = True
        self.active = None  # ActiveConnection
        self.ip4 = None
        self.dhcp4 = None
        self.script = None

    # hardware questions that kinds answer differently

    def ready(self):
        """Whether the hardware could connect now; otherwise the device is unavailable."""
        return True

    def obstacle(self, profile):
        """Why this device cannot use the profile now, as NetworkManager words it; "" if it can."""
        if profile.kind not in self.profile_types:
            wanted = f'"{self.profile_types[0]}"' if self.profile_types else "supported"
            return f"profile is not compatible with device (connection type is not {wanted})"
        if profile.interface not in (None, "", self.interface):
            return "profile is not compatible with device (mismatching interface name)"
        if self.state < UNAVAILABLE:
            return "device is strictly unmanaged" if not self.managed else "device is not available"
        return self.link_obstacle(profile)

    def link_obstacle(self, _profile):
        return "" if self.ready() else "device is not available"

    def complete(self, settings, specific_object):
        """Fills gaps of a new profile for AddAndActivateConnection; raises DBusError."""

    def new_profile_name(self, _settings):
        """A free name for a profile that came without one."""
        word = {"wired": "Wired", "modem": "GSM"}.get(self.kind, self.kind.title())
        names = {p.name for p in self.daemon.profiles}
        return next(n for n in (f"{word} connection {i}" for i in range(1, 1000)) if n not in names)

    def bring_up(self, _active):
        """Brings the link up, from state 40 to just before 70; a generator of waits that returns 0 or the reason of
        the failure."""
        self.change_state(CONFIG)
        yield self.daemon.options["step_ms"]
        return NONE

    def link_down(self):
        """Takes the link down again."""

    @property
    def ip_interface(self):
        return self.interface

    # life

    @property
    def state(self):
        return self.get("State")

    def initial(self):
        """Property values of a device just found, for the kind to extend."""
        self.init(
            Udi=f"/sys/devices/platform/sim/net/{self.interface}", Path=f"platform-sim-{self.interface}",
            Interface=self.interface, IpInterface=self.interface, Driver=self.driver, DriverVersion="6.1",
            FirmwareVersion="", Capabilities=self.capabilities, Ip4Address=0, State=UNMANAGED,
            StateReason=(UNMANAGED, NONE), ActiveConnection="/", Ip4Config=self.ip4.path if self.ip4 else "/",
            Dhcp4Config="/", Ip6Config="/", Dhcp6Config="/", Managed=False, Autoconnect=True, FirmwareMissing=False,
            NmPluginMissing=False, DeviceType=self.type_number, AvailableConnections=[], PhysicalPortId="", Mtu=1500,
            Metered=0, LldpNeighbors=[], Real=True, Ip4Connectivity=0, Ip6Connectivity=0, InterfaceFlags=LINK_UP,
            RefreshRateMs=0, TxBytes=0, RxBytes=0, Ports=[])
        self.init(DEVICE, HwAddress=self.mac)
        self.active = self.dhcp4 = None

    def appear(self):
        """Exports the device under a new path and takes it into management, in the daemon's order of signals."""
        self.path = self.daemon.new_path("Devices")
        if self.own_ip_config:
            self.ip4 = Ip4Config(self.daemon)
            self.daemon.bus.export(self.ip4)
        self.initial()
        self.daemon.bus.export(self)
        self.daemon.manager.device_added(self)
        if self.managed:
            self.manage(NOW_MANAGED)

    def disappear(self):
        self.stop_script()
        bus = self.daemon.bus
        manager = self.daemon.manager
        self.set(DEVICE, HwAddress="", Real=False)
        manager.device_removed(self)
        nm_activation.drop(self, UNMANAGED, self.removed_reason)
        self.set(Managed=False)
        bus.unexport(self)
        manager.refresh_devices()
        if self.ip4:
            bus.unexport(self.ip4)

    def switch_off(self):
        """Forgets what was going on; the daemon has left the bus."""
        self.stop_script()
        self.active = self.dhcp4 = self.ip4 = None

    def manage(self, reason=NOW_MANAGED):
        """From unmanaged to available."""
        self.change_state(UNAVAILABLE, reason)
        self.set(IpInterface="", Ip4Connectivity=1)
        self.set(Managed=True)
        if self.ready():
            self.become_ready(reason if reason == CONNECTION_ASSUMED else NONE)

    def become_ready(self, reason):
        if self.state == UNAVAILABLE:
            self.refresh_available()
            self.change_state(DISCONNECTED, reason)
            self.daemon.manager.consider_autoconnect()

    def become_unavailable(self, reason):
        if self.state > UNAVAILABLE:
            self.stop_script()
            nm_activation.drop(self, UNAVAILABLE, reason)
            self.refresh_available()

    def set_managed(self, managed):
        """Hands the device to NetworkManager or takes it away."""
        if managed == self.managed:
            return
        self.managed = managed
        if not self.bus:
            return
        if managed:
            self.manage()
        else:
            self.stop_script()
            nm_activation.drop(self, UNMANAGED, NOW_UNMANAGED)
            self.set(Managed=False)
            self.refresh_available()

    def rename(self, interface):
        self.interface = interface
        self.set(Interface=interface)
        if self.get("IpInterface"):
            self.set(IpInterface=interface)
        self.daemon.refresh_available()

    def change_state(self, state, reason=NONE):
        """Changes the state; properties first, then the signal, as the daemon does."""
        old = self.state
        self.set(State=state)
        self.set(StateReason=(state, reason))
        self.emit(DEVICE, "StateChanged", "uuu", state, old, reason)
        self.daemon.manager.touch("ActiveConnections")
        if self.active:
            nm_activation.follow_device(self.active, state)
        self.daemon.manager.refresh_state()

    def run(self, steps, first_wait_ms=0):
        self.stop_script()
        self.script = Script(steps, first_wait_ms)

    def stop_script(self):
        if self.script:
            self.script.cancel()
        self.script = None

    # profiles

    def refresh_available(self):
        if self.bus:
            paths = [p.path for p in self.daemon.profiles if p.bus and not self.obstacle(p)]
            self.set(AvailableConnections=sorted(paths))

    def profile_removed(self, profile):
        nm_activation.end_waiting(self, profile)
        if self.active and self.active.profile is profile:
            self.active.set(Connection="/")
            nm_activation.deactivate(self, CONNECTION_REMOVED)

    # D-Bus

    def on_set(self, name, value):
        if name == "Managed":
            self.set_managed(bool(value))
        else:
            self.set(**{name: value})

    @method(DEVICE)
    def Disconnect(self):
        if not self.active:
            raise DBusError(DEVICE + ".NotActive", "This device is not active")
        self.set(Autoconnect=False)
        nm_activation.deactivate(self, USER_REQUESTED)

    @method(DEVICE)
    def Delete(self):
        raise DBusError(DEVICE + ".NotSoftware", "This device is not a software device or is not realized")

    @method(DEVICE, "a{sa{sv}}tu")
    def Reapply(self, _settings, _version, _flags):
        if not self.active:
            raise DBusError(DEVICE + ".NotActive", "Device is not activated")

    @method(DEVICE, "u", "a{sa{sv}}t")
    def GetAppliedConnection(self, _flags):
        if not self.active:
            raise DBusError(DEVICE + ".NotActive", "Device is not activated")
        return self.active.profile.GetSettings(), 1
