# SPDX-License-Identifier: MIT
"""The line between a gateway and the nodes: forwards connections, or is silent.

    python3 -m fleet.line LISTEN:TARGET...      ports on this machine; prints "ready"
"""
import asyncio
import signal
import subprocess
import sys

from sim.stack import ROOT, end, free_port


class Line:
    """A process that forwards; `ports` stand for the targets."""

    def __init__(self, targets):
        self.ports = [free_port() for _ in targets]
        self.pairs = [f"{port}:{target}" for port, target in zip(self.ports, targets)]
        self.start()

    def start(self):
        self.process = subprocess.Popen([sys.executable, "-m", "fleet.line", *self.pairs], cwd=ROOT,
                                        stdout=subprocess.PIPE, start_new_session=True)
        self.process.stdout.readline()

    def silence(self):
        """Nothing passes from now on, and nobody is told."""
        self.process.send_signal(signal.SIGSTOP)

    def restart(self):
        """Works again, but no longer knows the connections of before."""
        self.process.kill()
        self.process.wait()
        self.start()

    def stop(self):
        end(self.process)


async def pass_on(reader, writer):
    try:
        while data := await reader.read(65536):
            writer.write(data)
            await writer.drain()
    except OSError:
        pass
    writer.close()


async def serve(listen, target):
    async def connect(reader, writer):
        try:
            far_reader, far_writer = await asyncio.open_connection("localhost", target)
        except OSError:
            writer.transport.abort()  # the nearest to a refusal that is left
            return
        await asyncio.gather(pass_on(reader, far_writer), pass_on(far_reader, writer))
    await asyncio.start_server(connect, "127.0.0.1", listen)


async def main():
    for pair in sys.argv[1:]:
        await serve(*map(int, pair.split(":")))
    print("ready", flush=True)
    await asyncio.Event().wait()


if __name__ == "__main__":
    asyncio.run(main())
