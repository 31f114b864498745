# SPDX-License-Identifier: MIT
"""NetworkManager's overall state: what follows from its devices and active connections."""
from .interfaces import NM
from .table import Item, world

ACTIVATING, ACTIVATED, DEACTIVATING, DEACTIVATED = 1, 2, 3, 4  # NMActiveConnectionState
DISCONNECTED, DISCONNECTING, CONNECTING, LOCAL, SITE, GLOBAL = 20, 30, 40, 50, 60, 70  # NMState
NO_CONNECTIVITY, FULL = 1, 4


def new():
    return Item(NM, path="/org/freedesktop/NetworkManager", actives=[], connectivity=NO_CONNECTIVITY)


def begin(manager):
    """The values of a daemon that has just started."""
    manager.actives = []  # newest first
    manager.connectivity = world.held.get("Connectivity", NO_CONNECTIVITY)
    manager.begin(**{"Version": "1.42.4", "State": DISCONNECTED, "Connectivity": NO_CONNECTIVITY, **world.held})


def _put(name, value):
    """Sets a value that may be held by hand."""
    manager, value = world.manager, world.held.get(name, value)
    changed = manager[name] != value
    manager.put(**{name: value})
    if changed and name == "State":
        manager.emit(NM, "StateChanged", "u", value)


def list_devices(signal, device):
    world.manager.emit(NM, signal, "o", device.path)
    world.manager.put(Devices=[d.path for d in world.devices if d.service])


def list_actives(always=False):
    world.manager.put(always, ActiveConnections=[active.path for active in world.manager.actives])


def can_be_default(active):
    """Whether it has a configuration with a gateway in force."""
    device = active.device
    return device.active is active and device.ip4 is not None and bool(device.ip4["Gateway"])


def refresh_state():
    """Works out State and ActivatingConnection from the active connections."""
    manager = world.manager
    counted = [a for a in manager.actives if a.begun and a.device.word != "loopback"]
    by_state = {state: [a for a in counted if a["State"] == state] for state in (ACTIVATING, ACTIVATED, DEACTIVATING)}
    activating, activated = by_state[ACTIVATING], by_state[ACTIVATED]
    if any(map(can_be_default, activated)) and not any(a["Default"] for a in activating):
        state = GLOBAL if manager.connectivity == FULL else SITE
    elif activating:
        state = CONNECTING
    elif activated:
        state = LOCAL
    else:
        state = DISCONNECTING if by_state[DEACTIVATING] else DISCONNECTED
    _put("State", state)
    manager.put(ActivatingConnection=activating[0].path if activating else "/")


def refresh_primary():
    """Picks the default connection: configured, with a gateway, lowest metric; of the same the older one."""
    actives = world.manager.actives
    usable = [a for a in reversed(actives) if can_be_default(a) and a["State"] in (ACTIVATING, ACTIVATED)]
    best = min(usable, key=lambda active: active.device.metric, default=None)
    for active in actives:
        if active is not best:
            active.put(Default=False)
    if best:
        best.put(Default=True)
    refresh_state()
    _put("PrimaryConnection", best.path if best else "/")
    world.manager.put(PrimaryConnectionType=best["Type"] if best else "")


def refresh_connectivity():
    """The state changes before the connectivity that it follows from is told."""
    manager = world.manager
    connected = any(a["State"] == ACTIVATED and a["Default"] for a in manager.actives)
    manager.connectivity = world.held.get("Connectivity", FULL if connected else NO_CONNECTIVITY)
    refresh_state()
    manager.put(Connectivity=manager.connectivity)
