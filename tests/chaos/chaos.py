"""Random faults from a seed: broker, NetworkManager, ModemManager, hardware and commands, all at once.

Afterwards the faults are cleared, and everything has to be right again: by itself what the service follows, and
after one more session whatever a fault made it miss. A seed gives the same steps and pauses each time.
"""
import argparse
import configparser
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
from conftest import BASE, BINARY, NM, PROFILE, Client, Sim, Stack, World, until  # noqa: E402

WORDS = {100: "Connected", 110: "Disconnecting", 30: "Disconnected"}  # all others: Unavailable
WORDS.update(dict.fromkeys((40, 50, 60, 70, 80, 90), "Connecting"))
INTERFACES = {"ethernet": "eth0", "wifi": "wlan0", "modem": "cdc-wdm0"}
REQUESTS = [f"{PROFILE}.{m}" for m in ("GetSecrets", "Update", "ClearSecrets")] + [
    f"{NM}.{m}" for m in ("ActivateConnection", "AddAndActivateConnection", "Device.Wireless.RequestScan")]
WRITES = (PROFILE + ".Update", PROFILE + ".ClearSecrets", NM + ".AddAndActivateConnection")
EXTRA = {"eth1": ("wired", {}), "wlan1": ("wifi", {}), "cdc-wdm1": (
    "modem", {"control_port": "cdc-wdm1", "data_interface": "wwan1", "imei": "000000000000001"})}
QUERIES = ("status/get", "info/get", "wifi/aps/get", "wifi/networks/get", "modem/stats/get", "ethernet/state/get",
           "wifi/config/get", "modem/config/get", "no/such/get")
IPV4 = ({"method": "auto"}, {"method": "link-local"},
        {"method": "manual", "address": "10.1.0.5", "netmask": "255.255.0.0"},
        {"method": "manual", "address": "10.0.0.6", "netmask": "255.255.255.0", "gateway": "10.0.0.1",
         "dns0": "192.0.2.53", "dns1": "192.0.2.54"})
NETWORKS = (("Gateway-Home", "correct horse"), ("Gateway-Home", "wrong password"), ("Cafe", ""), ("OldRouter", "abcde"),
            ("Printer", "printer-1234"), ("Mixed", "mixed-1234"), ("Nowhere", "12345678"))
MODEMS = ({"apn": "internet"}, {"apn": "web", "username": "me", "password": "secret", "networkId": "26201"},
          {"apn": "internet", "pin": "1234"})
# What the service takes for keys that its file does not have, as far as it is not an empty text.
DEFAULTS = {"Ethernet": {"id": "Ethernet", "method": "auto"}, "Wifi": {"method": "auto"},
            "Modem": {"id": "Broadband", "apn": "internet", "method": "auto"}}


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
            step = self.random.choices(*STEPS)[0]
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

    def pick(self, values):
        value = self.random.choice(values)
        self.steps[-1] += f" {value}"
        return value

    def send(self, command, payload):
        self.world.client.mqtt.publish(f"{BASE}/{command}", payload)  # lost when there is no session

    # steps

    def broker(self, act=None):
        act = act or self.pick(("SIGKILL", "SIGTERM", "SIGSTOP", "SIGCONT", "SIGCONT", "start", "start", "start"))
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
        service, gap = self.pick(("nm", "nm", "mm")), self.pick((0, 20, 200, 900))
        self.sim.restart(service, gap)

    def fault(self):
        member, times = self.pick(REQUESTS), self.pick((1, 2, 5))
        delay = self.pick((None, None, 50, 500))
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
        kind = self.pick(tuple(INTERFACES))
        network, ipv4, modem = (self.random.choice(table) for table in (NETWORKS, IPV4, MODEMS))
        fields = {"method": "auto", **modem} if kind == "modem" else dict(ipv4)
        if kind == "wifi":
            fields.update(zip(("ssid", "key"), network))
        self.steps[-1] += f" {fields}"
        self.send(f"{kind}/config/set", json.dumps(fields))

    def get(self):
        self.send(self.pick(QUERIES), self.pick((None, '{"interface": "wlan0"}', '{"interface": 5}', "[]", "{broken")))

    def plug(self):
        interface = self.pick(tuple(EXTRA))
        kind, options = EXTRA[interface]
        self.sim.add_device(kind, **(options or {"interface": interface}))

    def unplug(self):
        self.sim.remove_device(self.pick(tuple(EXTRA)))

    def device(self):
        act, *more = self.pick((("disconnect",), ("fail_device", 4), ("hang_up",), ("set_managed", False),
                                ("set_managed", True), ("set_carrier", False), ("set_carrier", True)))
        getattr(self.sim, act)("eth0" if act == "set_carrier" else self.pick(tuple(INTERFACES.values())), *more)

    def storm(self):
        for _ in range(30):
            self.sim.set_device_state("br0", self.random.choice((20, 30, 40, 70, 100, 120)))

    def air(self):
        ssid = self.pick(("Cafe", "Printer", "Gateway-Home", "New"))
        if self.pick((True, False)):
            self.sim.remove_access_point(ssid, "wlan0")
        else:
            self.sim.add_access_point("wlan0", ssid=ssid, security="none" if ssid == "Cafe" else "wpa2")
        self.sim.strength_burst(2, "wlan0")

    def modem(self):
        refusal, signal_quality, technologies = self.pick((0, 0, 29)), self.pick(range(101)), self.pick((["lte"], 0))
        self.sim.refuse_modem(refusal, "cdc-wdm0")
        self.sim.set_signal(signal_quality, "cdc-wdm0")
        self.sim.set_access_technologies(technologies, "cdc-wdm0")

    def profile(self):
        name = self.pick(("Ethernet", "Gateway-Home", "Broadband"))
        if self.pick((True, False)):
            self.sim.remove_profile(name)
        else:
            self.sim.modify_profile(name, {"ipv4": {"method": "link-local"}})

    # the end

    def clear(self):
        self.broker("start")
        self.broker("SIGCONT")
        self.sim.clear_faults()
        until(lambda: {d["interface"] for d in self.sim.devices()} >= set(INTERFACES.values()), "all devices")
        for interface in (d["interface"] for d in self.sim.devices()):
            if interface in EXTRA:
                self.sim.remove_device(interface)
            elif interface in INTERFACES.values():
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
        self.broker("SIGKILL")
        self.broker("start")
        service.wait_log("IPC Connected", sessions + 1)
        client = self.world.client = Client(self.world.port)
        self.wait_states("after another session")
        until(lambda: not self.wrong_profiles(), self.wrong_profiles)
        names = [profile["name"] for profile in self.sim.profiles()]
        assert len(set(names)) == len(names), f"one profile twice: {names}"
        assert self.writes() <= 12, f"{self.writes()} requests that write"
        # The same configuration once more: there is nothing left to change.
        self.sim.reset_calls()
        for kind in INTERFACES:
            record = dict(self.configuration()[kind.capitalize()])
            record.update(netmask=record.get("netmask") or record.get("mask"), networkId=record.get("network_id"))
            self.send(f"{kind}/config/set", json.dumps(record))
            assert client.ask(f"{kind}/state/get")["interface"] == INTERFACES[kind]
        client.settle()
        assert self.writes() == 0, f"changed again: {self.sim.calls(PROFILE)}"
        self.wait_states("in the end")
        if FOLLOWS:
            self.check_followed()
        assert service.alive, "the service has ended"

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
            try:
                shown = [fresh.wait(f"{kind}/state").document for kind in INTERFACES]
            finally:
                fresh.close()
            return [(d["interface"], d["stateStr"]) for d in shown if d["stateStr"] != states.get(d["interface"])
                    and not (also_gone and d["interface"] not in states)]
        until(lambda: not wrong(), lambda: f"{when}: {wrong()} but {self.sim.devices()}")

    def configuration(self):
        parser = configparser.RawConfigParser()
        parser.read_dict(DEFAULTS)
        parser.read(self.world.folder / "lanvoy.conf")
        return parser

    def wrong_profiles(self):
        """Where NetworkManager's profiles differ from the configuration file: (what, configured, held)."""
        config = self.configuration()
        held = {p["name"]: self.sim.profile(p["path"]) for p in self.sim.profiles()}
        in_range = [p["ssid"] for p in self.sim.access_points("wlan0")]
        wrong = []
        for group, name in (("Ethernet", "id"), ("Wifi", "ssid"), ("Modem", "id")):
            record = config[group]
            if group == "Wifi" and record.get("ssid") not in in_range:
                continue
            profile = held.get(record[name], {})
            ipv4, gsm = profile.get("ipv4", {}), profile.get("gsm", {})
            security = profile.get("802-11-wireless-security", {})
            pairs = [(record["method"], ipv4.get("method"))]
            if record["method"] != "link-local":
                address = [record["address"]] if record["method"] == "manual" else []
                pairs += [(address, [a["address"] for a in ipv4.get("address-data", [])]),
                          (record.get("gateway", "") if address else "", ipv4.get("gateway", ""))]
            if group == "Wifi" and security:
                pairs += [(record.get("key", ""), security.get("psk", security.get("wep-key0")))]
            if group == "Modem":
                pairs += [(record.get(key.replace("-", "_"), ""), gsm.get(key, ""))
                          for key in ("apn", "username", "password", "pin", "network-id")]
            wrong += [(group, wanted, found) for wanted, found in pairs if wanted != found]
        return wrong


FOLLOWS = os.environ.get("LANVOY_FOLLOW") == "1"
STEPS = ((Chaos.broker, Chaos.restart, Chaos.fault, Chaos.unanswered, Chaos.set_config, Chaos.get, Chaos.plug,
          Chaos.unplug, Chaos.device, Chaos.storm, Chaos.air, Chaos.modem, Chaos.profile),
         (20, 4, 8, 1, 14, 10, 5, 4, 12, 3, 5, 4, 4))


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("seed", type=int)
    parser.add_argument("seconds", type=float)
    parser.add_argument("count", type=int, nargs="?", default=1)
    arguments = parser.parse_args()
    failed = []
    with Stack() as gateway:
        gateway.start_bus()
        gateway.start_gateway()
        os.environ["DBUS_SYSTEM_BUS_ADDRESS"] = gateway.bus.address
        sim = Sim(gateway.bus.address)
        for seed in range(arguments.seed, arguments.seed + arguments.count):
            sim.reset()
            with World() as world:
                world.sim = sim
                world.begin()
                chaos, start = Chaos(world, seed), time.monotonic()
                try:
                    chaos.run(arguments.seconds)
                    print(f"seed {seed}: ok, {len(chaos.steps)} steps, {time.monotonic() - start:.1f} s", flush=True)
                except Exception:
                    failed.append(seed)
                    traceback.print_exc(file=sys.stdout)
                    print(f"seed {seed}: FAILED after", *chaos.steps, world.service.tail, sep="\n  ", flush=True)
                    (pathlib.Path(os.environ.get("CHAOS_LOGS", "/tmp")) / f"chaos-{seed}.log").write_text(
                        world.service.log)
    print(f"{arguments.count} seeds, failed: {failed or 'none'} ({BINARY})")
    sys.exit(bool(failed))


if __name__ == "__main__":
    main()
