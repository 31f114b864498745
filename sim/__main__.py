"""Command line of the simulated gateway."""
import argparse
import os
import signal
import sys

from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib

from .control import serve
from .demo import Demo
from .world import World


def main():
    parser = argparse.ArgumentParser(prog="python3 -m sim", description="Simulated NetworkManager and ModemManager.")
    parser.add_argument("--address", default=os.environ.get("DBUS_SYSTEM_BUS_ADDRESS"),
                        help="bus address (default: DBUS_SYSTEM_BUS_ADDRESS); never the real system bus")
    parser.add_argument("--empty", action="store_true", help="start with the loopback device only")
    parser.add_argument("--demo", action="store_true", help="let things change by themselves")
    parser.add_argument("--demo-interval", type=float, default=4.0, metavar="S", help="seconds between changes")
    parser.add_argument("--seed", type=int, default=None, help="seed of the demo, for the same course each time")
    parser.add_argument("--data-interface", default=None, metavar="IFACE",
                        help="interface name of the modem's bearer, whose byte counters a client reads")
    parser.add_argument("--ready-fd", type=int, default=None, metavar="N",
                        help="file descriptor that gets a line when everything is up (else: \"ready\" on stdout)")
    options = parser.parse_args()
    if not options.address:
        parser.error("no bus: give --address or set DBUS_SYSTEM_BUS_ADDRESS")

    DBusGMainLoop(set_as_default=True)
    loop = GLib.MainLoop()
    world = World(options.address)
    world.build(options.empty)
    if options.data_interface:
        for modem in world.mm.modems:
            modem.set_data_interface(options.data_interface)
    world.start()
    control = serve(world)
    control.connection.call_on_disconnection(lambda _: loop.quit())
    demo = Demo(world, options.demo_interval, options.seed) if options.demo else None

    for number in (signal.SIGINT, signal.SIGTERM):
        GLib.unix_signal_add(GLib.PRIORITY_HIGH, number, loop.quit)
    if options.ready_fd is None:
        print("ready", flush=True)
    else:
        with os.fdopen(options.ready_fd, "w") as ready:
            ready.write("ready\n")
    loop.run()
    if demo:
        demo.stop()
    world.stop()
    return 0


if __name__ == "__main__":
    sys.exit(main())
