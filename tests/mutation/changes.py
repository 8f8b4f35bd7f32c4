# SPDX-License-Identifier: MIT
"""A change of the sources: what it is, how data files tell it, how it is applied."""
import dataclasses
import pathlib

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parents[1]
# The unit test programs that hold a room's code, the likeliest to notice first.
TESTS_OF = {"util": ["util_test", "daemon_test", "client_test"], "daemon": ["daemon_test"], "client": ["client_test"]}


@dataclasses.dataclass
class Mutation:
    """One deliberate change of one file."""
    place: str  # where the change is written, as file:line; a mechanical one's own place
    path: str
    why: str
    old: list
    new: list
    at: int = None  # the first old line, counted from 0; None: wherever they stand

    def tests(self):
        """The programs of which one must go red."""
        return TESTS_OF.get(self.path.split("/")[0], ["util_test", "daemon_test"])

    def title(self):
        return f"{self.path}: {self.why}"


def parse(path):
    """Returns the changes of one data file, in order."""
    mutations = []
    for number, line in enumerate(path.read_text().splitlines(), start=1):
        if line.startswith("@ "):
            target, _, why = line[2:].partition(": ")
            mutations.append(Mutation(f"{path.name}:{number}", target, why, [], []))
        elif line.startswith("-"):
            mutations[-1].old.append(line[1:].strip())
        elif line.startswith("+"):
            mutations[-1].new.append(line[1:].strip())
    return mutations


def apply(mutation, text):
    """Returns the changed text; raises ValueError when the old lines do not stand there (once)."""
    lines = text.splitlines()
    stripped = [line.strip() for line in lines]
    size = len(mutation.old)
    places = [i for i in range(len(lines) - size + 1)
              if stripped[i:i + size] == mutation.old and mutation.at in (None, i)]
    if size == 0 or len(places) != 1:
        raise ValueError(f"the old lines stand in the file {len(places)} times")
    lines[places[0]:places[0] + size] = mutation.new
    return "\n".join(lines) + "\n"


def written():
    """Every change of the data files."""
    return [m for path in sorted(HERE.glob("*.mut")) for m in parse(path)]


def check(mutations):
    """Prints the changes that no longer apply; returns whether there are none."""
    stale = 0
    for mutation in mutations:
        try:
            apply(mutation, (ROOT / mutation.path).read_text())
        except (ValueError, OSError) as error:
            print(f"{mutation.place}: {mutation.title()}: {error}")
            stale += 1
    print(f"{len(mutations) - stale} of {len(mutations)} changes apply")
    return stale == 0
