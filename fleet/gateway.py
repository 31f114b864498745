# SPDX-License-Identifier: MIT
"""A whole gateway on this machine: message bus, simulated services, lanvoy, and a broker with its bridge to the cluster."""
import subprocess
import threading

import paho.mqtt.client as mqtt

from sim.stack import Stack

BASE = "vexo/network"
SETTINGS = {"Wifi/ssid": "Gateway-Home", "Wifi/key": "correct horse"}
# What the bridge lets out and the broker retains.
DOCUMENTS = {"info", "status", "wifi/aps", "wifi/networks", "modem/signal", "modem/stats"} | {
    f"{kind}/state" for kind in ("ethernet", "wifi", "modem")}


class Client:
    """A client with the last document of each topic below `base`, and a hook for every message."""

    def __init__(self, port, base, certificates=None, name=None, filters=("#",), qos=0, hook=None):
        self.base, self.hook = base, hook
        self.documents = {}  # by topic below the base
        self.retained = 0  # messages that were kept for us
        self.granted = threading.Event()
        self.code = None  # what the subscription got; 128: refused
        self.mqtt = mqtt.Client()
        if certificates:
            self.mqtt.tls_set(certificates / "ca.crt", certificates / f"{name}.crt", certificates / f"{name}.key")
        self.mqtt.on_connect = lambda *_: self.mqtt.subscribe([(f"{base}/{f}", qos) for f in filters])
        self.mqtt.on_subscribe = self._on_subscribe
        self.mqtt.on_message = self._on_message
        self.mqtt.reconnect_delay_set(1, 2)
        self.mqtt.connect_async("localhost", port)
        self.mqtt.loop_start()

    def _on_subscribe(self, _client, _data, _id, granted):
        self.code = max(granted)
        self.granted.set()

    def _on_message(self, _client, _data, message):
        topic = message.topic[len(self.base) + 1:]
        self.retained += message.retain
        self.documents[topic] = message.payload
        if self.hook:
            self.hook(topic, message)

    def publish(self, topic, payload=None, qos=0, retain=False):
        return self.mqtt.publish(f"{self.base}/{topic}", payload, qos, retain)

    def close(self):
        self.mqtt.disconnect()
        self.mqtt.loop_stop()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()


class Gateway(Stack):
    """One gateway; `name` is its branch in the fleet."""

    def __init__(self, name, binary, cluster, ports, *options):
        """ports: of the nodes (or of a line to them) in the order in which the bridge tries them; options: of the simulation"""
        super().__init__()
        self.name, self.binary, self.options = name, binary, options
        self.bridge = cluster.bridge(name, ports)
        self.local = self.link = None

    def start(self):
        self.start_bus()
        self.start_gateway(*self.options)
        self.start_broker(self.bridge)
        self.start_service(self.binary, SETTINGS, stdout=subprocess.DEVNULL)
        self.local = Client(self.port, BASE)
        self.link = Client(self.port, f"fleet/{self.name}", filters=["online"])
        return self

    @property
    def connected(self):
        """Whether the bridge is up, as the gateway itself sees it."""
        return self.link.documents.get("online") == b"1"

    def documents(self):
        """What is retained at the gateway itself and goes to the fleet: {topic: payload}."""
        return {topic: payload for topic, payload in dict(self.local.documents).items() if topic in DOCUMENTS}

    def stop(self):
        for client in filter(None, (self.local, self.link)):
            client.close()
        super().stop()
