# SPDX-License-Identifier: MIT
"""python3 -m lab VERB: what `./run` hands over."""
import sys

from lab import demo, standing, statements


def main(verb, *arguments):
    verbs = {"demo": demo.main, "up": standing.up, "down": standing.down,
             "in": lambda: standing.inside(arguments), "where": lambda: statements.main(arguments)}
    return verbs[verb]()


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
