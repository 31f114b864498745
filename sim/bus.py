"""D-Bus plumbing: objects with typed properties, method dispatch, object managers.

Messages are handled at the level of the wire (one filter per connection), not through
dbus-python's exported objects: every call passes one place, where it is logged and where it
can be refused, delayed or dropped on request (see calls.py). Types are always explicit.
"""
import sys
import traceback

import dbus
import dbus.bus
import dbus.lowlevel
from gi.repository import GLib

PROPERTIES = "org.freedesktop.DBus.Properties"
INTROSPECTABLE = "org.freedesktop.DBus.Introspectable"
OBJECT_MANAGER = "org.freedesktop.DBus.ObjectManager"
PEER = "org.freedesktop.DBus.Peer"

_ERROR = "org.freedesktop.DBus.Error."

_BASIC = {
    "y": dbus.Byte, "b": dbus.Boolean, "n": dbus.Int16, "q": dbus.UInt16, "i": dbus.Int32, "u": dbus.UInt32,
    "x": dbus.Int64, "t": dbus.UInt64, "d": dbus.Double, "s": dbus.String, "o": dbus.ObjectPath, "g": dbus.Signature,
}


def typed(signature, value):
    """Returns value as the dbus-python type of one complete D-Bus type; members of variants must be typed already."""
    kind = signature[0]
    if kind == "v":
        return value
    if kind in _BASIC:
        return _BASIC[kind](value)
    if kind == "(":
        members = dbus.Signature(signature[1:-1])
        return dbus.Struct([typed(s, v) for s, v in zip(members, value)], signature=members)
    if signature == "ay":
        return dbus.ByteArray(bytes(value))
    if signature[1] == "{":
        inner = dbus.Signature(signature[2:-1])
        key, item = list(inner)
        return dbus.Dictionary({typed(key, k): typed(item, v) for k, v in value.items()}, signature=inner)
    return dbus.Array([typed(signature[1:], v) for v in value], signature=signature[1:])


class DBusError(Exception):
    """An error reply: D-Bus error name and text."""

    def __init__(self, name, text):
        super().__init__(text)
        self.name = name
        self.text = text


def method(interface, in_signature="", out_signature=""):
    """Marks a member function of a BusObject as the D-Bus method of the same name.

    Whatever the function returns is the reply: None, one value, or a tuple when out_signature has several types.
    """
    def mark(function):
        function.dbus = (interface, in_signature, out_signature)
        return function
    return mark


class BusObject:
    """One object on the bus.

    `properties` holds {interface: {name: signature}} per class, `signals` {interface: {name: signature}} and
    `writable` the names that Properties.Set may change (it then calls `on_set`); subclasses inherit all three.
    """

    properties = {}
    signals = {}
    writable = ()

    def __init_subclass__(cls, **kwargs):
        super().__init_subclass__(**kwargs)
        for table in ("properties", "signals"):
            merged = {}
            for base in reversed(cls.__mro__):
                merged.update(base.__dict__.get(table, {}))
            setattr(cls, table, merged)
        cls.interface_of = {n: i for i, names in cls.properties.items() for n in names}
        cls.methods = {}
        for name in dir(cls):
            mark = getattr(getattr(cls, name), "dbus", None)
            if mark:
                several = len(list(dbus.Signature(mark[2]))) > 1
                cls.methods[(mark[0], name)] = (name, mark[1], mark[2], several)

    def __init__(self, path):
        self.path = path
        self.bus = None  # set while the object is exported
        self.values = {i: dbus.Dictionary({}, signature="sv") for i in self.properties}

    def init(self, interface=None, **values):
        """Sets properties without a signal; `interface` is needed only for a name that several interfaces have."""
        for name, value in values.items():
            owner = interface or self.interface_of[name]
            self.values[owner][name] = typed(self.properties[owner][name], value)

    def get(self, name, interface=None):
        return self.values[interface or self.interface_of[name]][name]

    def set(self, interface=None, **values):
        """Sets properties; those that changed are announced in one PropertiesChanged per interface."""
        changed = {}
        for name, value in values.items():
            owner = interface or self.interface_of[name]
            new = typed(self.properties[owner][name], value)
            if name not in self.values[owner] or self.values[owner][name] != new:
                self.values[owner][name] = new
                changed.setdefault(owner, {})[name] = new
        for owner, part in changed.items():
            self.announce(owner, part)

    def touch(self, *names):
        """Announces properties that did not change, as the real services do at some places."""
        for name in names:
            owner = self.interface_of[name]
            self.announce(owner, {name: self.values[owner][name]})

    def announce(self, interface, values):
        self.emit(PROPERTIES, "PropertiesChanged", "sa{sv}as", interface, values, [])

    def emit(self, interface, name, signature="", *args):
        if self.bus:
            self.bus.emit(self.path, interface, name, signature, *args)

    def on_set(self, name, value):
        """Called for Properties.Set of a writable property."""

    def introspection(self):
        xml = []
        for interface, names in self.properties.items():
            xml.append(f'<interface name="{interface}">')
            xml += [f'<property name="{n}" type="{s}" access="{"readwrite" if n in self.writable else "read"}"/>'
                    for n, s in names.items()]
            for (owner, _), (name, ins, outs, _) in self.methods.items():
                if owner == interface:
                    args = [(s, "in") for s in dbus.Signature(ins)] + [(s, "out") for s in dbus.Signature(outs)]
                    xml.append(f'<method name="{name}">' +
                               "".join(f'<arg type="{s}" direction="{d}"/>' for s, d in args) + "</method>")
            for name, signature in self.signals.get(interface, {}).items():
                xml.append(f'<signal name="{name}">' +
                           "".join(f'<arg type="{s}"/>' for s in dbus.Signature(signature)) + "</signal>")
            xml.append("</interface>")
        return "".join(xml)


_STANDARD_XML = "".join(
    f'<interface name="{i}">{body}</interface>' for i, body in {
        PROPERTIES: '<method name="Get"><arg type="s" direction="in"/><arg type="s" direction="in"/>'
                    '<arg type="v" direction="out"/></method>'
                    '<method name="GetAll"><arg type="s" direction="in"/><arg type="a{sv}" direction="out"/></method>'
                    '<method name="Set"><arg type="s" direction="in"/><arg type="s" direction="in"/>'
                    '<arg type="v" direction="in"/></method>'
                    '<signal name="PropertiesChanged"><arg type="s"/><arg type="a{sv}"/><arg type="as"/></signal>',
        INTROSPECTABLE: '<method name="Introspect"><arg type="s" direction="out"/></method>',
        PEER: '<method name="Ping"/>',
    }.items())


class Bus:
    """One service on the bus: a connection of its own, a well-known name, objects, and an object manager."""

    def __init__(self, address, name, manager_path, calls):
        """
        address       bus address
        name          well-known name the service takes
        manager_path  path of the ObjectManager, or None
        calls         calls.Calls, told of every method call
        """
        self.name = name
        self.manager_path = manager_path
        self.calls = calls
        self.objects = {}
        self.connection = dbus.bus.BusConnection(address)
        self.connection.set_exit_on_disconnect(False)
        self.connection.add_message_filter(self._filter)

    def take_name(self):
        if self.connection.request_name(self.name, dbus.bus.NAME_FLAG_DO_NOT_QUEUE) != \
                dbus.bus.REQUEST_NAME_REPLY_PRIMARY_OWNER:
            sys.exit(f"sim: the name {self.name} is taken on this bus")

    def close(self):
        """Leaves the bus as a dying process does: callers that still wait get NoReply from the bus."""
        for item in self.objects.values():
            item.bus = None
        self.objects = {}
        self.connection.close()

    def export(self, *items):
        for item in items:
            self.objects[item.path] = item
            item.bus = self
            if self.manager_path:
                self.emit(self.manager_path, OBJECT_MANAGER, "InterfacesAdded", "oa{sa{sv}}", item.path, item.values)

    def unexport(self, item):
        if self.objects.pop(item.path, None) and self.manager_path:
            self.emit(self.manager_path, OBJECT_MANAGER, "InterfacesRemoved", "oas", item.path, list(item.values))
        item.bus = None

    def emit(self, path, interface, name, signature, *args):
        message = dbus.lowlevel.SignalMessage(path, interface, name)
        if signature:
            message.append(signature=signature, *args)
        self.connection.send_message(message)

    # incoming calls

    def _filter(self, _connection, message):
        if message.get_type() != dbus.lowlevel.MESSAGE_TYPE_METHOD_CALL:
            return dbus.lowlevel.HANDLER_RESULT_NOT_YET_HANDLED
        try:
            self._receive(message)
        except Exception:  # a fault of the simulation itself must be seen, and must not stop it
            traceback.print_exc()
            self._reply_error(message, DBusError(_ERROR + "Failed", traceback.format_exc(limit=-1)))
        return dbus.lowlevel.HANDLER_RESULT_HANDLED

    def _receive(self, message):
        args = message.get_args_list(byte_arrays=True)
        rule = self.calls.received(message.get_interface() or "", message.get_member(), message.get_path(), args)
        if rule is None:
            self._answer(message, args)
        elif rule.error:
            self._reply_error(message, DBusError(*rule.error))
        elif rule.delay_ms is not None:
            GLib.timeout_add(rule.delay_ms, self._answer_later, message, args)

    def _answer_later(self, message, args):
        if self.connection.get_is_connected():
            self._answer(message, args)
        return GLib.SOURCE_REMOVE

    def _answer(self, message, args):
        try:
            signature, values = self._call(message, args)
        except DBusError as error:
            self._reply_error(message, error)
            return
        if not message.get_no_reply():
            reply = dbus.lowlevel.MethodReturnMessage(message)
            if signature:
                reply.append(signature=signature, *values)
            self.connection.send_message(reply)

    def _reply_error(self, message, error):
        if not message.get_no_reply():
            self.connection.send_message(dbus.lowlevel.ErrorMessage(message, error.name, error.text))

    def _call(self, message, args):
        """Carries out one call; returns the signature and the values of the reply."""
        path, interface, member = message.get_path(), message.get_interface(), message.get_member()
        if interface == INTROSPECTABLE and member == "Introspect":
            return "s", (self._introspect(path),)
        if interface == PEER:
            return "", ()
        if interface == OBJECT_MANAGER and path == self.manager_path:
            return "a{oa{sa{sv}}}", (self.managed_objects(),)
        target = self.objects.get(path)
        if target is None:
            raise DBusError(_ERROR + "UnknownMethod", f"Object does not exist at path “{path}”")
        if interface == PROPERTIES:
            return self._property_call(target, member, args)
        entry = target.methods.get((interface, member))
        if entry is None:
            known = interface in target.values or any(i == interface for i, _ in target.methods)
            what = f"method “{member}”" if known else f"interface “{interface}” on object at path {path}"
            raise DBusError(_ERROR + "UnknownMethod", f"No such {what}")
        name, in_signature, out_signature, several = entry
        if message.get_signature() != in_signature:
            raise DBusError(_ERROR + "InvalidArgs", f"Type of message, “({message.get_signature()})”, does not "
                                                    f"match expected type “({in_signature})”")
        result = getattr(target, name)(*args)
        if not out_signature:
            return "", ()
        return out_signature, result if several else (result,)

    def _property_call(self, target, member, args):
        if not args or args[0] not in target.values:
            raise DBusError(_ERROR + "InvalidArgs", f"No such interface “{args[0] if args else ''}”")
        values = target.values[args[0]]
        if member == "GetAll":
            return "a{sv}", (values,)
        if args[1] not in values:
            raise DBusError(_ERROR + "InvalidArgs", f"No such property “{args[1]}”")
        if member == "Get":
            return "v", (values[args[1]],)
        if args[1] not in target.writable:
            raise DBusError(_ERROR + "InvalidArgs", f"Property “{args[1]}” is not writable")
        target.on_set(args[1], args[2])
        return "", ()

    def managed_objects(self):
        return {path: item.values for path, item in self.objects.items() if path != self.manager_path}

    def _introspect(self, path):
        prefix = path.rstrip("/") + "/"
        children = sorted({p[len(prefix):].split("/")[0] for p in self.objects if p.startswith(prefix)})
        item = self.objects.get(path)
        manager = f'<interface name="{OBJECT_MANAGER}"/>' if path == self.manager_path else ""
        return ("<node>" + (_STANDARD_XML + item.introspection() if item else "") + manager +
                "".join(f'<node name="{c}"/>' for c in children) + "</node>")
