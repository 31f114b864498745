"""Runs a program against the installed NetworkManager, in network and mount namespaces of its own.

    python3 real_networkmanager.py PROGRAM [ARG...]      status 77 where namespaces are not available
"""
import ctypes
import os
import pathlib
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2]))
from sim.private_bus import PrivateBus  # noqa: E402
from sim.stack import end  # noqa: E402

CLONE_NEWNS, CLONE_NEWNET = 0x00020000, 0x40000000
SKIPPED = 77
CONFIG = """[main]
plugins=keyfile
auth-polkit=false
dns=none
no-auto-default=*
[keyfile]
path={folder}/profiles
"""


def isolate():
    """Own network, own /sys (read-only: no device is to be managed) and own places for NetworkManager's state."""
    libc = ctypes.CDLL(None, use_errno=True)
    if libc.unshare(CLONE_NEWNS | CLONE_NEWNET):
        raise OSError(ctypes.get_errno(), "unshare")
    run = lambda *command: subprocess.run(command, check=True, capture_output=True)  # noqa: E731
    run("mount", "--make-rprivate", "/")
    run("mount", "-t", "sysfs", "-o", "ro", "sysfs", "/sys")
    run("ip", "link", "set", "lo", "up")
    for place in ("/run/NetworkManager", "/var/lib/NetworkManager"):
        os.makedirs(place, exist_ok=True)
        run("mount", "-t", "tmpfs", "tmpfs", place)


def main(program):
    try:
        isolate()
    except (OSError, subprocess.CalledProcessError) as reason:
        print(f"skipped: namespaces are not available here ({reason})")
        return SKIPPED
    with tempfile.TemporaryDirectory(prefix="lanvoy-nm-") as folder, PrivateBus() as bus:
        environment = dict(os.environ, DBUS_SYSTEM_BUS_ADDRESS=bus.address)
        config = pathlib.Path(folder) / "NetworkManager.conf"
        config.write_text(CONFIG.format(folder=folder))
        daemon = subprocess.Popen(
            ["/usr/sbin/NetworkManager", "--no-daemon", f"--config={config}", f"--config-dir={folder}/none",
             "--log-level=WARN"], env=environment)
        try:
            asked = ["dbus-send", f"--bus={bus.address}", "--print-reply", "--dest=org.freedesktop.NetworkManager",
                     "/org/freedesktop/NetworkManager", "org.freedesktop.DBus.Peer.Ping"]
            while daemon.poll() is None and subprocess.run(asked, capture_output=True).returncode:
                time.sleep(0.05)
            return subprocess.call(program, env=environment)
        finally:
            end(daemon)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
