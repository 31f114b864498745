"""Runs lanvoy between a simulated gateway and a broker of its own, and shows its documents as they come.

    python3 -m sim.demo_run BINARY [--once | --system [CONFIG]]
"""
import configparser
import json
import os
import pathlib
import signal
import subprocess
import sys
import time

import paho.mqtt.client as mqtt

from .stack import Stack

# What the demo's gateway is to be connected to; the rest has its default.
SETTINGS = {"Wifi/ssid": "Gateway-Home", "Wifi/key": "correct horse", "Modem/usageSec": 5}
DOCUMENTS = {"info", "status", "error"} | {f"{kind}/{what}" for kind in ("ethernet", "wifi", "modem")
                                           for what in ("state", "config")} | {
    "wifi/aps", "wifi/networks", "modem/signal", "modem/stats"}
WIDTH = 110
# Stands for the modem's data interface: its counters move while one looks.
DATA_INTERFACE = "lo"


def color(code, text):
    return f"\033[{code}m{text}\033[0m" if sys.stdout.isatty() else text


def layout(value, indent=0, used=0):
    """JSON with everything that fits on one line on one line: lists of many access points stay readable."""
    line = json.dumps(value, ensure_ascii=False)
    if indent + used + len(line) <= WIDTH or not isinstance(value, (dict, list)) or not value:
        return line
    pad = "\n" + " " * (indent + 2)
    if isinstance(value, list):
        return "[" + ",".join(pad + layout(v, indent + 2) for v in value) + pad[:-2] + "]"
    members = (f"{json.dumps(k)}: {layout(v, indent + 2, len(k) + 4)}" for k, v in value.items())
    return "{" + ",".join(pad + member for member in members) + pad[:-2] + "}"


class Viewer:
    """Prints every message below the base topic."""

    def __init__(self, host, port, base, user="", password=""):
        self.base = base
        self.seen = set()
        self.client = mqtt.Client()
        if user:
            self.client.username_pw_set(user, password or None)
        self.client.on_connect = lambda *_: self.client.subscribe(base + "/#")
        self.client.on_message = self.show
        self.client.connect(host, port)
        self.client.loop_start()

    def show(self, _client, _data, message):
        topic = message.topic[len(self.base) + 1:]
        self.seen.add(topic)
        now = color(2, time.strftime("%H:%M:%S"))
        try:
            text = layout(json.loads(message.payload or b"{}"))
        except ValueError:
            text = repr(message.payload)
        sent = topic.endswith(("/get", "/set"))
        print(f"{now} {color(35 if sent else 31 if topic == 'error' else 36, message.topic)} {text}", flush=True)


def hint(port):
    on = f"-p {port} -t vexo/network"
    print("\n" + color(1, "The gateway's documents follow as they come. Ctrl-C ends it. In another terminal try:") + f"""
  mosquitto_pub {on}/info/get -n
  mosquitto_pub {on}/wifi/aps/get -m '{{"interface": "wlan0"}}'
  mosquitto_pub {on}/wifi/config/set -m '{{"ssid": "Cafe", "method": "auto"}}'
""", flush=True)


def wait(viewer, service, once):
    while service.poll() is None:
        if once and viewer.seen >= DOCUMENTS:
            return 0
        if once and "modem/stats" in viewer.seen and "error" not in viewer.seen:
            viewer.client.publish(viewer.base + "/no/such/get")
        time.sleep(0.2)
    print(f"lanvoy ended with status {service.returncode}", file=sys.stderr)
    return 1


def count_from_now():
    """Leaves the snapshot that lets the data usage start at 0, whatever the interface has carried so far."""
    counters = pathlib.Path("/sys/class/net", DATA_INTERFACE, "statistics")
    pathlib.Path("/tmp/modem-snapshot.ini").write_text("[General]\n" + "".join(
        f"{name}bytes={(counters / f'{name}_bytes').read_text()}" for name in ("rx", "tx")))


def run_simulated(binary, once):
    with Stack() as stack:
        stack.start_bus()
        stack.start_gateway("--demo", "--data-interface", DATA_INTERFACE)
        count_from_now()
        stack.start_broker()
        hint(stack.port)
        viewer = Viewer("127.0.0.1", stack.port, "vexo/network")
        log = open(stack.folder / "lanvoy.log", "wb")
        service = stack.start_service(binary, SETTINGS, "-e", stdout=log, stderr=log)
        print(color(2, f"log of the service: {log.name}"), flush=True)
        return wait(viewer, service, once)


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


def main(binary, mode="", config="lanvoy.conf"):
    signal.signal(signal.SIGTERM, signal.default_int_handler)
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
