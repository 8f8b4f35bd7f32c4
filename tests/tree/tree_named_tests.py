# SPDX-License-Identifier: MIT
"""Every test that tests/README.md names exists."""
import glob
import os
import re

from lab import namespaces

_TEST = re.compile(r"^\s*TYPED_TEST(?:_P)?\(\s*(\w+),\s*(\w+)|^\s*TEST(?:_F|_P)?\(\s*(\w+),\s*(\w+)", re.M)


def text_of(path):
    with open(os.path.join(namespaces.ROOT, path), encoding="utf-8") as file:
        return file.read()


def unit_tests():
    """The names "Suite.Test" of all unit tests."""
    paths = glob.glob("tests/unit/**/*.cpp", root_dir=namespaces.ROOT, recursive=True)
    return {f"{found[1] or found[3]}.{found[2] or found[4]}"
            for path in paths for found in _TEST.finditer(text_of(path))}


def stories():
    return {os.path.basename(path)[len("story_"):-len(".py")]
            for path in glob.glob("tests/system/story_*.py", root_dir=namespaces.ROOT)}


def rows():
    """(behaviour, what is said of its unit test, what is said of its story) of the readme's table."""
    table = text_of("tests/README.md").split("| behaviour | unit test | story |\n", 1)[1].split("\n\n", 1)[0]
    return [[cell.strip() for cell in line.strip("|").split("|")] for line in table.splitlines()[1:]]


def names(cell):
    return re.findall(r"`([\w.]+)`", cell)


def test_the_unit_tests_exist():
    tests = unit_tests()
    suites = {name.split(".")[0] for name in tests}
    for row in rows():
        for name in names(row[1]):
            assert name in tests or name in suites, row


def test_the_stories_exist():
    for row in rows():
        for name in names(row[2]):
            assert name in stories(), row


def test_each_behaviour_has_one():
    for row in rows():
        assert names(row[1]) or "every test" in row[1], row
    assert len(rows()) > 15
