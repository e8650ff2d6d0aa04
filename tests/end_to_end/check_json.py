#!/usr/bin/env python3
"""Holds JSON lines against the schema and the page: check_json.py SCHEMA PAGE LINES. Prints what does not fit, and the events seen."""

import json
import sys
from pathlib import Path

import jsonschema

schema = json.loads(Path(sys.argv[1]).read_text(encoding="utf-8"))
page = Path(sys.argv[2]).read_text(encoding="utf-8").split("| field |")[0]
rows = {row.split("`")[1]: row for row in page.splitlines() if row.startswith("| `")}
jsonschema.Draft202012Validator.check_schema(schema)
validator = jsonschema.Draft202012Validator(schema)
wrong, seen = [], set()
for line in Path(sys.argv[3]).read_text(encoding="utf-8").splitlines():
    seen.add(json.loads(line)["event"])
    wrong += [f"{line}\n  {error.message}" for error in validator.iter_errors(json.loads(line))]
for event in schema["properties"]["event"]["enum"]:
    fields = schema["$defs"][event]["properties"].keys() - {"event", "version"}
    wrong += [f"the page lacks {event}.{field}" for field in sorted(fields) if f"`{field}`" not in rows.get(event, "")]
print("\n".join(wrong + ["events: " + " ".join(sorted(seen))]))
sys.exit(bool(wrong))
