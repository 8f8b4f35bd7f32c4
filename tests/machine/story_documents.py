# SPDX-License-Identifier: MIT
"""Every command of docs/operations.md, as it stands there and in that order."""
import re

from conftest import TREE, follow
from machine import until


def test_operations(pool):
    before = pool.facts()
    with open(f"{TREE}/docs/operations.md", encoding="utf-8") as file:
        text = file.read()
    followed = 0
    for part in text.split("\n## ")[1:]:
        if "\n    # " in part:
            followed += follow(pool, "docs/operations.md", part.split("\n", 1)[0])
            until(lambda: pool.ask("systemctl is-active quorcachepinfiled") == "active", "the service runs")
    assert followed == len(re.findall(r"^    # ", text, re.M)) > 20
    pool.healthy("the commands of docs/operations.md", before)
