# SPDX-License-Identifier: MIT
"""A configuration file that is damaged or of another kind is reported, and left as it is."""
import json
import os

import pytest

from lab import daemon as daemons
from lab import evidence, queue as queues

DAMAGED = {
    "cut-short": '{ "nextRequestNum" : 3, "requestQueue" : [ "1"',
    "empty": "",
    "no-json": "\x00\x01\x02 garbage",
    "nested-too-deep": "[" * 5000,
}
OTHER_KIND = {
    "array-on-top": ("[]", "top level"),
    "text-on-top": ('"text"', "top level"),
    "queue-an-object": ('{"requestQueue":{"0":"1"}}', "requestQueue"),
    "requests-an-array": ('{"requestQueue":["0"],"requests":[]}', "requests"),
}
# A member that only one of the two threads uses concerns only that one.
WORKER_STOPS = {
    "queue-of-objects": ('{"requestQueue":[{}]}', "requestQueue"),
    "request-a-text": ('{"nextRequestNum":1,"requestQueue":["0"],"requests":{"0":"x"}}', "0"),
    "mount-path-an-array": ('{"nextRequestNum":1,"requestQueue":["0"],"requests":{"0":{"mountPath":[]}}}',
                            "mountPath"),
}
RECEIVER_REFUSES = {
    "counter-a-text": ('{"nextRequestNum":"3"}', "nextRequestNum"),
    "counter-too-large": ('{"nextRequestNum":99999999999}', "nextRequestNum"),
}
NOBODY_STOPS = {
    "volumes-a-number": '{"volumes":7}',
    "files-an-array": '{"volumes":{"/mnt/other":{"files":[]}}}',
    "a-request-that-is-not-queued": '{"nextRequestNum":8,"requestQueue":null,"requests":{"7":[]}}',
}


def write(text):
    os.makedirs(os.path.dirname(daemons.CONFIGURATION), exist_ok=True)
    with open(daemons.CONFIGURATION, "w", encoding="utf-8") as file:
        file.write(text)


def content():
    with open(daemons.CONFIGURATION, encoding="utf-8") as file:
        return file.read()


@pytest.mark.parametrize("name", [*DAMAGED, *OTHER_KIND])
def test_the_worker_stops_and_the_receiver_refuses(stage, name):
    text, member = OTHER_KIND.get(name) or (DAMAGED[name], None)
    write(text)
    daemon = stage.daemon(wait_for="Get request error")
    path = daemon.configuration
    daemon.expect(f"Config has a member of a wrong kind ({member})" if member else f"Prase file {path} error",
                  "Get request error", f"Can't add request to config ({path})")
    if member != "requests":
        daemon.expect(f"Can't read data from config file ({path})",
                      f"Get request from config file ({path}) error")
    if member in ("requests", "requestQueue"):
        daemon.expect("Can't add request to json")
    daemon.wait_for(daemons.RECEIVING)

    stage.queue().send(queues.RELOAD, "/mnt/vol1")

    assert daemon.wait() == 0  # the process ends with its last thread
    assert content() == text


@pytest.mark.parametrize("name", WORKER_STOPS)
def test_the_worker_stops_and_the_receiver_goes_on(stage, name):
    text, member = WORKER_STOPS[name]
    write(text)
    daemon = stage.daemon(wait_for="Get request error")
    daemon.expect(f"Config has a member of a wrong kind ({member})", "Get request error")
    daemon.wait_for(daemons.RECEIVING)

    stage.queue().send(queues.RELOAD, "/mnt/vol1")

    daemon.wait_for("Signal a new request is added")
    before, after = json.loads(text), evidence.configuration(daemon.configuration)
    number = str(before.get("nextRequestNum", 0))
    assert after["requestQueue"] == [*before["requestQueue"], number]
    assert after["requests"] == {**before.get("requests", {}), number: {
        "type": "reloadPinBlocks", "mountPath": "/mnt/vol1", "data": None}}
    assert daemon.receiver_alive()


@pytest.mark.parametrize("name", RECEIVER_REFUSES)
def test_the_receiver_refuses_and_the_worker_goes_on(stage, name):
    text, member = RECEIVER_REFUSES[name]
    write(text)
    daemon = stage.daemon()
    daemon.expect(f"Config has a member of a wrong kind ({member})", "Can't add request to json",
                  f"Can't add request to config ({daemon.configuration})")

    stage.queue().send(queues.RELOAD, "/mnt/vol1")

    daemon.wait_for("Can't add request to config")
    assert daemon.worker_alive()
    assert content() == text


@pytest.mark.parametrize("name", NOBODY_STOPS)
def test_what_nobody_uses_stops_nobody(stage, name):
    volume = stage.volume()
    write(NOBODY_STOPS[name])
    daemon, before = stage.daemon(), json.loads(NOBODY_STOPS[name])

    stage.queue().send(queues.RELOAD, volume.mount_path)

    daemon.until_done("reloadPinBlocks")
    after = evidence.configuration(daemon.configuration)
    assert after["requestQueue"] is None
    assert {key: after[key] for key in ("volumes", "requests") if before.get(key)} == {
        key: before[key] for key in ("volumes", "requests") if before.get(key)}
    assert daemon.receiver_alive() and daemon.worker_alive()


def test_a_directory_in_its_place(stage):
    os.makedirs(daemons.CONFIGURATION)
    daemon = stage.daemon(wait_for="Get request error")
    daemon.expect(f"Prase file {daemon.configuration} error",
                  f"Can't read data from config file ({daemon.configuration})",
                  f"Get request from config file ({daemon.configuration}) error", "Get request error")
    daemon.wait_for(daemons.RECEIVING)
    assert daemon.stop() == 0
    os.rmdir(daemons.CONFIGURATION)


def test_a_queue_entry_without_its_request_stops_the_worker(stage):
    write(json.dumps({"requestQueue": ["7"], "requests": {}}))
    daemon = stage.daemon(wait_for="Get request error")
    daemon.expect("Can't find request number (7) in config", "Get request error")
    assert json.loads(content()) == {"requestQueue": ["7"], "requests": {}}


def test_the_counter_begins_anew(stage):
    volume = stage.volume()
    write(json.dumps({"nextRequestNum": 2147483645}))
    daemon, queue = stage.daemon(), stage.queue()
    queue.send(queues.ADD_PENDING, volume.mount_path)

    queue.send(queues.RELOAD, volume.mount_path)
    queue.send(queues.RELOAD, volume.mount_path)

    daemon.wait_for("Signal a new request is added", 2)
    document = evidence.configuration(daemon.configuration)
    assert document["nextRequestNum"] == 1
    assert document["requestQueue"] == ["2147483645", "0"]
