# SPDX-License-Identifier: MIT
"""A private message bus with an open policy and the limits of the system bus.

    python3 -m sim.private_bus COMMAND [ARG...]    runs COMMAND with DBUS_SYSTEM_BUS_ADDRESS set to such a bus
"""
import os
import pathlib
import subprocess
import sys
import tempfile

# Only the session bus's configuration file raises the limits; the built-in ones are those of the system bus
# (512 match rules per connection, among others), and a service for the system bus has to live with them.
CONFIG = """<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-BUS Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig><listen>unix:path=%s</listen><auth>EXTERNAL</auth><policy context="default">
  <allow user="*"/><allow own="*"/><allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/>
</policy></busconfig>
"""


class PrivateBus:
    """Starts a dbus-daemon in a folder of its own; `address` is its address. Use as a context manager or stop()."""

    def __init__(self):
        self._folder = tempfile.TemporaryDirectory(prefix="lanvoy-bus-")
        folder = pathlib.Path(self._folder.name)
        (folder / "bus.conf").write_text(CONFIG % (folder / "socket"))
        self.address = f"unix:path={folder / 'socket'}"
        self.process = subprocess.Popen(
            ["dbus-daemon", f"--config-file={folder / 'bus.conf'}", "--nofork", "--nopidfile", "--print-address"],
            stdout=subprocess.PIPE, stderr=(folder / "log").open("w"), text=True)
        if not self.process.stdout.readline():
            raise RuntimeError("dbus-daemon did not start: " + (folder / "log").read_text())

    def stop(self):
        self.process.terminate()
        self.process.wait()
        self._folder.cleanup()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.stop()


if __name__ == "__main__":
    with PrivateBus() as bus:
        sys.exit(subprocess.call(sys.argv[1:] or ["bash"], env={**os.environ, "DBUS_SYSTEM_BUS_ADDRESS": bus.address}))
