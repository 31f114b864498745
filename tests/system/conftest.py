# SPDX-License-Identifier: MIT
"""What the system tests share: a private world, the service in it and a client that records its messages."""
import json
import os
import pathlib
import re
import sys
import threading
import time

import paho.mqtt.client as mqtt
import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT))

from sim.client import Sim  # noqa: E402
from sim.stack import Stack, end  # noqa: E402

BINARY = pathlib.Path(os.environ.get("LANVOY_BINARY", ROOT / "build/debug/src/app/lanvoy")).resolve()
BASE = "vexo/network"
DEADLINE = 60  # seconds until a test gives up on an event; never a measure of speed
NM = "org.freedesktop.NetworkManager"
PROFILE = NM + ".Settings.Connection"
# The documents that have a query, and the kind of the devices they are about.
DEVICE_DOCUMENTS = {("status",): None, ("ethernet/state", "ethernet/config"): "wired",
                    ("wifi/state", "wifi/config", "wifi/aps", "wifi/networks"): "wifi",
                    ("modem/state", "modem/config"): "modem"}


def until(condition, what):
    """Waits for condition() to be true and returns its value."""
    limit = time.monotonic() + DEADLINE
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > limit:
            raise AssertionError(f"not within {DEADLINE} s: {what() if callable(what) else what}")
        time.sleep(0.005)


class Message:
    def __init__(self, message, base):
        self.topic, self.text = message.topic[len(base) + 1:], message.payload.decode(errors="replace")
        self.retained, self.qos = bool(message.retain), message.qos

    @property
    def document(self):
        return json.loads(self.text)

    def __repr__(self):
        return f"{self.topic}: {self.text[:400]}"


class Client:
    """Records all that is published below the base topic."""

    def __init__(self, port, base=BASE):
        self.base = base
        self.messages = []
        self.ready = threading.Event()
        self.mqtt = mqtt.Client()
        self.mqtt.on_message = lambda _c, _d, message: self.messages.append(Message(message, base))
        self.mqtt.on_subscribe = lambda *_: self.ready.set()
        self.mqtt.on_connect = lambda *_: self.mqtt.subscribe(base + "/#", 2)
        self.mqtt.connect("127.0.0.1", port)
        self.mqtt.loop_start()
        assert self.ready.wait(DEADLINE)

    def close(self):
        self.mqtt.loop_stop()
        self.mqtt.disconnect()

    def on(self, topic):
        return [m for m in self.messages if m.topic == topic]

    def forget(self):
        self.messages.clear()

    def documents(self, begun=0):
        """What the service has published, from the given place of the record on."""
        return [m for m in self.messages[begun:] if not m.topic.endswith(("/get", "/set"))]

    def wait(self, topic, condition=lambda document: True):
        """The first message on a topic whose document fits."""
        def found():
            return next((m for m in self.on(topic) if condition(m.document)), None)
        return until(found, lambda: f"a fitting message on {topic}; there were {self.on(topic)}")

    def send(self, command, payload=None):
        data = json.dumps(payload) if isinstance(payload, (dict, list)) else payload
        self.mqtt.publish(f"{self.base}/{command}", data).wait_for_publish(DEADLINE)

    def ask(self, command, payload=None, answer=None):
        """Sends a query; the document that answers it (the error document when `answer` is "error")."""
        topic = answer or command.removesuffix("/get")
        before = len(self.on(topic))
        self.send(command, payload)
        return until(lambda: self.on(topic)[before:], f"answer to {command}")[0].document

    def settle(self):
        """Waits until all that was sent before has been handled, and all that was published before is here.

        Commands are handled in order, and documents of quality 2, as the answer is, do not overtake each other.
        """
        self.ask("info/get")


def without_strengths(value):
    """A document without the strengths, and without the strongest access point of each network."""
    if isinstance(value, list):
        return [without_strengths(v) for v in value]
    if isinstance(value, dict):
        return {k: without_strengths(v) for k, v in value.items() if k not in ("signalStrength", "referenceAP")}
    return value


class Service:
    """The service under test, with its log lines."""

    def __init__(self, stack, settings):
        self.log_file = stack.folder / "service.log"
        with open(self.log_file, "wb") as log:
            self.process = stack.start_service(BINARY, settings, "-e", "-v", "3", stdout=log, stderr=log,
                                               env=stack.environment)

    @property
    def log(self):
        return self.log_file.read_text(errors="replace")

    def lines(self, tag="Engine"):
        """The messages of one class, without the prefix of the line."""
        return re.findall(rf"^lanvoy: \[ *\d+\.\d{{3}}\] \[{tag}\] (.*)$", self.log, re.M)

    @property
    def tail(self):
        return "\n".join(self.lines("(?:Engine|IPC)")[-40:])

    def wait_log(self, text, count=1):
        until(lambda: self.log.count(text) >= count, lambda: f"{count} x '{text}' in the log:\n{self.tail}")

    @property
    def alive(self):
        return self.process.poll() is None


class World(Stack):
    """A stack with a client of the simulation; run() starts the service under test."""

    def __init__(self):
        super().__init__()
        self.service = None
        self.client = None
        self.environment = {}  # of the service, beyond the test's own

    def begin(self):
        self.broker = self.start_broker()
        self.client = Client(self.port)

    def run(self, settings=(), wait=True):
        """Starts the service, with the last file when settings is None; with wait until its first round is done."""
        self.service = Service(self, None if settings is None else dict(settings))
        if wait:
            self.client.wait("info")
            if any(device["interface"] == "br0" and device["state"] for device in self.sim.devices()):
                self.service.wait_log("Skipping device: br0")  # the last one of the default world
            self.client.settle()
        return self.service

    def rest(self):
        """Waits until the service has followed all that has happened so far; LANVOY_FOLLOW must be on.

        A set command that changes nothing asks NetworkManager for secrets, whose answer comes behind its signals.
        """
        until(lambda: self.service.log.rfind("Device added") < self.service.log.rfind("Started monitoring device"),
              "each device is loaded")
        self.client.send("modem/config/set", {"method": "auto", "apn": "internet"})
        self.client.settle()
        until(lambda: self.service.log.rfind("Something has changed.") <= self.service.log.rfind("waiting: 0."),
              "all is followed")
        self.client.settle()

    def wrong_documents(self):
        """Documents published last that differ from a fresh answer, strengths excepted: (topic, interface, both)."""
        last = {(m.topic, m.document.get("interface")): without_strengths(m.document)
                for m in self.client.documents()}
        wrong = []
        for topics, kind in DEVICE_DOCUMENTS.items():
            for name in [d["interface"] for d in self.sim.devices() if d["kind"] == kind] if kind else [None]:
                for topic in topics:
                    self.client.ask(topic + "/get", name and {"interface": name})
                    answer = without_strengths(self.client.on(topic)[-1].document)
                    if answer != last.get((topic, name)):
                        wrong.append((topic, name, last.get((topic, name)), answer))
        return wrong

    def connected(self, **settings):
        """Starts the service and waits until all devices are connected and have an address."""
        self.run({"Wifi/ssid": "Gateway-Home", "Wifi/key": "correct horse", **settings})
        for kind in ("ethernet", "wifi", "modem"):
            self.client.wait(f"{kind}/state", lambda d: d["stateStr"] == "Connected" and d["ipv4"])
        return self.service

    def lose_broker(self):
        """Kills the broker, starts another one and waits for the round over the devices."""
        sessions = self.service.log.count("IPC Connected to")
        self.broker.kill()
        self.broker.wait()
        self.service.wait_log("IPC Disconnected.", sessions)
        self.client.close()
        self.begin()
        self.service.wait_log("IPC Connected to", sessions + 1)
        self.client.wait("modem/signal")
        self.client.settle()

    def end_service(self):
        end(self.service.process)


def wired_once(world):
    """One event makes one document, whatever has gone before."""
    client = world.client
    client.settle()
    client.forget()
    world.sim.set_signal(13)
    client.wait("modem/signal", lambda d: d["quality"] == 13)
    world.sim.set_carrier("eth0", False)
    client.wait("ethernet/state", lambda d: d["state"] == 1)
    client.settle()
    assert len(client.on("modem/signal")) == 1 and len(client.on("ethernet/state")) == 1


@pytest.fixture(scope="session")
def gateway():
    """Bus and simulated services, shared by all tests of a file; each test starts from the default world."""
    with Stack() as stack:
        stack.start_bus()
        stack.start_gateway()
        stack.sim = Sim(stack.bus.address)
        yield stack
        stack.sim.close()


@pytest.fixture
def world(gateway):
    """A broker and a recording client in the default world; the service is the test's to start."""
    gateway.sim.reset()
    with World() as stack:
        stack.sim = gateway.sim
        stack.address = gateway.bus.address
        os.environ["DBUS_SYSTEM_BUS_ADDRESS"] = stack.address
        stack.begin()
        yield stack
        if stack.service:
            assert stack.service.alive, stack.service.tail
        stack.client.close()
