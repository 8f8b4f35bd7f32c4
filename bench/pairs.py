# SPDX-License-Identifier: MIT
"""A measured row: ours, what it is compared with, and the ratio of both.

Both sides are measured in turns within one run, and the ratio is the median over the pairs: what else
the machine does then falls on both.
"""
import resource
import statistics
from typing import NamedTuple


class Row(NamedTuple):
    key: str      # of the row, as in `./run bench KEY`
    size: int     # of what it is measured for
    ours: float   # seconds, or what `unit` says; the median
    peer: float   # the same of the other side; 0 when there is none
    ratio: float  # the median of the pairs' ratios; 0 when there is no other side
    unit: str = "s"


def _row(key, size, ours, peer, unit):
    ratios = [a / b for a, b in zip(ours, peer)]
    return Row(key, size, statistics.median(ours), statistics.median(peer) if peer else 0,
               statistics.median(ratios) if ratios else 0, unit)


def of(key, size, ours, peer=(), unit="s"):
    """The row of two lists of measurements, pair by pair."""
    return _row(key, size, list(ours), list(peer), unit)


def _processor_time():
    usage = resource.getrusage(resource.RUSAGE_CHILDREN)
    return usage.ru_utime + usage.ru_stime


def seconds(action):
    """The processor time of the programs that a call runs: others keep the machine busy."""
    start = _processor_time()
    action()
    return _processor_time() - start


def turns(key, size, ours, peer, pairs):
    """Measures two actions in turns, after one of each that does not count."""
    ours(), peer()
    measured = [(seconds(ours), seconds(peer)) for _ in range(pairs)]
    return of(key, size, [pair[0] for pair in measured], [pair[1] for pair in measured])
