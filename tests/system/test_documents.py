# SPDX-License-Identifier: MIT
"""Documents as a whole: golden ones, and the schemas and pages that integrators code against."""
import datetime
import functools
import json
import re

import jsonschema
import yaml
from conftest import ROOT, Client, until

SCHEMAS = {file.stem: json.loads(file.read_text()) for file in (ROOT / "docs/schema").glob("*.json")}
GOLDEN = json.loads((ROOT / "tests/golden.json").read_text())  # by schema; the variants are those of a unit test
INTERFACE = (ROOT / "docs/interface.md").read_text()
README = (ROOT / "README.md").read_text()


def found(pattern, file):
    return re.findall(pattern, (ROOT / file).read_text(), re.S)


TOPICS = found(r'= \{"(\S+)", (\d), (\w+)\};', "src/ipc/topics.h")
COMMANDS = found(r'\{QStringLiteral\("(\S+)"\), &', "src/engine/engine_commands.cpp")
QUERIES = [command for command in COMMANDS if command.endswith("/get")]


def schema_of(topic):
    return "query" if topic.endswith("/get") else topic.replace("/", "-")


def faults(name, document):
    resolver = jsonschema.RefResolver.from_schema(SCHEMAS[name], store={s["$id"]: s for s in SCHEMAS.values()})
    validator = jsonschema.Draft202012Validator(SCHEMAS[name], resolver=resolver,
                                                format_checker=jsonschema.FormatChecker())
    return [f"{error.json_path}: {error.message}" for error in validator.iter_errors(document)]


def checked(client, command, data=None):
    """Asks and returns the answer, which has to fit its schema."""
    document = client.ask(command, data)
    assert faults(schema_of(command.removesuffix("/get")), document) == []
    return document


def test_nothing_is_undocumented():
    for schema in SCHEMAS.values():
        jsonschema.Draft202012Validator.check_schema(schema)
    topics = [topic for topic, _, _ in TOPICS] + COMMANDS
    keys = found(r'\{"(\w+/\w+)", &[^,]+, "?(.*?)"?\}', "src/config/config_file.cpp")
    assert len(TOPICS) == 13 and len(COMMANDS) == 14 and len(keys) == 37
    assert {schema_of(topic) for topic in topics} | {"common"} == set(SCHEMAS)
    words = {name: schema["enum"] for name, schema in SCHEMAS["common"]["$defs"].items() if "enum" in schema}
    assert words["deviceTypeStr"][:-1] == found(r'\{Device::\w+, "(\w+)"\}', "src/types/lanvoytypes.cpp")
    radio = found(r'\{[^{}]*?, "(\w+)"\}', "src/types/lanvoytypes_radio.cpp")
    technologies = SCHEMAS["common"]["$defs"]["accessTechnologies"]["items"]["enum"]
    assert words["accessPointMode"] + technologies == radio
    for topic, qos, retain in TOPICS:
        assert f"| `{topic}` | {qos} | {'yes' if retain == 'true' else 'no'} |" in INTERFACE
    assert [command for command in COMMANDS if f"`{command}`" not in INTERFACE] == []
    for key, default in keys:
        assert f"| `{key}` | {f'`{default}` ' if default else ''}|" in INTERFACE


def test_default_world(world):
    """Every document of a connected gateway: what it tells, and its layout."""
    month = datetime.date.today().replace(day=1)
    last = month - datetime.timedelta(days=1)
    (world.folder / "stats").mkdir()
    (world.folder / "stats/modem.ini").write_text(
        f"[{last:%Y-%m}]\nrxbytes=2344000\ntxbytes=3000000000\n[{month:%Y-%m}]\nrxbytes=1536000000\ntxbytes=5000\n"
        "[2001-01]\nrxbytes=1\n")  # a month that is removed at the start
    world.connected(**{"Modem/username": "me", "Modem/pin": "1234"})
    client = world.client
    until(lambda: client.ask("status/get")["connectivityStr"] == "Full", "connectivity")
    for command in QUERIES:
        client.ask(command)
    client.ask("nothing/get", answer="error")
    retained = Client(world.port)
    for topic, qos, retain in TOPICS:
        text = client.on(topic)[-1].text
        text = text.replace(f"{last:%Y-%m}", "2021-08").replace(f"{month:%Y-%m}", "2021-09")
        document = json.loads(text)
        laid_out = json.dumps(document, indent=4, sort_keys=True, ensure_ascii=False) + "\n"
        assert re.sub(r"(?<=[\[{])\s+(?=[\]}])", "", text) == laid_out
        if topic == "wifi/networks":
            in_order(document["networks"])
        assert document == GOLDEN[schema_of(topic) + "-world" * (topic == "wifi/networks")]
        assert {message.qos for message in client.on(topic)} == {int(qos)}
        until(lambda: retain == "false" or any(message.retained for message in retained.on(topic)), f"retained {topic}")
        assert retain == "true" or not retained.on(topic)
    retained.close()


def in_order(networks):
    """The library keeps networks and their access points in no order."""
    networks.sort(key=lambda network: network["ssid"])
    for network in networks:
        network["accessPoints"].sort(key=lambda point: -point["signalStrength"])


def test_schemas_tell_good_from_broken():
    """A document fits; it does not with a member more, of another type, or that does not go with the others."""
    for golden, document in GOLDEN.items():
        name = max((n for n in SCHEMAS if golden.startswith(n)), key=len)
        assert faults(name, document) == []
        for key in [*document, "surplus"]:
            assert faults(name, {**document, key: 0.5 if isinstance(document.get(key), str) else "x"}), (golden, key)
    for name, change in (
            ("ethernet-state", {"state": 3}), ("wifi-state", {"type": 1}), ("status", {"connectivityStr": "full"}),
            ("wifi-config", {"method": "unknown", "ssid": None}), ("modem-config", {"address": "10.0.0.1"}),
            ("ethernet-config-set", {"method": "manual", "address": "", "netmask": "255.255.255.0"})):
        assert faults(name, {**GOLDEN.get(name, {}), **change}), change


def test_asyncapi():
    """docs/asyncapi.yaml: every topic with its QoS and retain flag, every command with its answer; examples; version."""
    api, told = yaml.safe_load((ROOT / "docs/asyncapi.yaml").read_text()), set()
    follow = lambda node: functools.reduce(dict.__getitem__, node["$ref"][2:].split("/"), api)  # noqa: E731
    for operation in api["operations"].values():
        channel, mqtt = follow(operation["channel"]), follow(operation["bindings"])["mqtt"]
        topic = channel["address"].removeprefix("{base}/")
        told.add((topic, str(mqtt["qos"]), str(mqtt["retain"]).lower()))
        if topic.endswith("/get") and "reply" in operation:
            assert follow(operation["reply"]["channel"])["address"] + "/get" == channel["address"]
        for message in map(follow, channel["messages"].values()):
            assert message["payload"]["$ref"] == f"schema/{schema_of(topic)}.json"
            assert [f for e in message["examples"] for f in faults(schema_of(topic), e["payload"])] == []
    assert told == {*TOPICS, *((command, "0", "false") for command in COMMANDS)}
    assert api["info"]["version"] == found(r"VERSION (\d+\.\d+\.\d+)", "CMakeLists.txt")[0]


def test_written_examples(world):
    """Each example in the documents fits its schema, and each change ends up in NetworkManager as it was sent."""
    world.run()
    examples = re.findall(r"-t vexo/network/(\S+) -m '(.*?)'", INTERFACE + README, re.S)
    for topic, payload in examples:
        data = json.loads(payload)
        assert faults(schema_of(topic), data) == []
        world.client.send(topic, data)
        if topic.endswith("/set"):
            query = topic.replace("/set", "/get")  # NetworkManager announces a new connection a moment later
            until(lambda: checked(world.client, query).items() >= data.items(), topic)
    world.client.wait("error", lambda d: d["error"].endswith("eth7"))


def test_states(world):
    """Every device state, reason, overall state and connectivity: number and word belong together."""
    world.run()
    for reason in range(70):
        world.sim.set_device_state("wlan0", 10 * (reason % 13), reason)
        until(lambda: checked(world.client, "wifi/state/get")["reason"] == reason, f"reason {reason}")
    for number in range(8):
        world.sim.set_status(10 * number)
        world.sim.set_connectivity(number % 5)
        until(lambda: checked(world.client, "status/get")["connectivity"] == number % 5, f"connectivity {number}")


def test_variants(world):
    """Not connected, no cable, no profile, modems of all kinds, nothing in range."""
    sim, client = world.sim, world.client
    sim.set_options(autoconnect=False)
    sim.set_carrier("eth0", False)
    world.run({"Ethernet/id": "", "Modem/id": ""})
    documents = {command: checked(client, command) for command in QUERIES}
    assert documents["status/get"]["primaryConnection"] is None
    assert documents["ethernet/state/get"]["stateStr"] == "Disconnected"
    for kind in ("ethernet", "wifi", "modem"):
        assert documents[f"{kind}/config/get"]["method"] == "unknown"
        assert documents[f"{kind}/state/get"]["ipv4"] is None

    modems = [({"cdma": True, "gsm": False}, {"cdma", "device", "sim"}), ({"known": False}, set()),
              ({"gsm": False, "sim": False}, {"device", "sim"}), ({"ussd": False}, {"gsm", "device", "sim"})]
    for number, (options, members) in enumerate(modems, 1):
        data = {"interface": f"cdc-wdm{number}"}
        sim.add_device("modem", control_port=data["interface"], **options)
        client.wait("modem/signal", lambda d: d["interface"] == data["interface"])
        assert set(checked(client, "modem/state/get", data)) & {"cdma", "gsm", "gsmUssd", "device", "sim"} == members
    signals = [message.document for message in client.on("modem/signal")]
    assert [faults("modem-signal", document) for document in signals] == [[]] * len(signals)
    assert {"interface": "cdc-wdm2", "quality": 0, "accessTechnologies": []} in signals  # the unknown one

    sim.clear_access_points()
    until(lambda: checked(client, "wifi/aps/get")["aps"] == [], "no access points")
    assert checked(client, "wifi/networks/get")["networks"] == []
