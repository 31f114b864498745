# SPDX-License-Identifier: MIT
"""lanvoyctl between the service, a real broker and the simulated gateway."""
import configparser
import getpass
import json
import os
import pathlib
import pty
import re
import shlex
import shutil
import signal
import socket
import subprocess
import termios
import time

import jsonschema
import pytest
from conftest import ROOT, Client, until

CTL = pathlib.Path(os.environ.get("LANVOYCTL_BINARY", ROOT / "build/debug/src/ctl/lanvoyctl")).resolve()
SETTINGS = {"Wifi/ssid": "Gateway-Home", "Wifi/key": "correct horse", "Modem/pin": "7391", "Modem/usageSec": 0}
TRANSCRIPT = ROOT / "tests/lanvoyctl.golden"
SCHEMAS = {str(file.relative_to(ROOT / "docs/schema")): json.loads(file.read_text())
           for file in (ROOT / "docs/schema").rglob("*.json")}
ENVIRONMENT = {**{k: v for k, v in os.environ.items() if not k.startswith("LANVOYCTL_")},
               "LC_ALL": "C.UTF-8", "TERM": "xterm"}


def ctl(world, *arguments, **popen):
    """Runs the tool to its end, without the service's file unless that is given."""
    command = [CTL, "-p", str(world.port), "--timeout", "60", *arguments]
    popen.setdefault("env", ENVIRONMENT)
    popen.setdefault("stdin", subprocess.DEVNULL)
    return subprocess.run(command, capture_output=True, text=True, timeout=90, **popen)


def checked(name, text):
    document, schema = json.loads(text), SCHEMAS[f"ctl/{name}.json"]
    resolver = jsonschema.RefResolver.from_schema(schema, store={s["$id"]: s for s in SCHEMAS.values()})
    jsonschema.Draft202012Validator(schema, resolver=resolver).validate(document)
    return document


@pytest.fixture
def gateway_up(world):
    world.run(SETTINGS)
    for topic in ("ethernet/state", "wifi/state", "modem/state"):
        world.client.wait(topic, lambda d: d["stateStr"] == "Connected")
    (world.folder / "right").write_text("correct horse\n")
    (world.folder / "wrong").write_text("wrong horse\n")
    return world


def test_transcript(gateway_up):
    """Every command once, as people see it; a line that begins with "$" is run, what follows is what comes."""
    blocks = re.split(r"^\$ ", TRANSCRIPT.read_text(), flags=re.M)[1:]
    seen = []
    for block in blocks:
        line = block.splitlines()[0]
        result = ctl(gateway_up, *shlex.split(line)[1:], cwd=gateway_up.folder)
        text = result.stdout + result.stderr + (f"[{result.returncode}]\n" if result.returncode else "")
        text = text.replace(str(gateway_up.port), "PORT")
        text = re.sub(r"(Disconnecting … )?(Connecting … )?(?=Connected,.*after|Failed)", "", text)  # may pass too quickly
        seen.append(f"{line}\n" + re.sub(r"after \d+ (m?s)\b", r"after N \1", text))
    if os.environ.get("UPDATE_GOLDEN"):
        TRANSCRIPT.write_text("".join("$ " + block for block in seen))
    assert seen == blocks
    assert "correct horse" not in "".join(seen) and "7391" not in "".join(seen)


def test_json(gateway_up):
    """The values for programs fit their schemas, and hold what the documents hold."""
    world = gateway_up
    status = checked("status", ctl(world, "--json").stdout)
    assert [d["interface"] for d in status["devices"]] == ["eth0", "wlan0", "cdc-wdm0"]
    shown = checked("show", ctl(world, "--json", "--secrets", "show", "wlan0").stdout)
    assert shown["devices"][0]["config"]["key"] == "correct horse"
    networks = checked("wifi", ctl(world, "--json", "wifi").stdout)["networks"]
    assert networks[0] == {"interface": "wlan0", "ssid": "Gateway-Home", "inUse": True, "signal": 82, "security": "wpa2",
                           "channel": 6, "band": "2.4 GHz", "accessPoints": 2}
    assert checked("signal", ctl(world, "--json", "signal").stdout)["modems"][0]["signal"] == 72
    assert checked("usage", ctl(world, "--json", "usage").stdout)["months"] == []
    assert checked("doctor", ctl(world, "--json", "doctor").stdout)["healthy"]
    failed = checked("change", ctl(world, "--json", "-y", "--key-file", world.folder / "wrong", "wifi", "connect",
                                   "Gateway-Home").stdout)
    assert failed["outcome"] == "failed" and "NoSecretsReason" in failed["text"]
    assert failed["changes"] == [{"field": "key", "from": "******", "to": "******"}]
    same = ctl(world, "--json", "-y", "set", "ethernet", "method=auto")
    assert checked("change", same.stdout)["outcome"] == "unchanged" and same.returncode == 0
    world.sim.add_device("wired", interface="eth1")  # found by the document in store, as the last of its kind
    world.client.wait("ethernet/state", lambda d: d["interface"] == "eth1")
    world.client.settle()
    devices = checked("status", ctl(world, "--json").stdout)["devices"]
    assert [d["interface"] for d in devices] == ["eth0", "eth1", "wlan0", "cdc-wdm0"]


def test_set_keeps_what_it_does_not_name(gateway_up):
    """What the service then has in its file, from the document alone and from the file itself."""
    world, file = gateway_up, gateway_up.folder / "lanvoy.conf"
    result = ctl(world, "-y", "set", "modem", "apn=m2m.example")
    assert result.returncode == 0 and "******" not in result.stdout, result
    modem = configparser.ConfigParser()
    modem.read(file)
    assert {k: v for k, v in modem["Modem"].items() if v} == {
        "id": "Broadband", "autocon": "true", "method": "auto", "apn": "m2m.example", "pin": "7391", "usagesec": "0"}
    # Of what only the file knows, an address that method auto does not use.
    world.client.send("ethernet/config/set", {"method": "auto", "address": "10.0.0.5", "netmask": "255.0.0.0"})
    world.client.settle()
    assert ctl(world, "-y", "-f", file, "set", "ethernet", "method=manual").returncode == 0
    assert world.client.ask("ethernet/config/get")["address"] == "10.0.0.5"
    # Standard input has a line for each field that asks for one.
    (world.folder / "lines").write_text("päss word\n8642\n")
    with open(world.folder / "lines") as lines:
        assert ctl(world, "-y", "set", "modem", "password=@-", "pin=@-", stdin=lines).returncode == 0
    config = world.client.ask("modem/config/get")
    assert (config["apn"], config["password"], config["pin"]) == ("m2m.example", "päss word", "8642")


FAILURES = [
    (["-p", "1"], 3, "connection refused"), (["-H", "no.such.host.invalid"], 3, "host "),
    (["-b", "other", "--timeout", "1"], 4, "No answer below 'other'"), (["nonsense"], 2, "no command 'nonsense'"),
    (["--nonsense"], 2, "nonsense"), (["-p", "x"], 2, "'x' is no port"), (["--timeout", "-1"], 2, "time-out"),
    (["get"], 2, "Usage: lanvoyctl get"), (["get", "x/y"], 2, "no document 'x/y'"), (["-b", "a/#"], 2, "base topic"),
    (["-f", "/none"], 2, "Cannot read /none"), (["set", "wifi", "ssid=x"], 2, "use -y"),
    (["-y", "set", "wifi", "key=hunter22"], 2, "can be seen"), (["-y", "set", "wifi", "pin="], 2, "'pin' sets no field"),
    (["-y", "set", "wifi", "key=-"], 2, "no terminal"), (["-y", "wifi", "connect", "Printer"], 2, "--key-file"),
    (["-y", "wifi", "connect", "Nowhere"], 1, "not in range"), (["-y", "-i", "eth7", "set", "ethernet", "dns0="], 1, "eth7")]


def test_failures(gateway_up):
    for arguments, status, text in FAILURES:
        result = ctl(gateway_up, *arguments)
        assert (result.returncode, result.stdout) == (status, "") and text in result.stderr, result
        assert "hunter22" not in result.stderr


def test_brokers(world):
    """One that is silent, and one that wants another password."""
    with socket.create_server(("127.0.0.1", 0)) as silent:
        port = str(silent.getsockname()[1])
        result = ctl(world, "-p", port, "--timeout", "0.5")
        assert result.returncode == 3 and "does not answer" in result.stderr
    (world.folder / "passwd").write_text("viewer:right\n")
    subprocess.run(["mosquitto_passwd", "-U", world.folder / "passwd"], check=True)
    (world.folder / "passwd").chmod(0o644)
    world.broker.terminate()
    world.broker.wait()
    world.start_broker(f"password_file {world.folder}/passwd\n")
    (world.folder / "password").write_text("wrong\n")
    environment = {**ENVIRONMENT, "LANVOYCTL_USER": "viewer", "LANVOYCTL_PASSWORD_FILE": str(world.folder / "password")}
    result = ctl(world, env=environment)
    assert result.returncode == 3 and re.search("password is wrong|not authorised", result.stderr), result
    (world.folder / "password").write_text("right\n")
    assert ctl(world, "--timeout", "0.5", env=environment).returncode == 4  # now there is a session


def test_doctor_from_afar(gateway_up):
    """Two services on one base topic, and a retained command; another client's questions do not count."""
    world = gateway_up
    assert "✗" not in ctl(world, "doctor").stdout
    folder = world.folder / "second"
    folder.mkdir()
    shutil.copy(world.folder / "lanvoy.conf", folder)
    second = world.spawn([str(world.service.process.args[0]), "-f", str(folder / "lanvoy.conf")], cwd=folder,
                         stdout=subprocess.DEVNULL)
    world.client.forget()
    world.client.wait("info")
    result = ctl(world, "doctor")
    assert result.returncode == 1 and "✗ service  2 services answer" in result.stdout, result
    assert ctl(world).returncode == 0  # the answers of both do no harm
    second.terminate()
    second.wait()
    world.client.mqtt.publish(f"{world.client.base}/modem/config/set", '{"interface": "none"}', retain=True)
    world.client.settle()
    found = [c for c in checked("doctor", ctl(world, "--json", "doctor").stdout)["checks"] if c["result"] == "failure"]
    assert len(found) == 1 and "'modem/config/set' is retained" in found[0]["text"] and " -r -n" in found[0]["mend"]


HOST = """#!/bin/sh
case "$(basename "$0") $*" in
"systemctl "*) printf 'LoadState=loaded\\nActiveState=%s\\nSubState=x\\nNRestarts=%s\\nMainPID=1\\nUser=%s\\nDropInPaths=/etc/a/b.conf\\n' \
    "${UNIT:-active}" "${RESTARTS:-0}" "$OWNER" ;;
busctl*NetworkManager*) [ "$NM" != gone ] && printf 's "%s"\\n' "${NM:-1.42.4}" ;;
busctl*) [ "$MM" != gone ] && echo 's "1.20.4"' ;;
pkcheck*) [ -z "$REFUSED" ] || case "$*" in *"$REFUSED"*) exit 1 ;; esac ;;
*"-f NAME"*) printf '%s\\n' lo Ethernet Gateway-Home ${TWICE:-} ;;
*"-f TYPE"*) printf '%s\\n' ethernet:${WIRED:-connected}:eth0 bridge:unmanaged:br0 ;;
*" Ethernet") printf '%s\\n' ${PROFILE:-auto} ;;
*) printf 'auto\\n' ;;
esac
"""


BROKEN = [
    ({}, None), ({"UNIT": "failed"}, "✗ unit .* is failed"), ({"RESTARTS": "3"}, "! unit .*restarted 3 times"),
    ({"NM": "gone"}, "✗ bus .*NetworkManager is not"), ({"NM": "1.44.2"}, "! bus .*1.44.2"),
    ({"MM": "gone"}, "! bus .*ModemManager is not"), ({"REFUSED": "network-control"}, "✗ rights .*do: network-control"),
    ({"TWICE": "Ethernet"}, "! profiles .*name Ethernet"), ({"WIRED": "unmanaged"}, "! device .*eth0 is not managed"),
    ({"PROFILE": "manual"}, "✗ profiles .*method manual instead of auto"), ({"mode": "500"}, "✗ files .*not writable"),
    ({"file": "644"}, "✗ files .*Everybody here can read")]


def test_doctor_on_the_gateway(gateway_up):
    """Each finding of the host's own programs, with stand-ins for these."""
    world, programs, state = gateway_up, gateway_up.folder / "programs", gateway_up.folder / "state"
    owner = "nobody" if getpass.getuser() == "root" else getpass.getuser()
    for folder in (programs, state):
        folder.mkdir()
    for program in ("systemctl", "busctl", "pkcheck", "nmcli"):
        (programs / program).write_text(HOST)
        (programs / program).chmod(0o755)
    shutil.copy(world.folder / "lanvoy.conf", state)
    if owner == "nobody":
        shutil.chown(state, owner)
    for broken, expected in BROKEN:
        (state / "lanvoy.conf").chmod(int(broken.get("file", "600"), 8))
        state.chmod(int(broken.get("mode", "750"), 8))
        result = ctl(world, "-f", state / "lanvoy.conf", "doctor",
                     env={**ENVIRONMENT, "OWNER": owner, **broken, "PATH": f"{programs}:{os.environ['PATH']}"})
        findings = [line for line in result.stdout.splitlines() if line[0] in "!✗" and " log " not in line]
        assert result.returncode == ("✗" in result.stdout), result
        assert bool(findings) == bool(expected), (broken, result.stdout)
        assert expected is None or [line for line in findings if re.match(expected, line)], (broken, result.stdout)


def test_watch(gateway_up):
    world = gateway_up
    watcher = world.spawn([CTL, "-p", str(world.port), "watch", "--json", "wifi/aps", "ethernet/state"],
                          stdout=subprocess.PIPE, text=True)
    people = world.spawn([CTL, "-p", str(world.port), "watch", "error", "ethernet/state"], stdout=subprocess.PIPE, text=True,
                         env=ENVIRONMENT)
    log = world.folder / "mosquitto.log"
    until(lambda: log.read_text().count("New client connected") >= 4, "both are connected")
    time.sleep(0.2)  # the broker does not log subscriptions
    world.client.ask("ethernet/state/get", {"interface": "eth7"}, answer="error")
    world.sim.set_carrier("eth0", False)
    line = checked("watch", watcher.stdout.readline())
    assert (line["topic"], line["document"]["stateStr"]) == ("ethernet/state", "Disconnected")
    lines = [re.sub(r"^..:..:.. ", "", people.stdout.readline()) for _ in range(2)]
    assert lines[0] == "          error           ethernet/state/get: Invalid device specified: eth7\n"
    assert lines[1].startswith("eth0      ethernet/state  ipv4.address: 192.0.2.17 → -")
    for process in (watcher, people):
        process.send_signal(signal.SIGINT)
        assert process.wait(30) == 0


def on_terminal(world, *arguments):
    """Starts the tool at a terminal of its own; (process, terminal, what the terminal was set to)."""
    terminal, end = pty.openpty()
    before = termios.tcgetattr(end)
    process = world.spawn([CTL, "-p", str(world.port), *arguments], stdin=end, stdout=end, stderr=end, env=ENVIRONMENT)
    return process, terminal, end, before


def read_until(terminal, text):
    seen = ""
    while text not in seen:
        seen += os.read(terminal, 4096).decode()
    return seen


def asked_for_key(world):
    process, terminal, end, before = on_terminal(world, "wifi", "connect", "Gateway-Home")
    read_until(terminal, "Key of 'Gateway-Home': ")
    until(lambda: not termios.tcgetattr(end)[3] & termios.ECHO, "the echo is off")
    return process, terminal, end, before


def test_prompts(gateway_up):
    """A key that is typed is not shown; Ctrl-C there and while waiting leaves the terminal as it was."""
    world = gateway_up
    process, terminal, end, before = asked_for_key(world)
    process.send_signal(signal.SIGINT)
    assert process.wait(30) == -signal.SIGINT and termios.tcgetattr(end) == before

    process, terminal, end, before = asked_for_key(world)
    os.write(terminal, b"wrong horse\n")
    text = read_until(terminal, "[y/N] ")
    os.write(terminal, b"y\n")
    text += read_until(terminal, " after ")
    assert process.wait(30) == 1 and "wrong horse" not in text and "\x1b[31mFailed: the key" in text
    assert termios.tcgetattr(end) == before
    assert world.sim.profile("Gateway-Home")["802-11-wireless-security"]["psk"] == "wrong horse"

    world.sim.set_options(dhcp_ms=60000)
    process, terminal, end, before = on_terminal(world, "-y", "set", "modem", "pin=@" + str(world.folder / "right"))
    read_until(terminal, "Connecting")
    process.send_signal(signal.SIGINT)
    assert process.wait(30) == -signal.SIGINT and termios.tcgetattr(end) == before


def test_names_from_the_air(gateway_up):
    """What a network calls itself is shown, but not carried out: by the terminal, nor by the shell that completes."""
    world = gateway_up
    evil = f"$(touch {world.folder}/pwned)"
    world.sim.add_access_point(ssid=evil[:32])
    world.sim.add_access_point(ssid="\033[2Jgone\u009b2J")
    world.client.wait("wifi/networks", lambda d: any("gone" in n["ssid"] for n in d["networks"]))
    for option in ([], ["--json"]):
        shown = ctl(world, *option, "wifi").stdout
        assert "\033" not in shown and "\u009b" not in shown and "gone" in shown
    script = f""". {ROOT}/packaging/lanvoyctl.bash-completion; compopt() {{ :; }}
        COMP_WORDS=({CTL} -p "$1" wifi connect ''); COMP_CWORD=5; _lanvoyctl; printf '%s\\n' "${{COMPREPLY[@]}}\""""
    completed = [subprocess.run(["bash", "-c", script, "-", str(port)], capture_output=True, text=True)
                 for port in (world.port, 1)]
    assert "Gateway-Home" in completed[0].stdout and "\\$\\(touch" in completed[0].stdout
    assert (completed[1].stdout.strip(), completed[1].stderr) == ("", "")
    assert not list(world.folder.glob("pwned*"))
