# SPDX-License-Identifier: MIT
"""The table of objects (path, interface, properties) and what carries it to the bus.

Every change goes through Item.put, which announces it. Every call passes Service._receive, where it is logged and where
a rule may refuse, delay or drop it. Messages are handled as they are on the wire: types are always explicit.
"""
import collections
import dataclasses
import fnmatch
import functools
import ipaddress
import sys
import time
import traceback
import types

import dbus
import dbus.bus
import dbus.lowlevel
from gi.repository import GLib

from .interfaces import SIGNATURES

PROPERTIES = "org.freedesktop.DBus.Properties"
OBJECT_MANAGER = "org.freedesktop.DBus.ObjectManager"
INTROSPECTABLE = "org.freedesktop.DBus.Introspectable"
ERROR = "org.freedesktop.DBus.Error."
DEPARTURE_S = 10  # until the bus has noticed that a connection is closed
BASIC = {"y": dbus.Byte, "b": dbus.Boolean, "n": dbus.Int16, "q": dbus.UInt16, "i": dbus.Int32, "u": dbus.UInt32,
         "x": dbus.Int64, "t": dbus.UInt64, "s": dbus.String, "o": dbus.ObjectPath}
EMPTY = {"s": "", "o": "/", "a": (), "(": ()}  # all else is 0

world = types.SimpleNamespace()  # all there is; world.py fills it


def typed(signature, value=None):
    """The value as dbus-python's type of one complete D-Bus type, the empty one for None; variants hold typed ones."""
    kind = signature[0]
    if value is None:
        value = EMPTY.get(kind, 0)
    if kind in BASIC:
        return BASIC[kind](value)
    if kind == "v":
        return value
    if kind == "(":
        members = list(dbus.Signature(signature[1:-1]))
        values = value or [None] * len(members)
        return dbus.Struct([typed(s, v) for s, v in zip(members, values)], signature=signature[1:-1])
    if signature == "ay":
        return dbus.ByteArray(bytes(value))
    if signature[1] == "{":
        key, item = dbus.Signature(signature[2:-1])
        return dbus.Dictionary({typed(key, k): typed(item, v) for k, v in dict(value).items()}, signature=key + item)
    return dbus.Array([typed(signature[1:], v) for v in value], signature=signature[1:])


def ip_number(address):
    """An IPv4 address in the old style: a number that has its four bytes in memory order."""
    return int.from_bytes(ipaddress.IPv4Address(address).packed, sys.byteorder)


def refuse(name, text):
    raise dbus.DBusException(text, name=name)


def run(item, steps, slot="script"):
    """Carries out a generator in the place of what the item was doing; each `yield ms` waits in the main loop."""
    setattr(item, slot, steps)

    def advance():
        if getattr(item, slot) is steps:
            wait = next(steps, None)
            if wait is not None:
                GLib.timeout_add(int(wait), advance)
            elif getattr(item, slot) is steps:  # not replaced by its own last step
                setattr(item, slot, None)
        return GLib.SOURCE_REMOVE
    GLib.timeout_add(0, advance)


@functools.cache
def _empty(interface):
    return {name: typed(signature) for name, signature in SIGNATURES[interface].items()}


class Item:
    """One object. `tables` has what the bus sees of it, further attributes what only the simulation knows."""

    def __init__(self, *interfaces, path="/", **hidden):
        self.path = path
        self.service = None  # while it is on the bus
        self.script = None
        self.tables = dict.fromkeys(interfaces)
        vars(self).update(hidden)
        self.begin()

    def begin(self, **values):
        """Gives properties these values, and all others empty ones; to be called while it is not on the bus."""
        for interface in self.tables:
            self.tables[interface] = dbus.Dictionary(_empty(interface), signature="sv")
        self.put(**values)
        return self

    def __getitem__(self, name):
        return next(table[name] for table in self.tables.values() if name in table)

    def put(self, always=False, **values):
        """Sets properties, on each interface that has them, and announces what has changed (or `always`)."""
        for interface, table in self.tables.items():
            names = [name for name in values if name in table]
            new = {name: typed(SIGNATURES[interface][name], values[name]) for name in names}
            changed = new if always else {name: value for name, value in new.items() if table[name] != value}
            table.update(changed)
            if changed:
                self.emit(PROPERTIES, "PropertiesChanged", "sa{sv}as", interface, changed, [])

    def emit(self, interface, name, signature="", *values):
        if self.service:
            self.service.emit(self.path, interface, name, signature, *values)


@dataclasses.dataclass
class Rule:
    """What is special about some calls; without error, delay and `then` they are never answered."""

    member: str  # interface.method, "*" for any part of it
    path: str = ""  # "" for any
    times: int = -1  # how many more calls, -1 for all
    args: tuple = ()  # what the arguments begin with
    error: tuple = None  # D-Bus error name, text
    delay_ms: int = None
    then: object = None  # is called when the answer is out

    def applies(self, member, path, args):
        fits = (self.times and self.path in ("", path) and fnmatch.fnmatchcase(member, self.member)
                and list(self.args) == args[:len(self.args)])
        self.times -= fits and self.times > 0
        return fits


METHODS = {}  # interface.method: function of item and arguments, interface that the item must have, in, out signature


def method(interface, takes="", gives=""):
    """Makes a function the D-Bus method of its name. A tuple that it returns is several values."""
    def mark(function):
        METHODS[f"{interface}.{function.__name__}"] = (function, interface in SIGNATURES and interface, takes, gives)
        return function
    return mark


class Service:
    """One service on the bus: a connection and a name of its own, objects, an object manager at `root`."""

    def __init__(self, name, base, root, first=0, log=None, rules=()):
        self.name, self.base, self.root = name, base, root
        self.first = first  # number of the first path of each kind
        self.log = collections.deque(maxlen=0) if log is None else log
        self.rules = rules
        self.connection = None
        self.objects = {}

    def start(self):
        self.connection = dbus.bus.BusConnection(world.address)
        self.connection.set_exit_on_disconnect(False)
        self.connection.add_message_filter(self._receive)
        for _ in range(DEPARTURE_S * 100):  # the bus may not have noticed yet that the last instance has left
            if self.connection.request_name(self.name, dbus.bus.NAME_FLAG_DO_NOT_QUEUE) == \
                    dbus.bus.REQUEST_NAME_REPLY_PRIMARY_OWNER:
                break
            time.sleep(0.01)
        else:
            sys.exit(f"sim: the name {self.name} is taken on this bus")
        self.numbers = collections.defaultdict(lambda: self.first)
        self.objects = {self.root.path: self.root}
        self.root.service = self

    def stop(self):
        """Leaves the bus as a dying process does: callers that still wait get NoReply from the bus."""
        for item in self.objects.values():
            item.service = None
        self.objects = {}
        self.connection.close()
        self.connection = None

    def show(self, item, kind=""):
        """Puts an object on the bus, with the next path of its kind; without kind it has one."""
        if kind:
            item.path = f"{self.base}/{kind}/{self.numbers[kind]}"
            self.numbers[kind] += 1
        self.objects[item.path] = item
        item.service = self
        self.emit(self.root.path, OBJECT_MANAGER, "InterfacesAdded", "oa{sa{sv}}", item.path, item.tables)
        return item

    def hide(self, item):
        if item and self.objects.pop(item.path, None):
            self.emit(self.root.path, OBJECT_MANAGER, "InterfacesRemoved", "oas", item.path, list(item.tables))
            item.service = None

    def emit(self, path, interface, name, signature, *values):
        message = dbus.lowlevel.SignalMessage(path, interface, name)
        if signature:
            message.append(signature=signature, *values)
        self.connection.send_message(message)

    def _receive(self, connection, message):
        if message.get_type() != dbus.lowlevel.MESSAGE_TYPE_METHOD_CALL:
            return dbus.lowlevel.HANDLER_RESULT_NOT_YET_HANDLED
        call = (f"{message.get_interface()}.{message.get_member()}", message.get_path(),
                message.get_args_list(byte_arrays=True))
        self.log.append(call)
        rule = next((rule for rule in self.rules if rule.applies(*call)), None) if self.rules else None
        if not rule or rule.error or rule.then:
            self._answer(connection, message, call, rule)
        elif rule.delay_ms is not None:
            GLib.timeout_add(rule.delay_ms, self._answer, connection, message, call, rule)
        return dbus.lowlevel.HANDLER_RESULT_HANDLED

    def _answer(self, connection, message, call, rule):
        if rule and not connection.get_is_connected():  # the call has waited for it
            return GLib.SOURCE_REMOVE
        try:
            if rule and rule.error:
                refuse(*rule.error)
            reply = self._carry_out(message, *call)
        except dbus.DBusException as error:
            reply = dbus.lowlevel.ErrorMessage(message, error.get_dbus_name(), error.get_dbus_message())
        except Exception:  # a fault of the simulation itself must be seen, and must not stop it
            traceback.print_exc()
            reply = dbus.lowlevel.ErrorMessage(message, ERROR + "Failed", traceback.format_exc(limit=-1))
        if not message.get_no_reply():
            connection.send_message(reply)
        if rule and rule.then:
            rule.then()
        return GLib.SOURCE_REMOVE

    def _carry_out(self, message, member, path, args):
        item = self.objects.get(path)
        if item is None:
            refuse(ERROR + "UnknownMethod", f"Object does not exist at path “{path}”")
        function, owner, takes, gives = METHODS.get(member, (None, None, "", ""))
        if not function or owner and owner not in item.tables:
            refuse(ERROR + "UnknownMethod", f"No such method “{member}”")
        if message.get_signature() != takes:
            refuse(ERROR + "InvalidArgs", f"Type of message, “({message.get_signature()})”, does not match expected "
                                          f"type “({takes})”")
        result = function(item, *args)
        reply = dbus.lowlevel.MethodReturnMessage(message)
        if gives:
            reply.append(signature=gives, *(result if type(result) is tuple else (result,)))
        return reply


@method(PROPERTIES, "s", "a{sv}")
def GetAll(item, interface):
    if interface not in item.tables:
        refuse(ERROR + "InvalidArgs", f"No such interface “{interface}”")
    return item.tables[interface]


@method(PROPERTIES, "ss", "v")
def Get(item, interface, name):
    if name not in GetAll(item, interface):
        refuse(ERROR + "InvalidArgs", f"No such property “{name}”")
    return item.tables[interface][name]


@method(OBJECT_MANAGER, "", "a{oa{sa{sv}}}")
def GetManagedObjects(item):
    return {path: other.tables for path, other in item.service.objects.items() if other is not item}


@method(INTROSPECTABLE, "", "s")
def Introspect(item):
    """The interfaces' names; ModemManager's clients look for nothing else."""
    return "<node>" + "".join(f'<interface name="{interface}"/>' for interface in item.tables) + "</node>"
