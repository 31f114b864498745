"""Client of the control interface, for tests and for the command line.

    python3 -m sim.client SetCarrier eth0 false
    python3 -m sim.client AddAccessPoint wlan0 '{"ssid": "Cafe 2", "security": "wpa2"}'
"""
import json
import os
import sys

import dbus
import dbus.bus

SIM = "lanvoy.Sim"


class Sim:
    """The simulated gateway on a bus. Devices are named by interface, profiles by name, UUID or path."""

    def __init__(self, address=None):
        self.connection = dbus.bus.BusConnection(address or os.environ["DBUS_SYSTEM_BUS_ADDRESS"])
        self._control = dbus.Interface(self.connection.get_object("lanvoy.sim", "/lanvoy/sim"), SIM)

    def call(self, name, *args):
        """Calls a method of the control interface; dictionaries and lists go as JSON text."""
        return getattr(self._control, name)(
            *(json.dumps(a) if isinstance(a, (dict, list)) else a for a in args))

    def close(self):
        self.connection.close()

    # world

    def reset(self, empty=False):
        self.call("Reset", empty)

    def set_options(self, **options):
        self.call("SetOptions", options)

    def options(self):
        return json.loads(self.call("GetOptions"))

    def start(self, service):
        """service: "nm" or "mm" """
        self.call("Start", service)

    def stop(self, service):
        self.call("Stop", service)

    def restart(self, service, gap_ms=0):
        self.call("Restart", service, dbus.UInt32(gap_ms))

    def set_hostname(self, hostname):
        self.call("SetHostname", hostname)

    def set_status(self, state=-1):
        """NetworkManager's overall state (10..70); -1 gives it back to the simulation."""
        self.call("SetStatus", state)

    def set_connectivity(self, value=-1):
        self.call("SetConnectivity", value)

    def set_primary_connection(self, path=""):
        self.call("SetPrimaryConnection", path)

    def set_property(self, path, interface, name, value):
        self.call("SetProperty", path, interface, name, value)

    # devices

    def add_device(self, kind, **options):
        return str(self.call("AddDevice", kind, options))

    def remove_device(self, device):
        self.call("RemoveDevice", device)

    def devices(self):
        """List of {"interface", "kind", "path", "state", "managed", "profile", "active" (its path)}."""
        return json.loads(self.call("ListDevices"))

    def device(self, interface):
        return next(d for d in self.devices() if d["interface"] == interface)

    def set_carrier(self, device, carrier):
        self.call("SetCarrier", device, carrier)

    def lease(self, device, address):
        """address: with its prefix, such as "192.0.2.99/24" """
        self.call("Lease", device, address)

    def set_managed(self, device, managed):
        self.call("SetManaged", device, managed)

    def rename_device(self, device, interface):
        self.call("RenameDevice", device, interface)

    def set_device_state(self, device, state, reason=0):
        self.call("SetDeviceState", device, dbus.UInt32(state), dbus.UInt32(reason))

    def fail_device(self, device, reason):
        self.call("FailDevice", device, dbus.UInt32(reason))

    def disconnect(self, device):
        self.call("Disconnect", device)

    def activate(self, profile, device=""):
        return str(self.call("Activate", profile, device))

    # wifi

    def add_access_point(self, device="", **options):
        if isinstance(options.get("ssid"), bytes):
            options["ssid_bytes"] = list(options.pop("ssid"))
        return str(self.call("AddAccessPoint", device, options))

    def add_access_points(self, count, networks, device="", **options):
        self.call("AddAccessPoints", device, dbus.UInt32(count), dbus.UInt32(networks), options)

    def modify_access_point(self, key, device="", **options):
        self.call("ModifyAccessPoint", device, key, options)

    def set_strength(self, key, percent, device=""):
        self.call("SetStrength", device, key, dbus.UInt32(percent))

    def strength_burst(self, rounds=1, device=""):
        self.call("StrengthBurst", device, dbus.UInt32(rounds))

    def remove_access_point(self, key, device=""):
        self.call("RemoveAccessPoint", device, key)

    def clear_access_points(self, device=""):
        self.call("ClearAccessPoints", device)

    def access_points(self, device=""):
        return json.loads(self.call("ListAccessPoints", device))

    # profiles

    def add_profile(self, settings):
        return str(self.call("AddProfile", settings))

    def modify_profile(self, key, settings):
        self.call("ModifyProfile", key, settings)

    def remove_profile(self, key):
        self.call("RemoveProfile", key)

    def profile(self, key):
        """Settings of a profile, secrets included."""
        return json.loads(self.call("GetProfile", key))

    def profiles(self):
        return json.loads(self.call("ListProfiles"))

    # modem

    def hang_up(self, device=""):
        self.call("HangUp", device)

    def refuse_modem(self, reason, device=""):
        """The next connections fail with this device state reason; 0 ends that."""
        self.call("RefuseModem", device, dbus.UInt32(reason))

    def set_signal(self, percent, device=""):
        self.call("SetSignal", device, dbus.UInt32(percent))

    def set_access_technologies(self, technologies, device=""):
        """technologies: list of words such as "lte", or the number."""
        self.call("SetAccessTechnologies", device, json.dumps(technologies))

    def set_data_interface(self, interface, device=""):
        self.call("SetDataInterface", device, interface)

    # faults: member is interface.method ("*" at the end for any rest), path "" for any, times -1 for ever

    def fail_method(self, member, error, text, path="", times=1):
        self.call("FailMethod", member, path, times, error, text)

    def delay_method(self, member, delay_ms, path="", times=-1):
        self.call("DelayMethod", member, path, times, dbus.UInt32(delay_ms))

    def drop_method(self, member, path="", times=-1):
        self.call("DropMethod", member, path, times)

    def clear_faults(self):
        self.call("ClearFaults")

    # log of calls

    def calls(self, prefix=""):
        """List of {"ms", "member", "path", "args"} of calls whose interface.method starts with prefix."""
        return json.loads(self.call("GetCalls", prefix))

    def count_calls(self, member, path=""):
        return int(self.call("CountCalls", member, path))

    def reset_calls(self):
        self.call("ResetCalls")


def _argument(text):
    if text in ("true", "false"):
        return text == "true"
    return dbus.UInt32(text) if text.isdigit() else text


if __name__ == "__main__":
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    result = Sim().call(sys.argv[1], *(_argument(a) for a in sys.argv[2:]))
    if result is not None:
        print(result)
