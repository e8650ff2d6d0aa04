#!/usr/bin/env python3
"""Checks what ostrel-host said of a meter on COM1: check_polling.py RUN HISTORY WRITE, files with one JSON object a line."""

import json
import sys
from pathlib import Path

# Some that come from the line, of every kind: text, energy, sums of power, voltages.
WANTED = ("Serial Number", "A+ Tariff Sum", "A+ Tariff 1", "Power P Sum", "Voltage Phase 1", "Frequency")
MOST_TAGS = 150
# The months that a meter of type 1 keeps.
MONTHS = 11


def events(path, kind):
    found = [json.loads(line) for line in Path(path).read_text(encoding="utf-8").splitlines() if line.startswith("{")]
    return [event for event in found if event["event"] == kind]


def expect(holds, message):
    if not holds:
        sys.exit(f"check_polling: {message}")


def main():
    run, history, write = sys.argv[1:]
    tags = {event["tag"]: event for event in events(run, "tag")}
    good = [tag for tag, event in tags.items() if event["quality"] == 192]
    expect(len(good) >= MOST_TAGS, f"only {len(good)} of {len(tags)} tags are good")
    for tag in WANTED:
        expect(tag in good and tags[tag]["value"], f"{tag}: {tags.get(tag)}")
    expect([event["pass"] for event in events(run, "pass")] == [1, 2], "not two passes")
    records = events(history, "history")
    expect(len(records) == MONTHS and all(r["quality"] == 262336 and r["value"] > 0 for r in records), f"history: {records}")
    # The meter has no second level. The line comes back from a log file under a Russian name.
    lines = [event["text"] for event in events(run, "log")]
    expect(any(line.endswith("COM1 ПРИБОР:12 Ошибка доступа к уровню 2") for line in lines), f"event log: {lines}")
    outcomes = [event["outcome"] for event in events(write, "write")]
    expect(outcomes == ["accepted"], f"write: {outcomes}")
    print(f"  {len(good)} good tags of {len(tags)}, {len(records)} archive records, one write, {len(lines)} log lines")


if __name__ == "__main__":
    main()
