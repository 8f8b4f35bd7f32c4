# SPDX-License-Identifier: MIT
"""What a story is given. Everything it makes through its `stage` is ended and judged at its end."""
import os
import shutil

import pytest

from lab import daemon as daemons
from lab import journal, processes, queue, volume

DEBUG_FILE = "/tmp/quorcachepinfiletool.debug"


class Stage:
    """Makes volumes and daemons, and takes them down again in the order that they need."""

    def __init__(self):
        self.volumes, self.daemons = [], []

    def volume(self, name="vol1", **options):
        """A mounted volume, as lab.volume.Volume describes it."""
        self.volumes.append(volume.Volume(name, **options))
        return self.volumes[-1]

    def daemon(self, wait_for=daemons.RECEIVING, **options):
        """A started daemon, as lab.daemon.Daemon describes it, that has logged `wait_for`."""
        self.daemons.append(daemons.Daemon(**options))
        return self.daemons[-1].start(wait_for)

    def queue(self):
        """The service's queue, once the daemon has published it."""
        return queue.Queue.open()

    def strike(self):
        """Ends everything. What is wrong is collected, so that one failure hides no other."""
        wrong = []

        def attempt(action, expected):
            try:
                result = action()
                if result != expected:
                    wrong.append(f"{action.__qualname__}: {result}, not {expected}")
            except Exception as error:
                wrong.append(str(error))
        for daemon in reversed(self.daemons):
            if daemon.process and daemon.alive():
                attempt(daemon.stop, 0)
            attempt(daemon.check, None)
        for one in reversed(self.volumes):
            attempt(one.close, 0)
        wrong += processes.take_reports()
        queue.remove_all()
        shutil.rmtree(volume.DIRECTORY, ignore_errors=True)
        if os.path.exists(DEBUG_FILE):
            os.unlink(DEBUG_FILE)
        assert not wrong, "\n".join(wrong)


@pytest.fixture
def stage(request):
    """A stage; when the story failed, what the system log holds of it is shown."""
    begin = journal.position()
    made = Stage()
    yield made
    try:
        made.strike()
    finally:
        print("".join(f"{record.ident}: {record.text}\n" for record in journal.records(begin)[-200:]))
