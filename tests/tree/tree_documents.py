# SPDX-License-Identifier: MIT
"""Every command of the README is run somewhere, as it stands there."""
import os
import re

from lab import namespaces

# Run as tests of ctest, each in its short form: the whole of it takes a day.
ELSEWHERE = {"./run attack"}


def text_of(path):
    with open(os.path.join(namespaces.ROOT, path), encoding="utf-8") as file:
        return file.read()


def test_what_is_run_in_the_tree_is_run_by_continuous_integration():
    readme = text_of("README.md")
    commands = re.findall(r"^    (\./run .*)", readme, re.M)
    commands += re.findall(r"`((?:\./run|cmake) [^`]*)`", readme)
    assert len(commands) > 8
    run = {re.sub(r"^exec | </dev/null$", "", line) for line in text_of(".ci/run").splitlines()}
    # With further words it is a part of what is run without them.
    missing = [command for command in commands
               if not any(f"{command} ".startswith(f"{one} ") for one in run | ELSEWHERE)]
    assert missing == []


def test_what_is_run_as_root_is_run_on_the_booted_machine():
    readme, conftest = text_of("README.md"), text_of("tests/machine/conftest.py")
    headings = {part.split("\n", 1)[0] for part in readme.split("\n## ")[1:]
                if re.search(r"^    (# |apt-get )", part, re.M)}
    assert headings == {"Install", "Use it on your disk"}
    for heading in headings:
        assert f'of("README.md", "{heading}")' in conftest
