# SPDX-License-Identifier: MIT
"""Profiles as NetworkManager's own library (libnm) reads, checks and writes them.

libnm holds the very code with which the daemon parses and verifies a profile, so refusals carry the genuine texts. What
the daemon adds on top (strict types, old-style addresses) is here.
"""
import dbus
import gi

gi.require_version("NM", "1.0")
from gi.repository import GLib, GObject, NM  # noqa: E402

from .interfaces import CONNECTION  # noqa: E402
from .table import BASIC, ip_number, refuse, typed  # noqa: E402

SECRETS, NO_SECRETS = NM.ConnectionSerializationFlags.ONLY_SECRETS, NM.ConnectionSerializationFlags.WITH_NON_SECRET
# by the codes of NMConnectionError
ERRORS = {1: "SettingNotFound", 2: "PropertyNotFound", 3: "PropertyNotSecret", 4: "MissingSetting",
          5: "InvalidSetting", 6: "MissingProperty", 7: "InvalidProperty"}
CODES = {**{kind: code for code, kind in BASIC.items()}, dbus.ByteArray: "ay"}
NUMBERS = "ybnqiuxt"
# keys that exist on D-Bus only, without a property of that name in libnm
DBUS_ONLY = {"address-data": "aa{sv}", "route-data": "aa{sv}", "dns-data": "as", "address-labels": "as",
             "assigned-mac-address": "s", "security": "s"}
# keys that libnm reads by hand; its words differ slightly for them
BY_HAND = {"addresses", "routes", "dns", "mac-address", "cloned-mac-address", "bssid"} | set(DBUS_ONLY)
# An old-style key, where present, wins over the newer ones; clients' libraries see it the other way round.
OVERRULED = {"address-data": "addresses", "gateway": "addresses", "route-data": "routes"}


# D-Bus values <-> GVariant

def _signature(value):
    """The D-Bus signature of a value out of a message."""
    if isinstance(value, dbus.Struct):
        return "(%s)" % "".join(map(_signature, value))
    if isinstance(value, dbus.Dictionary):
        return "a{%s}" % value.signature
    return "a%s" % value.signature if isinstance(value, dbus.Array) else CODES[type(value)]


def _for_variant(value, is_variant=False):
    """The value as GLib.Variant's constructor wants it: variants at "v" places, plain values elsewhere."""
    if is_variant:
        return GLib.Variant(_signature(value), _for_variant(value))
    if isinstance(value, dbus.Dictionary):
        return {k: _for_variant(v, value.signature[1:] == "v") for k, v in value.items()}
    if isinstance(value, dbus.Array):
        return [_for_variant(v, value.signature == "v") for v in value]
    return value


def _from_variant(variant):
    kind = variant.get_type_string()
    children = [variant.get_child_value(i) for i in range(variant.n_children() if variant.is_container() else 0)]
    if kind == "v":
        return _from_variant(children[0])
    if kind.startswith("a{"):
        pairs = {c.get_child_value(0).unpack(): _from_variant(c.get_child_value(1)) for c in children}
        return dbus.Dictionary(pairs, signature=kind[2:-1])
    if kind == "aa{sv}":
        return dbus.Array(map(_from_variant, children), signature=kind[1:])
    return typed(kind, variant.unpack())


def from_plain(settings):
    """A settings map from JSON values, each with the type that libnm has for its key; bytes may be given as text."""
    def natural(value, signature="v"):
        if signature == "ay" and isinstance(value, str):
            return dbus.ByteArray(value.encode())
        if signature == "aa{sv}":
            return typed(signature, [{k: natural(v) for k, v in item.items()} for item in value])
        if signature == "v":
            signature = "u" if isinstance(value, int) else "s"
        return typed(signature, value)
    return {group: {key: natural(value, _expected(_setting(group), key)) for key, value in keys.items()}
            for group, keys in settings.items()}


# parsing and checking

def _setting(group):
    kind = NM.Setting.lookup_type(group)
    return GObject.new(kind) if kind.is_a(NM.Setting) else None


def _expected(setting, key):
    """The D-Bus type of a key, None if there is no such key."""
    if key in DBUS_ONLY:
        return DBUS_ONLY[key]
    known = key != "name" and setting.find_property(key)
    return setting.get_dbus_property_type(key).dup_string() if known else None


def check_types(settings):
    """Refuses unknown keys and wrong D-Bus types; libnm's public parser skips them, the daemon does not."""
    for group, keys in settings.items():
        setting = _setting(group)
        for key, value in keys.items() if setting else ():  # the parser refuses an unknown group
            expected, actual = _expected(setting, key), _signature(value)
            if expected is None:
                refuse(CONNECTION + ".InvalidProperty", f"{group}.{key}: unknown property")
            if actual != expected and not (actual in NUMBERS and expected in NUMBERS + "s"):
                text = f"{group}.{key}: can't set property of type '{expected}' from value of type '{actual}'"
                by_hand = "" if key in BY_HAND else f"{group}.{key}: failed to set property: "
                refuse(CONNECTION + ".InvalidProperty", by_hand + text)


def parse(settings, with_secrets=True):
    """Reads and verifies a settings map; AddAndActivateConnection does not verify the secrets."""
    check_types(settings)
    plain = {group: {key: _for_variant(value, True) for key, value in keys.items()
                     if not (group in ("ipv4", "ipv6") and OVERRULED.get(key) in keys)}
             for group, keys in settings.items()}
    try:
        connection = NM.SimpleConnection.new_from_dbus(GLib.Variant("a{sa{sv}}", plain))
        connection.verify()
        if with_secrets:
            connection.verify_secrets()
        return connection
    except GLib.Error as failure:
        refuse(f"{CONNECTION}.{ERRORS.get(failure.code, 'Failed')}", failure.message)


def settings_map(connection):
    """The settings without secrets, as GetSettings gives them: addresses and name servers in both styles."""
    settings = _from_variant(connection.to_dbus(NO_SECRETS))
    for group, addresses, routes in (("ipv4", "aau", "aau"), ("ipv6", "a(ayuay)", "a(ayuayu)")):
        if group in settings:
            settings[group].update({"addresses": typed(addresses), "routes": typed(routes)})
    ipv4 = settings.get("ipv4", {})
    if "address-data" in ipv4:
        gateway = ip_number(ipv4["gateway"]) if "gateway" in ipv4 else 0
        ipv4["addresses"] = typed("aau", [(ip_number(a["address"]), a["prefix"], 0 if i else gateway)
                                          for i, a in enumerate(ipv4["address-data"])])
    if "dns-data" in ipv4:
        ipv4["dns"] = typed("au", map(ip_number, ipv4["dns-data"]))
    return settings


def secrets_map(connection):
    """All stored secrets, by group; only groups that have some."""
    secrets = connection.to_dbus(SECRETS)
    return {g: keys for g, keys in _from_variant(secrets).items() if keys} if secrets else {}


def keep_secrets(old, new):
    """Update's rule: a map without any secret keeps the stored ones, a map with at least one replaces them all."""
    for group in () if secrets_map(new) else secrets_map(old):
        try:
            new.update_secrets(group, old.to_dbus(SECRETS))
        except GLib.Error:
            pass  # the group is gone from the profile, and its secrets with it
