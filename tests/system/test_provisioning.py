"""Connections come out as configured: created, updated, activated or left alone; requests and messages."""
import re

import pytest
from conftest import NM, PROFILE

UPDATE = PROFILE + ".Update"
ADD = NM + ".AddAndActivateConnection"
ACTIVATE = NM + ".ActivateConnection"
SECRETS = PROFILE + ".GetSecrets"
CLEAR = PROFILE + ".ClearSecrets"
STATIC = {"method": "manual", "address": "10.0.0.5", "netmask": "255.255.255.0"}
# Messages about the device that come by themselves.
MEANWHILE = ("State changed", "Publishing Data", "Started monitoring Data", "Stopped monitoring Data")


def provision(world, kind, fields):
    """Sends one set command; the engine's messages about the device and the requests to NetworkManager."""
    service = world.service
    world.sim.reset_calls()
    seen = len(service.lines())
    world.client.send(f"{kind}/config/set", fields)
    world.client.settle()
    tag = f"[{kind.capitalize()}] "
    lines = [line[len(tag):] for line in service.lines()[seen:] if line.startswith(tag)]
    requests = [(call["member"], call["args"]) for call in world.sim.calls()
                if call["member"] in (UPDATE, ADD, ACTIVATE, SECRETS, CLEAR)]
    return [line for line in lines if not line.startswith(MEANWHILE)], requests


def disconnected(world, act, *arguments):
    """Does something to the wired device and waits until the service tells of it."""
    world.client.forget()
    getattr(world.sim, act)("eth0", *arguments)
    world.client.wait("ethernet/state", lambda d: d["stateStr"] == "Disconnected")


def members(requests):
    return [member for member, _ in requests]


def test_wired(world):
    sim, client = world.sim, world.client
    sim.set_carrier("eth0", False)
    service = world.run({"Wifi/ssid": "", "Modem/id": ""})
    out = "Carrier not detected (cable unplugged). Will not attempt to connect."
    lines = service.lines()
    start = lines.index("[Ethernet] Checking connection: Ethernet")
    assert lines[start + 1:start + 3] == [
        "[Ethernet] Connection 'Ethernet' does not exist. Creating and activating.", f"[Ethernet] {out}"]
    assert [p["name"] for p in sim.profiles()] == ["lo"]

    disconnected(world, "set_carrier", True)
    lines, requests = provision(world, "ethernet", {"method": "auto"})
    assert lines == ["Checking connection: Ethernet",
                     "Connection 'Ethernet' does not exist. Creating and activating.",
                     "Carrier detected (cable is plugged).", "Connection 'Ethernet' created successfully."]
    assert members(requests) == [ADD]
    unchanged = ["Checking connection: Ethernet", "Connection 'Ethernet' already exists.",
                 "No update required for connection 'Ethernet'.", "Carrier detected (cable is plugged)."]
    assert provision(world, "ethernet", {"method": "auto"}) == (unchanged, [])

    client.wait("ethernet/state", lambda d: d["stateStr"] == "Connected")
    disconnected(world, "disconnect")
    sim.fail_method(ACTIVATE, NM + ".UnknownDevice", "no %d")
    assert provision(world, "ethernet", {"method": "auto"})[0][4:] == [
        "Connection 'Ethernet' not active. Activating.", "Failed to activate connection: no %d"]
    assert provision(world, "ethernet", {"method": "auto"})[0][5:] == ["Connection 'Ethernet' activated."]

    lines, requests = provision(world, "ethernet", STATIC)
    assert lines[2:] == [
        "Connection settings have changed. Applying new settings.",
        "Settings of connection 'Ethernet' refused, sending them corrected : gsm.password: property is empty",
        "Carrier detected (cable is plugged).", "Connection 'Ethernet' updated."]
    assert members(requests) == [UPDATE, UPDATE, ACTIVATE]
    stated, corrected = (args[0] for member, args in requests if member == UPDATE)
    assert stated["gsm"] == {"password": "", "pin": ""} and "gsm" not in corrected
    # The document of the same moment shows what took effect, before NetworkManager has told the library.
    assert client.ask("ethernet/config/get") == {"interface": "eth0", "gateway": "0.0.0.0", **STATIC}

    disconnected(world, "set_carrier", False)
    lines, requests = provision(world, "ethernet", {"method": "auto"})
    assert lines[-1] == out and ACTIVATE not in members(requests)
    assert not {"addresses", "address-data", "gateway"} & {k for k, v in sim.profile("Ethernet")["ipv4"].items() if v}


@pytest.mark.parametrize("ssid, key, management, secret", [
    ("Cafe", "", None, None), ("OldRouter", "abcde", "none", "wep-key0"), ("Mixed", "mixed-1234", "wpa-psk", "psk"),
    ("Strange", "", "wpa-psk", None)])  # the security that NetworkManager completes it with
def test_wifi_kinds(world, ssid, key, management, secret):
    service = world.run({"Wifi/ssid": ssid, "Wifi/key": key})
    if ssid != "Strange":  # an open profile is not what that network wants
        world.client.wait("wifi/state", lambda d: d["stateStr"] == "Connected" and d["ap"]["ssid"] == ssid)
    profile = world.sim.profile(ssid)
    assert profile["connection"]["id"] == ssid and profile["ipv6"]["method"] == "ignore"
    assert profile["802-11-wireless"]["ssid"] == ssid
    security = profile.get("802-11-wireless-security", {})
    assert security.get("key-mgmt") == management and (not secret or security[secret] == key)
    unsure = f"Could not determine Wifi security for AP '{ssid}'. Defaulting to 'none'."
    assert service.lines().count(unsure) == (ssid == "Strange")
    lines, requests = provision(world, "wifi", {"ssid": ssid, "key": key, "method": "auto"})
    assert f"No update required for connection '{ssid}'." in lines
    assert members(requests) == [SECRETS] + [ACTIVATE] * (ssid == "Strange")
    refused = [line for line in lines if line.startswith("Failed to get secrets")]
    assert len(refused) == (secret is None)


def test_wifi_out_of_reach(world):
    world.run({"Ethernet/id": ""})
    assert "[Wifi] SSID not configured. Will not attempt to connect." in world.service.lines()
    assert provision(world, "wifi", {"ssid": "Nowhere %s", "key": "12345678"}) == (
        ["Configured access point 'Nowhere %s' not in range. Will not attempt to connect."], [])
    assert provision(world, "wifi", {"ssid": "gateway-home"})[1] == []  # names are case-sensitive
    assert [p["name"] for p in world.sim.profiles() if p["type"] == "802-11-wireless"] == []


def test_modem_and_its_secrets(world):
    """Secrets are set, replaced, kept and removed; an empty one cannot be removed by an update alone."""
    world.run()
    assert world.sim.profile("Broadband")["gsm"]["apn"] == "internet"

    def held():
        gsm = world.sim.profile("Broadband")["gsm"]
        return gsm.get("username"), gsm.get("password"), gsm.get("pin"), gsm.get("network-id")

    lines, requests = provision(world, "modem", {"method": "auto", "apn": "net", "username": "me",
                                                 "password": "word", "pin": "1234", "networkId": "26201"})
    assert members(requests) == [SECRETS, UPDATE, ACTIVATE] and held() == ("me", "word", "1234", "26201")
    assert requests[1][1][0]["gsm"]["number"] == "*99#"
    lines, requests = provision(world, "modem", {"method": "auto", "apn": "net", "pin": "1234", "password": None})
    assert members(requests) == [SECRETS, UPDATE, UPDATE, ACTIVATE]
    assert held() == (None, None, "1234", None)
    # A refused update costs none of the secrets in force.
    assert "network-id" in provision(world, "modem", {"method": "auto", "apn": "net", "networkId": "12"})[0][-1]
    assert held() == (None, None, "1234", None)
    lines, requests = provision(world, "modem", {"method": "auto", "apn": "net", "pin": 1234})
    assert held() == (None, None, None, None) and members(requests) == [SECRETS, UPDATE, UPDATE, CLEAR, ACTIVATE]
    lines, requests = provision(world, "modem", {"method": "auto", "apn": "net"})
    assert lines[-1] == "No update required for connection 'Broadband'." and members(requests) == [SECRETS]
    world.sim.fail_method(SECRETS, PROFILE + ".PermissionDenied", "no")
    assert not any("secrets" in line for line in provision(world, "modem", {"method": "auto", "apn": "net"})[0])


def test_refused_update_is_tried_again(world):
    """A refusal is final for this time only: the next run compares with what NetworkManager really holds."""
    world.run()
    for _ in range(2):
        world.sim.fail_method(UPDATE, PROFILE + ".Failed", "disk full")
        lines, requests = provision(world, "ethernet", STATIC)
        assert lines[2:] == ["Connection settings have changed. Applying new settings.",
                             "Failed to update connection 'Ethernet' : disk full"]
        assert members(requests) == [UPDATE] and world.client.ask("ethernet/config/get")["method"] == "auto"
    assert provision(world, "ethernet", STATIC)[0][-1] == "Connection 'Ethernet' updated."
    world.sim.fail_method(ADD, PROFILE + ".InvalidProperty", "ipv4.dns: %s")
    assert provision(world, "wifi", {"ssid": "Cafe", "method": "auto"})[0][-1] == (
        "Failed to create connection 'Cafe' : ipv4.dns: %s")


def test_set_commands(world):
    """Fields are stored as they come, those left out are emptied; errors name the commands that they name."""
    world.run()
    for kind, named in (("ethernet", "ethernet/config/get"), ("wifi", "wifi/config/get"), ("modem", "modem/config/set")):
        error = world.client.ask(f"{kind}/config/set", {"interface": "no7", "method": "x"}, "error")
        assert error == {"command": named, "error": "Invalid device specified: no7"}
    assert "method" not in (world.folder / "lanvoy.conf").read_text()  # nothing saved
    nasty = " a\"b,c;d%e\\f=g\u00e4\u4e2d\U0001f600 "
    world.client.send("modem/config/set", {"interface": "cdc-wdm0", "apn": nasty, "pin": 1234, "username": None,
                                           "networkId": 26201, "password": "p" * 10000, "autocon": False})
    world.client.send("wifi/config/set", {"ssid": nasty, "key": "x"})
    world.client.settle()
    world.end_service()
    world.client.forget()
    service = world.run(settings=None)
    held = dict(re.fullmatch(r"(\S+) *: (.*)", line).groups() for line in service.lines("Config") if ": " in line)
    assert held["modem.pin"] == "" and held["modem.network_id"] == "" and held["modem.autocon"] == "1"
    assert held["modem.password"] == "p" * 10000 and held["modem.id"] == "Broadband" and held["modem.usageSec"] == "120"
    assert held["wifi.method"] == held["modem.method"] == "" and held["wifi.key"] == "x"
    assert f"Configured access point '{nasty}' not in range" in service.log and held["modem.apn"] == nasty
