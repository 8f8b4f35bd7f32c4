# SPDX-License-Identifier: MIT
"""python3 -m bench [--quick] [--publish] [WORD...]: what `./run bench` hands over.

WORD is a row's key. Everything is measured in an environment of its own, which lab/ makes.
"""
import argparse
import json
import os
import sys

from bench import database, functions, pairs, plots, table, whole
from lab import namespaces

RESULT = os.path.join(namespaces.ROOT, "build/bench.json")
DOCUMENT = os.path.join(namespaces.ROOT, "docs/performance.md")
TABLE = ("<!-- the table, as measured -->\n", "<!-- end of the table -->\n")
DATABASE = ("<!-- the database, as measured -->\n", "<!-- end of the database -->\n")


def _measure(words, quick):
    rows = []
    if not words or set(words) - whole.KEYS:
        rows += functions.measure([word for word in words if word not in whole.KEYS], quick)
    if not words or set(words) & whole.KEYS:
        rows += whole.measure([word for word in words if word in whole.KEYS], quick)
    with open(RESULT, "w", encoding="utf-8") as file:
        json.dump(rows, file)
    return 0


def _between(text, marks, lines):
    """The text with other lines between two marks."""
    begin, end = marks
    before, rest = text.split(begin)
    return before + begin + "\n".join(lines) + "\n" + end + rest.split(end)[1]


def _publish(rows):
    results = database.last()
    with open(DOCUMENT, encoding="utf-8") as file:
        text = file.read()
    with open(DOCUMENT, "w", encoding="utf-8") as file:
        file.write(_between(_between(text, TABLE, table.lines(rows)), DATABASE, database.lines(results)))
    plots.draw(rows)
    plots.draw_database(results)


def main():
    parser = argparse.ArgumentParser(prog="./run bench", description="Measures the product beside common tools.")
    parser.add_argument("--quick", action="store_true", help="small sizes and few repetitions: does it run?")
    parser.add_argument("--publish", action="store_true", help="put the table and the plots into docs/")
    parser.add_argument("words", nargs="*", metavar="WORD", help="the rows wanted: " + ", ".join(table.KEYS))
    options = parser.parse_args()
    if unknown := set(options.words) - set(table.KEYS):
        parser.error(f"no such row: {', '.join(sorted(unknown))}")
    if options.publish and (options.quick or options.words):
        parser.error("only the whole table is published")
    status = namespaces.run(lambda: _measure(options.words, options.quick))
    if status:
        return status
    with open(RESULT, encoding="utf-8") as file:
        rows = [pairs.Row(*row) for row in json.load(file)]
    print("\n".join(table.lines(rows)))
    if any(row.key.startswith("database") for row in rows):
        print("\n" + "\n".join(database.lines(database.last())))
    if options.publish:
        _publish(rows)
    return 0


if __name__ == "__main__":
    sys.exit(main())
