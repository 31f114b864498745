"""Random faults from a seed: broker, NetworkManager, ModemManager, hardware and commands, all at once.

Afterwards the faults are cleared, and everything has to be right again: by itself what the service follows, and
after one more session whatever a fault made it miss. A seed gives the same steps and pauses each time.
"""
import json
import os
import pathlib
import random
import signal
import sys
import time
import traceback

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "system"))

import dbus  # noqa: E402
from conftest import BASE, NM, PROFILE, Client, Sim, Stack, World, until  # noqa: E402

WORDS = {100: "Connected", 110: "Disconnecting", 30: "Disconnected"}  # all others: Unavailable
WORDS.update(dict.fromkeys((40, 50, 60, 70, 80, 90), "Connecting"))
INTERFACES = {"ethernet": "eth0", "wifi": "wlan0", "modem": "cdc-wdm0"}
REQUESTS = [f"{PROFILE}.{m}" for m in ("GetSecrets", "Update", "ClearSecrets")] + [
    f"{NM}.{m}" for m in ("ActivateConnection", "AddAndActivateConnection", "Device.Wireless.RequestScan")]
WRITES = (PROFILE + ".Update", PROFILE + ".ClearSecrets", NM + ".AddAndActivateConnection")
EXTRA = {"eth1": ("wired", {"interface": "eth1"}), "wlan1": ("wifi", {"interface": "wlan1"}), "cdc-wdm1": (
    "modem", {"control_port": "cdc-wdm1", "data_interface": "wwan1", "imei": "000000000000001"})}
QUERIES = ("status/get", "info/get", "wifi/aps/get", "wifi/networks/get", "modem/stats/get", "ethernet/state/get",
           "wifi/config/get", "modem/config/get", "no/such/get")
IPV4 = ({"method": "auto"}, {"method": "link-local"},
        {"method": "manual", "address": "10.1.0.5", "netmask": "255.255.0.0"},
        {"method": "manual", "address": "10.0.0.6", "netmask": "255.255.255.0", "gateway": "10.0.0.1",
         "dns0": "192.0.2.53", "dns1": "192.0.2.54"})
FIELDS = {"ethernet": [{}], "modem": [
    {"apn": "internet"}, {"apn": "web", "username": "me", "password": "secret", "networkId": "26201"},
    {"apn": "internet", "pin": "1234"}], "wifi": [{"ssid": ssid, "key": key} for ssid, key in (
        ("Gateway-Home", "correct horse"), ("Gateway-Home", "wrong password"), ("Cafe", ""), ("OldRouter", "abcde"),
        ("Printer", "printer-1234"), ("Mixed", "mixed-1234"), ("Nowhere", "12345678"))]}


class Chaos:
    """One run: the steps, and what the world has to look like at the end."""

    def __init__(self, world, seed):
        self.world, self.sim = world, world.sim
        self.random = random.Random(seed)
        self.steps = []
        self.broker_up = True

    def run(self, seconds):
        self.world.run({"Wifi/ssid": "Gateway-Home", "Wifi/key": "correct horse"})
        planned = 0
        while planned < seconds:
            step, = self.random.choices(*STEPS)
            self.steps.append(step.__name__)
            try:
                step(self)
            except dbus.DBusException as error:  # it acts on what another step has taken away
                self.steps[-1] += f" ({error.get_dbus_name().rpartition('.')[2]})"
            pause = self.random.choice((0, 0, 0, 0.02, 0.1, 0.3))
            planned += pause + 0.02
            time.sleep(pause)
            assert self.world.service.alive, "the service has ended"
        self.clear()
        self.check()

    def pick(self, *values):
        value = self.random.choice(values)
        self.steps[-1] += f" {value}"
        return value

    def send(self, command, payload):
        self.world.client.mqtt.publish(f"{BASE}/{command}", payload)  # lost when there is no session

    # steps

    def broker(self, act=None):
        act = act or self.pick("SIGKILL", "SIGTERM", "SIGSTOP", "SIGCONT", "SIGCONT", "start", "start", "start")
        if act == "start" and not self.broker_up:
            self.world.broker = self.world.start_broker()
            self.broker_up = True
        elif act != "start" and self.broker_up:
            self.world.broker.send_signal(getattr(signal, act))
            if act in ("SIGKILL", "SIGTERM"):
                self.world.broker.send_signal(signal.SIGCONT)
                self.world.broker.wait()
                self.broker_up = False

    def restart(self):
        self.sim.restart(self.pick("nm", "nm", "mm"), self.pick(0, 20, 200, 900))

    def fault(self):
        member, times, delay = self.pick(*REQUESTS), self.pick(1, 2, 5), self.pick(None, None, 50, 500)
        if delay:
            self.sim.delay_method(member, delay, times=times)
        else:
            self.sim.fail_method(member, NM + ".Failed", "chaos: 100%s", times=times)

    def unanswered(self):
        """A request that NetworkManager takes with it."""
        self.sim.drop_method(PROFILE + ".GetSecrets", times=1)
        self.send("wifi/config/get", None)
        time.sleep(0.05)
        self.sim.restart("nm", 50)
        self.sim.clear_faults()  # or another request would hold things up for 25 seconds

    def set_config(self):
        kind = self.pick(*INTERFACES)
        self.send(f"{kind}/config/set", json.dumps({**self.pick(*IPV4), **self.pick(*FIELDS[kind])}))

    def get(self):
        self.send(self.pick(*QUERIES), self.pick(None, '{"interface": "wlan0"}', '{"interface": 5}', "[]", "{broken"))

    def plug(self):
        kind, options = EXTRA[self.pick(*EXTRA)]
        self.sim.add_device(kind, **options)

    def unplug(self):
        self.sim.remove_device(self.pick(*EXTRA))

    def device(self):
        act, *more = self.pick(("disconnect",), ("fail_device", 4), ("hang_up",), ("set_managed", False),
                               ("set_managed", True), ("set_carrier", False), ("set_carrier", True))
        getattr(self.sim, act)("eth0" if act == "set_carrier" else self.pick(*INTERFACES.values()), *more)

    def storm(self):
        for _ in range(30):
            self.sim.set_device_state("br0", self.random.choice((20, 30, 40, 70, 100, 120)))

    def air(self):
        ssid = self.pick("Cafe", "Printer", "Gateway-Home", "New")
        if self.pick(True, False):
            self.sim.remove_access_point(ssid, "wlan0")
        else:
            self.sim.add_access_point("wlan0", ssid=ssid, security="none" if ssid == "Cafe" else "wpa2")
        self.sim.strength_burst(2, "wlan0")

    def modem(self):
        self.sim.refuse_modem(self.pick(0, 0, 29), "cdc-wdm0")
        self.sim.set_signal(self.random.randrange(101), "cdc-wdm0")
        self.sim.set_access_technologies(self.pick(["lte"], 0), "cdc-wdm0")

    def profile(self):
        name = self.pick("Ethernet", "Gateway-Home", "Broadband")
        if self.pick(True, False):
            self.sim.remove_profile(name)
        else:
            self.sim.modify_profile(name, {"ipv4": {"method": "link-local"}})

    # the end

    def clear(self):
        self.broker("start")
        self.broker("SIGCONT")
        self.sim.clear_faults()
        until(lambda: {d["interface"] for d in self.sim.devices()} >= set(INTERFACES.values()), "all devices")
        for interface in {d["interface"] for d in self.sim.devices()} & set(EXTRA):
            self.sim.remove_device(interface)
        for interface in INTERFACES.values():
            self.sim.set_managed(interface, True)
        self.sim.set_carrier("eth0", True)
        self.sim.refuse_modem(0, "cdc-wdm0")
        self.world.client.close()

    def check(self):
        service = self.world.service
        until(lambda: service.log.rfind("[IPC] Connected.") > service.log.rfind("[IPC] Disconnected."), "a session")
        self.wait_states("by itself", also_gone=True)
        self.sim.reset_calls()
        sessions = service.log.count("IPC Connected")
        self.broker("SIGKILL")
        self.broker("start")
        service.wait_log("IPC Connected", sessions + 1)
        client = self.world.client = Client(self.world.port)
        client.settle()
        self.wait_states("after another session")
        names = [profile["name"] for profile in self.sim.profiles()]
        assert len(set(names)) == len(names), f"one profile twice: {names}"
        assert self.writes() <= 12, f"{self.writes()} requests that write"
        # A new process knows only the configuration file and NetworkManager: for it, too, nothing is left to change.
        assert service.alive, "the service has ended"
        held = [client.ask(f"{kind}/config/get") for kind in INTERFACES]
        self.world.end_service()
        self.sim.reset_calls()
        client.forget()
        self.world.run(None)
        assert self.writes() == 0, f"changed again: {self.sim.calls(PROFILE)}"
        assert held == [client.ask(f"{kind}/config/get") for kind in INTERFACES]

    def writes(self):
        return sum(self.sim.count_calls(member) for member in WRITES)

    def wait_states(self, when, also_gone=False):
        """The retained documents show the devices as they are; with also_gone they may show one that is gone."""
        def wrong():
            states = {d["interface"]: WORDS.get(d["state"], "Unavailable") for d in self.sim.devices()}
            fresh = Client(self.world.port)
            shown = [fresh.wait(f"{kind}/state").document for kind in INTERFACES]
            fresh.close()
            return [(d["interface"], d["stateStr"]) for d in shown if d["stateStr"] != states.get(d["interface"])
                    and not (also_gone and d["interface"] not in states)]
        until(lambda: not wrong(), lambda: f"{when}: {wrong()} but {self.sim.devices()}")


STEPS = ((Chaos.broker, Chaos.restart, Chaos.fault, Chaos.unanswered, Chaos.set_config, Chaos.get, Chaos.plug,
          Chaos.unplug, Chaos.device, Chaos.storm, Chaos.air, Chaos.modem, Chaos.profile),
         (20, 4, 8, 1, 14, 10, 5, 4, 12, 3, 5, 4, 4))


def main(first, seconds, count=1):
    failed = []
    with Stack() as gateway:
        gateway.start_bus()
        gateway.start_gateway()
        os.environ["DBUS_SYSTEM_BUS_ADDRESS"] = gateway.bus.address
        sim = Sim(gateway.bus.address)
        for seed in range(int(first), int(first) + int(count)):
            sim.reset()
            with World() as world:
                world.sim = sim
                world.begin()
                chaos, start = Chaos(world, seed), time.monotonic()
                try:
                    chaos.run(float(seconds))
                    print(f"seed {seed}: ok, {len(chaos.steps)} steps, {time.monotonic() - start:.1f} s", flush=True)
                except Exception:
                    failed.append(seed)
                    traceback.print_exc(file=sys.stdout)
                    print(f"seed {seed}: FAILED after", *chaos.steps, world.service.tail, sep="\n  ", flush=True)
                    pathlib.Path(os.environ.get("CHAOS_LOGS", "/tmp"), f"chaos-{seed}.log").write_text(world.service.log)
    print(f"{count} seeds, failed: {failed or 'none'}")
    sys.exit(bool(failed))


if __name__ == "__main__":
    main(*sys.argv[1:])
