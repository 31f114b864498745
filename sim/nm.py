"""The NetworkManager look-alike as a process: its bus name, its objects' numbering, starting and stopping.

The hardware (devices, access points) and the stored profiles outlive a stop; the paths do not: each start
numbers everything anew from 1, as the daemon does.
"""
from .bus import Bus
from .nm_devices import Device
from .nm_manager import AgentManager, DnsManager, Manager
from .nm_profile import from_plain, parse
from .nm_settings import FLAG_EXTERNAL, FLAG_GENERATED, FLAG_UNSAVED, FLAG_VOLATILE, Profile, Settings

NAME = "org.freedesktop.NetworkManager"
BASE = "/org/freedesktop/NetworkManager"

# NetworkManager 1.42 makes this profile at each start and shows it active on the loopback device.
LOOPBACK_PROFILE = {
    "connection": {"id": "lo", "uuid": "00000000-0000-4000-8000-00000000000f", "type": "loopback",
                   "interface-name": "lo", "autoconnect": False},
    "loopback": {}, "ipv4": {"method": "manual", "address-data": [{"address": "127.0.0.1", "prefix": 8}]}}
FLAGS_OF_LOOPBACK = FLAG_UNSAVED | FLAG_GENERATED | FLAG_VOLATILE | FLAG_EXTERNAL


class NetworkManager:
    """All of the simulated NetworkManager. `world` gives options, calls and the ModemManager side."""

    def __init__(self, world):
        self.world = world
        self.options = world.options
        self.bus = None
        self.devices = []
        self.profiles = []
        self.manager = Manager(self)
        self.settings = Settings(self)
        self._numbers = {}

    def new_path(self, kind):
        """The next object path of a kind, such as "Devices"."""
        self._numbers[kind] = self._numbers.get(kind, 0) + 1
        return f"{BASE}/{kind}/{self._numbers[kind]}"

    # life of the process

    def start(self):
        if self.bus:
            return
        self.bus = Bus(self.world.address, NAME, "/org/freedesktop", self.world.calls)
        self.bus.take_name()
        self._numbers = {}
        self.manager.reset()
        self.settings.reset()
        self.bus.export(AgentManager(), self.settings, DnsManager(), self.manager)
        self.profiles.insert(0, Profile(self, parse(from_plain(LOOPBACK_PROFILE)), FLAGS_OF_LOOPBACK))
        for profile in self.profiles:
            profile.appear()
        for device in list(self.devices):
            device.appear()

    def stop(self):
        if not self.bus:
            return
        self.bus.close()
        self.bus = None
        for device in self.devices:
            device.switch_off()
        self.profiles = [p for p in self.profiles if not p.volatile]

    # devices

    def add_device(self, device):
        """Plugs a device in; returns its path ("" while the daemon is stopped)."""
        self.devices.append(device)
        if self.bus:
            device.appear()
        return device.path

    def remove_device(self, device):
        self.devices.remove(device)
        if self.bus:
            device.disappear()

    def device(self, key):
        """Finds a device by interface name or object path; None if there is none."""
        return next((d for d in self.devices if key in (d.interface, d.path)), None)

    def by_path(self, path, kind):
        """The exported object of a path if it is of that class, else None."""
        found = self.bus.objects.get(path) if self.bus else None
        return found if isinstance(found, kind) else None

    def device_by_path(self, path):
        return self.by_path(path, Device)

    # profiles

    def profile_by_path(self, path):
        return self.by_path(path, Profile)

    def profile(self, key):
        """Finds a profile by name, UUID or object path; None if there is none."""
        return next((p for p in self.profiles if key in (p.name, p.uuid, p.path)), None)

    def refresh_available(self):
        """Works out again which profiles each device can use, and lets devices connect by themselves."""
        if self.bus:
            for device in self.devices:
                device.refresh_available()
            self.manager.consider_autoconnect()


