# SPDX-License-Identifier: MIT
"""What came of an attack: points tried, what went wrong at which, and what was lost as it is meant to be."""
import collections
import os

KINDS = ("crashes", "hangs", "losses", "reports")


class Outcome:
    """Counts of one attack. A point is one fault, kill, damaged input, layout or request."""

    def __init__(self, name, about):
        self.name, self.about, self.points = name, about, 0
        self.wrong = {kind: [] for kind in KINDS}
        self.meant = collections.Counter()

    def add(self, kind, point, what):
        """Notes that `what` went wrong at `point`: one of KINDS. Whatever else is wrong is a report."""
        self.wrong[kind].append(f"{point}: {what}")
        print(f"  {self.name}: {kind}: {point}: {what}", flush=True)

    def note(self, what, count=1):
        """Counts what happened and is meant, such as a file that a kill has left empty."""
        self.meant[what] += count

    def tell(self):
        """All of it as plain data, for another process."""
        return {"name": self.name, "about": self.about, "points": self.points, "wrong": self.wrong,
                "meant": dict(self.meant)}


def failed(told):
    return any(told["wrong"].values()) or told["points"] == 0


def table(tellings):
    """The table of several attacks, as a text; what was lost and is meant stands below it."""
    rows = [("what", "points", *KINDS)]
    rows += [(told["about"], str(told["points"]), *(str(len(told["wrong"][kind])) for kind in KINDS))
             for told in tellings]
    widths = [max(len(row[column]) for row in rows) for column in range(len(rows[0]))]
    lines = ["  ".join([row[0].ljust(widths[0]), *(cell.rjust(width) for cell, width
                                                   in zip(row[1:], widths[1:]))]) for row in rows]
    lines += [f"{told['name']}: {count} {what}" for told in tellings for what, count in told["meant"].items()]
    lines += [f"{told['name']}: FAILED" for told in tellings if failed(told)]
    return os.linesep.join(lines)
