# SPDX-License-Identifier: MIT
"""The broker session: subscriptions, command intake, error documents, loss of the broker."""
import socket

from conftest import BASE, BINARY, DEADLINE, Client, until
from sim.stack import end


def test_doubled_base(world):
    """The base topic goes wherever it stands: "n/n/info/get" is the command "info/get"."""
    client = Client(world.port, "n")
    world.run({"Mqtt/base": "n"}, wait=False)
    client.wait("info")
    assert client.ask("n/info/get", answer="info")["service"]["type"] == "network"
    client.close()


def test_payloads(world):
    """Nothing that a client can send does more than an error document."""
    service = world.run()
    client = world.client
    assert client.ask("info/get", []) == client.ask("info/get", {"a": 1}) == {
        "service": {"type": "network", "version": "1.0.18"}}
    bad = {"{": "unterminated object", b"\xff\xfe": "illegal value", "5": "illegal value",
           "[" * 5000: "too deeply nested document", "{} x": "garbage at the end of the document"}
    for payload, reason in bad.items():
        assert client.ask("info/get", payload, "error") == {
            "command": "info/get", "error": f"Json parse error: {reason}"}
    assert client.ask("info/get", '{"a": "' + "%s%n" * 250000 + '"}')["service"]["type"] == "network"
    for command in ("nothing/get", "Info/get", "%s%n/%d/get", "wifi/aps/set", "ätöm/get"):
        assert client.ask(command, {}, "error") == {"command": command, "error": "Unsupported command"}
    assert "Unsupported command '%s%n/%d/get'" in service.lines()
    assert f"Message Received [{BASE}/nothing/get]" in service.lines("IPC")


def test_silent_and_refusing_broker(world):
    """A broker that accepts and says nothing is given up after ten seconds; one that refuses is tried again."""
    world.client.close()
    end(world.broker)
    with socket.create_server(("127.0.0.1", world.port)) as listener:
        service = world.run(wait=False)
        with listener.accept()[0]:
            service.wait_log("ERROR: TransportInvalid (256).")
        assert service.lines("IPC")[1:4] == ["MQTT broker not available.", "Disconnected.",
                                             "ERROR: TransportInvalid (256)."]
        with listener.accept()[0] as second:
            second.recv(1000)
            second.sendall(b"\x20\x02\x00\x05")  # CONNACK: not authorized
            service.wait_log("ERROR: NotAuthorized (5).")
    world.begin()
    service.wait_log("IPC Connected to")


def test_without_bus_and_services(gateway, world):
    """No message bus at all: the service runs, answers and keeps its session."""
    service = world.start_service(BINARY, {}, env={"DBUS_SYSTEM_BUS_ADDRESS": "unix:path=/nonexistent"})
    world.client.wait("info")
    status = world.client.ask("status/get")
    assert (status["stateStr"], status["primaryConnection"]) == ("Unknown", None)
    assert world.client.ask("wifi/state/get", {}, "error")["error"] == "Invalid device specified: "
    assert service.poll() is None


def test_service_manager(world):
    """What systemd is told: that the loop runs, in one line how the service is, and signs of life."""
    address = str(world.folder / "notify")
    told = []
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as manager:
        manager.bind(address)
        manager.settimeout(DEADLINE)
        world.environment.update(NOTIFY_SOCKET=address, WATCHDOG_USEC="400000")
        world.run()

        def tells(text):
            told.append(manager.recv(4096).decode())
            return text in told

        connected = "STATUS=Connected to the broker at 127.0.0.1; "
        until(lambda: tells(connected + "eth0: Connected; wlan0: Disconnected; cdc-wdm0: Connected"), lambda: told)
        world.sim.remove_device("cdc-wdm0")
        until(lambda: tells(connected + "eth0: Connected; wlan0: Disconnected"), lambda: told)
        end(world.broker)
        until(lambda: tells("STATUS=No connection to the broker at 127.0.0.1; eth0: Connected; wlan0: Disconnected"),
              lambda: told)
        told.clear()
        until(lambda: tells("WATCHDOG=1") and told.count("WATCHDOG=1") > 2, lambda: told)
        assert set(told) == {"WATCHDOG=1"}  # an unchanged line is not sent again
