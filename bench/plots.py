# SPDX-License-Identifier: MIT
"""Plots of cost against size, as SVG."""
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


def draw(rows):
    """Writes the plots of those rows that were measured for more than one size."""
    import matplotlib  # pylint: disable=import-outside-toplevel  # only who publishes needs it
    matplotlib.use("Agg")
    matplotlib.rcParams.update({"svg.hashsalt": "quor", "svg.fonttype": "none", "font.size": 9})
    from matplotlib import pyplot
    os.makedirs(DIRECTORY, exist_ok=True)
    for name, title, sizes, curves in PLOTS:
        figure, axes = pyplot.subplots(figsize=(6, 3.6), layout="constrained")
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
        figure.savefig(f"{DIRECTORY}/{name}.svg", metadata={"Date": None})
        pyplot.close(figure)
