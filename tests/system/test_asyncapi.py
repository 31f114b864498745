"""docs/asyncapi.yaml: what it promises is what the service does, example by example."""
import functools
import shutil
import subprocess

import pytest
import yaml
from conftest import ROOT, until
from test_documents import COMMANDS, TOPICS, checked, faults, found, schema_of

API = yaml.safe_load((ROOT / "docs/asyncapi.yaml").read_text())


def follow(node):
    """What a reference within the document points at."""
    while "$ref" in node and node["$ref"].startswith("#/"):
        node = functools.reduce(dict.__getitem__, node["$ref"][2:].split("/"), API)
    return node


def topic_of(channel):
    return follow(channel)["address"].removeprefix("{base}/")


def operations(action):
    """(topic, operation, examples) of all operations of one direction."""
    for operation in API["operations"].values():
        if operation["action"] == action:
            messages = map(follow, follow(operation["channel"])["messages"].values())
            yield (topic_of(operation["channel"]), operation,
                   [example["payload"] for message in messages for example in message["examples"]])


def within(part, whole):
    """Lists may hold more than the example shows; all else has to be there and equal."""
    if isinstance(part, dict) and isinstance(whole, dict):
        return part.keys() == whole.keys() and all(within(part[key], whole[key]) for key in part)
    if isinstance(part, list) and isinstance(whole, list):
        return all(any(within(p, w) for w in whole) for p in part)
    return part == whole


def test_operations_are_the_service_s():
    """Every topic with its QoS and retain flag, every command with its answer; schemas and version."""
    def binding(operation):
        mqtt = follow(operation["bindings"])["mqtt"]
        return str(mqtt["qos"]), str(mqtt["retain"]).lower()

    assert API["info"]["version"] == found(r"VERSION (\d+\.\d+\.\d+)", "CMakeLists.txt")[0]
    documents = {topic: operation for topic, operation, _ in operations("send")}
    commands = {topic: operation for topic, operation, _ in operations("receive")}
    assert sorted((t, *binding(o)) for t, o in documents.items()) == sorted(TOPICS)
    assert sorted(commands) == sorted(COMMANDS) and {binding(o) for o in commands.values()} == {("0", "false")}
    assert len(API["operations"]) == len(API["channels"]) == len(TOPICS) + len(COMMANDS)
    for topic, operation in commands.items():
        if topic.endswith("/get"):
            assert topic_of(operation["reply"]["channel"]) == topic.removesuffix("/get")
    for channel in API["channels"].values():
        for message in map(follow, channel["messages"].values()):
            assert message["payload"]["$ref"] == f"schema/{schema_of(topic_of(channel))}.json"


def test_examples_fit_their_schemas():
    for action in ("send", "receive"):
        for topic, _, examples in operations(action):
            assert examples, topic
            assert [fault for example in examples for fault in faults(schema_of(topic), example)] == []


def test_examples_happen(world):
    """Each command is sent and answered, and each document is published, as it stands there."""
    client, sim = world.client, world.sim
    world.run()
    for topic, _, examples in operations("receive"):
        for example in examples:
            if topic.endswith("/get"):
                checked(client, topic, example)
            else:
                client.send(topic, example)
                query = topic.replace("/set", "/get")
                until(lambda: checked(client, query).items() >= example.items(), f"{topic} {example}")
                if "ssid" in example and example is not examples[-1]:
                    sim.remove_profile(example["ssid"])  # or it stays the first of the available connections
    client.wait("wifi/state", lambda d: d["stateStr"] == "Connected" and d["ipv4"])
    client.send("wifi/scan/get")
    client.send("wifi/state/get", {"interface": "wlan7"})
    client.send("info/get", "{")
    sim.set_carrier("eth0", False)
    client.wait("ethernet/state", lambda d: d["reasonStr"] == "CarrierReason")
    sim.set_status(20)
    sim.set_connectivity(1)
    sim.set_primary_connection("/")
    until(lambda: client.ask("status/get")["primaryConnection"] is None, "offline")
    for topic, _, examples in operations("send"):
        if topic != "modem/stats":  # its months have passed
            seen = [message.document for message in client.on(topic)]
            assert [e for e in examples if not any(within(e, document) for document in seen)] == [], topic


def test_reference_page():
    """AsyncAPI's own parser takes the document, and the page is made of it."""
    if not (shutil.which("node") and shutil.which("npm")):
        pytest.skip("node and npm are not installed")
    run = subprocess.run([ROOT / "scripts/docs"], capture_output=True, text=True)
    if run.returncode == 77:
        pytest.skip(f"AsyncAPI's parser cannot be fetched: {run.stderr[-300:]}")
    assert run.returncode == 0, run.stderr
    assert '"{base}/wifi/aps' in (ROOT / "build/docs/index.html").read_text().replace('\\"', '"')
