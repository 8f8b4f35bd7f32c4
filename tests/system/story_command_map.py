# SPDX-License-Identifier: MIT
"""quorcachepinctl map: the drawing and the picture say what the bitmap says."""
import re

from lab import command, evidence

MIB = 1 << 20
NEITHER, RESIDENT, PINNED, ABSENT = 0xE6E6E6, 0x9EC5E8, 0x1F8A4C, 0xD1495B


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
    # 4096 units: 128 columns of 8 pixels, below the words and right of the offsets.
    for x, y, width, colour in re.findall(
            r'<rect x="(\d+)" y="(\d+)" width="(\d+)" height="8" fill="#(\w{6})"/>', text):
        for at in range(int(x), int(x) + int(width), 8):
            drawn[(int(y) - 56) // 8 * 128 + (at - 88) // 8] = int(colour, 16)
    assert drawn == dict(enumerate(expected))
    assert f"{volume.mount_path}: 256.0 MiB in 4096 units of 64 KiB" in text


def test_the_terminal_shows_the_same(stage):
    volume, _ = scene(stage)
    status, shown = command.on_terminal("map", volume.mount_path, "--width", "80")
    assert status == 0
    plain = re.sub("\033\\[[0-9]*m", "", shown).replace("\r", "").splitlines()
    assert all(len(line) <= 120 for line in plain)
    # 64 marks a row, 4 units a mark: pinned first, then what is in the cache.
    panels = [line.split(" ", 1)[1][-64:] for line in (row.strip() for row in plain)
              if re.match(r"\d+ MiB [·░▒█]{64}$", line)]
    assert len(panels) == 32
    for rows, units in ((panels[:16], evidence.pinned_bits(volume.mount_path)),
                        (panels[16:], volume.cache.resident())):
        for index, mark in enumerate("".join(rows)):
            count = len(units & set(range(4 * index, 4 * index + 4)))
            assert mark == "·░▒▒█"[count], (index, count)
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
