# SPDX-License-Identifier: MIT
"""Plots of cost against size, as SVG."""
import contextlib
import os

from lab import namespaces

DIRECTORY = os.path.join(namespaces.ROOT, "docs/performance")
OURS, THEIRS = "#1f5fa8", "#b4501e"
STYLES = ("-o", "--s", ":^", "-.d")

# file, title, label of the sizes, [(key, name of ours, name of theirs or None)]
PLOTS = (
    ("queue", "Requests in the queue", "requests queued",
     [("choose", "choose, all pending", "JsonCpp: read"),
      ("store", "store one more", "JsonCpp: read and rewrite")]),
    ("list", "Pinned files", "files pinned",
     [("list", "list", "jq"), ("status", "status", None), ("map", "map", None),
      ("check", "check", "filefrag of each")]),
    ("bitmap", "Size of the bitmap", "bytes of the bitmap",
     [("reload", "reload, empty", "reading its words"), ("set-all", "set all", "memset")]),
    ("directory", "Files in one directory", "files", [("directory", "pin -n -r", "filefrag of each")]),
    ("request", "Files in one request", "files", [("store-files", "store the request",
                                                   "JsonCpp: read and rewrite")]),
)


@contextlib.contextmanager
def _plot(name, **size):
    """The axes of a figure that is then written to `name`.svg."""
    import matplotlib  # pylint: disable=import-outside-toplevel  # only who publishes needs it
    matplotlib.use("Agg")
    matplotlib.rcParams.update({"svg.hashsalt": "quor", "svg.fonttype": "none", "font.size": 9})
    from matplotlib import pyplot
    os.makedirs(DIRECTORY, exist_ok=True)
    figure, axes = pyplot.subplots(**size, layout="constrained")
    yield axes
    figure.savefig(f"{DIRECTORY}/{name}.svg", metadata={"Date": None})
    pyplot.close(figure)


def draw(rows):
    """Writes the plots of those rows that were measured for more than one size."""
    for name, title, sizes, curves in PLOTS:
        with _plot(name, figsize=(6, 3.6)) as axes:
            for (key, ours, theirs), style in zip(curves, STYLES):
                points = sorted(row for row in rows if row.key == key)
                if len(points) < 2:
                    continue
                across = [row.size for row in points]
                axes.plot(across, [row.ours for row in points], style, color=OURS, label=ours, markersize=4)
                if theirs:
                    axes.plot(across, [row.peer for row in points], style, color=THEIRS, label=theirs,
                              markersize=4, fillstyle="none")
            axes.set(xscale="linear" if name == "request" else "log", yscale="log", xlabel=sizes,
                     ylabel="seconds", title=title)
            axes.grid(True, which="major", alpha=0.3)
            axes.legend(fontsize=8)


def draw_database(results):
    """Writes the plot of a database's queries, second by second through the three times it was watched."""
    span = len(results[0].alone)
    with _plot("database", figsize=(8, 3.2)) as axes:
        for result, color, style in zip(results, (OURS, THEIRS, "#666666"), ("-", "-", "--")):
            rates = [*result.alone, *result.beside, *result.again]
            axes.plot(range(len(rates)), rates, style, color=color, label=result.name)
        axes.axvspan(span, 2 * span, color="#000000", alpha=0.06)
        axes.axvline(2 * span, color="#000000", linewidth=1)
        top = axes.get_ylim()[1] * 1.15
        for at, text in ((0, "alone"), (1, "another program reads\nten times the cache"),
                         (2, "after a restart of\nthe machine")):
            axes.text((at + 0.5) * span, top, text, ha="center", va="top", fontsize=8)
        axes.set(ylim=(0, top * 1.02), xlim=(0, 3 * span), xlabel="seconds", ylabel="queries a second",
                 title="A database on a disk with a cache")
        axes.grid(True, axis="y", alpha=0.3)
        axes.legend(fontsize=8, loc="lower right")
