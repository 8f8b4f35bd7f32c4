# SPDX-License-Identifier: MIT
"""Runs one story in an environment of its own: run_story.py FILE [pytest's arguments].

With QUOR_SANDBOX=1 the daemon runs under the packaged unit's restrictions.

Exit status: 0 all of it passed, 1 something failed, 77 nothing failed and something was skipped.
With CI=true a skip is a failure.
"""
import os
import sys

sys.path.insert(0, os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__)))))
from lab import namespaces, sandbox  # noqa: E402  (found through the line above)

SKIPPED = 77


class Outcome:
    """A pytest plugin that notes what was skipped and how many tests ran to their end."""

    def __init__(self):
        self.skipped, self.passed = [], 0

    def pytest_runtest_logreport(self, report):
        if report.skipped:
            self.skipped.append(f"{report.nodeid}: {report.longrepr[2]}")
        self.passed += report.when == "call" and report.passed

    def pytest_collectreport(self, report):
        if report.skipped:
            self.skipped.append(f"{report.nodeid}: {report.longrepr[2]}")


def tell(arguments):
    """Runs pytest; returns this program's exit status."""
    import pytest
    outcome = Outcome()
    here = os.path.dirname(os.path.abspath(__file__))
    os.environ.update(PYTEST_DISABLE_PLUGIN_AUTOLOAD="1", PYTEST_ADDOPTS="")
    code = pytest.main(["-p", "no:cacheprovider", "-c", os.devnull, "--rootdir", here, "-q", "--tb=short",
                        *arguments], plugins=[outcome])
    for reason in outcome.skipped:
        print(f"skipped: {reason}")
    if outcome.skipped and code in (pytest.ExitCode.OK, pytest.ExitCode.NO_TESTS_COLLECTED):
        return 1 if os.environ.get("CI") == "true" else SKIPPED
    return 0 if code == pytest.ExitCode.OK and outcome.passed else 1


if __name__ == "__main__":
    story = [os.path.abspath(sys.argv[1]), *sys.argv[2:]]
    if sandbox.wanted():
        sys.exit(sandbox.run([sys.executable, "-B", os.path.abspath(__file__), *story]))
    if sandbox.inside():
        try:
            sys.exit(tell(story))
        finally:
            namespaces.unmount_volumes()
    sys.exit(namespaces.run(lambda: tell(story)))
