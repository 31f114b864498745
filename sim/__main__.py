"""Command line of the simulated gateway."""
import argparse
import os
import signal
import sys

from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib

from . import control, demo, table, world


def main():
    parser = argparse.ArgumentParser(prog="python3 -m sim", description="Simulated NetworkManager and ModemManager; "
                                     "on the bus of "
                                     "DBUS_SYSTEM_BUS_ADDRESS; prints \"ready\" when everything is up.")
    parser.add_argument("--demo", action="store_true", help="let things change by themselves")
    parser.add_argument("--demo-interval", type=float, default=4.0, metavar="S", help="seconds between changes")
    parser.add_argument("--data-interface", default=None, metavar="IFACE",
                        help="interface name of the modem's bearer, whose byte counters a client reads")
    options = parser.parse_args()
    if "DBUS_SYSTEM_BUS_ADDRESS" not in os.environ:  # never the real system bus
        parser.error("no bus: set DBUS_SYSTEM_BUS_ADDRESS")

    DBusGMainLoop(set_as_default=True)
    loop = GLib.MainLoop()
    world.fill(os.environ["DBUS_SYSTEM_BUS_ADDRESS"])
    if options.data_interface:
        control.set_data_interface(options.data_interface)
    world.start()
    control.serve().connection.call_on_disconnection(lambda _: loop.quit())
    if options.demo:
        table.run(table.world, demo.course(options.demo_interval * 1000))
    for number in (signal.SIGINT, signal.SIGTERM):
        GLib.unix_signal_add(GLib.PRIORITY_HIGH, number, loop.quit)
    print("ready", flush=True)
    loop.run()
    world.stop()
    return 0


if __name__ == "__main__":
    sys.exit(main())
