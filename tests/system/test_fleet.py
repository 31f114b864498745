# SPDX-License-Identifier: MIT
"""The samples of packaging/fleet on three nodes: what gets through, and what each certificate may do."""
import json
import socket
import ssl
import threading

import paho.mqtt.client as mqtt
import pytest
from conftest import BINARY, DEADLINE, until

from fleet.cluster import BadName, Cluster, check_name
from fleet.gateway import DOCUMENTS, Client, Gateway
from fleet.watch import fetch

NAMES = ("gw-0001", "gw-0002")


@pytest.fixture(scope="module")
def cluster(tmp_path_factory):
    folder = tmp_path_factory.mktemp("fleet")
    for parent in (folder, folder.parent, folder.parent.parent):
        parent.chmod(0o755)  # the gateway's broker gives up root
    cluster = Cluster(folder, NAMES)
    try:
        cluster.start()
        yield cluster
    finally:
        cluster.stop()


def client(cluster, name, node, base, topic, hook=None):
    result = Client(cluster.nodes[node].mqtt, base, cluster.folder, name, [topic], hook=hook)
    assert result.granted.wait(DEADLINE)
    return result


def test_documents_and_commands_cross_the_cluster(cluster):
    name = NAMES[0]
    with Gateway(name, BINARY, cluster, [node.mqtt for node in cluster.nodes]) as gateway:
        gateway.start()
        with client(cluster, "operator", 2, f"fleet/{name}", "#") as operator:
            until(lambda: DOCUMENTS <= set(gateway.documents()) and all(
                operator.documents.get(topic) == document for topic, document in gateway.documents().items()),
                lambda: f"the gateway's own documents; there were {sorted(operator.documents)}")
            assert not [topic for topic in operator.documents if topic.endswith("/config")]
            assert operator.documents["online"] == b"1"

            # A new subscription at a third node gets them too.
            retained, _ = fetch(cluster.nodes[1].mqtt, cluster.folder, [f"{name}/#"])
            assert set(retained) >= {f"{name}/{topic}" for topic in DOCUMENTS}

            operator.publish("ethernet/state/get", json.dumps({"interface": "eth7"}))
            error = until(lambda: operator.documents.get("error"), "the answer to a command")
            assert json.loads(error)["command"] == "ethernet/state/get"


@pytest.mark.parametrize("base, topic, granted", [
    (f"fleet/{NAMES[0]}", "#", True),
    (f"fleet/{NAMES[0]}", "+/get", True),
    (f"fleet/{NAMES[1]}", "info", False),
    (f"fleet/{NAMES[1]}", "#", False),
    ("fleet", "#", False),
    ("fleet", "+/info", False),
    ("$MQTT/sub", "#", False),
])
def test_a_gateway_reads_its_own_branch_only(cluster, base, topic, granted):
    with client(cluster, NAMES[0], 0, base, topic) as gateway:
        assert (gateway.code != 128) == granted


def test_a_gateway_writes_its_own_branch_only(cluster):
    own, other = NAMES
    with client(cluster, "operator", 2, "fleet", "+/written") as operator, client(
            cluster, own, 0, f"fleet/{own}", "none") as gateway:
        for base in (f"fleet/{other}", "fleet", f"fleet/{own}"):  # in this order: what comes last shows that all was handled
            gateway.base = base
            gateway.publish("written", "x", 1, True)
        until(lambda: operator.documents, "what the gateway wrote to its own branch")
        assert set(operator.documents) == {f"{own}/written"}
    assert set(fetch(cluster.nodes[1].mqtt, cluster.folder, ["+/written", "written"])[0]) == {f"{own}/written"}


def test_a_name_without_its_certificate_is_nobody(cluster):
    refused = threading.Event()
    intruder = mqtt.Client()
    intruder.tls_set(cluster.folder / "ca.crt")
    intruder.username_pw_set("CN=operator")
    intruder.on_connect = lambda *_: pytest.fail("connected without a certificate")
    intruder.on_disconnect = lambda *_: refused.set()
    with pytest.raises(OSError):
        intruder.connect("localhost", cluster.nodes[0].mqtt)
        until(lambda: intruder.loop(0.1) != mqtt.MQTT_ERR_SUCCESS, "the end of the connection")
        raise ConnectionError("refused after the handshake")


def test_the_port_for_administration_wants_a_certificate_too(cluster):
    with socket.create_connection(("127.0.0.1", cluster.nodes[0].client), DEADLINE) as connection:
        greeting = json.loads(connection.makefile().readline().removeprefix("INFO "))
    assert greeting["tls_required"] and greeting["tls_verify"]


@pytest.mark.parametrize("name", [NAMES[0], "operator"])
def test_a_gateway_or_operator_is_no_node(cluster, name):
    context = ssl.create_default_context(cafile=cluster.folder / "ca.crt")
    context.load_cert_chain(cluster.folder / f"{name}.crt", cluster.folder / f"{name}.key")
    with socket.create_connection(("localhost", cluster.nodes[0].route), DEADLINE) as plain:
        with context.wrap_socket(plain, server_hostname="localhost") as connection:
            connection.sendall(b'CONNECT {"tls_required": true, "name": "nats-d", "cluster": "fleet"}\r\nPING\r\n')
            answer = connection.makefile("rb").read()  # to the end: the node closes
    assert b"Authorization Violation" in answer


@pytest.mark.parametrize("name", ["gw.0017", "gw 0017", "", "gw/0017", "gw-*", ">", "gw-0017\n", "gw+", 'gw"', "operator"])
def test_a_name_that_is_no_single_level_or_taken_is_refused(name):
    with pytest.raises(BadName):
        check_name(name)
