"""The worst moments: the service lives, the log tells, and what is retained is right again."""
import socket

import pytest
from conftest import BASE, DEADLINE, NM, PROFILE, until

WIFI = {"Wifi/ssid": "Gateway-Home", "Wifi/key": "correct horse"}
STATES = {"ethernet/state": "eth0", "wifi/state": "wlan0", "modem/state": "cdc-wdm0"}


def all_right(world):
    """What was published last, and so is retained, agrees with the simulated devices."""
    def agrees():
        states = {d["interface"]: d["state"] for d in world.sim.devices()}
        return all((world.client.on(topic)[-1].document["state"] == 4) == (states.get(interface) == 100)
                   for topic, interface in STATES.items())
    until(agrees, "retained documents are right")


def restarts_in_a_set_command(world, service):
    """Nothing is written on paths of before; the devices that are announced again bring it about."""
    world.sim.drop_method(PROFILE + ".GetSecrets", times=1)
    world.sim.reset_calls()
    world.client.send("modem/config/set", {"method": "auto", "apn": "other"})
    until(lambda: world.sim.count_calls(PROFILE + ".GetSecrets"), "the request has arrived")
    world.sim.restart("nm")
    service.wait_log("[Modem] NetworkManager restarts. Connection 'Broadband' will be checked again.")
    until(lambda: world.sim.profile("Broadband")["gsm"]["apn"] == "other", "the new access point name")


def restarts_twice(world, service):
    """The second time while announced devices wait for their second, and with a device and a profile less."""
    def profiles():
        return [profile["name"] for profile in world.sim.profiles()]
    world.sim.restart("mm")
    service.wait_log("Device added: Modem")  # it has the last path now
    world.sim.restart("nm")
    service.wait_log("Device added: Modem", 2)
    world.sim.stop("nm")
    world.sim.remove_device("wlan0")
    world.sim.remove_profile("Broadband")
    world.sim.start("nm")
    until(lambda: "Broadband" in profiles(), "the modem's profile")
    world.client.send("modem/config/set", {"method": "auto", "apn": "internet"})
    world.client.settle()
    assert profiles().count("Broadband") == 1
    world.sim.add_device("wifi", interface="wlan0")


def retained_set_command(world, service):
    """It runs with each session, after the round over the devices, and changes nothing the second time."""
    world.client.mqtt.publish(f"{BASE}/ethernet/config/set", b'{"method": "auto"}', retain=True)
    service.wait_log("Command Received : ethernet/config/set")
    world.end_service()
    world.sim.reset_calls()
    service = world.run(None)
    service.wait_log("Command Received : ethernet/config/set")
    lines = service.lines()
    assert lines.index("Command Received : ethernet/config/set") > lines.index("Skipping device: br0")
    world.client.settle()
    assert world.sim.count_calls(PROFILE + ".Update") == 0


def stale_lock(world, service):
    """A lock file that a killed process has left does not keep the configuration from being saved."""
    (world.folder / "lanvoy.conf.lock").write_text(f"999999\nlanvoy\n{socket.gethostname()}\n")
    world.client.send("ethernet/config/set", {"method": "auto", "dns1": "192.0.2.77"})
    world.client.settle()
    assert "dns1=192.0.2.77" in (world.folder / "lanvoy.conf").read_text()


FAULTS = [restarts_in_a_set_command, restarts_twice, retained_set_command, stale_lock]


@pytest.mark.parametrize("fault", FAULTS, ids=lambda fault: fault.__name__)
def test_fault(world, fault):
    service = world.connected()
    fault(world, service)
    all_right(world)


def test_bus_lost(world):
    """The libraries would only show what they last knew: the process ends with an error, for its unit to restart."""
    bus = world.start_bus()
    service = world.run(wait=False)
    world.client.wait("info")
    bus.stop()
    assert service.process.wait(DEADLINE) == 1 and "[Engine] Lost the system bus, exiting." in service.log
    world.bus = world.service = None


@pytest.mark.parametrize("topic", STATES)
def test_unreadable_device(world, topic):
    """NetworkManager does not tell what kind a device is: that one is skipped, and the others are as ever."""
    path = world.sim.device(STATES[topic])["path"]
    world.sim.fail_method("org.freedesktop.DBus.Properties.Get", NM + ".Failed", "not now", path)
    service = world.run(WIFI)
    service.wait_log(f"Device could not be read, skipping it: {STATES[topic]}")
    assert world.client.ask(f"{topic}/get", {}, "error")["error"] == "Invalid device specified: "
    for other in set(STATES) - {topic}:
        world.client.wait(other, lambda d: d["stateStr"] == "Connected")
