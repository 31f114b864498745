# SPDX-License-Identifier: MIT
"""Every query with every kind of interface name."""
from conftest import NM, PROFILE, until, wired_once

QUERIES = {
    "ethernet/state/get": "eth0", "ethernet/config/get": "eth0", "wifi/state/get": "wlan0",
    "wifi/config/get": "wlan0", "wifi/aps/get": "wlan0", "wifi/networks/get": "wlan0",
    "modem/state/get": "cdc-wdm0", "modem/config/get": "cdc-wdm0"}
KINDS = {"ethernet": "Ethernet", "wifi": "Wifi", "modem": "Modem"}


def test_queries(world):
    service = world.connected(**{"Modem/usageSec": 0})
    client = world.client
    world.sim.add_device("wired", interface="eth1")
    client.wait("ethernet/state", lambda d: d["interface"] == "eth1")
    for command, right in QUERIES.items():
        for data in (None, {}, {"interface": right}, {"interface": 7}, {"interface": ["x"]}, []):
            assert client.ask(command, data)["interface"] == right
        assert f"Command Received : {command}" in service.lines()
        wrong = "br0" if command.startswith("modem") else "cdc-wdm0"
        for name in (wrong, right.upper(), "no%such"):
            error = client.ask(command, {"interface": name}, "error")
            assert error == {"command": command, "error": f"Invalid device specified: {name}"}
            kind = KINDS[command.split("/")[0]]
            assert f"ERROR: Could not find device with name={name} and type={kind}" in service.lines()
    assert client.ask("ethernet/config/get", {"interface": "eth1"})["interface"] == "eth1"
    assert client.ask("modem/stats/get", {"interface": "cdc-wdm0"}) == {}
    assert client.ask("modem/stats/get", {"interface": "eth0"}, "error")["command"] == "modem/stats/get"
    assert "monitoring Data usage" not in service.log  # with an interval of 0
    world.sim.fail_method(PROFILE + ".GetSecrets", PROFILE + ".PermissionDenied", "no")
    assert "key" not in client.ask("wifi/config/get")


def test_networkmanager_is_asked_for_secrets_only(world):
    """Neither queries nor a new broker session make other requests, once everything has been read."""
    world.connected()
    for command in QUERIES:  # what is read for the first time is read once
        world.client.ask(command)
    world.sim.reset_calls()
    for command in (*QUERIES, "status/get", "info/get"):
        world.client.ask(command)
    assert [call["member"] for call in world.sim.calls()] == [PROFILE + ".GetSecrets"] * 2
    world.lose_broker()
    called = [call["member"] for call in world.sim.calls(NM)]
    assert called == [PROFILE + ".GetSecrets"] * 6  # provisioning and document, wifi and modem
    world.lose_broker()
    wired_once(world)


def test_thousand_access_points_do_not_go_stale(world):
    """A bus connection has 512 match rules; every point's strength must follow all the same."""
    world.sim.clear_access_points()
    world.sim.add_access_points(1000, 250)
    world.run()
    world.sim.strength_burst(3)
    held = {p["bssid"]: p["strength"] for p in world.sim.access_points()}

    def published():
        return {p["hardwareAddress"]: p["signalStrength"] for p in world.client.ask("wifi/aps/get")["aps"]}
    until(lambda: published() == held, "all strengths are right")
