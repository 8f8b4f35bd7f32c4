# SPDX-License-Identifier: MIT
"""The queue and its key file, as a start may find them."""
import signal

import pytest

from lab import evidence, journal, libc, queue as queues

_PR_CAPBSET_DROP, _CAP_SYS_RESOURCE = 24, 24
LIMIT_FILE = "/proc/sys/kernel/msgmnb"
UNREADABLE = (f"Can't get a line from file (/var{queues.KEY_FILE})",
              f"Can't get message key from file (/var{queues.KEY_FILE})",
              f"Can't find the message queue's key from file (/var{queues.KEY_FILE})",
              f"Create server messsage queue by file (/var{queues.KEY_FILE}) failed")


def key_file():
    with open(queues.KEY_FILE, encoding="ascii") as file:
        return file.read()


def write_key_file(text):
    with open(queues.KEY_FILE, "w", encoding="ascii") as file:
        file.write(text)


def until_stopped(daemon):
    daemon.wait_for("Create server messsage queue by file")
    journal.until(lambda: not daemon.receiver_alive(), "the receiver is still there")
    assert daemon.worker_alive() and daemon.alive()


def test_a_first_start_makes_and_sizes_the_queue(stage):
    daemon, queue = stage.daemon(), stage.queue()
    state = queue.state()
    assert (state.limit, state.mode, state.messages) == (1024 * queues.BODY_BYTES, 0o644, 0)
    assert key_file() == str(queues.make_key()) == str(state.key)
    assert daemon.logged("Set size = 1576960 (num of request = 1024, request size = 1540)")


def test_the_queue_outlives_the_service(stage):
    volume = stage.volume()
    path = volume.write("a", 1000)
    daemon, queue = stage.daemon(), stage.queue()
    assert daemon.stop() == 0
    queue.pin(volume.mount_path, [path])

    again = stage.daemon()

    assert again.logged("already exists (error = File exists)")
    assert again.logged(f"Get message queue by id ({queue.identifier}) successfully")
    again.until_done("pinFiles")


def test_a_stale_key_file_is_written_anew(stage):
    write_key_file("12345\n")
    daemon, queue = stage.daemon(), stage.queue()
    assert key_file() == str(queues.make_key())
    assert queue.state().limit == 1024 * queues.BODY_BYTES
    assert not daemon.logged("Message queue exist")


def test_an_empty_key_file_beside_an_existing_queue(stage):
    write_key_file("")
    queues.Queue.create(queues.make_key())
    daemon = stage.daemon(wait_for="Create server messsage queue by file")
    daemon.expect(*UNREADABLE)
    until_stopped(daemon)
    assert len(daemon.logged(UNREADABLE[1])) == 3
    assert key_file() == ""


def test_a_line_end_behind_the_key_does_no_harm(stage):
    write_key_file("")
    queue = queues.Queue.create(queues.make_key())
    write_key_file(f" {queues.make_key()}\n")
    daemon = stage.daemon()
    assert daemon.logged(f"Get message queue by id ({queue.identifier}) successfully")


@pytest.mark.parametrize("text", ["garbage", "99999999999"])
def test_a_corrupt_key_ends_the_process(stage, text):
    write_key_file(text)
    queues.Queue.create(queues.make_key())
    daemon = stage.daemon(wait_for=None)
    assert daemon.wait() == -signal.SIGABRT


def test_a_key_of_no_queue(stage):
    write_key_file("")
    queues.Queue.create(queues.make_key())
    write_key_file("77")
    daemon = stage.daemon(wait_for="Create server messsage queue by file")
    daemon.expect("Can't open message queue: No such file or directory", UNREADABLE[3])
    until_stopped(daemon)


@pytest.fixture
def small_limit():
    """The queue cannot be made as large as the service wants it, not even by root."""
    libc.call("prctl", _PR_CAPBSET_DROP, _CAP_SYS_RESOURCE, 0, 0, 0)
    with open(LIMIT_FILE, encoding="ascii") as file:
        before = file.read()
    with open(LIMIT_FILE, "w", encoding="ascii") as file:
        file.write("16384")
    yield 16384
    with open(LIMIT_FILE, "w", encoding="ascii") as file:
        file.write(before)


def test_a_queue_that_cannot_be_sized_is_not_published(stage, small_limit):
    daemon = stage.daemon(wait_for="Create server messsage queue by file")
    daemon.expect("Can't set message queue size", *UNREADABLE)
    until_stopped(daemon)
    assert key_file() == ""
    queue = queues.Queue(libc.call("msgget", queues.make_key(), 0))  # it stays, with the default size
    assert queue.state().limit == small_limit


def test_a_queue_that_cannot_be_sized_is_used_when_its_key_is_known(stage, small_limit):
    volume = stage.volume()
    path = volume.write("a", 1000)
    write_key_file("")
    write_key_file(str(queues.make_key()))
    daemon, queue = stage.daemon(), stage.queue()
    daemon.expect("Can't set message queue size")
    assert queue.state().limit == small_limit

    queue.pin(volume.mount_path, [path])

    daemon.until_done("pinFiles")
    assert volume.cache.pinned() == evidence.units([path])


def test_a_full_queue_is_worked_off(stage):
    volume = stage.volume()
    path = volume.write("a", 1000)
    daemon, queue = stage.daemon(), stage.queue()
    with daemon.suspended():
        sent = 0
        try:
            while True:
                queue.send(queues.ADD_PENDING, f"/space/{sent}")
                sent += 1
        except BlockingIOError:
            pass
        assert queue.state().messages == 1024
        assert sent in (1024, 1025)  # one more when the receiver already slept in its call

    queue.until_empty()
    queue.pin(volume.mount_path, [path])
    daemon.until_done("pinFiles")
    assert len(daemon.logged("Add pending space = /space/")) == sent
