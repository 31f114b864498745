"""Stored profiles: the settings service and one object per profile."""
import dbus

from . import nm_profile
from .bus import BusObject, DBusError, method, typed

SETTINGS = "org.freedesktop.NetworkManager.Settings"
CONNECTION = "org.freedesktop.NetworkManager.Settings.Connection"
BASE = "/org/freedesktop/NetworkManager"
NO_SECRETS = "org.freedesktop.NetworkManager.AgentManager.NoSecrets"

FLAG_UNSAVED, FLAG_GENERATED, FLAG_VOLATILE, FLAG_EXTERNAL = 1, 2, 4, 8
UPDATE2_IN_MEMORY = 0x2 | 0x4 | 0x8
ADD2_BLOCK_AUTOCONNECT = 0x20


AUTOCONNECT_TRIES = 4  # failed ones, until the profile is left alone


class Profile(BusObject):
    """One profile. `connection` is libnm's object and holds the secrets as well."""

    properties = {CONNECTION: {"Unsaved": "b", "Flags": "u", "Filename": "s"}}
    signals = {CONNECTION: {"Updated": "", "Removed": ""}}

    def __init__(self, daemon, connection, flags=0):
        super().__init__("")
        self.daemon = daemon
        self.use(connection)
        self.flags = flags
        self.timestamp = 0  # seconds since the epoch of the last successful activation
        self.autoconnect_tries = AUTOCONNECT_TRIES  # left; 0 after a deactivation by a client as well

    def use(self, connection):
        self.connection = connection
        self.settings = nm_profile.settings_map(connection)  # without secrets
        self.secrets = nm_profile.secrets_map(connection)
        empty = dbus.Dictionary({}, signature="sv")
        self.secret_replies = {asked: {g: keys if g == asked else empty for g in self.settings}
                               for asked, keys in self.secrets.items()}

    @property
    def name(self):
        return self.connection.get_id()

    @property
    def uuid(self):
        return self.connection.get_uuid()

    @property
    def kind(self):
        return self.connection.get_connection_type()

    @property
    def interface(self):
        """The interface name it is bound to, or None."""
        return self.connection.get_interface_name()

    @property
    def volatile(self):
        return bool(self.flags & FLAG_VOLATILE)

    def group(self, name):
        """One group of the settings without secrets, as a map; {} if the profile has no such group."""
        return self.settings.get(name, {})

    def ssid_fits(self, ssids):
        """Whether a wifi profile could work where these SSIDs are in range."""
        wireless = self.group("802-11-wireless")
        return bytes(bytearray(wireless.get("ssid", b""))) in ssids or bool(wireless.get("hidden"))

    def secret(self, group, key):
        return self.secrets.get(group, {}).get(key)

    def appear(self):
        """Exports the profile under a new path."""
        self.path = self.daemon.new_path("Settings")
        self._publish_flags()
        self.daemon.bus.export(self)
        self.daemon.settings.emit(SETTINGS, "NewConnection", "o", self.path)
        self.daemon.settings.refresh()

    def _publish_flags(self):
        where = "/run" if self.flags & FLAG_UNSAVED else "/etc"
        self.set(Unsaved=bool(self.flags & FLAG_UNSAVED), Flags=self.flags,
                 Filename=f"{where}/NetworkManager/system-connections/{self.name}.nmconnection")

    def replace(self, settings, unsaved=False):
        """Puts a new settings map in the place of the old one; raises DBusError if it is refused."""
        settings = {g: dict(keys) for g, keys in settings.items()}
        settings.setdefault("connection", {})["uuid"] = typed("s", self.uuid)  # whatever the caller says
        new = nm_profile.parse(settings, self.daemon.options["validate"])
        nm_profile.keep_secrets(self.connection, new)
        self.use(new)
        self.flags = self.flags | FLAG_UNSAVED if unsaved else self.flags & ~FLAG_UNSAVED
        self._publish_flags()
        self.emit(CONNECTION, "Updated")
        self.daemon.refresh_available()

    def remove(self):
        """Deletes the profile; a device that uses it is disconnected."""
        daemon = self.daemon
        daemon.profiles.remove(self)
        daemon.settings.refresh()
        self.emit(CONNECTION, "Removed")
        daemon.settings.emit(SETTINGS, "ConnectionRemoved", "o", self.path)
        if daemon.bus:
            for device in daemon.devices:
                device.profile_removed(self)
            daemon.bus.unexport(self)
            daemon.refresh_available()

    # D-Bus

    @method(CONNECTION, "", "a{sa{sv}}")
    def GetSettings(self):
        group = self.settings["connection"]
        group.pop("timestamp", None)
        if self.timestamp:
            group["timestamp"] = typed("t", self.timestamp)
        return self.settings

    @method(CONNECTION, "s", "a{sa{sv}}")
    def GetSecrets(self, group):
        if group not in self.settings:
            raise DBusError(nm_profile.CONNECTION_ERROR + "SettingNotFound",
                            f"Connection didn't have requested setting '{group}'.")
        if group not in self.secrets:
            raise DBusError(NO_SECRETS, "No agents were available for this request.")
        return self.secret_replies[group]

    @method(CONNECTION, "a{sa{sv}}")
    def Update(self, settings):
        self.replace(settings)

    @method(CONNECTION, "a{sa{sv}}")
    def UpdateUnsaved(self, settings):
        self.replace(settings, unsaved=True)

    @method(CONNECTION, "a{sa{sv}}ua{sv}", "a{sv}")
    def Update2(self, settings, flags, _args):
        if settings:
            self.replace(settings, unsaved=bool(flags & UPDATE2_IN_MEMORY))
        return {}

    @method(CONNECTION)
    def ClearSecrets(self):
        self.connection.clear_secrets()
        self.use(self.connection)
        self.emit(CONNECTION, "Updated")

    @method(CONNECTION)
    def Save(self):
        self.flags &= ~FLAG_UNSAVED
        self._publish_flags()

    @method(CONNECTION)
    def Delete(self):
        self.remove()


class Settings(BusObject):
    """The settings service: the list of profiles and the host name."""

    properties = {SETTINGS: {"Connections": "ao", "Hostname": "s", "CanModify": "b"}}
    signals = {SETTINGS: {"NewConnection": "o", "ConnectionRemoved": "o"}}

    def __init__(self, daemon):
        super().__init__(BASE + "/Settings")
        self.daemon = daemon

    def reset(self):
        self.init(Connections=[], Hostname=self.daemon.world.hostname, CanModify=True)

    def refresh(self):
        if self.daemon.bus:
            self.set(Connections=[p.path for p in self.daemon.profiles if p.bus])

    def new(self, settings, flags=0, with_secrets=True):
        """Checks a settings map and makes a profile of it, not stored yet; raises DBusError if it is refused."""
        connection = nm_profile.parse(settings, self.daemon.options["validate"], with_secrets)
        if any(p.uuid == connection.get_uuid() for p in self.daemon.profiles):
            raise DBusError(SETTINGS + ".UuidExists", "a connection with this UUID already exists")
        return Profile(self.daemon, connection, flags)

    def store(self, profile):
        """Puts a new profile into the list and announces it."""
        self.daemon.profiles.append(profile)
        if self.daemon.bus:
            profile.appear()
            self.daemon.refresh_available()
        return profile

    def add(self, settings, flags=0):
        return self.store(self.new(settings, flags))

    # D-Bus

    @method(SETTINGS, "", "ao")
    def ListConnections(self):
        return self.get("Connections")

    @method(SETTINGS, "s", "o")
    def GetConnectionByUuid(self, uuid):
        for profile in self.daemon.profiles:
            if profile.uuid == uuid:
                return profile.path
        raise DBusError(SETTINGS + ".InvalidConnection", "No connection with the UUID was found.")

    @method(SETTINGS, "a{sa{sv}}", "o")
    def AddConnection(self, settings):
        return self.add(settings).path

    @method(SETTINGS, "a{sa{sv}}", "o")
    def AddConnectionUnsaved(self, settings):
        return self.add(settings, FLAG_UNSAVED).path

    @method(SETTINGS, "a{sa{sv}}ua{sv}", "oa{sv}")
    def AddConnection2(self, settings, flags, _args):
        profile = self.new(settings, FLAG_UNSAVED if flags & UPDATE2_IN_MEMORY else 0)
        if flags & ADD2_BLOCK_AUTOCONNECT:
            profile.autoconnect_tries = 0
        self.store(profile)
        return profile.path, {}

    @method(SETTINGS, "as", "bas")
    def LoadConnections(self, _files):
        return True, []

    @method(SETTINGS, "", "b")
    def ReloadConnections(self):
        return True

    @method(SETTINGS, "s")
    def SaveHostname(self, hostname):
        self.daemon.world.set_hostname(hostname)
