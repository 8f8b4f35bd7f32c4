# SPDX-License-Identifier: MIT
"""What the demo shows: short aligned lines; colours and progress only on a terminal."""
import os
import shutil
import sys

_CODES = {"bold": "1", "faint": "2", "red": "31", "green": "32", "blue": "34"}
_LABEL = 8


def _on_terminal():
    return sys.stdout.isatty() and os.environ.get("TERM", "dumb") != "dumb"


def style(text, *names):
    """The text in a colour, where colours are wanted (a terminal, and no NO_COLOR)."""
    if not _on_terminal() or os.environ.get("NO_COLOR"):
        return text
    return f"\033[{';'.join(_CODES[name] for name in names)}m{text}\033[0m"


def width():
    return min(shutil.get_terminal_size((96, 24)).columns, 110)


def clip(text, room):
    return text if len(text) <= room else text[:room - 3] + "..."


def say(text=""):
    print(text, flush=True)


def fact(label, text):
    """A label and what is to be said of it, cut to the screen's width."""
    say(f"  {style(label.ljust(_LABEL), 'faint')} {clip(text, width() - _LABEL - 3)}")


def command(text, why=""):
    """A command as it would be typed, and in a few words why."""
    say(f"\n{style('$', 'faint')} {style(text, 'bold')}{style('   # ' + why, 'faint') if why else ''}")


def progress(label, text):
    """Shows how far something is, on a terminal only, in a line that `fact` or `clear` takes over."""
    if _on_terminal():
        print(f"\r  {label.ljust(_LABEL)} {text}\033[K", end="", flush=True)


def clear():
    if _on_terminal():
        print("\r\033[K", end="")


def table(head, rows, wrong=frozenset()):
    """Rows of texts under a head of several lines, the first column left, the others right.

    wrong: (row, column) of the figures that are not what they should be.
    """
    columns = len(head[0])
    widths = [max(len(row[column]) for row in [*head, *rows]) for column in range(columns)]

    def line(row, paint):
        cells = [row[0].ljust(widths[0])] + [row[column].rjust(widths[column])
                                             for column in range(1, columns)]
        return "  " + "   ".join(paint(column, cell) for column, cell in enumerate(cells))
    for row in head:
        say(line(row, lambda column, cell: style(cell, "faint")))
    for index, row in enumerate(rows):
        say(line(row, lambda column, cell: style(cell, "red", "bold") if (index, column) in wrong
                 else style(cell, "bold") if column == 0 else cell))


def mib(size):
    """A number of bytes for people."""
    return f"{size / 2**30:.1f} GiB" if size >= 2**30 else f"{size / 2**20:.1f} MiB"
