# SPDX-License-Identifier: MIT
"""What each row measures, beside what, and which ratio is wanted; and how a table of them is printed."""

HITS = 256 << 20
LOOP = "a loop device on a file like the SSD's"
NBDKIT = "nbdkit's cache filter, through nbdfuse and a loop device"
JSON_LIBRARY = "JsonCpp's own {} of the file"

# key, the size that stands in the table, what, beside what, the ratio wanted (None: none)
TABLE = (
    ("store", 1024, "store a request as the 1,024th", JSON_LIBRARY.format("read and rewrite"), 1.05),
    ("store-beside-pinned", 100000, "the same beside 100,000 pinned files",
     JSON_LIBRARY.format("read and rewrite"), 1.05),
    ("choose", 1024, "choose among 1,024 requests of 30 files, all of a pending volume",
     JSON_LIBRARY.format("read"), 3),
    ("choose-one-file", 1024, "the same, each of one file", JSON_LIBRARY.format("read"), 3),
    ("reload", 1 << 27, "reload of an empty bitmap of 2^30 bits", "reading its words", 3),
    ("reload-beside-pending", 1 << 27, "the same while another volume is pending", "reading its words", 3),
    ("set-all", 1 << 27, "set all bits of a bitmap of 128 MiB", "memset", 2),
    ("set-16-units", 1 << 20, "set 16 units", "two bytes by memset", 4),
    ("pin-small-file", 1, "a pin of one small file that is in the cache, 1 TiB device",
     "cp of its 2 MiB bitmap file, twice", 1.3),
    ("directory", 20000, "`pin -n -r` of 20,000 files in one directory",
     "find -printf %i, and filefrag of each", 1),
    ("extents", 1, "of that, for a file: where it lies, asked by its inode number as the service does",
     "open, FIEMAP and close, by its path", None),
    ("check", 100000, "`check` of 100,000 pinned files on 4 TiB", "filefrag of each", 0.5),
    ("list", 100000, "`list`, 100,000 pinned files", "jq on the configuration file", 1.5),
    ("list-looks", 100000, "the same",
     "jq on the configuration file, and find -printf %s, which looks at each file", None),
    ("status", 100000, "`status`, the same", "jq on the configuration file", 1.5),
    ("map", 100000, "`map`, the same", "jq on the configuration file", 1.5),
    ("hits-64k", HITS, "hits through loop device and cache: 64 KiB, one after the other", LOOP, 1.11),
    ("hits-1m", HITS, "1 MiB, 4 at a time", LOOP, 1.25),
    ("hits-4k", HITS, "4 KiB at random places", LOOP, 1.25),
    ("hits-4k-16", HITS, "4 KiB at random places, 16 at a time", LOOP, 1.43),
    ("hits-64k-nbdkit", HITS, "64 KiB, one after the other", NBDKIT, 1),
    ("hits-1m-nbdkit", HITS, "1 MiB, 4 at a time", NBDKIT, 1),
    ("hits-4k-nbdkit", HITS, "4 KiB at random places", NBDKIT, 1),
    ("hits-4k-16-nbdkit", HITS, "4 KiB at random places, 16 at a time", NBDKIT, 1),
    ("misses-nbdkit", 64 << 20, "misses: 64 MiB read for the first time", NBDKIT, 1),
    ("late-4k", HITS, "99th percentile of 4 KiB hits while other data is taken in", "the same without that", None),
    ("database", 10, "a query of a database whose files are pinned, beside a reader of ten times the cache",
     "the same with everything on the SSD", 1.11),
    ("database-restart", 10, "the same, from the first second after a restart of the machine on",
     "the same with everything on the SSD", 1.11),
    ("database-unpinned", 10, "the same beside the reader, nothing pinned",
     "the same with everything on the SSD", None),
    ("idle-wakeups", 16, "wake-ups of the idle daemon a minute", "vmtouch's daemon holding the files", None),
    ("idle-memory", 16, "resident memory of the idle daemon", "vmtouch's daemon holding 16 MiB", 1),
)
KEYS = [row[0] for row in TABLE] + ["store-files"]


def _amount(value, unit):
    if unit == "bytes":
        return f"{value / (1 << 20):.1f} MiB"
    if unit != "s":
        return f"{value:g}"
    for factor, name in ((1, "s"), (1e-3, "ms"), (1e-6, "µs")):
        if value >= factor:
            return f"{value / factor:.3g} {name}"
    return f"{value / 1e-9:.3g} ns"


def lines(rows):
    """The table in Markdown: the rows that were measured, one a line."""
    found = {(row.key, row.size): row for row in rows}
    yield "| what | beside | ours | theirs | ratio | wanted |"
    yield "|---|---|---|---|---|---|"
    for key, size, what, beside, wanted in TABLE:
        row = found.get((key, size)) or next((row for row in reversed(rows) if row.key == key), None)
        if row:
            what += "" if row.size == size else f" (here {row.size:,})"
            yield (f"| {what} | {beside} | {_amount(row.ours, row.unit)} | {_amount(row.peer, row.unit)} | "
                   f"{f'{row.ratio:.2f}' if row.ratio else '-'} | {f'≤ {wanted}' if wanted else '-'} |")
