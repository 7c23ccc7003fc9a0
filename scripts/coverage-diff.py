#!/usr/bin/env python3
"""Product lines a change of the tests stopped covering.

    python3 scripts/coverage-diff.py BEFORE.json AFTER.json

Both files are the coverage-lines.json that scripts/coverage.sh leaves in its
build folder. Prints every file with the lines covered before and not after,
and the count per layer: a test whose removal shows up here was the only one
reaching those lines.
"""
import collections
import json
import sys


def covered(path):
    lines = {}
    for entry in json.load(open(path))["files"]:
        lines[entry["file"]] = {line["line_number"] for line in entry["lines"]
                                if line["count"] > 0 and not line.get("gcovr/noncode")}
    return lines


def main():
    if len(sys.argv) != 3:
        print(__doc__.strip(), file=sys.stderr)
        return 2
    before, after = covered(sys.argv[1]), covered(sys.argv[2])
    per_layer = collections.Counter()
    for name in sorted(before):
        lost = sorted(before[name] - after.get(name, set()))
        if lost:
            per_layer[name.split("/", 1)[0]] += len(lost)
            print(f"{name}: {', '.join(map(str, lost))}")
    print("lines no longer covered per layer:", dict(per_layer) or "none")
    return 0


if __name__ == "__main__":
    sys.exit(main())
