#!/usr/bin/env python3
"""A manual page from what a program says of itself: make_man_page.py PROGRAM SEE_ALSO... > PROGRAM.1

The first line of --help is what the program is; its commands, their options and its exit codes follow from --help too, so that the
page says what the program does. SEE_ALSO are other pages, such as "ostrel-meter(1)".
"""

import os
import re
import subprocess
import sys

USAGE = "Usage:"
SECTIONS = {"Positionals:": "ARGUMENTS", "Options:": "OPTIONS", "Subcommands:": "COMMANDS", "Exit codes:": "EXIT STATUS"}
TERM = re.compile(r"  (-?\S.*?)(?:  +(.*))?$")


def say(*command):
    environment = {**os.environ, "LC_ALL": "C.UTF-8"}
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True, env=environment).stdout


def troff(text):
    text = text.replace("\\", r"\e").replace("-", r"\-")
    return r"\&" + text if text[:1] in (".", "'") else text


def paragraphs(lines):
    """Help lines as troff: what stands two blanks in begins a paragraph of its own, deeper ones go on with it."""
    began = False
    for line in lines:
        term = None if line.startswith("   ") else TERM.match(line)
        if term:
            yield ".TP\n.B " + troff(term[1])
            began, line = False, term[2] or ""
        if line.strip():
            yield ".br\n" * began + troff(line.strip())
            began = True


def sections(text):
    """(title, lines) of a help text, the head without a title first."""
    title, lines = "", []
    for line in text.splitlines():
        if re.match(r"[A-Z][A-Za-z ]*:", line):
            yield title, lines
            title, _, rest = line.partition(":")
            title, lines = title + ":", [rest] if rest.strip() else []
        else:
            lines.append(line)
    yield title, lines


def names(lines):
    return [found[1] for found in (re.match(r"  ([a-z]+) ", line) for line in lines) if found]


def main():
    program, others = sys.argv[1], sys.argv[2:]
    name = os.path.basename(program)
    parts = list(sections(say(program, "--help")))
    what = " ".join(parts[0][1]).strip()
    version = say(program, "--version").split()[-1]
    print(f'.TH {name.upper()} 1 "" "{name} {version}" "User Commands"')
    print(f".SH NAME\n{name} \\- {troff(what[0].lower() + what[1:].rstrip('.'))}")
    for title, lines in parts[1:]:
        if title == USAGE:
            print(".SH SYNOPSIS\n.B " + troff(" ".join(lines).strip()))
        else:
            print(".SH " + SECTIONS.get(title, title.rstrip(":").upper()))
            print("\n".join(paragraphs(lines)))
        for command in names(lines) if title == "Subcommands:" else []:
            print(f".SS {name} {command}")
            for head, options in sections(say(program, command, "--help")):
                print("\n".join([r".PP"] * (head == USAGE) + list(paragraphs(options))))
    print(".SH SEE ALSO\n" + ",\n".join(f".BR {troff(other[:-3])} {other[-3:]}" for other in others))
    print(f".PP\nThe pages in /usr/share/doc/ostrel/docs.")


if __name__ == "__main__":
    main()
