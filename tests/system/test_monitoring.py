# SPDX-License-Identifier: MIT
"""Devices: first round, state changes, hot-plug, scans, and services that are absent, restart or do not answer."""
import pytest
from conftest import BASE, NM, until, wired_once

DEVICE_TOPICS = [
    "ethernet/state", "ethernet/config", "wifi/state", "wifi/config", "wifi/aps", "wifi/networks", "modem/signal",
    "modem/signal", "modem/state", "modem/config", "modem/signal"]


def test_first_round(world):
    """A session and its documents; other kinds of devices are wired and provisioned, but not published."""
    world.sim.set_options(autoconnect=False)
    service = world.run({"Ethernet/id": "", "Modem/id": ""})
    documents = [m.topic for m in world.client.messages if m.qos == 2]  # others overtake these
    assert documents[:2] == ["status", "info"] and documents[-1] == "info"  # the last one was asked for
    assert sorted(documents[2:-1]) == sorted(DEVICE_TOPICS)
    assert service.lines("IPC")[:5] == [
        f"Connecting to 127.0.0.1:{world.port}", "Connected.", f"Subscribing to topic [{BASE}/+/get].",
        f"Subscribing to topic [{BASE}/+/+/get].", f"Subscribing to topic [{BASE}/+/+/set]."]
    lines = service.lines()
    assert lines[:2] == ["IPC Connected to 127.0.0.1", "Reloading all devices and connections."]
    bridge = lines.index("[Bridge] Started monitoring device: br0")
    assert lines[bridge + 1:bridge + 3] == ["[Bridge] Checking connection: ", "Skipping device: br0"]
    assert not any("dev=lo" in line or ": lo" in line for line in lines)


def test_state_changes(world):
    """Only changes of the coarse state are told; the cable counts, and the last word is the right one."""
    service = world.run()
    client, sim = world.client, world.sim
    client.wait("ethernet/state", lambda d: d["stateStr"] == "Connected" and d["ipv4"]["address"])
    client.wait("modem/state", lambda d: d["stateStr"] == "Connected" and d["ipv4"])
    client.wait("status", lambda d: d["stateStr"] == "Connected" and d["primaryConnection"])
    client.settle()
    states = [line for line in service.lines() if line.startswith("[Ethernet] State changed")]
    assert [line.split()[3] for line in states] == ["Connecting", "Connected"]

    client.forget()
    sim.set_carrier("eth0", False)
    unplugged = client.wait("ethernet/state").document
    assert (unplugged["state"], unplugged["ipv4"], unplugged["reasonStr"]) == (1, None, "CarrierReason")
    assert "[Ethernet] State changed: Unavailable (dev=eth0, reason=CarrierReason)." in service.lines()
    sim.set_carrier("eth0", True)
    client.wait("ethernet/state", lambda d: d["stateStr"] == "Connected" and d["ipv4"]["address"])

    client.forget()
    sim.set_options(autoconnect=False)
    sim.hang_up()
    assert client.wait("modem/state", lambda d: d["state"] != 4).document["ipv4"] is None
    sim.disconnect("eth0")
    service.wait_log("getConnectionFromUni(): No connection found for /\n")
    until(lambda: client.ask("status/get")["primaryConnection"] is None, "loss of the primary connection")
    sim.set_managed("wlan0", False)
    service.wait_log("[Wifi] Device is no longer managed (name=wlan0).")
    sim.rename_device("br0", "br7")
    service.wait_log("[Bridge] Device interface name changed: br7.")


def test_addresses_change_while_connected(world):
    """NetworkManager changes its objects in place; no query shows an old address, nor asks without need."""
    world.connected()
    client, sim = world.client, world.sim
    for interface, topic in (("eth0", "ethernet/state"), ("wlan0", "wifi/state"), ("cdc-wdm0", "modem/state")):
        for address in ("198.51.100.7", "198.51.100.8"):
            sim.lease(interface, address + "/24")
            until(lambda: client.ask(topic + "/get")["ipv4"]["address"] == address, f"{address} in {topic}")
            if interface == "eth0":
                assert client.ask("status/get")["primaryConnection"]["ipv4"]["address"] == address
    for _ in range(2):  # what the first round reads serves the second
        sim.reset_calls()
        for topic in ("status", "ethernet/state", "wifi/state", "modem/state"):
            client.ask(topic + "/get")
    assert sim.calls() == []
    # What the primary connection has no addresses for is shown from its device, but not below a VPN.
    active = sim.device("eth0")["active"]
    for name, value, address in (("Ip4Config", "/", "198.51.100.8"), ("Vpn", True, None)):
        sim.set_property(active, NM + ".Connection.Active", name, value)
        until(lambda: client.ask("status/get")["primaryConnection"]["ipv4"].get("address") == address, name)


def test_modem_changes_while_it_is_read(world):
    """The library subscribes only after it has read a modem; what changes in between is published as well."""
    read = ["org.freedesktop.ModemManager1.Modem", "AccessTechnologies"]
    world.sim.after_method("org.freedesktop.DBus.Properties.Get", read, "set_access_technologies", ["umts"])
    service = world.run({"Modem/id": ""})
    world.client.wait("modem/signal", lambda d: d["accessTechnologies"] == ["UMTS"])
    assert "[Modem] Access Technologies changed 'UMTS' (dev=cdc-wdm0)." in service.lines()
    state = world.client.ask("modem/state/get")
    assert (state["accessTechnologies"], state["signal"]) == (["UMTS"], 72)


def test_hotplug(world):
    """A device that is plugged in is loaded after a second; one that leaves is only logged."""
    service = world.run()
    path = world.sim.add_device("wired", interface="eth7")
    world.client.wait("ethernet/state", lambda d: d["interface"] == "eth7")
    assert "Device added: Ethernet (dev=eth7, active=0, managed=1)" in service.lines()
    world.client.settle()
    world.sim.remove_device("eth7")
    service.wait_log(f"Device removed: {path}")
    assert world.client.ask("ethernet/state/get", {"interface": "eth7"}, "error")["error"].endswith(": eth7")
    world.sim.add_device("wired", interface="eth8")
    world.sim.remove_device("eth8")  # gone before its second is over
    service.wait_log("Started monitoring device", 6)
    world.client.settle()


def test_wifi_changes(world):
    """A new network is published at once, a point of a known one is only logged, one that leaves stays away."""
    service = world.run()
    client, sim = world.client, world.sim

    def strengths(networks):
        return [n["referenceAP"]["signalStrength"] for n in networks["networks"] if n["ssid"] == "New %s"]
    client.forget()
    point = sim.add_access_point(ssid="New %s", security="wpa2", strength=61)
    assert strengths(client.wait("wifi/networks").document) == [61]
    assert "[Wifi] AccessPoint 'New %s' appeared (dev=wlan0, signal=61%)." in service.lines()
    assert "[Wifi] Network 'New %s' found (dev=wlan0, signal=61%)." in service.lines()
    client.settle()
    client.forget()
    second = sim.add_access_point(ssid="New %s", security="wpa2", strength=70)
    service.wait_log("signal=70%)")
    client.settle()
    assert not client.on("wifi/networks") and not client.on("wifi/aps")
    assert strengths(client.ask("wifi/networks/get")) == [70]
    for gone in (point, second):
        sim.remove_access_point(gone)
    until(lambda: not strengths(client.ask("wifi/networks/get")), "gone")


def test_scan_timer(world):
    """Each half minute a scan; refused, it is logged and nothing is published."""
    service = world.run()
    world.sim.add_access_point(ssid="Found by scan", security="none", on_scan=True)
    world.sim.fail_method(NM + ".Device.Wireless.RequestScan", NM + ".Device.NotAllowed", "not at this time")
    world.client.forget()
    service.wait_log("[Wifi] Failed to scan for Wifi networks: not at this time")
    assert "[Wifi] Scanning for  Wifi networks." in service.lines()
    world.client.settle()
    assert not world.client.on("wifi/aps")
    world.client.wait("wifi/aps")  # of the next tick
    world.client.wait("wifi/networks", lambda d: "Found by scan" in {n["ssid"] for n in d["networks"]})


@pytest.mark.parametrize("late", [True, False])
def test_service_restarts(world, late):
    """NetworkManager and ModemManager come late, restart and vanish; nothing is wired twice afterwards."""
    client, sim = world.client, world.sim
    if late:
        sim.stop("nm")
        sim.stop("mm")
    world.run()
    if late:
        assert client.ask("status/get")["stateStr"] == "Unknown"
        sim.start("mm")
        sim.start("nm")
        client.wait("modem/state")
    client.wait("ethernet/state", lambda d: d["stateStr"] == "Connected")
    for _ in range(2):
        client.settle()
        client.forget()
        sim.restart("nm", 50)
        client.wait("modem/signal")
        client.wait("ethernet/state", lambda d: d["stateStr"] == "Connected")
        client.wait("status", lambda d: d["stateStr"] == "Connected")
    client.settle()
    client.forget()
    sim.restart("mm", 50)
    until(lambda: client.ask("modem/state/get", {}).get("device"), "modem is back")
    client.wait("modem/signal")
    wired_once(world)
