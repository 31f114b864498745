# SPDX-License-Identifier: MIT
"""Random faults from a seed: broker, NetworkManager, ModemManager, hardware and commands, all at once.

Afterwards the faults are cleared, and everything has to be right again: by itself what the service follows, and
after one more session whatever a fault made it miss. A seed gives the same steps and pauses each time.
CHAOS="SEED SECONDS [COUNT]" tells which seeds.
"""
import json
import os
import pathlib
import random
import signal
import time

import dbus
import pytest
from conftest import BASE, NM, PROFILE, Client, until

SEED, SECONDS, COUNT = [*os.environ["CHAOS"].split(), "1"][:3]
FOLLOWS = os.environ.get("LANVOY_FOLLOW") == "1"
WORDS = {100: "Connected", 110: "Disconnecting", 30: "Disconnected"}  # all others: Unavailable
WORDS.update(dict.fromkeys((40, 50, 60, 70, 80, 90), "Connecting"))
DEVICES = {"ethernet": "eth0", "wifi": "wlan0", "modem": "cdc-wdm0"}
WRITES = (PROFILE + ".Update", PROFILE + ".ClearSecrets", NM + ".AddAndActivateConnection")
# "steps": how often a step is taken, its name (a method of Chaos or of the simulation) and what each argument may be.
TABLE = json.loads(pathlib.Path(__file__).with_name("chaos.json").read_text())


class Chaos:
    """One run: the steps, and what the world has to look like at the end."""

    def __init__(self, world, seed):
        self.world, self.sim = world, world.sim
        self.random = random.Random(seed)
        self.steps = []

    def run(self, seconds):
        self.world.run({"Wifi/ssid": "Gateway-Home", "Wifi/key": "correct horse"})
        planned = 0
        while planned < seconds:
            (_, name, *choices), = self.random.choices(TABLE["steps"], [step[0] for step in TABLE["steps"]])
            named = choices.pop() if choices and isinstance(choices[-1], dict) else {}
            arguments = [self.random.choice(choice) for choice in choices]
            named = {key: self.random.choice(choice) for key, choice in named.items()}
            self.steps.append(f"{name} {arguments} {named}")
            try:
                (getattr(self, name, None) or getattr(self.sim, name))(*arguments, **named)
            except dbus.DBusException as error:  # it acts on what another step has taken away
                self.steps[-1] += f" ({error.get_dbus_name().rpartition('.')[2]})"
            pause = self.random.choice((0, 0, 0, 0.02, 0.1, 0.3))
            planned += pause + 0.02
            time.sleep(pause)
            assert self.world.service.alive, "the service has ended"
        self.clear()
        self.check()

    def broker(self, act):
        running = self.world.broker.poll() is None
        if act == "start" and not running:
            self.world.broker = self.world.start_broker()
        elif act != "start" and running:
            self.world.broker.send_signal(getattr(signal, act))
            if act in ("SIGKILL", "SIGTERM"):
                self.world.broker.send_signal(signal.SIGCONT)
                self.world.broker.wait()

    def send(self, command, payload):
        self.world.client.mqtt.publish(f"{BASE}/{command}", payload)  # lost when there is no session

    def set_config(self, kind):
        fields = {**self.random.choice(TABLE["addresses"]), **self.random.choice(TABLE["settings"][kind])}
        self.steps[-1] += f" {fields}"
        self.send(f"{kind}/config/set", json.dumps(fields))

    def die_in_a_call(self):
        self.sim.drop_method(PROFILE + ".GetSecrets", times=1)
        self.send("wifi/config/get", None)
        time.sleep(0.05)
        self.sim.restart("nm", 50)
        self.sim.clear_faults()  # or another request would hold things up for 25 seconds

    def storm(self):
        for _ in range(30):
            self.sim.set_device_state("br0", self.random.choice((20, 30, 40, 70, 100, 120)))

    def clear(self):
        for act in ("start", "SIGCONT"):
            self.broker(act)
        self.sim.clear_faults()
        until(lambda: {d["interface"] for d in self.sim.devices()} >= set(DEVICES.values()), "all devices")
        for interface in {d["interface"] for d in self.sim.devices()} & {"eth1", "wlan1", "cdc-wdm1"}:
            self.sim.remove_device(interface)
        for interface in DEVICES.values():
            self.sim.set_managed(interface, True)
        self.sim.set_carrier("eth0", True)
        self.sim.refuse_modem(0, "cdc-wdm0")
        self.world.client.close()

    def check(self):
        service = self.world.service
        until(lambda: service.log.rfind("[IPC] Connected.") > service.log.rfind("[IPC] Disconnected."), "a session")
        self.wait_states("by itself", also_gone=True)
        if FOLLOWS:  # a configuration document may still lack the secrets that a fault has refused
            self.check_followed(lambda topic: not topic.endswith("/config"))
        self.sim.reset_calls()
        sessions = service.log.count("IPC Connected")
        for act in ("SIGKILL", "start"):
            self.broker(act)
        service.wait_log("IPC Connected", sessions + 1)
        client = self.world.client = Client(self.world.port)
        client.settle()
        self.wait_states("after another session")
        names = [profile["name"] for profile in self.sim.profiles()]
        assert len(set(names)) == len(names), f"one profile twice: {names}"
        assert self.writes() <= 12, f"{self.writes()} requests that write"
        # A new process knows only the configuration file and NetworkManager: for it, too, nothing is left to change.
        held = [client.ask(f"{kind}/config/get") for kind in DEVICES]
        assert service.alive, "the service has ended"
        self.world.end_service()
        self.sim.reset_calls()
        client.forget()
        self.world.run(None)
        assert self.writes() == 0, f"changed again: {self.sim.calls(PROFILE)}"
        assert held == [client.ask(f"{kind}/config/get") for kind in DEVICES]
        if FOLLOWS:
            self.check_followed()

    def check_followed(self, counts=lambda topic: True):
        """What a new client finds retained is what a query answers. It finds one device of each kind."""
        time.sleep(1)  # for what is still under way in the simulation
        service = self.world.service
        until(lambda: service.log.rfind("Something has changed.") <= service.log.rfind("waiting: 0."), "followed")
        self.world.client.close()
        self.world.client = Client(self.world.port)
        self.world.client.settle()
        wrong = [w for w in self.world.wrong_documents() if counts(w[0]) and w[2] is not None]
        assert not wrong, wrong

    def writes(self):
        return sum(self.sim.count_calls(member) for member in WRITES)

    def wait_states(self, when, also_gone=False):
        """The retained documents show the devices as they are; with also_gone they may show one that is gone."""
        def wrong():
            states = {d["interface"]: WORDS.get(d["state"], "Unavailable") for d in self.sim.devices()}
            fresh = Client(self.world.port)
            shown = [fresh.wait(f"{kind}/state").document for kind in DEVICES]
            fresh.close()
            return [(d["interface"], d["stateStr"]) for d in shown if d["stateStr"] != states.get(d["interface"])
                    and not (also_gone and d["interface"] not in states)]
        until(lambda: not wrong(), lambda: f"{when}: {wrong()} but {self.sim.devices()}")


@pytest.mark.parametrize("seed", range(int(SEED), int(SEED) + int(COUNT)))
def test_seed(world, seed):
    chaos = Chaos(world, seed)
    try:
        chaos.run(float(SECONDS))
    finally:
        print(*chaos.steps, world.service.log, sep="\n")
