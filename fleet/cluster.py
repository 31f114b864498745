# SPDX-License-Identifier: MIT
"""Three nodes on this machine, from the samples of packaging/fleet, with certificates that are made on the spot."""
import json
import os
import pathlib
import re
import signal
import subprocess
import time
import urllib.error
import urllib.request

from sim.stack import end, free_port

from .watch import fetch

SAMPLES = pathlib.Path(__file__).resolve().parents[1] / "packaging/fleet"
NODES = ("nats-a", "nats-b", "nats-c")
SAMPLE_GATEWAY = "gw-0017"
RETAINED = "$MQTT_rmsgs"  # the stream that keeps the retained documents


class BadName(Exception):
    """A name that cannot be a gateway's."""


def check_name(name):
    """A gateway's name is a level of topics, of the cluster's subjects, of file names, and the name of a user."""
    if not re.fullmatch(r"[A-Za-z0-9_-]+", name):
        raise BadName(f"gateway {name!r}: letters, digits, '-' and '_' only; the cluster reads '.' as a level of a "
                      "topic, and takes no space")
    if name in ("operator", "ca", *NODES):
        raise BadName(f"gateway {name!r}: this certificate is somebody else's")
    return name


def replaced(text, replacements):
    """The text with all of them replaced; each has to be there, or the sample has changed."""
    for old, new in replacements.items():
        if old not in text:
            raise ValueError(f"the sample configuration has no {old}")
        text = text.replace(old, new)
    return text


class Authority:
    """Makes certificates in a folder: NAME.crt and NAME.key, and ca.crt."""

    CURVE = ("-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-days", "30")

    def __init__(self, folder):
        self.folder = folder
        self._run("/CN=fleet authority", "ca")

    def make(self, name, host=None):
        extra = ["-addext", f"subjectAltName=DNS:{host}"] if host else []
        self._run(f"/CN={name}", name, "-CA", "ca.crt", "-CAkey", "ca.key", "-addext", "basicConstraints=CA:FALSE", *extra)

    def _run(self, subject, name, *options):
        subprocess.run(["openssl", "req", "-x509", *self.CURVE, "-subj", subject, *options, "-keyout", f"{name}.key",
                        "-out", f"{name}.crt"], cwd=self.folder, check=True, stderr=subprocess.DEVNULL)


class Node:
    """One node; its files are in a folder of its own."""

    def __init__(self, name, folder):
        self.name = name
        self.folder = folder / name
        self.folder.mkdir()
        self.mqtt, self.client, self.route, self.http = (free_port() for _ in range(4))
        self.process = None

    def configure(self, nodes, users):
        text = (SAMPLES / "nats-server.conf").read_text()
        certificates = self.folder.parent
        routes = {f"nats-{letter}.fleet.example:6222": f"localhost:{node.route}" for letter, node in zip("abc", nodes)}
        text = replaced(text, {
            'server_name: "nats-a"': f'server_name: "{self.name}"',
            'advertise: "nats-a.fleet.example:6222"': f'advertise: "localhost:{self.route}"', **routes,
            "127.0.0.1:8222": f"127.0.0.1:{self.http}", "127.0.0.1:4222": f"127.0.0.1:{self.client}",
            "0.0.0.0:8883": f"127.0.0.1:{self.mqtt}", "0.0.0.0:6222": f"127.0.0.1:{self.route}",
            "/etc/nats/node": f"{certificates}/{self.name}", "/etc/nats/ca.crt": f"{certificates}/ca.crt",
            "/var/lib/nats": f"{self.folder}/store"})
        (self.folder / "nats-server.conf").write_text(text)
        (self.folder / "nats").mkdir(exist_ok=True)
        (self.folder / "nats/users.conf").write_text(users)

    def start(self):
        with open(self.folder / "log", "ab") as log:
            self.process = subprocess.Popen(["nats-server", "-c", str(self.folder / "nats-server.conf")], stdout=log,
                                            stderr=log, start_new_session=True)

    def kill(self):
        self.process.send_signal(signal.SIGKILL)
        self.process.wait()

    def stop(self):
        if self.process:
            end(self.process)

    @property
    def alive(self):
        return self.process is not None and self.process.poll() is None

    def ask(self, page):
        """What the node says about itself, such as "jsz?streams=1"; empty while it does not answer."""
        try:
            with urllib.request.urlopen(f"http://127.0.0.1:{self.http}/{page}", timeout=5) as answer:
                return json.load(answer)
        except urllib.error.HTTPError as error:  # the page "healthz" of a node that is not
            return json.load(error)
        except OSError:
            return {}

    @property
    def complaint(self):
        """What is wrong with it in its own words; empty when all that it keeps is up to date and the cluster has a leader."""
        if not self.ask("jsz").get("meta_cluster", {}).get("leader"):
            return "no leader"
        health = self.ask("healthz")
        return "" if health.get("status") == "ok" else health.get("error", "no answer")

    def streams(self):
        """{name: details} of the streams that this node keeps."""
        accounts = self.ask("jsz?accounts=1&streams=1&consumers=0").get("account_details", [])
        return {stream["name"]: stream for account in accounts for stream in account.get("stream_detail", [])}

    def refused(self):
        """Retained documents that it could not have stored, from its log."""
        return (self.folder / "log").read_text(errors="replace").count("unable to store retained message")

    def usage(self):
        """Resident memory in bytes, processor time in s."""
        fields = pathlib.Path(f"/proc/{self.process.pid}/stat").read_text().rsplit(")", 1)[1].split()
        ticks = os.sysconf("SC_CLK_TCK")
        return int(fields[21]) * os.sysconf("SC_PAGE_SIZE"), (int(fields[11]) + int(fields[12])) / ticks


class Cluster:
    """Three nodes for the gateways of these names. stop() ends them."""

    def __init__(self, folder, gateways):
        self.folder = folder
        self.gateways = [check_name(name) for name in gateways]
        authority = Authority(folder)
        self.nodes = [Node(name, folder) for name in NODES]
        for node in self.nodes:
            authority.make(node.name, "localhost")
        for name in ("operator", *self.gateways):
            authority.make(name)
        for key in folder.glob("*.key"):
            key.chmod(0o644)  # the gateways' brokers give up root
        for node in self.nodes:
            node.configure(self.nodes, self._users())

    def _users(self):
        lines = []
        for line in (SAMPLES / "users.conf").read_text().splitlines():
            one = f"CN={SAMPLE_GATEWAY}" in line
            lines += [line.replace(SAMPLE_GATEWAY, name) for name in self.gateways] if one else [line]
        return "\n".join(lines) + "\n"

    def bridge(self, name, ports):
        """The lines that make a mosquitto the gateway of this name; the ports are those of the nodes, in their order."""
        addresses = {f"nats-{letter}.fleet.example:8883": f"localhost:{port}" for letter, port in zip("abc", ports)}
        return replaced((SAMPLES / "bridge.conf").read_text(), {
            **addresses, "/etc/mosquitto/certs": str(self.folder), SAMPLE_GATEWAY: name})

    def start(self):
        for node in self.nodes:
            node.start()
        if complaints := self.wait_ready():
            raise RuntimeError(complaints)
        while fetch(self.nodes[0].mqtt, self.folder, ["none"])[0] is None:
            pass  # the first client has the streams made, and fails when that takes long

    def wait_ready(self, patience=120):
        """Waits until no node has a complaint; what is left of them in the end."""
        limit = time.monotonic() + patience
        while True:
            for node in self.nodes:
                if not node.alive:
                    raise RuntimeError(f"{node.name} ended: {(node.folder / 'log').read_text()[-2000:]}")
            complaints = [f"{node.name}: {node.complaint}" for node in self.nodes if node.complaint]
            if not complaints or time.monotonic() > limit:
                return ", ".join(complaints)
            time.sleep(0.1)

    def leader(self, stream=RETAINED):
        """The node that leads a stream, None while there is none."""
        for node in self.nodes:
            details = node.streams().get(stream) if node.alive else None
            if details and details.get("cluster", {}).get("leader"):
                return next(n for n in self.nodes if n.name == details["cluster"]["leader"])
        return None

    def stop(self):
        for node in self.nodes:
            node.stop()
