# SPDX-License-Identifier: MIT
"""What provisioning sends, sent to the installed NetworkManager by a program of its own."""
import os
import subprocess

from isolation import isolate

isolate()
from conftest import ROOT, Stack, until  # noqa: E402

PROGRAM = os.environ.get("PROVISIONING_TEST", ROOT / "build/debug/tests/system/realnetworkmanagertest")
CONFIG = """[main]
plugins=keyfile
auth-polkit=false
dns=none
no-auto-default=*
[keyfile]
path={folder}/profiles
"""


def test_installed_networkmanager():
    with Stack() as stack:
        stack.start_bus()
        config = stack.folder / "NetworkManager.conf"
        config.write_text(CONFIG.format(folder=stack.folder))
        daemon = stack.spawn(["/usr/sbin/NetworkManager", "--no-daemon", f"--config={config}",
                              f"--config-dir={stack.folder}/none", "--log-level=WARN"])
        ping = ["dbus-send", f"--bus={stack.bus.address}", "--print-reply", "--dest=org.freedesktop.NetworkManager",
                "/org/freedesktop/NetworkManager", "org.freedesktop.DBus.Peer.Ping"]
        until(lambda: daemon.poll() is not None or not subprocess.run(ping, capture_output=True).returncode, "an answer")
        assert stack.spawn([PROGRAM]).wait() == 0
