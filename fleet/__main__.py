# SPDX-License-Identifier: MIT
"""A fleet on this machine: three nodes, gateways with bridges, and many more as connections; measured, then struck.

    python3 -m fleet LANVOY CLIENTS [GATEWAYS] [SECONDS] [FAULT...]      the two programs, then as scripts/fleet
"""
import argparse
import contextlib
import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile
import time

from . import faults
from .clients import QUESTIONS, Clients, Recorder
from .cluster import BadName, Cluster, check_name
from .gateway import Gateway
from .line import Line
from .measure import Poller, steady, streams

REAL = 20  # gateways with a broker, a bridge and lanvoy of their own
PERIOD = 60  # s that are recorded of a gateway


def names(argument):
    """A number of gateways, or a file with a name on each line."""
    if argument.isdigit():
        return [f"gw-{number:04d}" for number in range(1, int(argument) + 1)]
    return [check_name(name) for name in pathlib.Path(argument).read_text().splitlines()]


def arguments():
    parser = argparse.ArgumentParser(prog="scripts/fleet", usage="%(prog)s [GATEWAYS] [SECONDS] [FAULT...]")
    parser.add_argument("lanvoy")
    parser.add_argument("clients")
    parser.add_argument("gateways", nargs="?", default="1000")
    parser.add_argument("seconds", nargs="?", type=float, default=60)
    parser.add_argument("faults", nargs="*", type=int, default=range(1, len(faults.FAULTS) + 1), help=argparse.SUPPRESS)
    result = parser.parse_args()
    result.gateways = names(result.gateways)
    if not all(0 <= number <= len(faults.FAULTS) for number in result.faults):
        parser.error(f"faults are numbered from 1 to {len(faults.FAULTS)}")
    if len(result.gateways) < 3 or len(set(result.gateways)) < len(result.gateways):
        parser.error("three gateways at least, each with a name of its own")
    return result


def show(rows):
    for what, value in rows:
        print(f"  {what:<46} {value}", flush=True)


def progress(text):
    print(f"{time.strftime('%H:%M:%S')} {text} (load average {os.getloadavg()[0]:.0f})", file=sys.stderr, flush=True)


def rotated(ports, number):
    """Each gateway begins with another node, and the next one to be tried differs too."""
    first = number % len(ports)
    rest = ports[first + 1:] + ports[:first]
    return [ports[first], *(rest if number // len(ports) % 2 == 0 else reversed(rest))]


def start_gateways(stack, options, cluster, line):
    ports = [node.mqtt for node in cluster.nodes]
    gateways = []
    for number, name in enumerate(options.gateways[:REAL]):
        gateway = Gateway(name, options.lanvoy, cluster, rotated(line.ports if number == 1 else ports, number),
                          "--demo")
        stack.callback(gateway.stop)
        gateways.append(gateway.start())
    return gateways


def record(gateway, folder):
    """What a gateway publishes in a minute in which it is asked for everything once."""
    recorder = gateway.local.hook = Recorder()
    for question in QUESTIONS:
        gateway.local.publish(question)
    time.sleep(PERIOD)
    gateway.local.hook = None
    recorder.write(folder / "recording", PERIOD)
    return folder / "recording"


def run(stack, options):
    folder = pathlib.Path(stack.enter_context(tempfile.TemporaryDirectory(prefix="lanvoy-fleet-")))
    folder.chmod(0o755)
    progress(f"certificates for {len(options.gateways)} gateways")
    cluster = Cluster(folder, options.gateways)
    stack.callback(cluster.stop)
    progress("three nodes")
    cluster.start()
    line = Line([node.mqtt for node in cluster.nodes])
    stack.callback(line.stop)
    progress(f"{len(options.gateways[:REAL])} gateways, and a minute of one of them")
    gateways = start_gateways(stack, options, cluster, line)
    rest, clients = options.gateways[REAL:], None
    poller = Poller(cluster.nodes[1].mqtt, folder, options.gateways)
    stack.callback(poller.stop)
    if rest:
        recording = record(gateways[0], folder)
        progress(f"{len(rest)} more")
        clients = Clients(options.clients, folder, recording, rest, [node.mqtt for node in cluster.nodes])
        stack.callback(clients.stop)
    fleet = faults.Fleet(cluster, gateways, clients, line)
    start = time.monotonic()
    while not fleet.all_connected():
        time.sleep(0.2)
        if time.monotonic() - start > faults.BOUND:
            raise RuntimeError(f"not all gateways are connected after {faults.BOUND} s")
    show([("all gateways connected", f"after {time.monotonic() - start:.0f} s")])
    _, missing = fleet.wait_equal()
    show([("all retained documents there", "NO" if missing else f"after {time.monotonic() - start:.0f} s")])
    progress(f"measuring for {options.seconds:.0f} s")
    show(steady(cluster, gateways, options.seconds, len(options.gateways)))
    for number in filter(None, options.faults):
        title, fault = faults.FAULTS[number - 1]
        progress("fault")
        print(title)
        show(fault(fleet))
        if complaints := cluster.wait_ready():
            show([("two minutes later NOT healthy", complaints)])
        show(streams(cluster))


def on_signals(handler):
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, handler)


def main():
    options = arguments()
    processor = re.search(r"model name\s*: (.*)", pathlib.Path("/proc/cpuinfo").read_text())
    server = subprocess.run(["nats-server", "--version"], capture_output=True, text=True, check=True).stdout.strip()
    print(f"{len(options.gateways)} gateways, {server}, all on one machine: "
          f"{subprocess.getoutput('nproc')} processors ({processor[1] if processor else 'unknown'})")
    on_signals(signal.default_int_handler)  # whatever ends it has it clear up
    with contextlib.ExitStack() as stack:
        try:
            run(stack, options)
        except KeyboardInterrupt:
            on_signals(signal.SIG_IGN)  # that is not to be interrupted
            progress("ends")


if __name__ == "__main__":
    try:
        main()
    except (BadName, OSError, RuntimeError) as error:
        sys.exit(f"scripts/fleet: {error}")
