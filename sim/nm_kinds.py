"""The kinds of devices: wired, bridge, generic, loopback and modem (wifi is in nm_wifi.py)."""
from . import nm_activation
from .nm_active import Ip4Config
from .nm_devices import DEVICE, LINK_DOWN, LINK_UP, Device
from .nm_states import CARRIER, CONFIG, NONE, REMOVED, UNAVAILABLE

WIRED = DEVICE + ".Wired"
BRIDGE = DEVICE + ".Bridge"
GENERIC = DEVICE + ".Generic"
LOOPBACK = DEVICE + ".Loopback"
MODEM = DEVICE + ".Modem"


class WiredDevice(Device):
    properties = {WIRED: {"HwAddress": "s", "PermHwAddress": "s", "Speed": "u", "S390Subchannels": "as",
                          "Carrier": "b"}}
    kind = "wired"
    type_number = 1
    driver = "e1000"
    capabilities = 3
    profile_types = ("802-3-ethernet",)

    def __init__(self, daemon, interface, mac, address="", carrier=True):
        super().__init__(daemon, interface, mac, address)
        self.carrier = carrier

    def initial(self):
        super().initial()
        self.init(WIRED, HwAddress=self.mac, PermHwAddress=self.mac, Speed=1000 if self.carrier else 0,
                  S390Subchannels=[], Carrier=self.carrier)
        self.init(InterfaceFlags=LINK_UP if self.carrier else LINK_DOWN)

    def ready(self):
        return self.carrier

    def link_obstacle(self, _profile):
        return "" if self.carrier else "device has no carrier"

    def set_carrier(self, carrier):
        """Plugs the cable in or out. An active device is given up after the option carrier_ms."""
        if carrier == self.carrier:
            return
        self.carrier = carrier
        if not self.bus:
            return
        self.set(WIRED, Carrier=carrier)
        self.set(Speed=1000 if carrier else 0, InterfaceFlags=LINK_UP if carrier else LINK_DOWN)
        if not self.managed:
            return
        if not carrier:
            if self.active:
                self.run(self._give_up(), self.daemon.options["carrier_ms"])
            else:
                self.become_unavailable(CARRIER)
        elif self.state == UNAVAILABLE:
            self.become_ready(CARRIER)

    def _give_up(self):
        if not self.carrier:
            self.become_unavailable(CARRIER)
        return
        yield


class BridgeDevice(Device):
    properties = {BRIDGE: {"HwAddress": "s", "Carrier": "b", "Slaves": "ao"}}
    kind = "bridge"
    type_number = 13
    driver = "bridge"
    capabilities = 7
    metric = 425
    profile_types = ("bridge",)

    def __init__(self, daemon, interface, mac, address=""):
        super().__init__(daemon, interface, mac, address)
        self.managed = False  # a bridge that NetworkManager did not make

    def initial(self):
        super().initial()
        self.init(BRIDGE, HwAddress=self.mac, Carrier=False, Slaves=[])


class GenericDevice(Device):
    properties = {GENERIC: {"HwAddress": "s", "TypeDescription": "s"}}
    kind = "generic"
    type_number = 14
    profile_types = ("generic",)

    def __init__(self, daemon, interface, mac, address=""):
        super().__init__(daemon, interface, mac, address)
        self.managed = False

    def initial(self):
        super().initial()
        self.init(GENERIC, HwAddress=self.mac, TypeDescription="sim")


class LoopbackDevice(Device):
    properties = {LOOPBACK: {}}
    kind = "loopback"
    type_number = 32
    driver = "unknown"
    capabilities = 5
    profile_types = ("loopback",)

    def initial(self):
        super().initial()
        self.init(Mtu=65536)

    def become_ready(self, reason):
        super().become_ready(reason)
        for profile in self.daemon.profiles:
            if not self.obstacle(profile):
                nm_activation.activate(self, profile, "/")
                break


class ModemDevice(Device):
    """NetworkManager's view of a modem; the radio itself is ModemManager's (mm.py)."""

    properties = {MODEM: {"ModemCapabilities": "u", "CurrentCapabilities": "u", "DeviceId": "s", "OperatorCode": "s",
                          "Apn": "s"}}
    kind = "modem"
    type_number = 8
    metric = 700
    profile_types = ("gsm", "cdma")
    own_ip_config = False
    removed_reason = REMOVED

    def __init__(self, daemon, modem, address=""):
        super().__init__(daemon, modem.control_port, "", address)
        self.modem = modem

    def initial(self):
        super().initial()
        self.init(Udi=self.modem.path, Driver="option1, qmi_wwan", ModemCapabilities=self.modem.capabilities,
                  CurrentCapabilities=self.modem.capabilities,
                  DeviceId=self.modem.device_identifier, OperatorCode=self.modem.operator_code, Apn="",
                  InterfaceFlags=0, IpInterface="", Path="", Mtu=0)

    @property
    def ip_interface(self):
        return self.modem.data_interface

    def bring_up(self, active):
        step_ms = self.daemon.options["step_ms"]
        self.set(Apn=str(active.profile.group("gsm").get("apn", "")))
        yield step_ms
        reason = self.modem.connect_data()
        if reason:
            return reason
        self.change_state(CONFIG)
        yield step_ms
        self.ip4 = Ip4Config(self.daemon)
        self.daemon.bus.export(self.ip4)
        self.set(Ip4Config=self.ip4.path)
        return NONE

    def switch_off(self):
        super().switch_off()
        self.modem.disconnect_data()

    def link_down(self):
        self.modem.disconnect_data()
        self.set(Apn="")
        if self.ip4:  # it belongs to the data interface, which exists while connected only
            self.set(IpInterface="", Ip4Config="/")
            if self.active:
                self.active.set(Ip4Config="/")
            self.daemon.bus.unexport(self.ip4)
            self.ip4 = None
