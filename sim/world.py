"""The simulated gateway as a whole, and the hardware it has when nothing else is asked for."""
import itertools

from .calls import Calls
from .mm import Modem, ModemManager
from .nm import NetworkManager
from .nm_kinds import BridgeDevice, GenericDevice, LoopbackDevice, ModemDevice, WiredDevice
from .nm_wifi import AccessPoint, WifiDevice

DEFAULT_OPTIONS = {
    "step_ms": 4,  # from one device state to the next
    "dhcp_ms": 15,  # until a lease comes
    "carrier_ms": 100,  # how long a device without cable stays connected
    "scan_ms": 60,  # a wifi scan
    "search_ms": 500,  # how long a wifi network that is not in range is searched
    "autoconnect": True,  # profiles with autoconnect connect by themselves
    "validate": True,  # profiles are verified; False: whatever can be read is taken
}

# One access point per outcome of a client's security question, and the odd ones.
DEFAULT_ACCESS_POINTS = (
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


class World:
    """Everything simulated: options, calls received, NetworkManager and ModemManager."""

    def __init__(self, address):
        self.address = address
        self.calls = Calls()
        self.options = dict(DEFAULT_OPTIONS)
        self.hostname = "gateway"
        self.nm = NetworkManager(self)
        self.mm = ModemManager(self)

    def start(self):
        self.mm.start()
        self.nm.start()

    def stop(self):
        self.nm.stop()
        self.mm.stop()

    def reset(self, empty=False):
        """Back to the default world (or an empty one) with options, faults and call log as at the start."""
        self.stop()
        self.options.clear()
        self.options.update(DEFAULT_OPTIONS)
        self.hostname = "gateway"
        self.calls.rules.clear()
        self.calls.reset()
        self.nm = NetworkManager(self)
        self.mm = ModemManager(self)
        self.build(empty)
        self.start()

    def build(self, empty=False):
        """Puts the default hardware together; to be called before start()."""
        AccessPoint.numbers = itertools.count(1)
        self.nm.add_device(LoopbackDevice(self.nm, "lo", "00:00:00:00:00:00"))
        if empty:
            return
        self.add("wired", interface="eth0", address="192.0.2.17/24")
        wifi = self.add("wifi", interface="wlan0", address="198.51.100.23/24")
        wifi.access_points = [AccessPoint(**ap) for ap in DEFAULT_ACCESS_POINTS]
        self.add("modem")
        self.add("bridge", interface="br0")

    def add(self, kind, **options):
        """Adds a device: wired, wifi, bridge, generic (interface, mac, address) or modem (options of mm.Modem)."""
        if kind == "modem":
            return self.add_modem(**options)
        classes = {"wired": WiredDevice, "wifi": WifiDevice, "bridge": BridgeDevice, "generic": GenericDevice}
        number = len(self.nm.devices) + 1
        options.setdefault("mac", f"02:00:00:00:00:{number:02X}")
        options.setdefault("address", f"203.0.113.{10 + number}/24")
        device = classes[kind](self.nm, **options)
        self.nm.add_device(device)
        return device

    def add_modem(self, address="10.64.64.2/30", **options):
        modem = Modem(self.mm, **options)
        self.mm.add_modem(modem)
        device = ModemDevice(self.nm, modem, address)
        modem.device = device
        self.nm.add_device(device)
        return device

    def remove(self, device):
        self.nm.remove_device(device)
        if isinstance(device, ModemDevice):
            self.mm.remove_modem(device.modem)

    # services

    def start_modem_manager(self):
        """ModemManager comes back; NetworkManager then shows its modems again."""
        if self.mm.bus:
            return
        self.mm.start()
        for modem in self.mm.modems:
            if modem.device not in self.nm.devices:
                self.nm.add_device(modem.device)

    def stop_modem_manager(self, alone=False):
        """ModemManager goes; NetworkManager drops its modem devices, unless `alone` has it not notice yet."""
        if alone:
            self.mm.stop()
            return
        for device in [d for d in self.nm.devices if isinstance(d, ModemDevice)]:
            self.nm.remove_device(device)
        self.mm.stop()

    def set_hostname(self, hostname):
        self.hostname = hostname
        self.nm.settings.set(Hostname=hostname)
