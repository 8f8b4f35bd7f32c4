# SPDX-License-Identifier: MIT
"""Where built programs and libraries look for libraries."""
import os
import re
import subprocess

import pytest

from lab import namespaces

PROGRAMS = ("quorcachepinfiled", "quorcachepinctl", "quorsoftcache")


def runpath(path):
    """The elements of a file's RUNPATH, none without one."""
    dynamic = subprocess.run(["readelf", "-d", path], capture_output=True, text=True, check=True,
                             env={**os.environ, "LC_ALL": "C"}).stdout
    assert "(RPATH)" not in dynamic
    found = re.search(r"\(RUNPATH\).*\[(.*)\]", dynamic)
    return found[1].split(":") if found else []


@pytest.mark.parametrize("name", PROGRAMS)
def test_libraries_are_looked_for_where_they_are_installed(name):
    assert runpath(namespaces.program(name)) == ["$ORIGIN/../lib/quorcachepinfiled"]


def test_no_file_of_the_build_tree_names_the_current_directory():
    # That is what an empty element is, and anybody's library would be loaded from it.
    for part in "bin", "lib":
        directory = os.path.join(namespaces.build_directory(), part)
        for name in os.listdir(directory):
            if part == "bin" or name.endswith(".so"):
                assert "" not in runpath(os.path.join(directory, name)), name
