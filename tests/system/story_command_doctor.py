# SPDX-License-Identifier: MIT
"""quorcachepinctl doctor: what keeps the service from working is found, and what is safe is done."""
import os

from lab import command, evidence, queue as queues


def findings(*words, status):
    return {row["subject"]: row for row in command.report("doctor", *words, status=status)["findings"]}


def test_a_healthy_service(stage):
    volume = stage.volume()
    path = volume.write("a", 500_000)
    stage.daemon()
    command.done("pin", "--wait", path)
    found = findings(status=0)
    assert {row["health"] for row in found.values()} == {"ok"}
    assert set(found) >= {"key file", "queue", "messages", "kernel.msgmnb", "service", "libraries",
                          "configuration", f"volume {volume.mount_path}"}
    for name in ("core", "storagecore", "flashcache", "dataverifier"):
        assert f"libquor{name}.so" in found["libraries"]["text"]


def test_a_message_that_is_too_long_is_taken_away(stage):
    volume = stage.volume()
    path = volume.write("a", 500_000)
    daemon, queue = stage.daemon(), stage.queue()
    daemon.expect("Receive messaged failed")
    queue.send_raw(b"x" * 1600)
    daemon.wait_for("Receive messaged failed")
    command.run("pin", path)  # waits behind it
    queue.send_raw(b"x" * 100, mtype=7)
    assert queue.state().messages == 3

    found = findings(status=3)
    assert found["service"]["health"] == found["messages"]["health"] == "bad"
    assert queue.state().messages == 3, "looking takes nothing"

    # Starting the service again does not help: it meets the message again.
    daemon.stop()
    again = stage.daemon(wait_for="Receive messaged failed")
    again.expect("Receive messaged failed")
    again.stop()

    result = command.run("doctor", "--fix")
    assert result.status == 3, "the service still does not run"
    assert "taking away messages that the service cannot take" in result.talk
    assert [line.split(" (", 1)[0] for line in result.lines() if line.startswith("fixed")] == [
        "fixed: took away a message"] * 2
    assert queue.state().messages == 1

    stage.daemon().until_done("pinFiles")
    assert evidence.pinned_bits(volume.mount_path) == evidence.units([path])
    assert findings(status=0)["service"]["health"] == "ok"


def test_messages_that_would_end_the_intake_are_taken_away(stage):
    volume = stage.volume()
    path = volume.write("a", 500_000)
    daemon, queue = stage.daemon(), stage.queue()
    daemon.stop()
    queue.pin(volume.mount_path, [path + "-not-there"])
    queue.send(queues.RELOAD)
    queue.pin(volume.mount_path, [path])
    done = command.report("doctor", "--fix", status=3)["done"]
    assert len(done) == 2 and "No such file" in done[0] and "names no volume" in done[1]
    assert queue.state().messages == 1
    stage.daemon().until_done("pinFiles")


def test_a_queue_that_could_not_be_sized(stage):
    stage.volume()
    daemon, queue = stage.daemon(), stage.queue()
    key = queue.state().key
    daemon.stop()
    queue.remove()
    with open("/proc/sys/kernel/msgmnb", "w", encoding="ascii") as limit:
        limit.write("16384")
    narrow = queues.Queue.create(key)  # with the limit of now
    with open("/proc/sys/kernel/msgmnb", "w", encoding="ascii") as limit:
        limit.write("1576960")
    stage.daemon()
    assert findings(status=0)["queue"]["health"] == "doubtful"
    assert "room for 10 instead of 1024" in findings(status=0)["queue"]["text"]
    assert command.report("doctor", "--fix")["done"] == ["the queue has room for 1024 requests now"]
    assert narrow.state().limit == 1576960
    assert findings(status=0)["queue"]["health"] == "ok"


def test_other_troubles_are_named_with_their_remedy(stage):
    volume = stage.volume()
    path = volume.write("a", 500_000)
    found = findings(status=3)
    assert "there is no key file" in found["key file"]["text"]
    assert found["service"]["remedy"] == "start quorcachepinfiled"

    daemon = stage.daemon()
    command.done("pin", "--wait", path)
    with open(volume.path(evidence.BITMAP_FILE), "ab") as file:
        file.write(bytes(4096))
    subject = f"volume {volume.mount_path}"
    assert "every request fails" in findings(status=1)[subject]["text"]
    os.truncate(volume.path(evidence.BITMAP_FILE), evidence.bitmap_bytes(volume.size))

    volume.cache.control("support-pin 0")
    assert "does not keep pins" in findings(status=8)[subject]["text"]
    volume.cache.control("support-pin 1")

    daemon.stop()
    with open(queues.KEY_FILE, "w", encoding="ascii") as file:
        file.write("garbage")
    assert "holds no key" in findings(status=3)["key file"]["text"]
    with open(daemon.configuration, "w", encoding="utf-8") as file:
        file.write("{")
    found = findings("--config-path", daemon.configuration, status=3)
    assert "is damaged" in found["configuration"]["text"]
