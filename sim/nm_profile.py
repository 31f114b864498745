"""Profiles as NetworkManager's own library (libnm) reads, checks and writes them.

libnm holds the very code with which the daemon parses and verifies a profile, so refusals carry the genuine
texts. What the daemon adds on top (strict types, secrets rules) is here.
"""
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
        return dbus.Array([_guess(v) for v in value], signature="a{sv}" if not value or isinstance(value[0], dict) else "s")
    return dbus.String(value)


# parsing and checking

def _check_types(settings):
    """Refuses values of a wrong D-Bus type; libnm's public parser skips them, the daemon does not."""
    for group, keys in settings.items():
        kind = NM.Setting.lookup_type(group)
        if not kind.is_a(NM.Setting):
            continue  # an unknown group; the parser refuses it
        setting = GObject.new(kind)
        for key, value in keys.items():
            expected = _expected_type(setting, key)
            if expected and signature_of(value) != expected and not _convertible(signature_of(value), expected):
                raise DBusError(CONNECTION_ERROR + "InvalidProperty",
                                f"{group}.{key}: can't set property of type '{expected}' from value of type "
                                f"'{signature_of(value)}'")


# keys that exist on D-Bus only, without a property of that name in libnm
_DBUS_ONLY = {"address-data": "aa{sv}", "route-data": "aa{sv}", "dns-data": "as"}


def _expected_type(setting, key):
    if key in _DBUS_ONLY:
        return _DBUS_ONLY[key]
    if setting.find_property(key) is None:
        return None
    return setting.get_dbus_property_type(key).dup_string()


def _convertible(actual, expected):
    return actual in "ybnqiuxt" and expected in "ybnqiuxt"


def parse(settings, strict=True):
    """Reads and verifies a settings map as AddConnection does; returns an NM.SimpleConnection or raises DBusError."""
    if strict:
        _check_types(settings)
    try:
        connection = NM.SimpleConnection.new_from_dbus(to_variant(settings))
        connection.verify()
        connection.verify_secrets()
    except GLib.Error as failure:
        raise _error(failure) from None
    return connection


def settings_map(connection):
    """The settings without secrets, as GetSettings gives them."""
    return from_variant(connection.to_dbus(NM.ConnectionSerializationFlags.WITH_NON_SECRET))


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
