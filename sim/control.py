# SPDX-License-Identifier: MIT
"""How tests and the demo steer the simulated gateway: every function here is a method of client.Sim of its name.

A device is named by interface or path; "" means the first wifi device or modem. A profile is named by name, UUID or
path, an access point by SSID (all that have it), BSSID or path. What does not exist is the error lanvoy.Sim.NotFound.
"""
import inspect
import json
import uuid

from gi.repository import GLib

from . import device as _dev
from . import libnm as _libnm
from . import manager as _manager
from . import modem as _modem
from . import settings as _settings
from . import wifi as _wifi
from . import world as _world
from .interfaces import CONTROL
from .table import Item, Rule, Service, method, refuse, world


def _found(items, what, key):
    items = list(items)
    return items or refuse(CONTROL + ".NotFound", f"no {what} {key}")


def _device(key, word=""):
    named = (d for d in world.devices if key in (d.interface, d.path) or not key and d.word == word)
    return _found((d for d in named if word in ("", d.word)), word or "device", key)[0]


def _profile(key):
    return _found((p for p in world.profiles if key in (
        p.connection.get_id(), p.connection.get_uuid(), p.path)), "profile", key)[0]


def _points(device, key):
    return _found((p for p in device.points if key in (p.path, p["HwAddress"]) or key.encode() == p["Ssid"]),
                  "access point", key)


# the world

def reset():
    """Both services restart with the default world; options, rules and log are as at the start."""
    _world.stop()
    _world.fill(world.address)
    _world.start()


def set_options(**options):
    """See OPTIONS in world.py."""
    for name in options:
        _found((o for o in world.options if o == name), "option", name)
    world.options.update(options)


def start(service):
    """ "nm" or "mm" comes back, with paths numbered anew."""
    {"nm": _world.start_nm, "mm": _world.start_mm}[service]()


def stop(service):
    """ "nm" or "mm" leaves the bus as a dying process does."""
    {"nm": _world.stop_nm, "mm": _world.stop_mm}[service]()


def restart(service, gap_ms=0):
    stop(service)
    GLib.timeout_add(gap_ms, start, service)


def set_hostname(hostname):
    world.hostname = hostname
    world.settings.put(Hostname=hostname)


def _hold(name, value, nothing):
    world.held.pop(name, None)
    if value != nothing:
        world.held[name] = value
    _manager.refresh_primary()
    _manager.refresh_connectivity()


def set_status(state=-1):
    """Holds NetworkManager's overall state (10..70); -1 gives it back to the simulation."""
    _hold("State", state, -1)


def set_connectivity(value=-1):
    _hold("Connectivity", value, -1)


def set_primary_connection(path=""):
    _hold("PrimaryConnection", path, "")


def set_property(path, interface, name, value):
    """Any property of any object, announced."""
    items = [service.objects.get(path) for service in (world.nm, world.mm)]
    item = _found((i for i in items if i and name in i.tables.get(interface, ())), "property", f"{interface}.{name}")[0]
    item.put(**{name: value})


# devices

def add_device(kind, **options):
    """wired (carrier), wifi, bridge (all: interface, mac, address, metric) or modem (see modem.plug); its path."""
    interface = options.get("control_port", "cdc-wdm0") if kind == "modem" else options["interface"]
    if any(d.interface == interface for d in world.devices):  # the kernel has each name once
        refuse(CONTROL + ".Exists", f"there is a device {interface}")
    plug = _modem.plug if kind == "modem" else lambda **o: _dev.plug(kind, **o)
    return plug(**options).path


def remove_device(device):
    found = _device(device)
    (_modem if found.word == "modem" else _dev).unplug(found)


def devices():
    """List of {"interface", "kind", "path", "state", "managed", "profile", "active" (its path)}."""
    return [{"interface": d.interface, "kind": d.word, "path": d.path, "state": d["State"] if d.service else 0,
             "managed": d.managed, "profile": d.active.profile.connection.get_id() if d.active else None,
             "active": d.active.path if d.active else None} for d in world.devices]


def device(interface):
    return next(d for d in devices() if d["interface"] == interface)


def set_carrier(device, carrier):
    _dev.set_carrier(_device(device, "wired"), carrier)


def set_managed(device, managed):
    _dev.set_managed(_device(device), managed)


def rename_device(device, interface):
    found = _device(device)
    found.interface = interface
    found.put(Interface=interface, **({"IpInterface": interface} if found["IpInterface"] else {}))
    _dev.refresh_available()


def set_device_state(device, state, reason=0):
    """Just the state and its signals."""
    found = _device(device)
    found.script = None
    _dev.change_state(found, state, reason)


def fail_device(device, reason):
    """Through the usual states, as are the next two."""
    _dev.fail(_device(device), reason)


def disconnect(device):
    """As "nmcli device disconnect": it does not connect by itself afterwards."""
    found = _device(device)
    if not found.active:
        refuse(_dev.DEVICE + ".NotActive", "This device is not active")
    found.put(Autoconnect=False)
    _dev.deactivate(found, _dev.USER_REQUESTED)


def activate(profile, device=""):
    """Returns the path of the active connection."""
    found = _profile(profile)
    target = _device(device) if device else next(d for d in world.devices if not _dev.obstacle(d, found))
    return _settings.ActivateConnection(world.manager, found.path, target.path, "/")


def lease(device, address):
    """Another lease (CIDR form). A connected device gets it at once, its IP4Config stays the same object."""
    _device(device).lease = address
    reapply(device)


def reapply(device):
    """As "nmcli device reapply": a connected device takes on the addresses of its profile as that is now."""
    _dev.change_address(_device(device))


# wifi

def add_access_point(device="", on_scan=False, **options):
    """Options of wifi.access_point; `on_scan`: only the next scan finds it. Returns its path."""
    return _add_points(device, on_scan, [_wifi.access_point(**options)])


def add_access_points(count, networks, device="", on_scan=False, **options):
    """Many at once, spread over that many SSIDs "Net-0000", ..."""
    _add_points(device, on_scan, [_wifi.access_point(**{
        "ssid": f"Net-{i % networks:04d}", "strength": 20 + i * 7 % 80, "security": "wpa2", **options})
        for i in range(count)])


def _add_points(device, on_scan, points):
    wifi = _device(device, "wifi")
    if on_scan:
        wifi.unseen.extend(points)
    else:
        _wifi.add_points(wifi, points)
    return points[0].path


def set_strength(key, percent, device=""):
    for point in _points(_device(device, "wifi"), key):
        point.put(Strength=percent)


def strength_burst(rounds=1, device=""):
    """Every access point changes its strength that many times, at once."""
    for turn in range(rounds):
        for number, point in enumerate(_device(device, "wifi").points):
            point.put(Strength=(number * 13 + turn * 29) % 101)


def remove_access_point(key, device=""):
    wifi = _device(device, "wifi")
    _wifi.remove_points(wifi, _points(wifi, key))


def clear_access_points(device=""):
    wifi = _device(device, "wifi")
    _wifi.remove_points(wifi, wifi.points)


def access_points(device=""):
    return [{"path": p.path, "ssid": p["Ssid"].decode(errors="replace"), "bssid": p["HwAddress"],
             "strength": p["Strength"]} for p in _device(device, "wifi").points]


def roam(key, device=""):
    """A connected wifi device moves on to another access point of its network."""
    wifi = _device(device, "wifi")
    _wifi.use_point(wifi, _points(wifi, key)[0])


# profiles, also as somebody else would change them

def add_profile(settings):
    """{group: {key: value}}, secrets included; types are filled in. Returns its path."""
    settings = {**settings, "connection": {"uuid": str(uuid.uuid4()), **settings["connection"]}}
    return _settings.store(_settings.new(_libnm.from_plain(settings))).path


def modify_profile(key, settings):
    found = _profile(key)
    merged = {group: dict(keys) for group, keys in found.settings.items()}
    for group, keys in _libnm.from_plain(settings).items():
        merged.setdefault(group, {}).update(keys)
    _settings.Update(found, merged)


def remove_profile(key):
    _settings.remove(_profile(key))


def profile(key):
    """Settings of a profile, secrets included."""
    found = _profile(key)
    return {group: {**keys, **found.secrets.get(group, {})} for group, keys in found.settings.items()}


def profiles():
    return [{"name": p.connection.get_id(), "uuid": p.connection.get_uuid(), "path": p.path,
             "type": p.connection.get_connection_type()} for p in world.profiles]


# modem

def _put_modem(device, **values):
    _device(device, "modem").modem.put(**values)


def hang_up(device=""):
    """The modem loses its data connection."""
    found = _device(device, "modem")
    if found.active:
        _modem.set_data(found.modem, False)
        _dev.fail(found, _modem.NO_CARRIER)


def refuse_modem(reason, device=""):
    """The next connections fail with this device state reason; 0 ends that."""
    _device(device, "modem").modem.refusal = reason


def set_signal(percent, device=""):
    _put_modem(device, SignalQuality=(percent, True))


def set_access_technologies(technologies, device=""):
    """A list of words such as "lte", or the number."""
    _put_modem(device, AccessTechnologies=_modem.technology_bits(technologies))


def set_operator(code, name, device=""):
    """The modem registers with another operator."""
    _put_modem(device, OperatorCode=code, OperatorName=name)


def set_data_interface(interface, device=""):
    """The interface of the bearer, whose byte counters are read."""
    found = _device(device, "modem").modem
    found.data_interface = interface
    if found.bearer and found.bearer["Connected"]:
        found.bearer.put(Interface=interface)


# faults: member is interface.method ("*" for any part), path "" for any, times -1 for ever

def fail_method(member, error, text, path="", times=1):
    world.rules.append(Rule(member, path, times, error=(error, text)))


def delay_method(member, delay_ms, path="", times=-1):
    """It is carried out and answered that much later; nothing else waits."""
    world.rules.append(Rule(member, path, times, delay_ms=delay_ms))


def drop_method(member, path="", times=-1):
    """It is never answered."""
    world.rules.append(Rule(member, path, times))


def after_method(member, args, function, *values, path="", times=1):
    """When a call whose arguments begin with `args` has been answered, a function of this file is called."""
    world.rules.append(Rule(member, path, times, tuple(args), then=lambda: globals()[function](*values)))


def clear_faults():
    world.rules.clear()


# the log of calls received by both services

def calls(prefix=""):
    """List of {"member", "path", "args"} of calls whose interface.method starts with prefix."""
    return [{"member": member, "path": path, "args": args} for member, path, args in world.log
            if member.startswith(prefix)]


def count_calls(member, path=""):
    return sum(member == name and path in ("", where) for name, where, _ in world.log)


def reset_calls():
    world.log.clear()


FUNCTIONS = {name: function for name, function in list(globals().items())
             if inspect.isfunction(function) and function.__module__ == __name__ and not name.startswith("_")}


def _plain(value):
    """For JSON: bytes become text if they are ASCII, else a list of numbers."""
    if isinstance(value, bytes):
        return value.decode() if value.isascii() else list(value)
    if isinstance(value, dict):
        return {str(key): _plain(item) for key, item in value.items()}
    return [_plain(item) for item in value] if isinstance(value, (list, tuple)) else value


@method(CONTROL, "ss", "s")
def Call(_item, name, arguments):
    args, named = json.loads(arguments)
    function = _found((f for n, f in FUNCTIONS.items() if n == name), "function", name)[0]
    return json.dumps(_plain(function(*args, **named)))


def serve():
    """Puts the control object on the bus."""
    service = Service("lanvoy.sim", "", Item(CONTROL, path="/lanvoy/sim"))
    service.start()
    return service
