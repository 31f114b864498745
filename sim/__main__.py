# SPDX-License-Identifier: MIT
"""Runs the simulated NetworkManager and ModemManager on the bus of DBUS_SYSTEM_BUS_ADDRESS.

    python3 -m sim [--demo]      prints "ready" when everything is up; --demo: things change by themselves
"""
import os
import signal
import sys

from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib

from . import control, demo, table, world


def main():
    if sys.argv[1:] not in ([], ["--demo"]) or "DBUS_SYSTEM_BUS_ADDRESS" not in os.environ:
        sys.exit(__doc__)  # it is never to run on the real system bus
    DBusGMainLoop(set_as_default=True)
    loop = GLib.MainLoop()
    world.fill(os.environ["DBUS_SYSTEM_BUS_ADDRESS"])
    world.start()
    control.serve().connection.call_on_disconnection(lambda _: loop.quit())
    if sys.argv[1:]:
        table.run(table.world, demo.course())
    for number in (signal.SIGINT, signal.SIGTERM):
        GLib.unix_signal_add(GLib.PRIORITY_HIGH, number, loop.quit)
    print("ready", flush=True)
    loop.run()
    world.stop()


if __name__ == "__main__":
    main()
