"""Data usage with real kernel counters: a veth pair in a network namespace of its own stands for the modem's data."""
import contextlib
import os
import pathlib
import shutil
import socket
import subprocess
import time

import pytest
from real_networkmanager import isolate

try:
    isolate()  # before anything else is started: all that this file starts lives there
    # The snapshot has a fixed place in /tmp: what is written there stays in this namespace.
    for layer in ("upper", "work"):
        pathlib.Path("/run/NetworkManager", layer).mkdir()
    subprocess.run(["mount", "-t", "overlay", "overlay", "/tmp", "-o", "lowerdir=/tmp,"
                    "upperdir=/run/NetworkManager/upper,workdir=/run/NetworkManager/work"], check=True)
except (OSError, subprocess.CalledProcessError) as reason:
    pytest.skip(f"namespaces are not available here ({reason})", allow_module_level=True)

from conftest import until  # noqa: E402

MONTH = time.strftime("%Y-%m")
SNAPSHOT = pathlib.Path("/tmp/modem-snapshot.ini")
SAMPLED = {"Modem/usageSec": 1}
FRAME = 1000  # bytes


@pytest.fixture(autouse=True)
def data_interface():
    """wwan0 is the modem's data interface; what is sent on its peer is what it receives."""
    SNAPSHOT.unlink(missing_ok=True)
    quiet = pathlib.Path("/proc/sys/net/ipv6/conf/default/disable_ipv6")
    if quiet.exists():
        quiet.write_text("1")  # no packets but ours
    subprocess.run(["ip", "link", "add", "wwan0", "type", "veth", "peer", "name", "network"], check=True)
    for name in ("wwan0", "network"):
        subprocess.run(["ip", "link", "set", name, "up"], check=True)
    # The kernel opens the queue a moment after the other end is up; until then it throws away what is sent.
    until(lambda: subprocess.check_output(["ip", "-br", "link"], text=True).count(" UP ") == 2, "both ends are up")
    yield
    subprocess.run(["ip", "link", "del", "wwan0"], check=True)
    if SNAPSHOT.is_dir() and not SNAPSHOT.is_symlink():
        shutil.rmtree(SNAPSHOT)
    SNAPSHOT.unlink(missing_ok=True)


def transfer(upload, download):
    """Moves kilobytes through the modem's data interface."""
    for interface, frames in (("wwan0", upload), ("network", download)):
        with socket.socket(socket.AF_PACKET, socket.SOCK_RAW) as raw:
            raw.bind((interface, 0))
            for _ in range(frames):
                raw.send(b"\xff" * 12 + b"\x88\xb5" + bytes(FRAME - 14))


def used(world, upload, download):
    """Waits for the month's megabytes."""
    wanted = {"upload": upload, "download": download}
    return world.client.wait("modem/stats", lambda d: d.get(MONTH) == wanted)


def test_bytes_are_booked_once(world):
    transfer(50, 20)  # before the service's time, since the interface exists: booked with the first sample
    service = world.run(SAMPLED)
    used(world, 0.05, 0.02)
    assert f"[Modem] Publishing Data usage statistics ({MONTH} | U:0.1M | D:0.0M)" in service.lines()
    transfer(300, 1200)
    used(world, 0.35, 1.22)
    stats = (world.folder / "stats/modem.ini").read_text()
    assert f"[{MONTH}]" in stats and "txbytes=350000" in stats and "rxbytes=1220000" in stats

    world.end_service()
    transfer(100, 0)  # while the service is down: counted at the next sample
    world.client.forget()
    service = world.run(None)
    assert world.client.wait("modem/stats").document == {MONTH: {"upload": 0.35, "download": 1.22}}
    used(world, 0.45, 1.22)

    world.sim.set_options(autoconnect=False)
    world.sim.hang_up()
    service.wait_log("[Modem] Stopped monitoring Data usage")
    assert service.lines().count("[Modem] Started monitoring Data usage") == 1
    world.client.forget()
    transfer(10, 10)
    world.sim.activate("Broadband")
    service.wait_log("[Modem] Started monitoring Data usage", 2)
    used(world, 0.46, 1.23)


def test_old_months_leave(world):
    """Months that began more than six months ago are removed at start; what is no month stays."""
    stats = world.folder / "stats/modem.ini"
    stats.parent.mkdir()
    stats.write_text("[2001-01]\nrxbytes=1\ntxbytes=2\n[notes]\nrxbytes=5000000\ntxbytes=3000000000\n"
                     f"[{MONTH}]\nrxbytes=7000000\ntxbytes=8000000\n")
    world.run({"Modem/usageSec": 0})
    world.client.wait("modem/state", lambda d: d["stateStr"] == "Connected")
    assert world.client.ask("modem/stats/get") == {
        MONTH: {"upload": 8, "download": 7}, "notes": {"upload": -1294.96, "download": 5}}
    assert "monitoring Data usage" not in world.service.log and not SNAPSHOT.exists()


@pytest.mark.parametrize("plant", ["symlink", "dangling", "pipe", "directory", "garbage"])
def test_planted_files(world, plant):
    """Whatever lies in the place of a file: no crash, nothing else is overwritten."""
    victim = world.folder / "victim"
    if plant in ("symlink", "dangling"):
        SNAPSHOT.symlink_to(victim)
    if plant == "symlink":
        victim.write_text("precious")
    if plant == "pipe":
        os.mkfifo(SNAPSHOT)
    if plant == "directory":
        SNAPSHOT.mkdir()
        (world.folder / "stats").write_text("a file where the folder should be")
    if plant == "garbage":
        SNAPSHOT.write_bytes(b"[%\xff\x00 =\n rxbytes=many\n")
        (world.folder / "stats").mkdir()
        (world.folder / "stats/modem.ini").write_bytes(b"\x00[[[\nrxbytes")
    world.run(SAMPLED)
    transfer(20, 20)
    used(world, 0.02, 0.02)
    assert victim.exists() == (plant == "symlink") and (plant != "symlink" or victim.read_text() == "precious")
    assert (world.folder / "stats").is_file() == (plant == "directory")


def test_full_disk(world):
    """Both files stay whole, and what could not be saved is saved once there is space again."""
    disk = world.folder / "disk"
    disk.mkdir()
    subprocess.run(["mount", "-t", "tmpfs", "-o", "size=256k", "tmpfs", disk], check=True)
    config, stats, filler = (disk / name for name in ("lanvoy.conf", "modem.ini", "filler"))
    (world.folder / "lanvoy.conf").symlink_to(config)
    (world.folder / "stats").symlink_to(disk)
    try:
        world.run(SAMPLED)
        used(world, 0, 0)
        before = config.read_text(), stats.read_text()
        with filler.open("wb", 0) as file, contextlib.suppress(OSError):
            while file.write(bytes(4096)):
                pass
        world.client.send("ethernet/config/set", {"method": "auto", "dns1": "192.0.2.77"})
        transfer(30, 20)
        world.client.forget()
        until(lambda: len(world.client.on("modem/stats")) > 2, "samples go on")
        used(world, 0, 0)
        assert (config.read_text(), stats.read_text()) == before
        filler.unlink()
        transfer(10, 0)
        used(world, 0.04, 0.02)
        world.client.send("modem/config/set", {"method": "auto"})
        world.client.settle()
        assert "dns1=192.0.2.77" in config.read_text() and "txbytes=40000" in stats.read_text()
    finally:
        subprocess.run(["umount", "-l", disk], check=True)


@pytest.mark.parametrize("lack", ["interface", "bearer", "ModemManager object"])
def test_modem_without_counters(world, lack):
    """What has no counters counts as 0 bytes, and the samples go on."""
    if lack == "interface":
        world.sim.set_data_interface("no-such-if")
    else:
        world.sim.remove_device("cdc-wdm0")
        world.sim.add_device("modem", **({"bearer": False} if lack == "bearer" else {"known": False}))
    world.run(SAMPLED)
    used(world, 0, 0)
    world.client.forget()
    until(lambda: len(world.client.on("modem/stats")) > 1, "samples go on")


@pytest.mark.parametrize("name", ["ttyUSB0", ""])
def test_bearer_names_no_interface(world, name):
    """That of a dialled call names the serial port, an idle one nothing: the device's interface is counted."""
    world.run(SAMPLED)
    used(world, 0, 0)
    world.sim.set_data_interface(name)
    transfer(30, 20)
    used(world, 0.03, 0.02)
