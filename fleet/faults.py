# SPDX-License-Identifier: MIT
"""Faults, and what an operator sees of each: what fails for how long, what is lost, when all is right again."""
import contextlib
import signal
import sys
import threading
import time

from .cluster import Node
from .gateway import Client
from .watch import Watch, differing, fetch, highest

PATIENCE = 2  # s until a command counts as failed
SUBSCRIPTION_PATIENCE = 5  # s until a new subscription does
DOWN = 30  # s that a node stays away
CUT = 60  # s that the line of a gateway is cut
BOUND = 300  # s until a check is given up


class Probe(threading.Thread):
    """Tries something again and again; knows when it failed last."""

    def __init__(self, label, attempt):
        super().__init__(daemon=True)
        self.label, self.attempt = label, attempt
        self.total = self.failed = 0
        self.last = 0.0  # s after the start at which the last failed attempt ended
        self.ending = threading.Event()
        self.begin = time.monotonic()
        self.start()

    def run(self):
        while not self.ending.is_set():
            self.total += 1
            if not self.attempt():
                self.failed += 1
                self.last = time.monotonic() - self.begin
            self.ending.wait(0.5)

    def stop(self):
        self.ending.set()
        self.join()

    def result(self):
        self.stop()
        return f"{self.failed} of {self.total} failed, the last after {self.last:.0f} s" if self.failed else "none failed"


class Asker:
    """Sends a command to a gateway and waits for its answer, over a connection to one node that stays."""

    def __init__(self, port, certificates, gateway, qos):
        # Two different documents, so that the answers are not taken for each other's.
        self.topic = f"{gateway.name}/{('wifi', 'ethernet')[qos]}/state"
        self.qos = qos
        self.answered = threading.Event()
        self.client = Client(port, "fleet", certificates, "operator", [self.topic], hook=self._note)
        self.client.granted.wait(PATIENCE)

    def _note(self, _topic, message):
        if not message.retain:
            self.answered.set()

    def __call__(self):
        self.answered.clear()
        sent = self.client.publish(f"{self.topic}/get", qos=self.qos)
        limit = time.monotonic() + PATIENCE
        with contextlib.suppress(RuntimeError, ValueError):  # there was no connection, or too much waits already
            sent.wait_for_publish(PATIENCE)
            return self.answered.wait(max(0, limit - time.monotonic())) and sent.is_published()
        return False


def complaint(topics):
    if topics is None:
        return "nothing to be had"
    return f"{len(topics)}, such as {min(topics)}" if topics else "none"


class Fleet:
    """What the faults work on."""

    def __init__(self, cluster, gateways, clients, line):
        """gateways: the real ones; clients: the many, or None; line: the way to the nodes of the second gateway"""
        self.cluster, self.gateways, self.clients, self.line = cluster, gateways, clients, line

    def all_connected(self):
        return all(gateway.connected for gateway in self.gateways) and (
            not self.clients or self.clients.counts()[0] == len(self.clients.names))

    def wait_equal(self):
        """Waits until each node has every document that a gateway has now, or a later one.

        Returns what was not right at first, and {node: what is not right at the end}.
        """
        limit = time.monotonic() + BOUND
        wrong = dict.fromkeys(self.cluster.nodes)
        before = self.clients.documents() if self.clients else {}
        at_first = None
        while wrong and time.monotonic() < limit:
            for node in list(wrong):
                wrong[node] = differing(node.mqtt, self.cluster.folder, self.gateways, self.clients, before)
                at_first = at_first or complaint(wrong[node])
                if wrong[node] is not None and not wrong[node]:
                    del wrong[node]
                else:
                    print(f"  {node.name}, not right yet: {complaint(wrong[node])}", file=sys.stderr, flush=True)
        return at_first, wrong

    def foreign_branch(self, watch):
        """What a gateway can do to another's branch with its own certificate; `watch` sees all that is written."""
        own, other = self.gateways[0].name, self.gateways[1].name
        node = self.cluster.nodes[0]
        found = []
        with Client(node.mqtt, f"fleet/{other}", self.cluster.folder, own, ["info"]) as thief:
            if not thief.granted.wait(30) or thief.code != 128 or thief.documents:
                found.append("read")
            thief.publish("intruder", "x", 1, True)
            time.sleep(2)
        retained, _ = fetch(node.mqtt, self.cluster.folder, [f"{other}/#"])
        if not retained or f"{other}/intruder" in {**retained, **watch.documents}:
            found.append("write")
        return found


def probes(fleet, node, near, far, ending):
    """near, far: a gateway that is hit and one that is not, or None; node: the operator's; ending: where to be stopped"""
    folder, port = fleet.cluster.folder, node.mqtt
    attempts = []
    for label, gateway in (("that was hit", near), ("that was not", far)):
        for qos in (0, 1):
            if gateway:
                asker = Asker(port, folder, gateway, qos)
                ending.callback(asker.client.close)
                attempts.append((f"commands, QoS {qos}, to a gateway {label}", asker))
    sample = [f"{fleet.gateways[0].name}/info"]
    for qos in (0, 1):
        attempts.append((f"new subscriptions, QoS {qos}",
                         lambda q=qos: bool(fetch(port, folder, sample, q, SUBSCRIPTION_PATIENCE)[0])))
    for label, attempt in attempts:
        probe = Probe(label, attempt)
        ending.callback(probe.stop)
        yield probe


def at(fleet, node):
    """A gateway whose bridge is connected to this node; not one of the first two, which have other duties."""
    connected = {c.get("mqtt_client") for c in node.ask("connz?limit=1000000").get("connections", [])}
    return next((gateway for gateway in fleet.gateways[2:] if gateway.name in connected), None)


def run(fleet, observer, near, far, strike, heal):
    """One fault: strike() and then heal(), seen from the node `observer`; yields rows of the table."""
    with Watch(observer.mqtt, fleet.cluster.folder) as watch, contextlib.ExitStack() as ending:
        watch.granted.wait(BOUND)
        before = fleet.clients.documents() if fleet.clients else {}
        running = list(probes(fleet, observer, near, far, ending))
        time.sleep(3)  # they work
        refused = sum(map(Node.refused, fleet.cluster.nodes))
        begin = time.monotonic()
        for probe in running:
            probe.begin = begin
        strike()
        heal()
        healed = time.monotonic()
        time.sleep(1)  # by then all have noticed
        while not fleet.all_connected() and time.monotonic() < healed + BOUND:
            time.sleep(0.2)
        connected = time.monotonic()
        at_first, wrong = fleet.wait_equal()
        equal = time.monotonic()
        for probe in running:
            yield probe.label, probe.result()
        yield "all gateways connected", f"after {connected - begin:.0f} s"
        yield "retained documents that a node could not store", str(sum(map(Node.refused, fleet.cluster.nodes)) - refused)
        yield "retained documents that were old then", at_first
        if fleet.clients:
            after = fleet.clients.documents()
            time.sleep(3)
            published = sum(highest(after).values()) - sum(highest(before).values())
            yield "changes that a watching operator did not see", f"{watch.missing(before, after)} of {published}"
        found = fleet.foreign_branch(watch)
    if wrong:
        yield "retained documents NOT right", f"after {equal - begin:.0f} s: " + "; ".join(
            f"{node.name}: {complaint(topics)}" for node, topics in wrong.items())
    else:
        yield "all retained documents right at all nodes", f"after {equal - begin:.0f} s, {equal - healed:.0f} s after the repair"
    yield "another gateway's branch", " and ".join(found).upper() + " POSSIBLE" if found else "refused, reading and writing"


def lose(fleet, nodes):
    """SIGKILL for these nodes; they come back after a while."""
    def heal():
        time.sleep(DOWN)
        for node in nodes:
            node.start()

    staying = next(node for node in fleet.cluster.nodes if node not in nodes)
    return run(fleet, staying, at(fleet, nodes[0]), at(fleet, staying),
               lambda: [node.kill() for node in nodes], heal)


def lose_leader(fleet):
    return lose(fleet, [fleet.cluster.leader()])


def lose_follower(fleet):
    leader = fleet.cluster.leader()
    others = [node for node in fleet.cluster.nodes if node is not leader]
    return lose(fleet, [max(others, key=lambda node: node.ask("varz").get("connections", 0))])


def lose_two(fleet):
    leader = fleet.cluster.leader()
    return lose(fleet, [leader, next(node for node in fleet.cluster.nodes if node is not leader)])


def cut_line(fleet):
    """The line of the second gateway is silent for a minute; its connections do not survive that."""
    def heal():
        time.sleep(CUT)
        fleet.line.restart()

    nodes = fleet.cluster.nodes
    return run(fleet, nodes[0], fleet.gateways[1], fleet.gateways[-1], fleet.line.silence, heal)


def restart_all(fleet):
    nodes = fleet.cluster.nodes

    def strike():
        for node in nodes:
            node.process.terminate()
        for node in nodes:
            node.process.wait()

    return run(fleet, nodes[0], fleet.gateways[-1], None, strike, lambda: [node.start() for node in nodes])


def upgrade(fleet):
    """A node ends as `systemctl restart nats-server` has it end, and starts again."""
    node = fleet.cluster.leader()
    staying = next(n for n in fleet.cluster.nodes if n is not node)

    def strike():
        node.process.send_signal(signal.SIGUSR2)
        node.process.wait()

    return run(fleet, staying, at(fleet, node), at(fleet, staying), strike, node.start)


FAULTS = (
    ("SIGKILL of the node that leads the retained documents, 30 s away", lose_leader),
    ("SIGKILL of a node that does not lead them, 30 s away", lose_follower),
    ("SIGKILL of two nodes, 30 s away", lose_two),
    ("a gateway's line cut for 60 s", cut_line),
    ("all nodes restarted", restart_all),
    ("the leading node ended and started as for an upgrade", upgrade),
)
