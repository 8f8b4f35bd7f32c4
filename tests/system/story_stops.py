# SPDX-License-Identifier: MIT
# timeout: 1200
# not sanitized: an end out of a signal handler may wait for good on the sanitizer's own allocator
"""No stop while requests are being stored loses the store.

The file is rewritten in place, and empty between its truncation and the one write. An end by a signal waits
for that moment to pass. QUOR_STOPS asks for another number of stops, for measuring.
"""
import json
import os
import random
import threading

import pytest

from lab import queue as queues

STOPS = int(os.environ.get("QUOR_STOPS", "100"))
LISTED = {"/mnt/other": {"files": {str(n): f"photos/{n:04}.jpg" for n in range(200)}}}


def send_until(ended, queue, mount_path, path, most):
    """Sends pin requests, `most` at most, as fast as the queue takes them."""
    while most > 0 and not ended.is_set():
        try:
            queue.pin(mount_path, [path])
            most -= 1
        except BlockingIOError:
            pass  # full: the service is behind


def is_lost(path):
    try:
        with open(path, encoding="utf-8") as file:
            return json.load(file)["volumes"] != LISTED
    except ValueError:
        return True


@pytest.mark.parametrize("most, longest", [(1_000_000, 0.06), (40, 0.02)], ids=["storm", "burst"])
def test_stops_while_requests_are_stored(stage, most, longest):
    volume = stage.volume()
    path = volume.write("photo.jpg", 10_000)
    moments, lost = random.Random(1), 0
    for _ in range(STOPS):
        daemon = stage.daemon(wait_for=None, flags=())
        queue = stage.queue()
        queue.send(queues.ADD_PENDING, volume.mount_path)
        queue.until_empty()
        with open(daemon.configuration, "w", encoding="utf-8") as file:
            json.dump({"volumes": LISTED}, file)
        ended = threading.Event()
        sender = threading.Thread(target=send_until, args=(ended, queue, volume.mount_path, path, most))
        sender.start()
        ended.wait(moments.uniform(0, longest))  # the moment of the stop is what is tried out
        assert daemon.stop() == 0
        ended.set()
        sender.join()
        queues.remove_all()
        lost += is_lost(daemon.configuration)
        os.unlink(daemon.configuration)
        stage.daemons.remove(daemon)
    print(f"{lost} of {STOPS} stops lost the store")
    assert lost == 0, f"{lost} of {STOPS} stops lost the store"
