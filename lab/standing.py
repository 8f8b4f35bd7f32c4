# SPDX-License-Identifier: MIT
"""`./run up`, `./run in` and `./run down`: the demo's scene left standing to play with."""
import fcntl
import os
import signal
import sys

from lab import journal, namespaces, scene, screen

_DIRECTORY = os.path.join(namespaces.ROOT, "build/lab")
_LOCK = os.path.join(_DIRECTORY, "lock")  # held by the environment's own processes while it stands
_FIRST = os.path.join(_DIRECTORY, "first-process")
_LOG = os.path.join(_DIRECTORY, "log")
_ERRORS = os.path.join(_DIRECTORY, "errors")  # what the service logged as errors while it stood


def _take_lock():
    """The lock's file, or None while an environment is standing."""
    os.makedirs(_DIRECTORY, exist_ok=True)
    lock = open(_LOCK, "w", encoding="ascii")
    try:
        fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
    except BlockingIOError:
        lock.close()
        return None
    return lock


def _first_process():
    """The id of the standing environment's first process; ends the program when nothing stands."""
    lock = _take_lock()
    if lock:
        lock.close()
        raise SystemExit("run: nothing is up; ./run up")
    with open(_FIRST, encoding="ascii") as file:
        return int(file.read())


def _stand(ready):
    """The environment's life: builds the scene, says so, waits for SIGTERM, takes it down."""
    stage = scene.Scene()
    signal.pthread_sigmask(signal.SIG_BLOCK, [signal.SIGTERM])  # not before: children inherit it
    os.write(ready, b"ready")
    os.close(ready)
    signal.sigwait([signal.SIGTERM])
    strike(stage)


def strike(stage):
    """Takes the scene down. Errors that the service logged, and its end, are the doing of who played with it."""
    service, cache = stage.end()
    errors = stage.daemon.errors()
    stage.daemon.expect(*errors)
    stage.daemon.check()  # what a sanitizer reported is nobody's doing
    with open(_ERRORS, "w", encoding="utf-8") as file:
        file.writelines(f"{line}\n" for line in errors)
    assert service in (0, -signal.SIGTERM, -signal.SIGKILL), f"exit status of the service: {service}"
    assert cache == 0, f"exit status of the cache: {cache}"


def _note(first):
    with open(_FIRST, "w", encoding="ascii") as file:
        file.write(str(first))


def _background(ready):
    """Runs the environment apart from the terminal. Never returns."""
    os.setsid()
    log = os.open(_LOG, os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o644)
    nothing = os.open(os.devnull, os.O_RDONLY)
    for descriptor, source in ((0, nothing), (1, log), (2, log)):
        os.dup2(source, descriptor)
    os._exit(namespaces.run(lambda: _stand(ready), _note))


def up():
    lock = _take_lock()
    if not lock:
        print("it is up already; ./run shell enters it, ./run down ends it")
        return 0
    answer, ready = os.pipe()
    if os.fork() == 0:
        os.close(answer)
        _background(ready)
    os.close(ready)
    lock.close()
    if os.read(answer, 5) != b"ready":
        with open(_LOG, encoding="utf-8") as log:
            sys.exit(f"{log.read()}run: it did not come up")
    screen.fact("volume", f"{scene.MOUNT_PATH}, with {scene.KEEP}/ and {scene.REST}/; cache of"
                          f" {screen.mib(scene.CACHE_BYTES)}")
    screen.fact("enter", "./run shell, or one command: ./run in quorcachepinctl pin -r"
                         f" {scene.MOUNT_PATH}/{scene.KEEP}")
    screen.fact("look at", f"./run in cat {journal.FILE}")
    screen.fact("", "./run in cat /tmp/lab/media/cache/stats.json")
    screen.fact("", "./run in cat /tmp/lab/quorcachepinfile.conf")
    screen.fact("end", "./run down")
    return 0


def inside(command):
    if not command:
        raise SystemExit("run: in needs a command")
    return namespaces.enter(_first_process(), command)


def _take(path):
    """The text of a file, which is removed; empty when there is none."""
    try:
        with open(path, encoding="utf-8") as file:
            return file.read()
    except FileNotFoundError:
        return ""
    finally:
        if os.path.exists(path):
            os.unlink(path)


def down():
    first = _first_process()
    os.kill(first, signal.SIGTERM)
    try:
        journal.until(_take_lock, "")
    except TimeoutError:
        os.kill(first, signal.SIGKILL)
        journal.until(_take_lock, f"process {first} does not end")
    told, errors = _take(_LOG), _take(_ERRORS)
    for path in (_FIRST, _LOCK):
        os.unlink(path)
    if told:
        sys.exit(f"{told}run: it is down, but not without complaint")
    if errors:
        screen.fact("service", f"had logged {len(errors.splitlines())} errors; the last: {errors.splitlines()[-1]}")
    print("it is down; nothing is left")
    return 0
