# SPDX-License-Identifier: MIT
"""One list of the tests of several builds: python3 -m lab.testlist DIRECTORY [sandbox=]BUILD[:LABEL]...

Writes a list for ctest into DIRECTORY. Each test of build/BUILD is in it as "BUILD: name", labelled
BUILD too; with a LABEL only those that have it. As "sandbox" they run with the daemon under the
packaged unit's restrictions. With CI=true what would be skipped fails instead.
"""
import json
import os
import subprocess
import sys

from lab import namespaces, sandbox


def tests_of(build, label):
    """The build's tests, as ctest itself describes them."""
    command = ["ctest", "--test-dir", f"{namespaces.ROOT}/build/{build}", "--show-only=json-v1"]
    if label:
        command += ["-L", f"^{label}$"]
    told = subprocess.run(command, check=True, stdout=subprocess.PIPE).stdout
    return json.loads(told)["tests"]


def properties_of(test, name):
    """The test's properties as this list needs them: {name: text}."""
    properties = {row["name"]: row["value"] for row in test.get("properties", [])}
    properties["LABELS"] = [*properties.get("LABELS", []), name]
    if name == sandbox.NAME:
        properties["ENVIRONMENT"] = [*properties.get("ENVIRONMENT", []), sandbox.WISH]
    if os.environ.get("CI") == "true":
        properties.pop("SKIP_RETURN_CODE", None)
        if "SKIP_REGULAR_EXPRESSION" in properties:
            properties["FAIL_REGULAR_EXPRESSION"] = properties.pop("SKIP_REGULAR_EXPRESSION")
    return {name: ";".join(map(str, value)) if isinstance(value, list) else str(value)
            for name, value in properties.items()}


def _quote(text):
    return f"[==[{text}]==]"


def _entry(test, kind):
    if "command" not in test:
        raise SystemExit(f"testlist: {kind}: {test['name']} has not been built")
    name = _quote(f"{kind}: {test['name']}")
    command = " ".join(map(_quote, test["command"]))
    properties = " ".join(f"{key} {_quote(value)}" for key, value in properties_of(test, kind).items())
    return f"add_test({name} {command})\nset_tests_properties({name} PROPERTIES {properties})\n"


def main(directory, *builds):
    entries = []
    for wanted in builds:
        kind, _, tests = wanted.rpartition("=")
        build, _, label = tests.partition(":")
        entries += [_entry(test, kind or build) for test in tests_of(build, label)]
    os.makedirs(directory, exist_ok=True)
    with open(os.path.join(directory, "CTestTestfile.cmake"), "w", encoding="utf-8") as file:
        file.writelines(entries)


if __name__ == "__main__":
    main(*sys.argv[1:])
