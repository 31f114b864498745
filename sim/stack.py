# SPDX-License-Identifier: MIT
"""Starts what a gateway consists of, each in a folder of its own: message bus, simulated services, broker, lanvoy."""
import contextlib
import os
import pathlib
import signal
import socket
import subprocess
import sys
import tempfile

from .private_bus import PrivateBus

ROOT = pathlib.Path(__file__).resolve().parent.parent


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def ini(settings):
    """The text of a configuration file from {"Group/key": value}."""
    groups = {}
    for key, value in settings.items():
        group, name = key.split("/", 1)
        groups.setdefault(group, []).append(f"{name}={value}\n")
    return "".join(f"[{group}]\n{''.join(lines)}\n" for group, lines in groups.items())


class Stack:
    """One private world; stop() ends all that it has started, in the reverse order, and removes its folder."""

    def __init__(self):
        self._folder = tempfile.TemporaryDirectory(prefix="lanvoy-")
        self.folder = pathlib.Path(self._folder.name)
        self.folder.chmod(0o755)  # the broker gives up root
        self.processes = []
        self.bus = None
        self.port = free_port()

    def start_bus(self):
        self.bus = PrivateBus()
        return self.bus

    def start_gateway(self, *options):
        """Starts the simulated services and waits until they are on the bus."""
        process = self.spawn([sys.executable, "-m", "sim", *options], cwd=ROOT, stdout=subprocess.PIPE, text=True)
        if process.stdout.readline().strip() != "ready":
            raise RuntimeError("the simulated gateway did not start")
        return process

    def start_broker(self, extra=""):
        """Starts a broker on the stack's port and waits until it listens."""
        config = self.folder / "mosquitto.conf"
        config.write_text(f"listener {self.port} 127.0.0.1\nallow_anonymous true\npersistence false\n{extra}")
        log = open(self.folder / "mosquitto.log", "ab")
        process = self.spawn(["/usr/sbin/mosquitto", "-c", str(config)], stdout=log, stderr=log)
        while process.poll() is None:
            with contextlib.suppress(OSError):
                socket.create_connection(("127.0.0.1", self.port), 1).close()
                return process
        raise RuntimeError(f"the broker did not start, see {log.name}")

    def start_service(self, binary, settings=None, *options, **popen):
        """Starts lanvoy on the stack's bus and broker with `settings` ({"Group/key": value}) in a new file."""
        config = self.folder / "lanvoy.conf"
        if settings is not None:
            config.write_text(ini({"Mqtt/url": "127.0.0.1", "Mqtt/port": self.port, **settings}))
        return self.spawn([str(binary), "-f", str(config), *options], cwd=self.folder, **popen)

    def spawn(self, command, **popen):
        environment = dict(os.environ, **popen.pop("env", {}))
        if self.bus:
            environment["DBUS_SYSTEM_BUS_ADDRESS"] = self.bus.address
        # A session of its own: Ctrl-C at the terminal reaches only whoever owns the stack.
        process = subprocess.Popen(command, env=environment, start_new_session=True, **popen)
        self.processes.append(process)
        return process

    def stop(self):
        for process in reversed(self.processes):
            end(process)
        if self.bus:
            self.bus.stop()
        self._folder.cleanup()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.stop()


def end(process):
    """Ends one process, also one that is stopped or does not listen."""
    if process.poll() is None:
        process.send_signal(signal.SIGCONT)
        process.terminate()
        try:
            process.wait(10)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()
