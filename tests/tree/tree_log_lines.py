# SPDX-License-Identifier: MIT
"""Source name and line of a log line name one statement, and `./run where` finds it."""
import glob
import subprocess

from lab import namespaces, statements


def test_no_two_statements_print_the_same_place():
    seen = {}
    for one in statements.every():
        for line in range(one.first, one.last + 1):
            other = seen.setdefault((one.source, one.base + line), one)
            assert other is one, f"{one} and {other}"
    assert len(seen) > 300


def test_every_statement_stands_in_a_file_with_a_base():
    known = statements.files()
    for room in statements.ROOMS:
        for path in glob.glob(f"{room}/*", root_dir=namespaces.ROOT):
            assert path in known or not statements.calls(statements.read(path)), path


def test_the_files_of_a_component_have_bases_of_their_own():
    bases = sorted(statements.files().values())
    assert len(bases) == len(set(bases))
    for source in ("quorcachepinfiled.cpp", "quorcachepinfileutil.cpp"):
        found = [base for name, base in bases if name == source]
        first = 0 if f"daemon/{source}" in statements.files() else 1
        assert found == [1000 * place for place in range(first, first + len(found))]


def test_where_answers():
    one = next(row for row in statements.every() if "Receive messaged failed" in row.text)

    def ask(place):
        return subprocess.run([namespaces.ROOT + "/run", "where", place], capture_output=True, text=True)
    found = ask(f"{one.source}:{one.base + one.first}")
    assert (found.returncode, found.stdout) == (0, f"{one.path}:{one.first}\n    {one.text}\n")
    assert ask(f"Nov 21 box quorcachepinfiled: {one.source}:{one.base + one.first} x").stdout == found.stdout
    nothing = ask(f"{one.source}:999999")
    assert (nothing.returncode, nothing.stdout) == (1, "") and "no statement" in nothing.stderr
