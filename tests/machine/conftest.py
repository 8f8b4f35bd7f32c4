# SPDX-License-Identifier: MIT
"""What a story is given: a machine that was set up by the documents' own commands."""
import os
import re
import shutil

import pytest

import machine as machines

TREE = os.path.dirname(os.path.dirname(machines.HERE))
ROOT, PACKAGES = os.environ["MACHINE_ROOT"], os.environ["MACHINE_PACKAGES"]
UNIT = 65536
_ROWS = []  # of the boot table


def text_of(path):
    with open(os.path.join(TREE, path), encoding="utf-8") as file:
        return file.read()


def section_of(path, heading):
    return text_of(path).split(f"\n## {heading}\n", 1)[1].split("\n## ", 1)[0]


def commands_of(path, heading):
    """The commands of a document's section, lines "    # COMMAND", each with the output below it."""
    found = []
    for line in section_of(path, heading).splitlines():
        if line.startswith("    # "):
            found.append([line[6:], ""])
            shown = True
        elif line.startswith("    ") and found and shown:
            found[-1][1] += line[4:] + "\n"
        else:
            shown = False
    assert found, f"{path} has no commands in {heading}"
    return found


def without_numbers(text):
    return re.sub(r"[ \d.]+", " ", text).strip()


def follow(m, path, heading):
    """Runs the commands of a section as they stand; each must succeed, and print what is shown.

    Returns how many they were.
    """
    commands = commands_of(path, heading)
    for command, shown in commands:
        printed = m.run(command)
        if shown:
            assert without_numbers(printed) == without_numbers(shown), f"{command}\n{printed}"
    return len(commands)


def set_up(m, name, backing, ssd, files):
    """Gives the machine a cache of this name and its volume /mnt/NAME, with these files pinned: name = bytes."""
    m.run(f"echo '{name} {backing} {ssd}' >>/etc/quorcachetab; systemctl daemon-reload")
    m.run(f"systemctl start quorsoftcache@{name} && mkfs.ext4 -q /dev/quorcache/{name}")
    m.run(f"echo '/dev/quorcache/{name} /mnt/{name} ext4 nofail 0 2' >>/etc/fstab; systemctl daemon-reload")
    m.run(f"mount -m /mnt/{name}")
    write_files(m, f"/mnt/{name}", files)
    m.run(f"quorcachepinctl pin --wait -r /mnt/{name}")
    m.pinned |= {f"/mnt/{name}/{file}" for file in files}


def write_files(m, directory, sizes):
    m.run(f"mkdir -p {directory}")
    for name, size in sizes.items():
        m.run(f"head -c {size} /dev/urandom >{directory}/{name}")
    m.run(f"sync -f {directory}")


class Pool(machines.Machine):
    """A machine whose volume /mnt/pool has pinned files; `snapshot` is what it begins with."""

    snapshot = None

    def __init__(self, **options):
        super().__init__(ROOT, PACKAGES, **options)
        if Pool.snapshot:
            for disk in self.disks.values():
                name = os.path.basename(disk.path)
                # Through the loop device's own file: it stays attached.
                machines.subprocess.run(["cp", "--sparse=always", f"{Pool.snapshot}/{name}", disk.path],
                                        check=True)
            shutil.rmtree(f"{self.state}/upper")
            machines.subprocess.run(["cp", "-a", f"{Pool.snapshot}/upper", self.state], check=True)
            self.write_rules()
        self.pinned = {"/mnt/pool/db/a", "/mnt/pool/db/b"}

    def facts(self):
        """(files on the list, units with the driver, units in the cache) of the pool."""
        volumes = self.json("status")["volumes"]
        mine = [one for one in volumes if one["volume"] == "/mnt/pool"]
        return (mine[0]["files"], mine[0]["unitsWithDriver"], mine[0]["unitsResident"]) if mine else (0, 0, 0)

    def listed(self):
        return set(self.run("quorcachepinctl list --paths").split())

    def until_warm(self):
        """Waits until nothing is queued and all that is pinned is in the cache."""
        def warm():
            state = self.json("status")
            return (state.get("requests") == [] and state["volumes"] and all(
                one["unitsSet"] == one["unitsWithDriver"] == one["unitsResident"] for one in state["volumes"]))
        machines.until(warm, f"warm: {self.ask('quorcachepinctl status')}")

    def healthy(self, story, before=None):
        """Demands that nothing was lost and nothing failed, and notes it in the boot table."""
        self.until_warm()
        failed = self.ask("systemctl --failed --no-legend --plain")
        assert failed == "", failed + self.log()
        assert self.listed() == self.pinned
        assert "good" in self.run("quorcachepinctl check") and self.run("quorcachepinctl doctor")
        after = self.facts()
        _ROWS.append((story, before or after, after))
        return after


@pytest.fixture(scope="session")
def prepared():
    """Sets a machine up as the README says, once; leaves what its disks hold then."""
    m = Pool()
    try:
        m.boot()
        made, install = re.findall("^    (.*)", section_of("README.md", "Install"), re.M)
        assert made.startswith("./run package ")  # test-machine.sh has done it
        m.run(f"mkdir /build && ln -s ../packages /build/package && cd / && {install}")
        commands = commands_of("README.md", "Use it on your disk")
        assert len(commands) == 5
        for command, _ in commands[:-1]:
            m.run(command)
        write_files(m, "/mnt/pool/db", {"a": 5_000_000, "b": 3_000_000})
        printed = m.run(commands[-1][0])
        assert without_numbers(printed) == without_numbers(commands[-1][1]), printed
        m.healthy("first set-up by the README's commands")
        m.off()
        snapshot = m.state + "-snapshot"
        os.mkdir(snapshot)
        machines.subprocess.run(["cp", "-a", "--sparse=always", f"{m.state}/upper", f"{m.state}/disk",
                                 f"{m.state}/ssd", snapshot], check=True)
    finally:
        m.remove()
    Pool.snapshot = snapshot
    yield snapshot
    Pool.snapshot = None
    shutil.rmtree(snapshot)


@pytest.fixture
def pool(prepared, request):
    """The prepared machine, booted."""
    m = Pool(**getattr(request, "param", {}))
    try:
        m.boot()
        yield m
    finally:
        if request.session.testsfailed and m.init:
            print(m.log()[-6000:])
        m.remove()


def pytest_terminal_summary(terminalreporter):
    terminalreporter.write_line(f"{machines.Machine.boots} boots; before and after: files listed, units with "
                                "the driver, units in the cache")
    for story, before, after in _ROWS:
        terminalreporter.write_line(f"  {story:<52} {'/'.join(map(str, before)):>12}  "
                                    f"{'/'.join(map(str, after)):>12}")
