# SPDX-License-Identifier: MIT
"""A network, a read-only /sys and places for NetworkManager's state that this process and its children have alone."""
import ctypes
import os
import subprocess

import pytest

CLONE_NEWNS, CLONE_NEWNET = 0x00020000, 0x40000000


def run(*command):
    """Skips the test, or the whole file, where that is not allowed."""
    if subprocess.run(command, capture_output=True).returncode:
        pytest.skip(f"not allowed here: {command}", allow_module_level=True)


def isolate():
    """Has to come before anything else is started."""
    libc = ctypes.CDLL(None, use_errno=True)
    if libc.unshare(CLONE_NEWNS | CLONE_NEWNET):
        pytest.skip(f"namespaces: {os.strerror(ctypes.get_errno())}", allow_module_level=True)
    run("mount", "--make-rprivate", "/")
    run("mount", "-t", "sysfs", "-o", "ro", "sysfs", "/sys")  # no device is to be managed
    run("ip", "link", "set", "lo", "up")
    for place in ("/run/NetworkManager", "/var/lib/NetworkManager"):
        os.makedirs(place, exist_ok=True)
        run("mount", "-t", "tmpfs", "tmpfs", place)
