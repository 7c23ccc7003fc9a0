#!/usr/bin/env python3
"""Mutation sampler: how many small, plausible faults in the product code does
the test suite catch?

From a fixed seed it picks mutation sites spread over the layers, applies each
one alone to a copy of the source in place, rebuilds incrementally in its own
build folder, runs the tests of the mutated layer and restores the file. Each
mutant ends killed (a test failed or timed out), survived, or did not compile.
The seed and the product sources fix the sample, so a run before and a run
after a change of the tests judge the same mutants.

    python3 scripts/mutants.py [--seed N] [--count N] [--list] [--out FILE] [--only FILE]

--only judges just the sites named in FILE ("path:line" anywhere in a line,
as in the survivors of an earlier report): a change that only removes tests
can only turn killed mutants into survivors, so the survivors of the suite
after the change, judged again by the suite before it, give both kill rates.

Run it under an X server (scripts/mutants.sh starts one): the window tests
need a display.
"""
import argparse
import os
import random
import re
import shutil
import subprocess
import sys
import time
from collections import defaultdict

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))

# Which test folders judge a mutant of each layer: the layer's own tests and,
# for layers without a folder of their own, the tests that drive them.
LAYER_TESTS = {
    "base": ["base"],
    "crypto": ["crypto"],
    "formats": ["formats"],
    "token": ["token"],
    "app": ["app"],
    "gui": ["gui", "dialogs"],
    "program": ["e2e"],
    "sim": ["sim"],
    "tools": ["dialogs"],
}
# Share of the sample per layer (about its share of the code, at least a few each).
LAYER_QUOTA = {"base": 8, "crypto": 6, "formats": 5, "token": 9, "app": 4,
               "gui": 9, "program": 3, "sim": 12, "tools": 4}

COMPARISONS = [(" == ", " != "), (" != ", " == "), (" < ", " <= "), (" <= ", " < "),
               (" > ", " >= "), (" >= ", " > "), (" && ", " || "), (" || ", " && ")]
SKIP_LINE = re.compile(r"^\s*(#|//|/\*|\*)")
CALL_STATEMENT = re.compile(r"^(\s*)(?!return\b|if\b|else\b|while\b|for\b|case\b|delete\b)"
                            r"[A-Za-z_][\w:.\->\[\]]*\s*\(.*\);\s*$")
STRINGS = re.compile(r'"(?:[^"\\]|\\.)*"|\'(?:[^\'\\]|\\.)*\'')


def code_part(line):
    """The line with string literals blanked and trailing comment removed."""
    blank = STRINGS.sub(lambda m: '"' + " " * (len(m.group(0)) - 2) + '"', line)
    cut = blank.find("//")
    return blank if cut < 0 else blank[:cut]


def sites_in(path):
    """Every (line, column, operator, old, new) this sampler can mutate in a file."""
    found = []
    with open(os.path.join(ROOT, path), encoding="utf-8", errors="replace") as f:
        lines = f.read().split("\n")
    for number, line in enumerate(lines, 1):
        if SKIP_LINE.match(line) or "static_assert" in line:
            continue
        code = code_part(line)
        for old, new in COMPARISONS:
            for m in re.finditer(re.escape(old), code):
                found.append((number, m.start(), "flip " + old.strip(), old, new))
        for m in re.finditer(r"\b(true|false)\b", code):
            other = "false" if m.group(1) == "true" else "true"
            found.append((number, m.start(), "boolean", m.group(1), other))
        for m in re.finditer(r"(?<![\w.])(\d+)(?![\w.'])", code):
            value = int(m.group(1))
            if value < 100000 and not (len(m.group(1)) > 1 and m.group(1)[0] == "0"):
                found.append((number, m.start(), "off by one", m.group(1), str(value + 1)))
        m = re.search(r"\breturn (CKR_\w+);", code)
        if m:
            swap = "CKR_OK" if m.group(1) != "CKR_OK" else "CKR_GENERAL_ERROR"
            found.append((number, m.start(1), "return code", m.group(1), swap))
        if CALL_STATEMENT.match(code) and "Log" not in code:
            body = line.strip()
            found.append((number, line.find(body), "drop statement", body, ";"))
    return [(path,) + s for s in found]


def product_files(layer):
    out = subprocess.run(["git", "ls-files", layer + "/*.cpp"], cwd=ROOT,
                         capture_output=True, text=True, check=True).stdout.split()
    return sorted(p for p in out if "/images/" not in p)


def pick_sample(seed, count):
    rng = random.Random(seed)
    total_quota = sum(LAYER_QUOTA.values())
    sample = []
    for layer in LAYER_TESTS:
        candidates = sorted(s for path in product_files(layer) for s in sites_in(path))
        want = max(1, round(LAYER_QUOTA[layer] * count / total_quota))
        sample += [(layer,) + s for s in rng.sample(candidates, min(want, len(candidates)))]
    return sample


def apply(site):
    layer, path, line, column, op, old, new = site
    full = os.path.join(ROOT, path)
    with open(full, "rb") as f:
        original = f.read()
    lines = original.decode("utf-8").split("\n")
    text = lines[line - 1]
    assert text[column:column + len(old)] == old, f"{path}:{line} moved"
    lines[line - 1] = text[:column] + new + text[column + len(old):]
    with open(full, "w", encoding="utf-8") as f:
        f.write("\n".join(lines))
    return full, original


def run(cmd, timeout, cwd=None):
    try:
        return subprocess.run(cmd, cwd=cwd, stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL, timeout=timeout).returncode
    except subprocess.TimeoutExpired:
        return "timeout"


# The simulator's keys and certificates are made once and kept for later runs,
# so a fault in making them would never run. Such a mutant starts without
# them, and what it made goes with it.
KEY_MAKER = "sim/KeyFactory.cpp"


def clear_generated_keys(build):
    for folder in ("sim-keys", "gui-sim-keys"):
        shutil.rmtree(os.path.join(build, "test-scratch", folder), ignore_errors=True)


def judge(site, build, jobs):
    folders = [os.path.join(build, "tests", d) for d in LAYER_TESTS[site[0]]]
    makes_keys = site[1] == KEY_MAKER
    if makes_keys:
        clear_generated_keys(build)
    full, original = apply(site)
    try:
        for folder in folders:
            if run(["cmake", "--build", folder, "-j", str(jobs)], 900) != 0:
                return "did not compile"
        for folder in folders:
            result = run(["ctest", "--test-dir", folder, "-j", str(jobs), "--timeout", "120",
                          "--stop-on-failure"], 1200)
            if result != 0:
                return "killed"
        return "survived"
    finally:
        with open(full, "wb") as f:
            f.write(original)
        if makes_keys:
            clear_generated_keys(build)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--seed", type=int, default=20261124)
    parser.add_argument("--count", type=int, default=60)
    parser.add_argument("--jobs", type=int, default=2)
    parser.add_argument("--build", default=os.path.join(ROOT, "build-mutants"))
    parser.add_argument("--list", action="store_true", help="print the sample and stop")
    parser.add_argument("--out", help="also write the report to this file")
    parser.add_argument("--only", help="judge only the sites named in this file")
    args = parser.parse_args()

    sample = pick_sample(args.seed, args.count)
    if args.only:
        named = set(re.findall(r"([\w/.]+\.cpp:\d+)", open(args.only).read()))
        sample = [s for s in sample if f"{s[1]}:{s[2]}" in named]
    describe = lambda s: f"{s[1]}:{s[2]} {s[4]}: {s[5]!r} -> {s[6]!r}"
    if args.list:
        for site in sample:
            print(f"{site[0]:8} {describe(site)}")
        return 0

    subprocess.run(["cmake", "-S", ROOT, "-B", args.build, "-DCMAKE_BUILD_TYPE=RelWithDebInfo",
                    "-DKORVEX_BUILD_BENCH=OFF"], check=True, stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", args.build, "-j", str(args.jobs)], check=True,
                   stdout=subprocess.DEVNULL)
    results = defaultdict(lambda: defaultdict(int))
    survivors = []
    started = time.time()
    for number, site in enumerate(sample, 1):
        outcome = judge(site, args.build, args.jobs)
        results[site[0]][outcome] += 1
        if outcome == "survived":
            survivors.append(site)
        print(f"[{number:3}/{len(sample)}] {outcome:15} {site[0]:8} {describe(site)}", flush=True)
    # Leave the build matching the unmutated sources.
    subprocess.run(["cmake", "--build", args.build, "-j", str(args.jobs)], stdout=subprocess.DEVNULL)

    report = [f"seed {args.seed}, {len(sample)} mutants, {time.time() - started:.0f} s",
              f"{'layer':8} {'killed':>7} {'survived':>9} {'no build':>9} {'kill rate':>10}"]
    totals = defaultdict(int)
    for layer in LAYER_TESTS:
        r = results[layer]
        k, s, n = r["killed"], r["survived"], r["did not compile"]
        totals["k"] += k; totals["s"] += s; totals["n"] += n
        rate = f"{100.0 * k / (k + s):.1f} %" if k + s else "-"
        report.append(f"{layer:8} {k:7} {s:9} {n:9} {rate:>10}")
    k, s, n = totals["k"], totals["s"], totals["n"]
    report.append(f"{'all':8} {k:7} {s:9} {n:9} {100.0 * k / max(1, k + s):9.1f} %")
    report.append("survivors:")
    report += [f"  {s[0]:8} {describe(s)}" for s in survivors]
    print("\n".join(report))
    if args.out:
        with open(args.out, "w") as f:
            f.write("\n".join(report) + "\n")
    return 0


if __name__ == "__main__":
    sys.exit(main())
