# SPDX-License-Identifier: MIT
"""The rows of functions: quor_bench, on a volume with a real cache."""
import json
import os
import subprocess

from bench import pairs
from lab import namespaces
from lab.volume import Volume


def _time_of(one):
    """Processor time: other programs keep the machine busy."""
    return "real_time" if one["name"].endswith("/manual_time") else "cpu_time"


def _run(words, quick):
    """What Google Benchmark tells: [(row, side, size, repetition, seconds)]."""
    repetitions, least = (3, 0.01) if quick else (9, 0.05)
    rows = "|".join(words) or "[^/]*"
    sizes = "[0-9]{1,6}" if quick else "[0-9]+"
    command = [namespaces.program("quor_bench"), f"--benchmark_filter=^({rows})/(ours|peer)/{sizes}(/|$)",
               f"--benchmark_repetitions={repetitions}",
               "--benchmark_enable_random_interleaving=true", f"--benchmark_min_time={least}",
               "--benchmark_format=json"]
    told = subprocess.run(command, check=False, text=True, stdout=subprocess.PIPE)
    if told.returncode:
        raise RuntimeError("quor_bench failed")
    units = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1}
    found = []
    for one in json.loads(told.stdout)["benchmarks"]:
        if one.get("error_occurred"):
            raise RuntimeError(f"{one['name']}: {one['error_message']}")
        if one["run_type"] == "iteration":
            row, side, size = one["name"].split("/")[:3]
            found.append((row, side, int(size), one["repetition_index"],
                          one[_time_of(one)] * units[one["time_unit"]]))
    return found


def measure(words, quick):
    """The rows whose key is one of `words`, all without words."""
    volume = Volume("bench", size=1 << 40, mkfs=["-i", "4194304"])
    try:
        for number in range(30):
            volume.write(f"f{number:02}", 4096)
        os.environ["QUOR_BENCH_MOUNT"] = volume.mount_path
        os.environ["QUOR_BENCH_DEVICE"] = volume.cache.device
        found = _run(words, quick)
    finally:
        volume.close()
    sides = {}
    for row, side, size, repetition, seconds in sorted(found):
        sides.setdefault((row, size), {}).setdefault(side, []).append(seconds)
    return [pairs.of(row, size, both["ours"], both["peer"]) for (row, size), both in sides.items()]

