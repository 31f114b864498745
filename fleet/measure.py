# SPDX-License-Identifier: MIT
"""The fleet at its normal work: what it costs the nodes, and how long a state change and a command take."""
import threading
import time

from sim.client import Sim

from .clients import QUESTIONS
from .gateway import Client
from .watch import Watch, fetch

PATIENCE = 5  # s until a sample counts as lost
CONNECTED, DISCONNECTED = 100, 30  # NetworkManager's device states


class Poller(threading.Thread):
    """A client that asks every gateway once a minute for every document but the configuration."""

    def __init__(self, port, certificates, names):
        super().__init__(daemon=True)
        self.client = Client(port, "fleet", certificates, "operator", ["none"])
        self.names = names
        self.ending = threading.Event()
        self.start()

    def run(self):
        while not self.ending.is_set():
            for number, name in enumerate(self.names):
                for question in QUESTIONS:
                    self.client.publish(f"{name}/{question}")
                if self.ending.wait(60 / len(self.names)):
                    break

    def stop(self):
        self.ending.set()
        self.join()
        self.client.close()


class Latency:
    """Times from a gateway to an operator who is connected to another node than the gateway, and there and back."""

    def __init__(self, cluster, gateways):
        self.gateways = gateways
        self.arrived = threading.Event()
        self.expected = None
        self.observers = [Client(node.mqtt, "fleet", cluster.folder, "operator", ["+/wifi/state", "+/info"],
                                 hook=self._note) for node in cluster.nodes]
        self.sims = [Sim(gateway.bus.address) for gateway in gateways]
        self.changes, self.commands, self.lost = [], [], 0

    def _note(self, topic, message):
        if topic == self.expected and not message.retain:
            self.arrived.set()

    def _sample(self, times, topic, act):
        self.arrived.clear()
        self.expected = topic
        start = time.monotonic()
        act()
        if self.arrived.wait(PATIENCE):
            times.append(time.monotonic() - start)
        else:
            self.lost += 1
        self.expected = None

    def run(self, seconds):
        end = time.monotonic() + seconds
        turn = 0
        while time.monotonic() < end:
            number = turn % len(self.gateways)
            name, sim = self.gateways[number].name, self.sims[number]
            # Its bridge begins with node `number`; these observers are at the next one.
            observer = self.observers[(number + 1) % len(self.observers)]
            state = DISCONNECTED if turn // len(self.gateways) % 2 == 0 else CONNECTED
            self._sample(self.changes, f"{name}/wifi/state", lambda: sim.set_device_state("wlan0", state))
            self._sample(self.commands, f"{name}/info", lambda: observer.publish(f"{name}/info/get"))
            turn += 1
            time.sleep(0.05)

    def close(self):
        for observer in self.observers:
            observer.close()
        for sim in self.sims:
            sim.close()


def percentile(times, percent):
    return sorted(times)[min(len(times) - 1, len(times) * percent // 100)] if times else float("nan")


def spread(times):
    return (f"{percentile(times, 50) * 1e3:.1f} ms median, {percentile(times, 99) * 1e3:.1f} ms p99, "
            f"{max(times, default=0) * 1e3:.0f} ms worst of {len(times)}")


def steady(cluster, gateways, seconds, count):
    """Rows (what, value) of the table; `count` gateways in all."""
    latency = Latency(cluster, gateways)
    with Watch(cluster.nodes[0].mqtt, cluster.folder) as watch:
        watch.granted.wait()
        time.sleep(5)  # the retained documents have come
        before = [node.usage() for node in cluster.nodes]
        documents, size, start = watch.count, watch.bytes, time.monotonic()
        latency.run(seconds)
        took = time.monotonic() - start
        after = [node.usage() for node in cluster.nodes]
        documents, size = watch.count - documents, watch.bytes - size
    latency.close()
    processor = [(late[1] - early[1]) / took * 100 for early, late in zip(before, after)]
    yield "connections at each node", ", ".join(str(node.ask("varz").get("connections")) for node in cluster.nodes)
    yield "documents in", f"{documents / took:.0f}/s, {size / took / 1e6:.2f} MB/s of payload"
    yield "processor of each node", ", ".join(f"{p:.0f} %" for p in processor) + " of a core"
    yield "... of all nodes per 1000 gateways", f"{sum(processor) / count * 1000:.0f} %"
    yield "resident memory of each node", ", ".join(f"{late[0] / 2**20:.0f} MiB" for late in after)
    yield "... of a node per 1000 gateways", f"{sum(late[0] for late in after) / 3 / 2**20 / count * 1000:.0f} MiB"
    yield "state change to an operator at another node", spread(latency.changes)
    yield "command from there, and the answer back", spread(latency.commands)
    if latency.lost:
        yield "... that never came", str(latency.lost)
    for node in cluster.nodes:
        retained, took = fetch(node.mqtt, cluster.folder)
        yield (f"retained documents at {node.name}", "refused" if retained is None else
               f"{len(retained)}, {sum(map(len, retained.values())) / 1e6:.1f} MB, all there after {took:.2f} s")
    yield from streams(cluster)


def streams(cluster):
    for name, stream in sorted(cluster.nodes[0].streams().items()):
        state = stream["state"]
        yield f"stream {name}", f"{state['messages']} messages, {state['bytes'] / 1e6:.1f} MB at each node"
