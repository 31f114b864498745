"""Profiles as NetworkManager's own library (libnm) reads, checks and writes them.

libnm holds the very code with which the daemon parses and verifies a profile, so refusals carry the genuine
texts. What the daemon adds on top (strict types, secrets rules) is here.
"""
import ipaddress
import sys
import uuid

import gi

gi.require_version("NM", "1.0")
from gi.repository import GLib, GObject, NM  # noqa: E402

import dbus  # noqa: E402

from .bus import DBusError, typed  # noqa: E402

CONNECTION_ERROR = "org.freedesktop.NetworkManager.Settings.Connection."

# by the codes of NMConnectionError
_ERROR_NAMES = {1: "SettingNotFound", 2: "PropertyNotFound", 3: "PropertyNotSecret", 4: "MissingSetting",
                5: "InvalidSetting", 6: "MissingProperty", 7: "InvalidProperty"}


def _error(failure):
    return DBusError(CONNECTION_ERROR + _ERROR_NAMES.get(failure.code, "Failed"), failure.message)


# D-Bus values <-> GVariant

_CODES = ((dbus.Boolean, "b"), (dbus.Byte, "y"), (dbus.Int16, "n"), (dbus.UInt16, "q"), (dbus.Int32, "i"),
          (dbus.UInt32, "u"), (dbus.Int64, "x"), (dbus.UInt64, "t"), (dbus.Double, "d"), (dbus.ObjectPath, "o"),
          (dbus.Signature, "g"), (str, "s"))


def signature_of(value):
    """The D-Bus signature of a value that came out of a message."""
    if isinstance(value, bytes):
        return "ay"
    if isinstance(value, dbus.Dictionary):
        return "a{%s}" % value.signature
    if isinstance(value, dbus.Array):
        return "a%s" % value.signature
    if isinstance(value, dbus.Struct):
        return "(%s)" % "".join(signature_of(v) for v in value)
    return next(code for kind, code in _CODES if isinstance(value, kind))


def _plain(value, in_variant):
    """The value as GLib.Variant's constructor wants it: variants at "v" places, plain values elsewhere."""
    if in_variant:
        signature = signature_of(value)
        return GLib.Variant(signature, _plain(value, False))
    if isinstance(value, dbus.Dictionary):
        inside = str(value.signature)[1:] == "v"
        return {k: _plain(v, inside) for k, v in value.items()}
    if isinstance(value, dbus.Array):
        return [_plain(v, value.signature == "v") for v in value]
    if isinstance(value, dbus.Struct):
        return tuple(_plain(v, False) for v in value)
    return value


def to_variant(settings):
    """A settings map (a{sa{sv}}) of a message as GVariant."""
    return GLib.Variant("a{sa{sv}}", {str(g): {str(k): _plain(v, True) for k, v in keys.items()}
                                      for g, keys in settings.items()})


def from_variant(variant):
    """A GVariant as dbus-python value with the same types."""
    kind = variant.get_type_string()
    if kind == "v":
        return from_variant(variant.get_variant())
    if kind == "ay" or kind[0] not in "a(":
        return typed(kind, variant.unpack())
    children = [variant.get_child_value(i) for i in range(variant.n_children())]
    if kind.startswith("a{"):
        pairs = {from_variant(c.get_child_value(0)): from_variant(c.get_child_value(1)) for c in children}
        return dbus.Dictionary(pairs, signature=kind[2:-1])
    if kind[0] == "(":
        return dbus.Struct([from_variant(c) for c in children], signature=kind[1:-1])
    return dbus.Array([from_variant(c) for c in children], signature=kind[1:])


def from_plain(settings):
    """A settings map from plain Python or JSON values; each takes the type that libnm declares for its key.

    Bytes and SSIDs may be given as text; keys libnm does not know keep the natural type of the value.
    """
    result = {}
    for group, keys in settings.items():
        kind = NM.Setting.lookup_type(group)
        setting = GObject.new(kind) if kind.is_a(NM.Setting) else None
        result[group] = {k: _natural(v, _expected_type(setting, k) if setting else None) for k, v in keys.items()}
    return result


def _natural(value, signature):
    if signature == "ay" and isinstance(value, str):
        value = value.encode()
    if signature in ("aa{sv}", "a{sv}") or signature is None:
        return _guess(value)
    return typed(signature, value)


def _guess(value):
    if isinstance(value, bool):
        return dbus.Boolean(value)
    if isinstance(value, int):
        return dbus.UInt32(value)
    if isinstance(value, dict):
        return dbus.Dictionary({k: _guess(v) for k, v in value.items()}, signature="sv")
    if isinstance(value, list):
        texts = value and isinstance(value[0], str)
        return dbus.Array([_guess(v) for v in value], signature="s" if texts else "a{sv}")
    return dbus.String(value)


# parsing and checking

# keys that exist on D-Bus only, without a property of that name in libnm
_DBUS_ONLY = {"address-data": "aa{sv}", "route-data": "aa{sv}", "dns-data": "as", "address-labels": "as",
              "assigned-mac-address": "s", "security": "s"}
# keys that libnm reads by hand; its words differ slightly for them
_READ_BY_HAND = {"addresses", "routes", "dns", "mac-address", "cloned-mac-address", "bssid"} | set(_DBUS_ONLY)
_NUMBERS = "ybnqiuxtd"
# An old-style key, where present, wins over the newer ones; clients' libraries see it the other way round.
_LEGACY = {"addresses": ("address-data", "gateway"), "routes": ("route-data",)}


def _expected_type(setting, key):
    if key in _DBUS_ONLY:
        return _DBUS_ONLY[key]
    if key == "name" or setting.find_property(key) is None:
        return None
    return setting.get_dbus_property_type(key).dup_string()


def _check_types(settings):
    """Refuses unknown keys and wrong D-Bus types; libnm's public parser skips them, the daemon does not."""
    for group, keys in settings.items():
        kind = NM.Setting.lookup_type(group)
        if not kind.is_a(NM.Setting):
            continue  # an unknown group; the parser refuses it
        setting = GObject.new(kind)
        for key, value in keys.items():
            expected = _expected_type(setting, key)
            actual = signature_of(value)
            if expected is None:
                raise DBusError(CONNECTION_ERROR + "InvalidProperty", f"{group}.{key}: unknown property")
            if actual != expected and not (actual in _NUMBERS and expected in _NUMBERS + "s"):
                text = f"{group}.{key}: can't set property of type '{expected}' from value of type '{actual}'"
                if key not in _READ_BY_HAND:
                    text = f"{group}.{key}: failed to set property: {text}"
                raise DBusError(CONNECTION_ERROR + "InvalidProperty", text)


def readable(settings):
    """The map that AddAndActivateConnection goes on with: an empty one where the parser would refuse it."""
    try:
        _check_types(settings)
    except DBusError:
        return {}
    known = all(NM.Setting.lookup_type(g).is_a(NM.Setting) for g in settings)
    return {str(g): dict(keys) for g, keys in settings.items()} if known else {}


def parse(settings, check=True, with_secrets=True):
    """Reads and verifies a settings map as AddConnection does; returns an NM.SimpleConnection or raises DBusError.

    check         False takes whatever can be read at all
    with_secrets  verify the secrets too; AddAndActivateConnection does not
    """
    if check:
        _check_types(settings)
    variant = to_variant({g: {k: v for k, v in keys.items() if not _overruled(g, k, keys)}
                          for g, keys in settings.items()})
    try:
        if not check:
            return _parse_unchecked(variant)
        connection = NM.SimpleConnection.new_from_dbus(variant)
        connection.verify()
        if with_secrets:
            connection.verify_secrets()
        return connection
    except GLib.Error as failure:
        raise _error(failure) from None


def _parse_unchecked(variant):
    connection = NM.SimpleConnection.new()
    connection.replace_settings(variant)
    group = connection.get_setting_connection()
    if group and not group.get_uuid():
        group.set_property("uuid", str(uuid.uuid4()))
    try:
        connection.normalize(None)
    except GLib.Error:
        pass  # what it lacks it lacks
    return connection


def _overruled(group, key, keys):
    return group in ("ipv4", "ipv6") and any(old in keys and key in new for old, new in _LEGACY.items())


def settings_map(connection):
    """The settings without secrets, as GetSettings gives them: with addresses, routes, name servers in both styles."""
    settings = from_variant(connection.to_dbus(NM.ConnectionSerializationFlags.WITH_NON_SECRET))
    for group, codec in (("ipv4", _V4), ("ipv6", _V6)):
        if group in settings:
            codec.add_legacy(settings[group])
    return settings


class _Legacy:
    """Writes a group's addresses, routes and name servers in the old style: numbers or bytes instead of texts."""

    def __init__(self, address, route, dns, encode, none):
        self.address, self.route, self.dns, self.encode, self.none = address, route, dns, encode, none

    def add_legacy(self, group):
        gateway = group.get("gateway")
        gateway = self.encode(gateway) if gateway else self.none
        addresses = [(self.encode(a["address"]), a["prefix"], self.none if i else gateway)
                     for i, a in enumerate(group.get("address-data", ()))]
        routes = [(self.encode(r["dest"]), r["prefix"], self.encode(r["next-hop"]) if "next-hop" in r else self.none,
                   r.get("metric", 0)) for r in group.get("route-data", ())]
        group["addresses"] = typed(self.address, addresses)
        group["routes"] = typed(self.route, routes)
        if "dns-data" in group:
            group["dns"] = typed(self.dns, [self.encode(n) for n in group["dns-data"]])


_V4 = _Legacy("aau", "aau", "au", lambda a: int.from_bytes(ipaddress.IPv4Address(a).packed, sys.byteorder), 0)
_V6 = _Legacy("a(ayuay)", "a(ayuayu)", "aay", lambda a: ipaddress.IPv6Address(a).packed, bytes(16))


def secrets_map(connection):
    """All stored secrets, by group; only groups that have some."""
    secrets = connection.to_dbus(NM.ConnectionSerializationFlags.ONLY_SECRETS)
    return {g: keys for g, keys in from_variant(secrets).items() if keys} if secrets else {}


def keep_secrets(old, new):
    """Update's rule: a map without any secret keeps the stored ones, a map with at least one replaces them all."""
    if secrets_map(new):
        return
    for group in secrets_map(old):
        try:
            new.update_secrets(group, old.to_dbus(NM.ConnectionSerializationFlags.ONLY_SECRETS))
        except GLib.Error:
            pass  # the group is gone from the profile, and its secrets with it
