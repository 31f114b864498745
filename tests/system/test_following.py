# SPDX-License-Identifier: MIT
"""Retained documents stay true with LANVOY_FOLLOW=1: after each event they are what a query would answer."""
import re

import pytest
from conftest import NM, PROFILE, until

MODEM, MODEM_3GPP = "/org/freedesktop/ModemManager1/Modem/0", "org.freedesktop.ModemManager1.Modem.Modem3gpp"


def connected(world, follow="1"):
    if follow is not None:
        world.environment["LANVOY_FOLLOW"] = follow
    world.run({"Wifi/ssid": "Gateway-Home", "Wifi/key": "correct horse"})
    for topic in ("ethernet/state", "wifi/state", "modem/state"):
        world.client.wait(topic, lambda d: d["stateStr"] == "Connected")


# Events of more than one step

def late_address(sim, client):
    sim.set_options(link_local_ms=3000)
    client.send("ethernet/config/set", {})  # link-local
    client.wait("ethernet/state", lambda d: d["ipv4"] == {"gateway": ""})


def second_uplink(sim, client):
    sim.disconnect("wlan0")
    client.wait("wifi/state", lambda d: d["stateStr"] == "Disconnected")
    sim.activate("Gateway-Home", "wlan0")


def primary_lost(sim, _):
    sim.set_options(autoconnect=False)
    for interface in ("wlan0", "cdc-wdm0", "eth0"):
        sim.disconnect(interface)


def activated(sim, _):
    sim.add_profile({"connection": {"id": "Other", "type": "802-3-ethernet"}, "ipv4": {"method": "link-local"}})
    sim.activate("Other", "eth0")


def restart(sim, client):
    """A scan comes later: until then no profile is available on the device."""
    begun = len(client.on("modem/config"))
    sim.clear_access_points()
    sim.restart("nm")
    until(lambda: client.on("modem/config")[begun:], "the devices are loaded again")
    sim.add_access_point(ssid="Gateway-Home", security="wpa2", key="correct horse")


def roaming(sim, client):
    used = client.on("wifi/state")[-1].document["ap"]["hardwareAddress"]
    other = next(p for p in sim.access_points() if p["ssid"] == "Gateway-Home" and p["bssid"] != used)
    sim.set_property(sim.device("wlan0")["path"], NM + ".Device.Wireless", "ActiveAccessPoint", other["path"])


def cable(sim, client):
    sim.set_carrier("eth0", False)
    client.wait("ethernet/state", lambda d: d["reasonStr"] == "CarrierReason")
    sim.set_carrier("eth0", True)


# The event, the document that shows it last, what that must say, and, for a single step, all that is published
CASES = {
    "connectivity": (lambda sim, _: sim.set_property("/org/freedesktop/NetworkManager", NM, "Connectivity", 3),
                     "status", lambda d: d["connectivityStr"] == "Limited", ["status"]),
    "hostname": (lambda sim, _: sim.set_hostname("other"), "status", lambda d: d["hostname"] == "other", ["status"]),
    "lease": (lambda sim, _: sim.lease("eth0", "198.51.100.9/24"), "ethernet/state",
              lambda d: d["ipv4"]["address"] == "198.51.100.9", ["ethernet/state", "status"]),
    "late address": (late_address, "ethernet/state",
                     lambda d: (d["ipv4"] or {}).get("address", "").startswith("169.254."), None),
    "second uplink": (second_uplink, "wifi/state", lambda d: d["stateStr"] == "Connected", None),
    "primary lost": (primary_lost, "status", lambda d: d["primaryConnection"] is None, None),
    "set command": (lambda _, client: client.send("ethernet/config/set", {
        "method": "manual", "address": "10.1.2.3", "netmask": "255.0.0.0"}),
        "ethernet/config", lambda d: d.get("address") == "10.1.2.3", None),
    "changed": (lambda sim, _: sim.modify_profile("Gateway-Home", {"802-11-wireless-security": {"psk": "another key"}}),
                "wifi/config", lambda d: d["key"] == "another key", ["wifi/config"]),
    "renamed": (lambda sim, _: sim.modify_profile("Ethernet", {"connection": {"id": "Renamed"}}), "status",
                lambda d: d["primaryConnection"]["connectionName"] == "Renamed", ["status"]),
    "activated": (activated, "ethernet/state", lambda d: (d["ipv4"] or {}).get("address") == "169.254.7.11", None),
    "deleted": (lambda sim, _: sim.remove_profile("Ethernet"), "ethernet/config",
                lambda d: d["method"] == "unknown", None),
    "restart": (restart, "wifi/config", lambda d: d["method"] == "auto", None),
    "roaming": (roaming, "wifi/state", lambda d: d["ap"]["frequency"] == 5180, ["wifi/networks", "wifi/state"]),
    "network gone": (lambda sim, _: sim.remove_access_point("Cafe"), "wifi/networks",
                     lambda d: "Cafe" not in str(d), ["wifi/aps", "wifi/networks"]),
    "operator": (lambda sim, _: sim.set_property(MODEM, MODEM_3GPP, "OperatorName", "Other"), "modem/state",
                 lambda d: d["gsm"]["operatorName"] == "Other", ["modem/state"]),
    "signal": (lambda sim, _: sim.set_signal(13), "modem/state", lambda d: d["signal"] == 13,
               ["modem/signal", "modem/state"]),
    "cable": (cable, "ethernet/state", lambda d: d["stateStr"] == "Connected" and d["ipv4"], None),
    "device renamed": (lambda sim, _: sim.rename_device("wlan0", "wifi0"), "wifi/networks",
                       lambda d: d["interface"] == "wifi0",
                       ["wifi/aps", "wifi/config", "wifi/networks", "wifi/state"]),
}


@pytest.mark.parametrize("name", CASES)
def test_event(world, name):
    event, topic, shows, topics = CASES[name]
    connected(world)
    world.rest()
    assert world.wrong_documents() == []  # also after the start, which has made all profiles
    world.sim.reset_calls()
    begun = len(world.client.messages)
    event(world.sim, world.client)
    until(lambda: any(m.topic == topic and shows(m.document) for m in world.client.documents(begun)), topic)
    world.rest()
    published = [m for m in world.client.documents(begun) if m.topic != "info"]
    requests = world.sim.count_calls(PROFILE + ".GetSecrets") - 1  # rest()'s own
    assert world.wrong_documents() == []
    if topics is not None:
        assert sorted(m.topic for m in published) == topics
        assert requests == (name == "changed")
    if name not in ("cable", "restart"):  # there the engine publishes documents again as they were
        before = {}
        for m in published:
            assert before.get((m.topic, m.document.get("interface"))) != m.text
            before[m.topic, m.document.get("interface")] = m.text


def test_storm(world):
    """However many events there are, a round comes at most each 200 ms, or when the pause of the scan lists ends."""
    connected(world)
    world.rest()
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
    seconds = times[-1] - times[0]
    assert log.count("Checked: ") <= seconds * 5.5 + 1
    assert 0 < [m.topic for m in world.client.documents(published)].count("wifi/aps") <= seconds / 2 + 2
    assert world.wrong_documents() == []


@pytest.mark.parametrize("value", [None, "", "0", "yes"])
def test_off(world, value):
    """Without the variable, or with another value, none of this is published, asked for or logged."""
    connected(world, value)
    world.client.ask("modem/config/get")  # its answer comes behind all that NetworkManager has announced
    world.client.settle()
    begun = len(world.client.messages)
    world.sim.reset_calls()
    for name in ("connectivity", "hostname", "lease", "changed", "renamed", "network gone", "operator", "device renamed"):
        CASES[name][0](world.sim, world.client)
    world.client.ask("modem/config/get")
    world.client.settle()
    assert {m.topic for m in world.client.documents(begun)} == {"modem/config", "info"}
    assert world.sim.count_calls(PROFILE + ".GetSecrets") == 1
    assert "[Follower]" not in world.service.log
