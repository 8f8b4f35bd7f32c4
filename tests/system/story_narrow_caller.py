# SPDX-License-Identifier: MIT
"""A 64-bit cache serves a caller whose pointers have 4 bytes."""
import os
import platform
import subprocess

import pytest

SOURCE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "narrow_caller.c")


@pytest.mark.skipif(platform.machine() != "x86_64", reason="the program is for i386")
def test_the_descriptor_is_read_in_the_callers_width(stage):
    volume = stage.volume()
    program = "/tmp/narrow_caller"
    subprocess.run(["gcc", "-m32", "-nostdlib", "-static", "-ffreestanding", "-fno-pic", "-no-pie",
                    "-fno-stack-protector", "-fcf-protection=none", "-o", program, SOURCE], check=True)

    assert subprocess.run([program, volume.cache.device], check=False).returncode == 0

    assert volume.cache.pinned() == {0, 2}
    assert volume.cache.requests() == [["bitmap", 0, 1], ["unpin", 0, 1]]
    assert volume.cache.stats()["releasedRanges"] == [[1000, 8]]
