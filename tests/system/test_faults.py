# SPDX-License-Identifier: MIT
"""The worst moments: after each fault the service lives, the log tells, and every retained document is right again."""
import pytest
from conftest import BASE, DEADLINE, NM, PROFILE, Client, until

WIFI = {"Wifi/ssid": "Gateway-Home", "Wifi/key": "correct horse"}
STATES = {"ethernet/state": "eth0", "wifi/state": "wlan0", "modem/state": "cdc-wdm0"}


def all_right(world):
    """What the broker retains agrees with the simulated devices, and a query is answered."""
    def agrees():
        fresh = Client(world.port)
        try:
            fresh.wait("info")
            states = {d["interface"]: d["state"] for d in world.sim.devices()}
            return all(any(m.document["interface"] == interface
                           and (m.document["state"] == 4) == (states.get(interface) == 100)
                           for m in fresh.on(topic)) for topic, interface in STATES.items())
        finally:
            fresh.close()
    until(agrees, "retained documents are right")
    assert world.client.ask("info/get")["service"]["type"] == "network"


def profiles(world):
    return [profile["name"] for profile in world.sim.profiles()]


def broker_killed(world, service):
    world.broker.kill()
    world.broker.wait()
    world.client.close()
    service.wait_log("IPC Disconnected.")
    world.sim.set_carrier("eth0", False)
    world.begin()
    service.wait_log("IPC Connected", 2)


def networkmanager_refuses(world, service):
    for member in ("Settings.Connection.GetSecrets", "Settings.Connection.Update", "ActivateConnection"):
        world.sim.fail_method(f"{NM}.{member}", NM + ".PermissionDenied", "not for %s", times=2)
    world.client.send("ethernet/config/set", {"method": "x"})
    service.wait_log("Failed to update connection 'Ethernet' : not for %s")


def networkmanager_silent(world, service):
    """The library gives a request up after 25 seconds; what came meanwhile is answered then."""
    world.sim.drop_method(PROFILE + ".GetSecrets", times=1)
    assert "key" not in world.client.ask("wifi/config/get")
    assert world.client.ask("wifi/config/get")["key"] == "correct horse"


def networkmanager_restarts_in_a_set_command(world, service):
    """Nothing is written on paths of before; the devices that are announced again bring it about."""
    world.sim.drop_method(PROFILE + ".GetSecrets", times=1)
    world.sim.reset_calls()
    world.client.send("modem/config/set", {"method": "auto", "apn": "other"})
    until(lambda: world.sim.count_calls(PROFILE + ".GetSecrets"), "the request has arrived")
    world.sim.restart("nm")
    service.wait_log("[Modem] NetworkManager restarts. Connection 'Broadband' will be checked again.")
    until(lambda: world.sim.profile("Broadband")["gsm"]["apn"] == "other", "the new access point name")


def retained_set_command(world, service):
    """It runs again with each session, and changes nothing the second time."""
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


def networkmanager_restarts_twice(world, service):
    """The second time while announced devices wait for their second, and with a device and a profile less."""
    world.sim.restart("mm")
    service.wait_log("Device added: Modem")  # it has the last path now
    world.sim.restart("nm")
    service.wait_log("Device added: Modem", 2)
    world.sim.stop("nm")
    world.sim.remove_device("wlan0")
    world.sim.remove_profile("Broadband")
    world.sim.start("nm")
    until(lambda: "Broadband" in profiles(world), "the modem's profile")
    world.client.send("modem/config/set", {"method": "auto", "apn": "internet"})
    world.client.settle()
    assert profiles(world).count("Broadband") == 1
    world.sim.add_device("wifi", interface="wlan0")


FAULTS = [broker_killed, networkmanager_refuses, networkmanager_silent,
          networkmanager_restarts_in_a_set_command, retained_set_command, networkmanager_restarts_twice]


@pytest.mark.parametrize("follow", [False, True], ids=["", "following"])
@pytest.mark.parametrize("fault", FAULTS, ids=lambda fault: fault.__name__)
def test_fault(world, fault, follow):
    if follow:
        world.environment["LANVOY_FOLLOW"] = "1"
    service = world.connected()
    if follow:
        world.rest()
    fault(world, service)
    all_right(world)
    if follow:
        world.sim.clear_faults()
        world.rest()
        assert world.wrong_documents() == []


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
