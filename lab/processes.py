# SPDX-License-Identifier: MIT
"""Starting and ending the programs under test, and what a sanitizer had to say about them."""
import glob
import os
import signal
import subprocess

from lab import journal

OUTPUT = "/run/lab"
_REPORTS = OUTPUT + "/sanitizer"


def start(arguments, output, environment=None):
    """Starts a program with both outputs in the file `output`, given its sanitizer's options."""
    os.makedirs(_REPORTS, exist_ok=True)
    options = {f"{name}SAN_OPTIONS": f"log_path={_REPORTS}/{name.lower()}san:{rest}" for name, rest in
               (("A", "detect_leaks=1:verify_asan_link_order=0"),  # other libraries may be preloaded
                ("UB", "print_stacktrace=1"), ("T", "second_deadlock_stack=1"))}
    with open(output, "ab") as log:
        return subprocess.Popen(arguments, stdin=subprocess.DEVNULL, stdout=log, stderr=log,
                                env={**os.environ, **options, **(environment or {})})


def stop(process, number=signal.SIGTERM):
    """Sends a signal and waits for the end; returns the exit status (negative: ended by that signal)."""
    if process.poll() is None:
        process.send_signal(number)
    return wait(process)


def wait(process):
    """Waits for the end; returns the exit status. A process that does not end is killed and named."""
    try:
        return process.wait(journal.PATIENCE)
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait()
        raise TimeoutError(f"did not end: {' '.join(process.args)}") from None


def text_of(path):
    """What a program has written to its output file so far."""
    try:
        with open(path, encoding="utf-8", errors="replace") as file:
            return file.read()
    except FileNotFoundError:
        return ""


def take_reports(pid="*"):
    """The sanitizer reports not yet taken; those of one process that has ended, or of all."""
    reports = []
    for path in sorted(glob.glob(f"{_REPORTS}/*.{pid}")):
        reports.append(text_of(path))
        os.unlink(path)
    return reports
