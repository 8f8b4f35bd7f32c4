# SPDX-License-Identifier: MIT
"""What failed tests said, once more at the end of a long log: python3 -m lab.failures JUNIT_FILE LOG

Prints the last lines of each failed test, then the summary that closes the log of ctest.
"""
import sys
import xml.etree.ElementTree as xml

MOST_TESTS, MOST_LINES = 8, 30


def main(junit_file, log):
    failed = [test for test in xml.parse(junit_file).iter("testcase") if test.get("status") == "fail"]
    for test in failed[:MOST_TESTS]:
        print(f"---- {test.get('name')}:")
        print("\n".join((test.findtext("system-out") or "").rstrip().split("\n")[-MOST_LINES:]))
    with open(log, encoding="utf-8", errors="replace") as file:
        lines = file.read().split("\n")
    summary = max((at for at, line in enumerate(lines) if " tests passed, " in line), default=len(lines))
    print("\n" + "\n".join(lines[summary:]))


if __name__ == "__main__":
    main(*sys.argv[1:])
