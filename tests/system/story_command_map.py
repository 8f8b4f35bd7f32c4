# SPDX-License-Identifier: MIT
"""quorcachepinctl map: the drawing and the picture say what the bitmap says."""
import re

from lab import command, evidence

MIB = 1 << 20
NEITHER, RESIDENT, PINNED, ABSENT = 0xF4F5F7, 0x86C5EC, 0x00315F, 0xD55E00


def colours(volume):
    """What each unit must be drawn in."""
    pinned, resident = evidence.pinned_bits(volume.mount_path), volume.cache.resident()
    return [PINNED if unit in pinned and unit in resident else ABSENT if unit in pinned
            else RESIDENT if unit in resident else NEITHER
            for unit in range(evidence.bitmap_bytes(volume.size) * 8)]


def scene(stage):
    """A volume with units of all four kinds."""
    volume = stage.volume(size=256 * MIB, cache_size=32 * MIB)
    paths = [volume.write(f"photos/{n}", 1_500_000) for n in range(5)]
    others = [volume.write(f"films/{n}", 2_000_000) for n in range(3)]
    daemon = stage.daemon()
    command.done("pin", "--wait", *paths)
    volume.read(others)
    lost = max(set(range(4096)) - volume.cache.resident())
    with open(volume.path(evidence.BITMAP_FILE), "r+b") as file:  # pinned and not in the cache
        file.seek(lost // 8)
        file.write(bytes([1 << lost % 8]))
    assert len(set(colours(volume))) == 4
    return volume, daemon


def test_the_svg_is_the_bitmap(stage):
    volume, _ = scene(stage)
    assert command.done("map", volume.mount_path, "-o", "/tmp/map.svg") == ["written to /tmp/map.svg"]
    with open("/tmp/map.svg", encoding="utf-8") as file:
        text = file.read()
    expected, drawn = colours(volume), {}
    # 4096 units: 32 rows of 128 cells; of what is drawn in one place the last is seen.
    for row, cells in enumerate(re.findall(r'<g class="row"[^>]*>(.*)</g>', text)):
        for x, width, colour in re.findall(
                r'<rect x="(\d+)" y="0" width="(\d+)" height="1" fill="#(\w{6})"/>', cells):
            for at in range(int(x), int(x) + int(width)):
                drawn[row * 128 + at] = int(colour, 16)
    assert drawn == dict(enumerate(expected))
    assert f">{volume.mount_path}, 20" in text
    assert ">256.0 MiB in 4096 units of 64 KiB, a cache of 32.0 MiB<" in text


def test_what_is_there_is_not_overwritten(stage):
    volume, _ = scene(stage)
    with open("/tmp/notes.svg", "w", encoding="utf-8") as file:
        file.write("precious")
    refused = command.run("map", volume.mount_path, "-o", "/tmp/notes.svg")
    assert (refused.status, refused.output) == (5, "")
    assert refused.talk == "quorcachepinctl: refused /tmp/notes.svg: is there already; --force replaces it\n"
    with open("/tmp/notes.svg", encoding="utf-8") as file:
        assert file.read() == "precious"
    command.done("map", volume.mount_path, "-o", "/tmp/notes.svg", "--force")
    with open("/tmp/notes.svg", encoding="utf-8") as file:
        assert file.read().startswith("<svg")


def test_the_terminal_shows_the_same(stage):
    volume, _ = scene(stage)
    status, shown = command.on_terminal("map", volume.mount_path, "--width", "80")
    assert status == 0
    plain = re.sub("\033\\[[0-9]*m", "", shown).replace("\r", "").splitlines()
    assert all(len(line) <= 120 for line in plain)
    pinned, resident = evidence.pinned_bits(volume.mount_path), volume.cache.resident()
    # A panel each, below its title and what its marks mean.
    panels = re.split(r"^(?:pinned|pinned and not in the cache|in the cache): ", "\n".join(plain), flags=re.M)[1:]
    assert len(panels) == 3
    for panel, units in zip(panels, (pinned, pinned - resident, resident)):
        assert panel.startswith(f"{len(units)} unit")
        per_mark = int(re.search(r"a mark is (\d+) unit", panel)[1])
        rows = re.findall(r"^ *(\d+) ([KM])iB ([·░▒▓█]{64})$", panel, re.M)
        assert 0 < len(rows) <= 2 * 16
        seen = set()
        for offset, measure, marks in rows:
            first = int(offset) * (1 << 20 if measure == "M" else 1 << 10) // 65536
            for unit in range(first, first + 64 * per_mark, per_mark):
                count = len(units & set(range(unit, unit + per_mark)))
                seen |= units & set(range(unit, unit + per_mark))
                level = "·" if count == 0 else "█" if count == per_mark else "░▒▓"
                assert marks[(unit - first) // per_mark] in level, (unit, count)
        assert seen == units, "nothing that matters was left out"
    assert any("\033[31m" in line for line in shown.splitlines()), "absent units are red"


def test_the_runs_as_json(stage):
    volume, _ = scene(stage)
    report = command.report("map", volume.mount_path)
    for key, units in (("setRuns", evidence.pinned_bits(volume.mount_path)),
                       ("residentRuns", volume.cache.resident())):
        assert {unit for first, last in report[key] for unit in range(first, last + 1)} == units
    assert (report["units"], report["unitBytes"], report["cacheBytes"]) == (4096, 65536, 32 * MIB)


def test_a_volume_without_a_cache_has_nothing_to_draw(stage):
    volume = stage.volume(cached=False)
    stage.daemon()
    assert command.run("map", volume.mount_path).status == 5
    assert command.run("map", "/nowhere").status == 5
    assert command.run("map", volume.mount_path, "-o", "/tmp/map.png").status == 2
