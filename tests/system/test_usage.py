# SPDX-License-Identifier: MIT
"""Data usage, with files in the place of the kernel's counters of the modem's data interface."""
import contextlib
import os
import pathlib
import time

import pytest
from isolation import isolate, run

isolate()
COUNTERS = pathlib.Path("/sys/class/net/wwan0/statistics")
run("mount", "-t", "tmpfs", "tmpfs", "/sys/class/net")
COUNTERS.mkdir(parents=True)
# The snapshot has a fixed place in /tmp: what is written there stays in this namespace.
for layer in ("upper", "work"):
    pathlib.Path("/run/NetworkManager", layer).mkdir()
run("mount", "-t", "overlay", "overlay", "/tmp", "-o", "lowerdir=/tmp,"
    "upperdir=/run/NetworkManager/upper,workdir=/run/NetworkManager/work")

from conftest import until  # noqa: E402

MONTH = time.strftime("%Y-%m")
SNAPSHOT = pathlib.Path("/tmp/modem-snapshot.ini")
SAMPLED = {"Modem/usageSec": 1}


def count(upload, download):
    """Sets the kernel's counters, in kilobytes since the interface came up."""
    for name, kilobytes in (("tx_bytes", upload), ("rx_bytes", download)):
        written = COUNTERS / "written"
        written.write_text(f"{kilobytes * 1000}\n")
        written.replace(COUNTERS / name)


@pytest.fixture(autouse=True)
def counters():
    SNAPSHOT.unlink(missing_ok=True)
    count(0, 0)


def used(world, upload, download):
    """Waits for the month's megabytes."""
    return world.client.wait("modem/stats", lambda d: d.get(MONTH) == {"upload": upload, "download": download})


def test_bytes_are_booked_once(world):
    os.mkfifo(SNAPSHOT)  # what another user has put there is in nobody's way
    count(50, 20)  # before the service's time, since the interface exists: booked with the first sample
    service = world.run(SAMPLED)
    used(world, 0.05, 0.02)
    assert f"[Modem] Publishing Data usage statistics ({MONTH} | U:0.1M | D:0.0M)" in service.lines()
    count(350, 1220)
    used(world, 0.35, 1.22)
    stats = (world.folder / "stats/modem.ini").read_text()
    assert f"[{MONTH}]" in stats and "txbytes=350000" in stats and "rxbytes=1220000" in stats

    world.end_service()
    count(450, 1220)  # while the service is down: counted at the next sample
    world.client.forget()
    service = world.run(None)
    assert world.client.wait("modem/stats").document == {MONTH: {"upload": 0.35, "download": 1.22}}
    used(world, 0.45, 1.22)

    world.sim.set_options(autoconnect=False)
    world.sim.hang_up()
    service.wait_log("[Modem] Stopped monitoring Data usage")
    assert service.lines().count("[Modem] Started monitoring Data usage") == 1
    count(460, 1230)
    world.sim.activate("Broadband")
    service.wait_log("[Modem] Started monitoring Data usage", 2)
    used(world, 0.46, 1.23)
    # The bearer of a dialled call names the serial port, an idle one nothing: the device's interface is counted.
    for kilobytes, name in ((470, "ttyUSB0"), (480, "")):
        world.sim.set_data_interface(name)
        count(kilobytes, 1230)
        used(world, kilobytes / 1000, 1.23)


def test_full_disk(world):
    """Both files stay whole, and what could not be saved is saved once there is space again."""
    disk = world.folder / "stats"
    disk.mkdir()
    run("mount", "-t", "tmpfs", "-o", "size=256k", "tmpfs", disk)
    config, stats, filler = (disk / name for name in ("lanvoy.conf", "modem.ini", "filler"))
    (world.folder / "lanvoy.conf").symlink_to(config)
    try:
        world.run(SAMPLED)
        used(world, 0, 0)
        before = config.read_text(), stats.read_text()
        with filler.open("wb", 0) as file, contextlib.suppress(OSError):
            while file.write(bytes(4096)):
                pass
        world.client.send("ethernet/config/set", {"method": "auto", "dns1": "192.0.2.77"})
        count(30, 20)
        world.client.forget()
        until(lambda: len(world.client.on("modem/stats")) > 2, "samples go on")
        assert (config.read_text(), stats.read_text()) == before
        filler.unlink()
        count(40, 20)
        used(world, 0.04, 0.02)
        world.client.send("modem/config/set", {"method": "auto"})
        world.client.settle()
        assert "dns1=192.0.2.77" in config.read_text() and "txbytes=40000" in stats.read_text()
    finally:
        run("umount", "-l", disk)


@pytest.mark.parametrize("lack", ["bearer", "known"])
def test_modem_without_counters(world, lack):
    """Without a bearer, or unknown to ModemManager, it counts as 0 bytes, and the samples go on."""
    count(20, 20)
    world.sim.remove_device("cdc-wdm0")
    world.sim.add_device("modem", **{lack: False})
    world.run(SAMPLED)
    used(world, 0, 0)
    world.client.forget()
    until(lambda: len(world.client.on("modem/stats")) > 1, "samples go on")
