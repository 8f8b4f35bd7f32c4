# SPDX-License-Identifier: MIT
"""The environment in which the service is run and seen on any Linux machine.

    namespaces  mounts, IPC, processes, /dev and the system log of an environment's own
    journal     what arrived at its /dev/log
    loops       loop devices that detach by themselves
    cache       a running quorsoftcache: its faults, its counters, its bitmaps
    volume      a file system on a loop device on a cache
    queue       the service's message queue, written and looked at byte by byte
    command     quorcachepinctl, run as an operator runs it
    daemon      a running quorcachepinfiled: its log, threads, signals, sanitizer reports
    evidence    extents, bits and the configuration file, read without the product's code
    demo        `./run demo`; standing: `./run up` and `./run down`
    statements  the service's log statements; `./run where`

Everything works as root with Python's standard library alone.
"""
