#!/usr/bin/env python3
"""Follows the installation page word for word: follow_page.py FOLDER

FOLDER is an unpacked zip. Prints the page's commands as one batch file that stops at the first one that does not end as the page
says: with 0, or, in a block marked must-fail, with anything else. Run by tests/windows/run.
"""

import re
import sys
from pathlib import Path


def commands(page):
    """(command, whether it must fail) in the order of the page."""
    for block in re.finditer(r"^```bat( must-fail)?\n(.*?)^```$", page, re.M | re.S):
        for line in block[2].splitlines():
            yield line, block[1] is not None


def main():
    page = (Path(sys.argv[1]) / "docs/windows.md").read_text(encoding="utf-8")
    found = list(commands(page))
    if len(found) < 6:
        sys.exit(f"follow_page: only {len(found)} commands in the page")
    print("@echo off")
    for number, (command, must_fail) in enumerate(found, start=1):
        print(f"echo ^> {command}")
        print(command)
        print(f"if {'not ' if must_fail else ''}errorlevel 1 (echo step {number} failed & exit /b {number})")
    print("echo the page was followed to its end")
    print("exit /b 0")  # and not with what a command that had to fail left behind


if __name__ == "__main__":
    main()
