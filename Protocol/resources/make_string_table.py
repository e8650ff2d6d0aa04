#!/usr/bin/env python3
"""Turns the resource script into a C++ table, for systems without a resource compiler.

make_string_table.py INPUT OUTPUT. The script holds comments, directives, and STRINGTABLE blocks with one row a line:
    20000, "Serial Number"
Anything else is an error that names the file and the line.
"""

import re
import sys
from pathlib import Path

ROW = re.compile(r'(\d+)\s*,\s*"([^"\\]+)"')
MAX_ID = 65535
IGNORED_OUTSIDE = ("#pragma code_page(65001)", "LANGUAGE ")

HEAD = """\
// Made of {source}; edit that file instead.
#include "platform/posix/string_table.h"

namespace ostrel::platform {{
namespace {{

constexpr StringTableEntry kStrings[] = {{
"""

TAIL = """\
};

}  // namespace

std::span<const StringTableEntry> CompiledStringTable() { return kStrings; }

}  // namespace ostrel::platform
"""


class ScriptError(Exception):
    """A line of the script that is not understood."""


def parse_row(line):
    match = ROW.fullmatch(line)
    if match is None:
        raise ScriptError(f'expected ID, "text" without quotes and backslashes in it, found: {line}')
    identifier = int(match[1])
    if identifier > MAX_ID:
        raise ScriptError(f"string {identifier} is above {MAX_ID}")
    return identifier, match[2]


class ScriptReader:
    """Reads a script line by line; `block` is the keyword that opened the present place, or None outside."""

    def __init__(self):
        self.strings = {}
        self.lines = {}
        self.block = None

    def read_line(self, number, line):
        if not line or line.startswith("//"):
            return
        if self.block is None:
            self.read_outside(line)
        elif self.block == "STRINGTABLE":
            self.expect(line, "BEGIN")
            self.block = "BEGIN"
        elif line == "END":
            self.block = None
        else:
            self.add(number, *parse_row(line))

    def read_outside(self, line):
        if line.startswith(IGNORED_OUTSIDE):
            return
        self.expect(line, "STRINGTABLE")
        self.block = line

    @staticmethod
    def expect(line, keyword):
        if line != keyword:
            raise ScriptError(f"expected {keyword}, found: {line}")

    def add(self, number, identifier, text):
        if identifier in self.lines:
            raise ScriptError(f"string {identifier} stands on line {self.lines[identifier]} already")
        self.lines[identifier] = number
        self.strings[identifier] = text

    def finish(self):
        if self.block is not None:
            raise ScriptError("the last STRINGTABLE has no END")
        if not self.strings:
            raise ScriptError("no strings")


def read_script(path):
    reader = ScriptReader()
    number = 0
    try:
        for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), start=1):
            reader.read_line(number, line.strip())
        reader.finish()
    except ScriptError as error:
        sys.exit(f"{path}:{number}: {error}")
    except (OSError, UnicodeDecodeError) as error:
        sys.exit(f"{path}: {error}")
    return reader.strings


def write_table(strings, source, path):
    rows = "".join(f'    {{{identifier}, "{text}"}},\n' for identifier, text in sorted(strings.items()))
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(HEAD.format(source=source.name) + rows + TAIL, encoding="utf-8")


def main():
    if len(sys.argv) != 3:
        sys.exit("usage: make_string_table.py INPUT OUTPUT")
    source = Path(sys.argv[1])
    write_table(read_script(source), source, Path(sys.argv[2]))


if __name__ == "__main__":
    main()
