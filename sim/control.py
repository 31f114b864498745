"""The control interface: how tests and the demo steer the simulated gateway (see README.md for the table)."""
import json
import uuid

from gi.repository import GLib

from . import nm_activation, nm_profile
from .bus import Bus, BusObject, DBusError, method, typed
from .calls import Calls, Rule, plain
from .nm_wifi import MODES, SECURITIES, AccessPoint

NAME = "lanvoy.sim"
PATH = "/lanvoy/sim"
SIM = "lanvoy.Sim"

MODEM_NO_CARRIER = 25
ACCESS_POINT_PROPERTIES = {"strength": "Strength", "frequency": "Frequency", "bitrate": "MaxBitrate",
                           "flags": "Flags", "wpa_flags": "WpaFlags", "rsn_flags": "RsnFlags", "bssid": "HwAddress"}


def _not_found(what, key):
    return DBusError("lanvoy.Sim.NotFound", f"no {what} {key}")


class Control(BusObject):
    properties = {SIM: {}}

    def __init__(self, world):
        super().__init__(PATH)
        self.world = world

    def _device(self, key, kind=""):
        """A device by interface name or path; with an empty key the first of that kind."""
        nm = self.world.nm
        found = nm.device(key) if key else next((d for d in nm.devices if d.kind == kind), None)
        if found is None or kind not in ("", found.kind):
            raise _not_found(kind or "device", key)
        return found

    def _profile(self, key):
        found = self.world.nm.profile(key)
        if found is None:
            raise _not_found("profile", key)
        return found

    # the world

    @method(SIM, "b")
    def Reset(self, empty):
        self.world.reset(bool(empty))

    @method(SIM, "s")
    def SetOptions(self, options):
        values = json.loads(options)
        for name in values:
            if name not in self.world.options:
                raise _not_found("option", name)
        self.world.options.update(values)

    @method(SIM, "", "s")
    def GetOptions(self):
        return json.dumps(self.world.options)

    @method(SIM, "s")
    def Start(self, service):
        if service == "nm":
            self.world.nm.start()
        else:
            self.world.start_modem_manager()

    @method(SIM, "s")
    def Stop(self, service):
        if service == "nm":
            self.world.nm.stop()
        else:
            self.world.stop_modem_manager(alone=service == "mm-alone")

    @method(SIM, "su")
    def Restart(self, service, gap_ms):
        self.Stop(service)
        GLib.timeout_add(gap_ms, lambda: self.Start(service))

    @method(SIM, "s")
    def SetHostname(self, hostname):
        self.world.set_hostname(str(hostname))

    @method(SIM, "i")
    def SetStatus(self, state):
        self.world.nm.manager.force(State=int(state) if state >= 0 else None)

    @method(SIM, "i")
    def SetConnectivity(self, value):
        self.world.nm.manager.force(Connectivity=int(value) if value >= 0 else None)

    @method(SIM, "s")
    def SetPrimaryConnection(self, path):
        self.world.nm.manager.force(PrimaryConnection=str(path) or None)

    @method(SIM, "sssv")
    def SetProperty(self, path, interface, name, value):
        for service in (self.world.nm, self.world.mm):
            item = service.bus and service.bus.objects.get(path)
            if item and name in item.properties.get(interface, {}):
                item.set(interface, **{str(name): value})
                return
        raise _not_found("property", f"{path} {interface}.{name}")

    # devices

    @method(SIM, "ss", "s")
    def AddDevice(self, kind, options):
        return self.world.add(str(kind), **json.loads(options or "{}")).path

    @method(SIM, "s")
    def RemoveDevice(self, device):
        self.world.remove(self._device(device))

    @method(SIM, "", "s")
    def ListDevices(self):
        return json.dumps([{
            "interface": d.interface, "kind": d.kind, "path": d.path, "state": int(d.state) if d.bus else 0,
            "managed": d.managed, "profile": d.active.profile.name if d.active else None,
            "active": d.active.path if d.active else None}
            for d in self.world.nm.devices])

    @method(SIM, "sb")
    def SetCarrier(self, device, carrier):
        self._device(device, "wired").set_carrier(bool(carrier))

    @method(SIM, "ss")
    def Lease(self, device, address):
        """Gives a connected device another address, as a new lease does: its configuration changes in place."""
        found = self._device(device)
        found.lease = str(address)
        nm_activation.configure_ip(found, found.active)

    @method(SIM, "sb")
    def SetManaged(self, device, managed):
        self._device(device).set_managed(bool(managed))

    @method(SIM, "ss")
    def RenameDevice(self, device, interface):
        self._device(device).rename(str(interface))

    @method(SIM, "suu")
    def SetDeviceState(self, device, state, reason):
        target = self._device(device)
        target.stop_script()
        target.change_state(int(state), int(reason))

    @method(SIM, "su")
    def FailDevice(self, device, reason):
        nm_activation.fail(self._device(device), int(reason))

    @method(SIM, "s")
    def Disconnect(self, device):
        self._device(device).Disconnect()

    @method(SIM, "ss", "s")
    def Activate(self, profile, device):
        path = self._device(device).path if device else "/"
        return self.world.nm.manager.ActivateConnection(self._profile(profile).path, path, "/")

    # wifi

    @method(SIM, "ss", "s")
    def AddAccessPoint(self, device, options):
        values = json.loads(options or "{}")
        if "ssid_bytes" in values:
            values["ssid"] = bytes(values.pop("ssid_bytes"))
        wifi = self._device(device, "wifi")
        later = values.pop("on_scan", False)
        point = AccessPoint(**values)
        if later:
            wifi.unseen.append(point)
        else:
            wifi.add_points([point])
        return point.path or "/"

    @method(SIM, "suus")
    def AddAccessPoints(self, device, count, networks, options):
        values = dict({"security": "wpa2", "prefix": "Net"}, **json.loads(options or "{}"))
        prefix, later = values.pop("prefix"), values.pop("on_scan", False)
        wifi = self._device(device, "wifi")
        points = [AccessPoint(f"{prefix}-{i % max(networks, 1):04d}", strength=20 + i * 7 % 80, **values)
                  for i in range(count)]
        if later:
            wifi.unseen += points
        else:
            wifi.add_points(points)

    def _points(self, device, key):
        wifi = self._device(device, "wifi")
        points = wifi.find_points(str(key))
        if not points:
            raise _not_found("access point", key)
        return wifi, points

    @method(SIM, "sss")
    def ModifyAccessPoint(self, device, key, options):
        wifi, points = self._points(device, key)
        values = json.loads(options)
        changes = {ACCESS_POINT_PROPERTIES[k]: v for k, v in values.items() if k in ACCESS_POINT_PROPERTIES}
        if "security" in values:
            changes.update(zip(("Flags", "WpaFlags", "RsnFlags"), SECURITIES[values["security"]]))
        if "mode" in values:
            changes["Mode"] = MODES[values["mode"]]
        for point in points:
            if "key" in values:
                point.key = values["key"]
            if "ssid" in values:
                point.ssid = values["ssid"].encode()
                changes["Ssid"] = point.ssid
            point.set(**changes)
        wifi.daemon.refresh_available()

    @method(SIM, "ssu")
    def SetStrength(self, device, key, percent):
        for point in self._points(device, key)[1]:
            point.set(Strength=percent)

    @method(SIM, "su")
    def StrengthBurst(self, device, rounds):
        wifi = self._device(device, "wifi")
        for turn in range(rounds):
            for number, point in enumerate(wifi.access_points):
                point.set(Strength=(number * 13 + turn * 29) % 101)

    @method(SIM, "ss")
    def RemoveAccessPoint(self, device, key):
        wifi, points = self._points(device, key)
        wifi.remove_points(points)

    @method(SIM, "s")
    def ClearAccessPoints(self, device):
        wifi = self._device(device, "wifi")
        wifi.remove_points(list(wifi.access_points))

    @method(SIM, "s", "s")
    def ListAccessPoints(self, device):
        return json.dumps([{
            "path": p.path, "ssid": p.ssid.decode(errors="replace"), "bssid": p.bssid,
            "strength": int(p.get("Strength"))} for p in self._device(device, "wifi").access_points])

    # profiles

    @method(SIM, "s", "s")
    def AddProfile(self, settings):
        parsed = nm_profile.from_plain(json.loads(settings))
        parsed["connection"].setdefault("uuid", typed("s", str(uuid.uuid4())))
        return self.world.nm.settings.add(parsed).path

    @method(SIM, "ss")
    def ModifyProfile(self, key, settings):
        profile = self._profile(key)
        merged = {g: dict(k) for g, k in nm_profile.settings_map(profile.connection).items()}
        for group, keys in nm_profile.from_plain(json.loads(settings)).items():
            merged.setdefault(group, {}).update(keys)
        profile.replace(merged)

    @method(SIM, "s")
    def RemoveProfile(self, key):
        self._profile(key).remove()

    @method(SIM, "s", "s")
    def GetProfile(self, key):
        connection = self._profile(key).connection
        settings = plain(nm_profile.settings_map(connection))
        for group, keys in plain(nm_profile.secrets_map(connection)).items():
            settings[group].update(keys)
        return json.dumps(settings)

    @method(SIM, "", "s")
    def ListProfiles(self):
        return json.dumps([{"name": p.name, "uuid": p.uuid, "path": p.path, "type": p.kind}
                           for p in self.world.nm.profiles])

    # modem; an empty device means the first modem

    @method(SIM, "s")
    def HangUp(self, device):
        modem = self._device(device, "modem")
        modem.modem.disconnect_data()
        if modem.active:
            nm_activation.fail(modem, MODEM_NO_CARRIER)

    @method(SIM, "su")
    def RefuseModem(self, device, reason):
        self._device(device, "modem").modem.refuses = int(reason)

    @method(SIM, "su")
    def SetSignal(self, device, percent):
        self._device(device, "modem").modem.set_signal(int(percent))

    @method(SIM, "ss")
    def SetAccessTechnologies(self, device, technologies):
        self._device(device, "modem").modem.set_technologies(json.loads(technologies))

    @method(SIM, "ss")
    def SetDataInterface(self, device, interface):
        self._device(device, "modem").modem.set_data_interface(str(interface))

    # faults and the log of calls

    @method(SIM, "ssiss")
    def FailMethod(self, member, path, times, error, text):
        self.world.calls.rules.append(Rule(str(member), str(path), int(times), error=(str(error), str(text))))

    @method(SIM, "ssiu")
    def DelayMethod(self, member, path, times, delay_ms):
        self.world.calls.rules.append(Rule(str(member), str(path), int(times), delay_ms=int(delay_ms)))

    @method(SIM, "ssi")
    def DropMethod(self, member, path, times):
        self.world.calls.rules.append(Rule(str(member), str(path), int(times)))

    @method(SIM)
    def ClearFaults(self):
        self.world.calls.rules.clear()

    @method(SIM, "s", "s")
    def GetCalls(self, prefix):
        return self.world.calls.as_json(str(prefix))

    @method(SIM, "ss", "u")
    def CountCalls(self, member, path):
        return self.world.calls.count(str(member), str(path))

    @method(SIM)
    def ResetCalls(self):
        self.world.calls.reset()


def serve(world):
    """Puts the control object on the bus."""
    bus = Bus(world.address, NAME, None, Calls())
    bus.export(Control(world))
    bus.take_name()
    return bus
