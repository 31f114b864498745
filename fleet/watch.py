# SPDX-License-Identifier: MIT
"""What an operator sees of the fleet: all that is published, all that is retained, whether it equals the gateways' own."""
import collections
import time

from .gateway import Client

PATIENCE = 60  # s until a fetch is given up
QUIET = 1.0  # s without a retained document: that was all of them


def serial(payload):
    """The serial number that fleet_clients has put into a document; None in a real gateway's."""
    return int(payload[6:payload.index(b",")]) if payload.startswith(b'{"n": ') else None


class Watch(Client):
    """Sees every document as it is published, and remembers the serial numbers."""

    def __init__(self, port, certificates):
        self.serials = collections.defaultdict(set)  # by gateway
        self.count = self.bytes = 0
        super().__init__(port, "fleet", certificates, "operator", hook=self._note)

    def _note(self, topic, message):
        if message.retain or topic.endswith("/get"):
            return
        self.count += 1
        self.bytes += len(message.payload)
        number = serial(message.payload)
        if number:
            self.serials[topic.split("/", 1)[0]].add(number)

    def missing(self, before, after):
        """Documents between two states of the many ({"name/topic": serial}) that never came."""
        first, last = highest(before), highest(after)
        return sum(last[name] - first[name] - sum(first[name] < n <= last[name] for n in set(self.serials[name]))
                   for name in last)


def highest(documents):
    """{name: serial of its last document} from {"name/topic": serial}"""
    result = collections.Counter()
    for topic, number in documents.items():
        name = topic.split("/", 1)[0]
        result[name] = max(result[name], number)
    return result


def fetch(port, certificates, filters=("#",), qos=0, patience=PATIENCE):
    """What a new subscription gets of what is retained: {topic: payload}, seconds; None when it was refused."""
    start = last = time.monotonic()
    retained = {}

    def note(topic, message):
        nonlocal last
        if message.retain:
            retained[topic] = message.payload
            last = time.monotonic()

    with Client(port, "fleet", certificates, "operator", filters, qos, note) as client:
        if not client.granted.wait(patience) or client.code == 128:
            return None, time.monotonic() - start
        last = max(last, time.monotonic())
        while time.monotonic() - last < QUIET:
            time.sleep(0.02)
    return retained, last - start


def differing(port, certificates, gateways, clients, before):
    """Topics whose retained document at this node is not the gateway's own; None when nothing could be had.

    before: an earlier state of the many; what came between then and now is right. A real gateway's has to be that of now.
    """
    own_before = {g.name: g.documents() for g in gateways}
    retained, _ = fetch(port, certificates)
    after = clients.documents() if clients else {}
    own_after = {g.name: g.documents() for g in gateways}
    if retained is None:
        return None
    wrong = {topic for topic in before
             if topic not in retained or not before[topic] <= serial(retained[topic]) <= after[topic]}
    for name, documents in own_before.items():
        wrong |= {f"{name}/{topic}" for topic, payload in documents.items()
                  if retained.get(f"{name}/{topic}") not in (payload, own_after[name].get(topic))}
    return wrong
