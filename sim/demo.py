# SPDX-License-Identifier: MIT
"""Demo mode: every few seconds something in the simulated gateway changes by itself."""
import itertools
import random

from . import control
from .table import world


INTERVAL_MS = 4000


def course():
    """To be run by table.run."""
    for turn in itertools.count(1):
        yield INTERVAL_MS
        if turn % 12 in (5, 7):
            control.set_carrier("eth0", turn % 12 == 7)
        else:
            random.choice((wander, wander, modem_signal, visitor, technology))()


def _drift(percent, most):
    return min(100, max(5, percent + random.randint(-most, most)))


def wander():
    """Signal strengths drift."""
    for point in control.access_points():
        control.set_strength(point["path"], _drift(point["strength"], 6))


def visitor():
    """A phone's hotspot appears, or leaves again."""
    name = "Visitor's phone"
    if any(point["ssid"] == name for point in control.access_points()):
        control.remove_access_point(name)
    else:
        control.add_access_point(ssid=name, security="wpa2", strength=random.randint(30, 90))


def modem_signal():
    control.set_signal(_drift(world.modems[0]["SignalQuality"][0], 12))


def technology():
    control.set_access_technologies(random.choice((["lte"], ["umts", "hspa-plus"], ["gsm", "edge"])))
