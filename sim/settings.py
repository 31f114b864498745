# SPDX-License-Identifier: MIT
"""Stored profiles, and what clients ask for with them: settings, secrets, updates, activations."""
import uuid

from . import device as dev
from . import libnm, wifi
from .interfaces import CONNECTION, NM, SETTINGS
from .table import Item, method, refuse, typed, world

BASE = "/org/freedesktop/NetworkManager"
NO_SECRETS = NM + ".AgentManager.NoSecrets"
# Not a slip: the daemon lets this error out without a name of its own.
UNMAPPED = "org.gtk.GDBus.UnmappedGError.Quark._nm_2dutils_2derror_2dquark.Code9"
# NetworkManager 1.42 makes this profile at each start and shows it active on the loopback device.
LOOPBACK = {
    "connection": {"id": "lo", "uuid": "00000000-0000-4000-8000-00000000000f", "type": "loopback",
                   "interface-name": "lo"},
    "loopback": {}, "ipv4": {"method": "manual", "address-data": [{"address": "127.0.0.1", "prefix": 8}]}}


def new(settings, with_secrets=True):
    """Checks a settings map and makes a profile of it, which is not stored yet; libnm's object has the secrets too."""
    connection = libnm.parse(settings, with_secrets)
    if any(profile.connection.get_uuid() == connection.get_uuid() for profile in world.profiles):
        refuse(SETTINGS + ".UuidExists", "a connection with this UUID already exists")
    # timestamp: of the last successful activation, in seconds since the epoch; tries: to connect by itself, left
    profile = Item(CONNECTION, timestamp=0, tries=dev.AUTOCONNECT_TRIES)
    use(profile, connection)
    return profile


def use(profile, connection):
    profile.connection = connection
    profile.settings = libnm.settings_map(connection)  # without secrets
    profile.secrets = libnm.secrets_map(connection)
    profile.replies = {asked: {g: typed("a{sv}", keys if g == asked else ()) for g in profile.settings}
                       for asked, keys in profile.secrets.items()}


def store(profile):
    world.profiles.append(profile)
    if world.nm.connection:
        appear(profile)
        dev.refresh_available()
    return profile


def appear(profile):
    world.nm.show(profile, "Settings")
    world.settings.emit(SETTINGS, "NewConnection", "o", profile.path)
    _list_profiles()


def _list_profiles():
    world.settings.put(Connections=[profile.path for profile in world.profiles if profile.service])


def remove(profile):
    """Deletes the profile; a device that uses it is disconnected."""
    world.profiles.remove(profile)
    if profile.service:
        _list_profiles()
        profile.emit(CONNECTION, "Removed")
        world.settings.emit(SETTINGS, "ConnectionRemoved", "o", profile.path)
        for device in world.devices:
            dev.profile_removed(device, profile)
        world.nm.hide(profile)
        dev.refresh_available()


# of a profile

@method(CONNECTION, "", "a{sa{sv}}")
def GetSettings(profile):
    if profile.timestamp:
        profile.settings["connection"]["timestamp"] = typed("t", profile.timestamp)
    return profile.settings


@method(CONNECTION, "s", "a{sa{sv}}")
def GetSecrets(profile, group):
    if group not in profile.settings:
        refuse(CONNECTION + ".SettingNotFound", f"Connection didn't have requested setting '{group}'.")
    if group not in profile.secrets:
        refuse(NO_SECRETS, "No agents were available for this request.")
    return profile.replies[group]


@method(CONNECTION, "a{sa{sv}}")
def Update(profile, settings):
    settings = {group: dict(keys) for group, keys in settings.items()}
    # whatever the caller says
    settings.setdefault("connection", {})["uuid"] = typed("s", profile.connection.get_uuid())
    connection = libnm.parse(settings)
    libnm.keep_secrets(profile.connection, connection)
    use(profile, connection)
    profile.emit(CONNECTION, "Updated")
    dev.refresh_available()


@method(CONNECTION)
def ClearSecrets(profile):
    profile.connection.clear_secrets()
    use(profile, profile.connection)
    profile.emit(CONNECTION, "Updated")


# of the manager

@method(NM, "ooo", "o")
def ActivateConnection(_manager, path, device_path, specific_object):
    profile = next((p for p in world.profiles if p.service and p.path == path), None)
    if profile is None:
        refuse(NM + ".UnknownConnection", "Connection could not be found.")
    device = _device(device_path)
    _require_fit(profile, device)
    return dev.activate(device, profile, specific_object).path


def _device(path):
    device = next((d for d in world.devices if d.service and d.path == path), None)
    return device or refuse(NM + ".UnknownDevice", "Device not found")


def _require_fit(profile, device):
    reason = dev.obstacle(device, profile)
    if reason:
        refuse(NM + ".UnknownConnection", f"Connection '{profile.connection.get_id()}' is not available on device "
                                          f"{device.interface} because {reason}")


@method(NM, "a{sa{sv}}oo", "oo")
def AddAndActivateConnection(_manager, settings, device_path, specific_object):
    device = _device(device_path)
    kind = device.kind.profile
    settings = {str(name): dict(keys) for name, keys in settings.items()}
    if device.word == "wifi":
        wifi.complete(device, settings, specific_object)
    settings.setdefault(kind, {})
    group = settings.setdefault("connection", {})
    group["type"] = typed("s", kind)
    group.setdefault("uuid", typed("s", str(uuid.uuid4())))
    if group.setdefault("interface-name", typed("s", device.interface)) != device.interface:
        refuse(UNMAPPED, "mismatching interface name")
    profile = new(settings, with_secrets=False)
    _require_fit(profile, device)
    store(profile)
    return profile.path, dev.activate(device, profile, specific_object).path
