# SPDX-License-Identifier: MIT
"""Runs lanvoy between a simulated gateway and a broker of its own, and shows its documents as they come.

    python3 -m sim.demo_run BINARY [--once | --system [CONFIG]]
"""
import configparser
import contextlib
import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import time

import paho.mqtt.client as mqtt

from .client import Sim
from .stack import Stack

# What the demo's gateway is to be connected to; the rest has its default.
SETTINGS = {"Wifi/ssid": "Gateway-Home", "Wifi/key": "correct horse", "Modem/usageSec": 5}
DOCUMENTS = {"info", "status", "error"} | {f"{kind}/{what}" for kind in ("ethernet", "wifi", "modem")
                                           for what in ("state", "config")} | {
    "wifi/aps", "wifi/networks", "modem/signal", "modem/stats"}
WIDTH = min(shutil.get_terminal_size((110, 40)).columns, 140)
ENTRIES = 3  # of a list; the rest is only counted
QUIET = 1.0  # seconds without a document until the first round counts as over
# Stands for the modem's data interface: its counters move while one looks.
DATA_INTERFACE = "lo"


def color(code, text):
    return f"\033[{code}m{text}\033[0m" if sys.stdout.isatty() else text


def layout(value, used=0, indent=0):
    """JSON filled into lines of the terminal's width, and long lists cut: many access points stay readable."""
    line = json.dumps(value, ensure_ascii=False)
    rest = len(value) - ENTRIES if isinstance(value, list) else 0
    if not value or not isinstance(value, (dict, list)) or rest <= 0 and indent + used + len(line) < WIDTH:
        return line
    if isinstance(value, list):
        parts = [layout(v, 0, indent + 2) for v in value[:ENTRIES]] + ([f"... {rest} more"] if rest > 0 else [])
    else:
        parts = [f"{json.dumps(k)}: {layout(v, len(k) + 4, indent + 2)}" for k, v in value.items()]
    rows = parts[:1]
    for part in parts[1:]:
        if indent + len(rows[-1]) + len(part) + 5 < WIDTH and "\n" not in rows[-1] + part:
            rows[-1] += ", " + part
        else:
            rows.append(part)
    pad = "\n" + " " * (indent + 2)
    start, stop = "[]" if isinstance(value, list) else "{}"
    return start + pad + ("," + pad).join(rows) + pad[:-2] + stop


def painted(text):
    """Keys and texts of laid out JSON in colours."""
    return re.sub(r'("(?:[^"\\]|\\.)*")(:?)', lambda m: color(34 if m[2] else 32, m[1]) + m[2], text)


class Viewer:
    """Prints every message below the base topic."""

    def __init__(self, host, port, base, user="", password=""):
        self.base = base
        self.seen = set()
        self.documents = 0
        self.latest = time.monotonic()
        self.client = mqtt.Client()
        if user:
            self.client.username_pw_set(user, password or None)
        self.client.on_connect = lambda *_: self.client.subscribe(base + "/#")
        self.client.on_message = self.show
        self.client.connect(host, port)
        self.client.loop_start()

    def show(self, _client, _data, message):
        topic = message.topic[len(self.base) + 1:]
        command = topic.endswith(("/get", "/set"))
        self.seen.add(topic)
        self.documents += not command
        self.latest = time.monotonic()
        now = color(2, time.strftime("%H:%M:%S"))
        try:
            text = painted(layout(json.loads(message.payload or b"{}"), len(message.topic) + 10))
        except ValueError:
            text = repr(message.payload)
        kind = "1;35" if command else "1;31" if topic == "error" else "1;36"
        print(f"{now} {color(kind, message.topic)} {text}", flush=True)


def hint(port):
    print("\n" + color(1, "This is the gateway now. Every few seconds something changes; Ctrl-C ends it.")
          + " In another terminal:" + color(33, f"""
  PORT={port}
  build/release/src/ctl/lanvoyctl -p $PORT
  mosquitto_pub -p $PORT -t vexo/network/wifi/state/get -n
  mosquitto_pub -p $PORT -t vexo/network/wifi/config/set -m '{{"ssid": "Cafe", "method": "auto"}}'
  mosquitto_sub -p $PORT -t 'vexo/network/#' -v
"""), flush=True)


def wait(viewer, service, once, port=None):
    """Until the service ends or, with once, all kinds of documents have come; the hint follows the first round."""
    asked = not once
    while service.poll() is None:
        if once and viewer.seen >= DOCUMENTS:
            print(color(1, f"All {len(DOCUMENTS)} kinds of documents have been seen."))
            return 0
        if not asked and "modem/stats" in viewer.seen:  # the error document has to be asked for
            asked = bool(viewer.client.publish(viewer.base + "/no/such/get"))
        if port and not once and viewer.documents and time.monotonic() - viewer.latest > QUIET:
            hint(port)
            port = None
        time.sleep(0.2)
    print(f"lanvoy ended with status {service.returncode}", file=sys.stderr)
    return 1


@contextlib.contextmanager
def counting_from_now():
    """A snapshot that lets the data usage start at 0, whatever the interface has carried; gone again afterwards."""
    snapshot = pathlib.Path("/tmp/modem-snapshot.ini")
    before = snapshot.read_bytes() if snapshot.exists() else None
    counters = pathlib.Path("/sys/class/net", DATA_INTERFACE, "statistics")
    snapshot.write_text("[General]\n" + "".join(
        f"{name}bytes={(counters / f'{name}_bytes').read_text()}" for name in ("rx", "tx")))
    try:
        yield
    finally:
        if before is None:
            snapshot.unlink(missing_ok=True)
        else:
            snapshot.write_bytes(before)


def run_simulated(binary, once):
    with counting_from_now(), Stack() as stack:
        stack.start_bus()
        stack.start_gateway("--demo")
        Sim(stack.bus.address).set_data_interface(DATA_INTERFACE)
        stack.start_broker()
        viewer = Viewer("127.0.0.1", stack.port, "vexo/network")
        log = open(stack.folder / "lanvoy.log", "wb")
        print(color(1, "A simulated gateway, a broker on port "
                    f"{stack.port}, lanvoy between them. Its log: tail -f {log.name}\n"), flush=True)
        service = stack.start_service(binary, SETTINGS, "-e", stdout=log, stderr=log)
        try:
            return wait(viewer, service, once, stack.port)
        except KeyboardInterrupt:
            on_end(signal.SIG_IGN)  # ending is under way
            print(f"\nEnded after {viewer.documents} documents.", file=sys.stderr)
            return 0


def run_on_system(binary, config):
    parser = configparser.ConfigParser(interpolation=None)
    parser.read(config)
    broker = parser["Mqtt"] if "Mqtt" in parser else {}
    service = subprocess.Popen([binary, "-e", "-c", "-f", config], start_new_session=True)
    try:
        viewer = Viewer(broker.get("url", "localhost"), int(broker.get("port", 1883)),
                        broker.get("base", "vexo/network"), broker.get("user", ""), broker.get("pass", ""))
        return wait(viewer, service, False)
    finally:
        service.terminate()
        service.wait()


def on_end(handler):
    """For Ctrl-C, a kill and a closed terminal."""
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, handler)


def main(binary, mode="", config="lanvoy.conf"):
    on_end(signal.default_int_handler)
    try:
        if mode == "--system":
            return run_on_system(binary, str(pathlib.Path(config).resolve()))
        return run_simulated(binary, mode == "--once")
    except KeyboardInterrupt:
        print("\nended", file=sys.stderr)
        return 0


if __name__ == "__main__":
    os.environ.setdefault("PYTHONDONTWRITEBYTECODE", "1")
    sys.exit(main(*sys.argv[1:]))
