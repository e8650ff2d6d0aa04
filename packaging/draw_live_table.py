#!/usr/bin/env python3
"""Draws what `ostrel-host run` shows on a terminal: draw_live_table.py BUILD_FOLDER > docs/live_table.svg

A real run with three simulated meters, 120 columns wide; the picture is its table after some passes.
"""

import fcntl
import html
import os
import pty
import re
import struct
import subprocess
import sys
import tempfile
import termios
import time
from pathlib import Path

COLUMNS, ROWS, SECONDS = 120, 34, 6
TAGS = {
    ("feeder-1", 12, 1): '"A+ Tariff Sum", "R+ Tariff Sum", "Power P *", "Voltage Phase ?", "Current Phase ?", "Frequency"',
    ("feeder-2", 13, 8): '"A+ Tariff ?", "A+ Tariff Sum", "Power P Sum", "Temperature"',
    ("house", 14, 12): '"A+ Tariff Sum", "Power P Phase 1", "Voltage Phase 1", "ConnectionState"',
}
MARKS = {"good": "#3fb950", "uncertain": "#d29922", "failure": "#f85149"}


def last_frame(build, folder):
    meters = [f"{address}:{kind}" for _, address, kind in TAGS]
    line = subprocess.Popen([build / "bin/ostrel-meter", "--line", "pty:line", "--seed", "1", *meters], cwd=folder, stdout=subprocess.PIPE)
    line.stdout.readline()
    tables = [f'[[channel.meter]]\nname = "{n}"\naddress = {a}\ntype = {t}\ntags = [{tags}]\n' for (n, a, t), tags in TAGS.items()]
    Path(folder, "line.toml").write_text('[[channel]]\nport = "COM1"\ndevice = "line"\npoll_period_s = 1\n' + "".join(tables))
    process, terminal = pty.fork()
    if process == 0:
        os.chdir(folder)
        time.sleep(1)  # until the terminal has its size
        os.execl(build / "bin/ostrel-host", "ostrel-host", "run", "--config", "line.toml", "--seconds", str(SECONDS))
    fcntl.ioctl(terminal, termios.TIOCSWINSZ, struct.pack("HHHH", ROWS, COLUMNS, 0, 0))
    output = b""
    try:
        while more := os.read(terminal, 65536):
            output += more
    except OSError:  # the other end is closed
        line.terminate()
    frame = output.decode().split("\x1b[H")[-1]
    lines = [re.sub(r"\x1b\[?[0-9]*[A-Za-z]?", "", text).rstrip() for text in frame.split("\x1b[K")]
    return [text for text in (line.strip("\r\n") for line in lines[: ROWS - 1]) if text]


def main():
    build = Path(sys.argv[1]).resolve()
    with tempfile.TemporaryDirectory() as folder:
        lines = last_frame(build, folder)
    print(f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {COLUMNS * 7.3 + 24:.0f} {len(lines) * 17 + 24}">')
    print('<rect width="100%" height="100%" rx="8" fill="#0d1117"/>')
    print('<g font-family="DejaVu Sans Mono, Consolas, monospace" font-size="12" fill="#c9d1d9">')
    for number, text in enumerate(lines):
        weight = ' font-weight="bold" fill="#79c0ff"' if not text.startswith((" ", "[")) else ""
        shown = re.sub(r"\b(good|uncertain|failure)\b", lambda m: f'<tspan fill="{MARKS[m[1]]}">{m[1]}</tspan>', html.escape(text).replace(" ", "\N{NO-BREAK SPACE}"))
        print(f'<text x="12" y="{number * 17 + 25}"{weight}>{shown}</text>')
    print("</g>\n</svg>")


if __name__ == "__main__":
    main()
