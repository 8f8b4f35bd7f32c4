# SPDX-License-Identifier: MIT
"""The readers of foreign bytes read what libFuzzer finds; without it, what is kept in the corpus."""
import os
import re
import shutil
import subprocess

from lab import namespaces

ABOUT = "readers of foreign bytes"
BUILD = "fuzz"
SHORT, FULL = 300, 1_000_000  # runs of each reader
CORPUS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "corpus")
LONGEST = 4096  # bytes of an input
SECONDS = 20    # for one input


def fuzz(ground, reader):
    """Runs one reader; its findings are kept in build/fuzz/found."""
    found = os.path.join(namespaces.build_directory(), "found", reader) + "/"
    kept = f"/tmp/corpus/{reader}"
    os.makedirs(found, exist_ok=True)
    shutil.copytree(os.path.join(CORPUS, reader), kept)
    run = subprocess.run([namespaces.program("fuzz_readers"), kept, f"-runs={ground.wanted}", f"-max_len={LONGEST}",
                          f"-timeout={SECONDS}", f"-artifact_prefix={found}", "-print_final_stats=1",
                          f"-seed={ground.random.randrange(1, 2**31)}"], check=False, text=True, errors="replace",
                         stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,
                         env={**os.environ, "QUOR_READER": reader})
    done = re.search(r"stat::number_of_executed_units: (\d+)", run.stderr)
    ground.outcome.points += int(done[1]) if done else 0
    if run.returncode != 0:
        kind = "hangs" if "libFuzzer: timeout" in run.stderr else "reports"
        ground.outcome.add(kind, reader, f"see {found}; " + run.stderr[-3000:])


def replay(ground):
    files = sum(len(names) for _, _, names in os.walk(CORPUS))
    run = subprocess.run([namespaces.program("foreign_bytes"), CORPUS], check=False, text=True, errors="replace",
                         stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    ground.outcome.points += files
    if run.returncode != 0:
        ground.outcome.add("crashes" if run.returncode < 0 else "reports", "the corpus", run.stderr[-3000:])


def run(ground):
    if not os.path.exists(namespaces.program("fuzz_readers")):
        replay(ground)
        return
    for reader in sorted(os.listdir(CORPUS)):
        fuzz(ground, reader)
