"""docs/asyncapi.yaml: what it promises is what the service does."""
import functools

import yaml
from conftest import ROOT
from test_documents import COMMANDS, TOPICS, faults, found, schema_of

API = yaml.safe_load((ROOT / "docs/asyncapi.yaml").read_text())


def follow(node):
    """What a reference within the document points at."""
    while "$ref" in node and node["$ref"].startswith("#/"):
        node = functools.reduce(dict.__getitem__, node["$ref"][2:].split("/"), API)
    return node


def operations(action):
    """{topic: operation} of one direction."""
    return {follow(operation["channel"])["address"].removeprefix("{base}/"): operation
            for operation in API["operations"].values() if operation["action"] == action}


def binding(operation):
    mqtt = follow(operation["bindings"])["mqtt"]
    return str(mqtt["qos"]), str(mqtt["retain"]).lower()


def test_operations_are_the_service_s():
    """Every topic with its QoS and retain flag, every command with its answer, and the version."""
    documents, commands = operations("send"), operations("receive")
    assert API["info"]["version"] == found(r"VERSION (\d+\.\d+\.\d+)", "CMakeLists.txt")[0]
    assert sorted((topic, *binding(o)) for topic, o in documents.items()) == sorted(TOPICS)
    assert sorted(commands) == sorted(COMMANDS) and {binding(o) for o in commands.values()} == {("0", "false")}
    assert len(API["operations"]) == len(API["channels"]) == len(TOPICS) + len(COMMANDS)
    for topic in documents.keys() & {command.removesuffix("/get") for command in COMMANDS}:
        assert follow(commands[topic + "/get"]["reply"]["channel"]) is follow(documents[topic]["channel"])


def test_messages_fit_their_schemas():
    for topic, operation in (operations("send") | operations("receive")).items():
        for message in map(follow, follow(operation["channel"])["messages"].values()):
            assert message["payload"]["$ref"] == f"schema/{schema_of(topic)}.json" and message["examples"]
            assert [f for e in message["examples"] for f in faults(schema_of(topic), e["payload"])] == []
