# SPDX-License-Identifier: MIT
"""The many: what a gateway publishes is recorded, and fleet_clients (clients.c) replays it for each of the others."""
import subprocess
import threading
import time

from .gateway import DOCUMENTS

QUESTIONS = sorted(f"{topic}/get" for topic in DOCUMENTS if topic != "modem/signal")


class Recorder:
    """Records what a gateway publishes for the fleet; set it as the hook of a client at the gateway's own broker."""

    def __init__(self):
        self.start = time.monotonic()
        self.records = []

    def __call__(self, topic, message):
        if topic in DOCUMENTS and not message.retain:
            self.records.append((time.monotonic() - self.start, topic, message.payload))

    def write(self, path, period):
        """Writes the recording so that it takes `period` seconds from its end to its next end."""
        shift = period - self.records[-1][0]
        with open(path, "wb") as file:
            for at, topic, payload in self.records:
                file.write(b"%.3f %s %d\n%s\n" % (at + shift, topic.encode(), len(payload), payload))


class Clients:
    """The process with the gateways of these names. stop() ends it."""

    def __init__(self, program, folder, recording, names, ports):
        self.names = names
        self.process = subprocess.Popen([program, folder, recording, *map(str, ports)], stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, text=True, start_new_session=True)
        self.lock = threading.Lock()
        self.process.stdin.write("".join(name + "\n" for name in names) + "\n")
        self.process.stdin.flush()

    def ask(self, question):
        with self.lock:
            self.process.stdin.write(question + "\n")
            self.process.stdin.flush()
            lines = []
            for line in self.process.stdout:
                if line == "end\n":
                    return lines
                lines.append(line.split())
        raise RuntimeError("fleet_clients ended")

    def counts(self):
        """connected, documents published, acknowledged, connections made so far"""
        return tuple(map(int, self.ask("counts")[0]))

    def documents(self):
        """{"name/topic": serial of the last document}"""
        return {f"{name}/{topic}": int(serial) for name, topic, serial in self.ask("documents")}

    def stop(self):
        self.process.stdin.close()
        self.process.wait(30)
