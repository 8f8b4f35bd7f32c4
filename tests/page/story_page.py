# SPDX-License-Identifier: MIT
"""The page of `map -o FILE.html` in a browser: at a desktop's width and a phone's, light and dark.

What it looks like is left in build/page/, for somebody to look at.
"""
import os
import random

import pytest

from lab import command, namespaces
from lab.daemon import STARTING, Daemon
from lab.scene import KEEP, Scene
from lab.volume import MIB, Volume
from tests.page import browser

PICTURES = os.path.join(namespaces.ROOT, "build", "page")
HOSTILE = "<script>document.title='hit'<"
SCREENS = [("desktop", 1280, 900, {}), ("dark", 1280, 900, {"dark": True}),
           ("phone", 360, 740, {"phone": True}), ("dark-phone", 360, 740, {"phone": True, "dark": True})]


@pytest.fixture(scope="module")
def pages():
    """{name: (page, path of a pinned file)} of the demo's volume and of one of 4 TiB."""
    made = {}
    scene = Scene()
    mount_path = scene.volume.mount_path
    scene.volume.write(f"{KEEP}/{HOSTILE}", MIB)
    command.done("pin", "--wait", "-r", f"{mount_path}/{KEEP}")
    scene.volume.read(scene.rest)
    made["demo"] = page_of(mount_path), scene.keep[0]
    scene.close()
    # 0.01 % of it pinned, in a few places, and half of the cache filled with other files.
    volume = Volume("archive", "/mnt/archive", size=4 << 40, cache_size=1024 * MIB)
    daemon = Daemon(flags=()).start(wait_for=STARTING)
    chance = random.Random(1)
    pinned = [volume.write(f"db-{n}/index.{chance.randrange(99)}", chance.randrange(1, 60) * MIB) for n in range(12)]
    others = [volume.write(f"films/{n}.mkv", 20 * MIB) for n in range(12)]
    command.done("pin", "--wait", *pinned)
    volume.read(others)
    made["4tib"] = page_of(volume.mount_path), pinned[0]
    print("\n".join(command.done("map", volume.mount_path)))
    ended = daemon.stop(), volume.close()
    daemon.check()
    assert ended == (0, 0)
    return made


def page_of(mount_path):
    path = os.path.join(PICTURES, f"{os.path.basename(mount_path)}.html")
    os.makedirs(PICTURES, exist_ok=True)
    for name in (path, path.replace(".html", ".svg")):
        assert command.done("map", mount_path, "-o", name, "--force") == [f"written to {name}"]
    return path


@pytest.fixture(scope="module")
def chromium():
    with browser.started() as one:
        yield one


@pytest.mark.parametrize("screen", SCREENS, ids=[screen[0] for screen in SCREENS])
@pytest.mark.parametrize("name", ["demo", "4tib"])
def test_it_can_be_read(pages, chromium, name, screen):
    kind, width, height, options = screen
    path, _ = pages[name]
    assert chromium.show(path, width, height, **options) == ([], [])
    chromium.shoot(os.path.join(PICTURES, f"{name}-{kind}.png"))
    assert chromium.faults() == []


@pytest.mark.parametrize("screen", SCREENS[::2], ids=[screen[0] for screen in SCREENS[::2]])
@pytest.mark.parametrize("name", ["demo", "4tib"])
def test_a_place_tells_its_files(pages, chromium, name, screen):
    kind, width, height, options = screen
    path, pinned = pages[name]
    chromium.show(path, width, height, **options)
    told = chromium.run("""
        const place = [...document.querySelectorAll('.cells b[tabindex]')]
            .find(one => one.textContent.includes(arguments[0]));
        const tip = place.querySelector('i');
        const before = getComputedStyle(tip).display;
        place.scrollIntoView({block: 'center'});
        place.focus();
        const box = tip.getBoundingClientRect();
        return [before, getComputedStyle(tip).display, box.left >= 0, box.right <= innerWidth,
                parseFloat(getComputedStyle(tip).fontSize) >= 12];""", pinned)
    chromium.shoot(os.path.join(PICTURES, f"{name}-{kind}-place.png"))
    assert told == ["none", "block", True, True, True]


def test_a_name_is_only_a_name(pages, chromium):
    chromium.show(pages["demo"][0], 1280, 900)
    assert chromium.run("return [document.scripts.length, document.body.innerText.includes(arguments[0])]",
                        HOSTILE) == [0, True]
    assert "hit" not in chromium.run("return document.title").split()
