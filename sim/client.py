# SPDX-License-Identifier: MIT
"""Client of the control interface, for tests and for the command line.

    python3 -m sim.client                       lists the functions
    python3 -m sim.client set_carrier eth0 false
    python3 -m sim.client add_access_point ssid=Guests security=wpa2
"""
import json
import os
import sys

import dbus.bus


class Sim:
    """The simulated gateway on a bus; the functions of control.py are its methods."""

    def __init__(self, address=None):
        self.connection = dbus.bus.BusConnection(address or os.environ["DBUS_SYSTEM_BUS_ADDRESS"])
        self.close = self.connection.close

    def __getattr__(self, name):
        def call(*args, **named):
            return json.loads(self.connection.call_blocking(
                "lanvoy.sim", "/lanvoy/sim", "lanvoy.Sim", "Call", "ss", (name, json.dumps([args, named])), timeout=60))
        return call


def _value(text):
    try:
        return json.loads(text)
    except ValueError:
        return text


def main(name="", *words):
    if not name:
        from .control import FUNCTIONS, inspect
        return __doc__ + "\n" + "\n".join(
            f"{n}{inspect.signature(f)}" + f"\n    {f.__doc__.strip()}" * bool(f.__doc__) for n, f in FUNCTIONS.items())
    named = dict(word.split("=", 1) for word in words if word.partition("=")[0].isidentifier() and "=" in word)
    args = [_value(word) for word in words if word.partition("=")[0] not in named]
    result = getattr(Sim(), name)(*args, **{key: _value(text) for key, text in named.items()})
    return json.dumps(result, indent=2, ensure_ascii=False)


if __name__ == "__main__":
    print(main(*sys.argv[1:]))
