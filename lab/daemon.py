# SPDX-License-Identifier: MIT
"""A running quorcachepinfiled: its log, its threads, its end."""
import contextlib
import os
import re
import signal

from lab import journal, namespaces, processes, sandbox

NAME = "quorcachepinfiled"
CONFIGURATION = "/tmp/lab/quorcachepinfile.conf"
STARTING = "Start Service"  # logged at every level, before there is a worker
RECEIVING = "Get server messsage queue id = "  # logged at --verbose when intake has begun

_ERROR = re.compile(r" : \*\*\*\*\* ")
# At the normal level an error and a notice look alike; these are the notices.
_NOTICES = re.compile("|".join((
    "Start Service ", "Verbose mode is enable", "Debug mode is enable", "Detect ", "Do fsync$",
    "Drop requests finish", r"Handle request \(type=", r"Handle request \(.*\)\. Get interrupted !",
    r"Space \(.*\) is not in pending list", "Only get 1 unitilized entry", "Retry to get mapping of file")))


class Daemon:
    """The daemon as a process, from `start` to `stop`, with what it logged since `start`.

    flags: further options, "--verbose" unless told otherwise, so that errors can be told from notices.
    libraries: a directory that takes the place of the platform's libraries.
    Errors that a story means to cause are named with `expect`; `check` fails on every other one, on an
    expected one that never came, and on a sanitizer's report.
    """

    def __init__(self, configuration=CONFIGURATION, flags=("--verbose",), libraries=None,
                 environment=None):
        self.configuration = configuration
        self.arguments = [namespaces.program(NAME), "--config-path", configuration, *flags]
        self.environment = dict(environment or {})
        if libraries:
            self.environment["LD_LIBRARY_PATH"] = libraries
        self.output = f"{processes.OUTPUT}/{NAME}.out"
        self.since = 0
        self.process = None
        self.worker = None  # the worker's thread id, known once `start` saw more than STARTING
        self._expected = []

    def start(self, wait_for=RECEIVING):
        """Starts it and waits for a line that contains `wait_for` (None: does not wait)."""
        os.makedirs(os.path.dirname(self.configuration), exist_ok=True)
        self.since = journal.position()
        launch = sandbox.start if sandbox.inside() else processes.start
        self.process = launch(self.arguments, self.output, self.environment)
        if wait_for:
            self.wait_for(wait_for)
        if wait_for == STARTING:  # logged before it has handlers: a signal would kill it
            journal.until(lambda: self.handles(signal.SIGQUIT) or not self.alive(), "the handlers are not set")
        elif wait_for:  # the worker was made before
            self.worker = max(self.threads())  # the youngest; a sanitizer's own thread is older
        return self

    @property
    def pid(self):
        return self.process.pid

    # The log

    def records(self):
        """Everything it has logged since `start`, as journal records."""
        return [record for record in journal.records(self.since) if record.ident == NAME]

    def log(self):
        """The texts it has logged since `start`, each with its source name, line and shape."""
        return [record.text for record in self.records()]

    def logged(self, text):
        """Those texts of its log that contain `text`."""
        return [line for line in self.log() if text in line]

    def wait_for(self, text, count=1):
        """Waits until `count` log lines contain `text`; returns them. Fails at once if it has ended."""
        def found():
            ended = self.process.poll() is not None
            records = journal.records if ended else journal.collected  # the last ones may be on their way
            lines = [record.text for record in records(self.since)
                     if record.ident == NAME and text in record.text]
            if len(lines) < count and ended:
                raise AssertionError(f"ended with {self.process.returncode} {self._tail(text)}")
            return lines if len(lines) >= count else None
        return journal.until(found, lambda: f"still {self._tail(text)}")

    def until_done(self, kind, count=1):
        """Waits until `count` requests of `kind` ("pinFiles", ...) are done; returns their log lines."""
        return self.wait_for(f"Handle request (type={kind}", count)

    def _tail(self, text):
        return f"without logging {text!r}; its last lines:\n  " + "\n  ".join(self.log()[-15:])

    def expect(self, *texts):
        """Errors that this story means to cause, each by a text that its line contains."""
        self._expected.extend(texts)

    def errors(self):
        """The error lines logged so far."""
        lines = self.log()
        if any(flag in ("--verbose", "--debug", "-y", "-z") for flag in self.arguments):
            return [line for line in lines if _ERROR.search(line)]
        return [line for line in lines if line.startswith("quorcachepinfile")
                and not _NOTICES.match(line.split(" ", 1)[-1])]

    def check(self):
        """Raises AssertionError for what should not have been logged, or should have been, or a report."""
        errors = self.errors()
        wrong = [f"logged an error: {line}" for line in errors
                 if not any(text in line for text in self._expected)]
        wrong += [f"did not log the error: {text}" for text in self._expected
                  if not any(text in line for line in errors)]
        wrong += processes.take_reports(self.pid)
        assert not wrong, "the daemon\n  " + "\n  ".join(wrong)

    # The process

    def stop(self, number=signal.SIGTERM):
        """Sends a signal and waits for the end; returns the exit status (negative: ended by that signal)."""
        return processes.stop(self.process, number)

    def wait(self):
        """Waits for the end without a signal; returns the exit status."""
        return processes.wait(self.process)

    @contextlib.contextmanager
    def suspended(self):
        """A with block during which it is stopped by a signal; no thread of it runs any more when it begins."""
        os.kill(self.pid, signal.SIGSTOP)
        try:
            journal.until(lambda: set(self.threads().values()) == {"T"}, "it is not stopped")
            yield
        finally:
            os.kill(self.pid, signal.SIGCONT)

    def alive(self):
        return self.process.poll() is None

    def handles(self, number):
        """Whether it has a handler for a signal; SIGQUIT's is set last. False once it has ended."""
        try:
            with open(f"/proc/{self.pid}/status", encoding="utf-8") as file:
                caught = next((line.split()[1] for line in file if line.startswith("SigCgt:")), "0")
        except FileNotFoundError:
            return False
        return bool(int(caught, 16) >> (number - 1) & 1)

    def threads(self):
        """{thread id: state letter, as in /proc}: "S" sleeps, "R" runs, "Z" has ended (the main thread's)."""
        found = {}
        for thread in os.listdir(f"/proc/{self.pid}/task"):
            with open(f"/proc/{self.pid}/task/{thread}/stat", encoding="utf-8") as file:
                found[int(thread)] = file.read().rpartition(") ")[2][0]
        return found

    def receiver_alive(self):
        """Whether the main thread, the receiver, still runs."""
        return self.alive() and self.threads().get(self.pid, "Z") != "Z"

    def worker_alive(self):
        """Whether the worker thread still runs; not asked of one only seen STARTING."""
        assert self.worker, "the worker's thread is not known"
        return self.alive() and self.worker in self.threads()
