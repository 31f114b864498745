# SPDX-License-Identifier: MIT
"""Connections come out as configured: created, updated, activated or left alone; requests and messages."""
import json
import pathlib
import re

import pytest
from conftest import NM, PROFILE

# By name: kind of device, what the service starts with, and steps. A step does something to the simulation, waits for a
# state, sends a set command (the first one: starts the service) and tells the messages about the device, the requests
# about its profile, and the configuration document afterwards.
STORIES = json.loads(pathlib.Path(__file__).with_name("provisioning.json").read_text())
TYPES = {"ethernet": "802-3-ethernet", "wifi": "802-11-wireless", "modem": "gsm"}
REQUESTS = [PROFILE + ".Update", PROFILE + ".GetSecrets", PROFILE + ".ClearSecrets", NM + ".ActivateConnection",
            NM + ".AddAndActivateConnection"]
# Messages about the device that come by themselves.
MEANWHILE = ("State changed", "Publishing Data", "Started monitoring Data", "Stopped monitoring Data")


def requests(sim, kind):
    """Names of the requests, with the settings that they carry but for what is new each time."""
    for call in sim.calls():
        name, groups = call["member"].rpartition(".")[2], next(iter(call["args"]), None)
        if call["member"] in REQUESTS and not isinstance(groups, dict):
            yield [name]
        elif call["member"] in REQUESTS and groups["connection"]["type"] == TYPES[kind]:
            connection = {k: v for k, v in groups["connection"].items() if k not in ("uuid", "timestamp")}
            yield [name, {**groups, "connection": connection}]


def play(world, story, step):
    """Carries out a step; what it has led to."""
    client, sim, kind = world.client, world.sim, story["kind"]
    if "do" in step:
        client.forget()
    for name, *arguments in step.get("do", []):
        getattr(sim, name)(*arguments)
    if "until" in step:
        client.wait(f"{kind}/state", lambda d: d["stateStr"] == step["until"])
    sim.reset_calls()
    seen = len(world.service.lines()) if world.service else 0
    if "set" in step:
        client.send(f"{kind}/config/set", step["set"])
        client.settle()
    else:
        world.run(story["settings"])
    tag = f"[{kind.capitalize()}] "
    lines = [line.removeprefix(tag) for line in world.service.lines()[seen:] if line.startswith(tag)]
    return {"log": [line for line in lines if not line.startswith(MEANWHILE)], "asked": list(requests(sim, kind)),
            "told": client.ask(f"{kind}/config/get")}


@pytest.mark.parametrize("story", STORIES.values(), ids=STORIES)
def test_story(world, story):
    for step in story["steps"]:
        result = play(world, story, step)
        assert result == {"told": result["told"], **{key: step[key] for key in result.keys() & step.keys()}}


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
