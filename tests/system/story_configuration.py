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
    "array-on-top": "[]",
    "text-on-top": '"text"',
    "counter-a-text": '{"nextRequestNum":"3"}',
    "counter-too-large": '{"nextRequestNum":99999999999}',
    "queue-an-object": '{"requestQueue":{"0":"1"}}',
    "queue-of-objects": '{"requestQueue":[{}]}',
    "requests-an-array": '{"requestQueue":["0"],"requests":[]}',
    "request-a-text": '{"requestQueue":["0"],"requests":{"0":"x"}}',
    "type-an-object": '{"requestQueue":["0"],"requests":{"0":{"type":{}}}}',
    "mount-path-an-array": '{"requestQueue":["0"],"requests":{"0":{"type":"pinFiles","mountPath":[]}}}',
    "data-an-object": '{"requestQueue":["0"],"requests":{"0":{"data":{}}}}',
    "volumes-a-number": '{"volumes":7}',
    "files-an-array": '{"volumes":{"/mnt/vol1":{"files":[]}}}',
}
ERRORS = {**dict.fromkeys(DAMAGED, "Prase file {path} error"),
          **dict.fromkeys(OTHER_KIND, "Config file ({path}) has a member of a wrong kind")}


def write(text):
    os.makedirs(os.path.dirname(daemons.CONFIGURATION), exist_ok=True)
    with open(daemons.CONFIGURATION, "w", encoding="utf-8") as file:
        file.write(text)


def content():
    with open(daemons.CONFIGURATION, encoding="utf-8") as file:
        return file.read()


@pytest.mark.parametrize("name", ERRORS)
def test_the_worker_stops_and_the_receiver_refuses(stage, name):
    text = {**DAMAGED, **OTHER_KIND}[name]
    write(text)
    daemon = stage.daemon(wait_for="Get request error")
    path = daemon.configuration
    daemon.expect(ERRORS[name].format(path=path), f"Can't read data from config file ({path})",
                  f"Get request from config file ({path}) error", "Get request error",
                  f"Can't add request to config ({path})")
    daemon.wait_for(daemons.RECEIVING)

    stage.queue().send(queues.RELOAD, "/mnt/vol1")

    assert daemon.wait() == 0  # the process ends with its last thread
    assert content() == text


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
