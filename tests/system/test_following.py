"""Retained documents stay true with LANVOY_FOLLOW=1: after each event they are what a query would answer."""
import re

import pytest
from conftest import NM, PROFILE, until

WIFI = {"Wifi/ssid": "Gateway-Home", "Wifi/key": "correct horse"}
MANAGER = "/org/freedesktop/NetworkManager"
MODEM, MM = "/org/freedesktop/ModemManager1/Modem/0", "org.freedesktop.ModemManager1"


def follow(world):
    world.environment["LANVOY_FOLLOW"] = "1"
    connected(world)
    world.rest()


def connected(world):
    world.run(WIFI)
    for topic in ("ethernet/state", "wifi/state", "modem/state"):
        world.client.wait(topic, lambda d: d["stateStr"] == "Connected")


def connectivity_alone(world):
    world.sim.set_property(MANAGER, NM, "Connectivity", 3)


def hostname(world):
    world.sim.set_hostname("other")


def lease(world):
    world.sim.lease("eth0", "198.51.100.9/24")


def address_after_connected(world):
    world.sim.lease("eth0", "")
    world.client.wait("ethernet/state", lambda d: d["ipv4"] == {"gateway": ""})
    world.sim.lease("eth0", "169.254.7.9/16")


def second_uplink(world):
    world.sim.disconnect("wlan0")
    world.client.wait("wifi/state", lambda d: d["stateStr"] == "Disconnected")
    world.sim.activate("Gateway-Home", "wlan0")


def primary_lost(world):
    world.sim.set_options(autoconnect=False)
    for interface in ("wlan0", "cdc-wdm0", "eth0"):
        world.sim.disconnect(interface)


def set_command(world):
    world.client.send("ethernet/config/set", {"method": "manual", "address": "10.1.2.3", "netmask": "255.0.0.0"})


def changed_by_others(world):
    world.sim.reset_calls()
    world.sim.modify_profile("Gateway-Home", {"802-11-wireless-security": {"psk": "another key"}})


def renamed_by_others(world):
    world.sim.modify_profile("Ethernet", {"connection": {"id": "Renamed"}})


def activated_by_others(world):
    world.sim.add_profile({"connection": {"id": "Other", "type": "802-3-ethernet"},
                           "ipv4": {"method": "link-local"}})
    world.sim.activate("Other", "eth0")


def deleted_by_others(world):
    world.sim.remove_profile("Ethernet")


def networkmanager_restarts(world):
    """A scan comes later: until then no profile is available on the device."""
    world.sim.clear_access_points()
    restarts = world.service.log.count("Device added: Wifi")
    world.sim.restart("nm")
    world.service.wait_log("Device added: Wifi", restarts + 1)
    world.service.wait_log("Started monitoring device: wlan0", 2)
    world.sim.add_access_point(ssid="Gateway-Home", security="wpa2", key="correct horse")


def roaming(world):
    used = world.client.on("wifi/state")[-1].document["ap"]["hardwareAddress"]
    other = next(p for p in world.sim.access_points() if p["ssid"] == "Gateway-Home" and p["bssid"] != used)
    world.sim.set_property(world.sim.device("wlan0")["path"], NM + ".Device.Wireless", "ActiveAccessPoint", other["path"])


def network_disappears(world):
    world.sim.remove_access_point("Cafe")


def another_operator(world):
    world.sim.set_property(MODEM, MM + ".Modem.Modem3gpp", "OperatorName", "Other")


def signal(world):
    world.sim.set_signal(13)


def cable(world):
    world.sim.set_carrier("eth0", False)
    world.client.wait("ethernet/state", lambda d: d["reasonStr"] == "CarrierReason")
    world.sim.set_carrier("eth0", True)


def device_renamed(world):
    world.sim.rename_device("wlan0", "wifi0")


def device_removed(world):
    world.sim.remove_device("eth0")


# The event, the document that shows it last, what it must say, and, of a single event, all publications.
CASES = [
    (connectivity_alone, "status", lambda d: d["connectivityStr"] == "Limited", ["status"]),
    (hostname, "status", lambda d: d["hostname"] == "other", ["status"]),
    (lease, "ethernet/state", lambda d: d["ipv4"]["address"] == "198.51.100.9", ["ethernet/state", "status"]),
    (address_after_connected, "status", lambda d: "169.254.7.9" in d["primaryConnection"]["ipv4"].values(), None),
    (second_uplink, "wifi/state", lambda d: d["stateStr"] == "Connected", None),
    (primary_lost, "status", lambda d: d["primaryConnection"] is None, None),
    (set_command, "ethernet/config", lambda d: d["address"] == "10.1.2.3", None),
    (changed_by_others, "wifi/config", lambda d: d["key"] == "another key", ["wifi/config"]),
    (renamed_by_others, "status", lambda d: d["primaryConnection"]["connectionName"] == "Renamed", ["status"]),
    (activated_by_others, "ethernet/state", lambda d: (d["ipv4"] or {}).get("address") == "169.254.7.11", None),
    (deleted_by_others, "ethernet/config", lambda d: d["method"] == "unknown", None),
    (networkmanager_restarts, "wifi/config", lambda d: d["method"] == "auto", None),
    (roaming, "wifi/state", lambda d: d["ap"]["frequency"] == 5180, ["wifi/networks", "wifi/state"]),
    (network_disappears, "wifi/networks", lambda d: "Cafe" not in str(d), ["wifi/aps", "wifi/networks"]),
    (another_operator, "modem/state", lambda d: d["gsm"]["operatorName"] == "Other", ["modem/state"]),
    (signal, "modem/state", lambda d: d["signal"] == 13, ["modem/signal", "modem/state"]),
    (cable, "ethernet/state", lambda d: d["stateStr"] == "Connected" and d["ipv4"], None),
    (device_renamed, "wifi/networks", lambda d: d["interface"] == "wifi0",
     ["wifi/aps", "wifi/config", "wifi/networks", "wifi/state"]),
    (device_removed, "status", lambda d: d["primaryConnection"]["interface"] == "wlan0", None),
]


@pytest.mark.parametrize("event, topic, shows, topics", CASES, ids=lambda value: getattr(value, "__name__", None))
def test_event(world, event, topic, shows, topics):
    follow(world)
    assert world.wrong_documents() == []
    begun = len(world.client.messages)
    event(world)
    until(lambda: any(m.topic == topic and shows(m.document) for m in world.client.documents(begun)), topic)
    world.rest()
    published = [m for m in world.client.documents(begun) if m.topic != "info"]
    requests = world.sim.count_calls(PROFILE + ".GetSecrets")
    assert world.wrong_documents() == []
    if topics is not None:
        assert sorted(m.topic for m in published) == topics
    if event not in (cable, networkmanager_restarts):  # these the engine publishes again as they were
        for place, message in enumerate(published):
            before = [m.text for m in published[:place] if m.topic == message.topic
                      and m.document.get("interface") == message.document.get("interface")]
            assert before[-1:] != [message.text]
    if event is changed_by_others:  # the other one is rest()'s
        assert requests == 2


def test_storm(world):
    """However many events there are, a round comes at most each 200 ms, or when the pause of the scan lists ends."""
    follow(world)
    begun, published = len(world.service.log), len(world.client.messages)
    for turn in range(20):
        world.sim.strength_burst(10)
        for state in (30, 40) * 5:
            world.sim.set_device_state("br0", state)
        world.sim.add_access_point(ssid=f"New {turn}")
        world.client.settle()
    world.rest()
    log = world.service.log[begun:]
    times = [float(t) for t in re.findall(r"\[ *(\d+\.\d+)\] \[Follower\]", log)]
    rounds, seconds = log.count("Checked: "), times[-1] - times[0]
    assert rounds <= seconds * 5.5 + 1
    lists = [m for m in world.client.documents(published) if m.topic == "wifi/aps"]
    assert 0 < len(lists) <= seconds / 2 + 2
    assert world.wrong_documents() == []


@pytest.mark.parametrize("value", [None, "", "0", "yes"])
def test_off(world, value):
    """Without the variable, or with another value, none of this is published and nothing is logged about it."""
    if value is not None:
        world.environment["LANVOY_FOLLOW"] = value
    connected(world)
    world.client.ask("modem/config/get")
    world.client.settle()
    begun = len(world.client.messages)
    for event in (connectivity_alone, hostname, lease, changed_by_others, renamed_by_others, network_disappears,
                  another_operator, device_renamed):
        event(world)
    world.client.ask("modem/config/get")
    world.client.settle()
    assert {m.topic for m in world.client.documents(begun)} == {"modem/config", "info"}
    assert world.sim.count_calls(PROFILE + ".GetSecrets") == 1
    assert "[Follower]" not in world.service.log
