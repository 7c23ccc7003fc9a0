#!/usr/bin/env python3
"""Mutation sampler: how many small, plausible faults in the product code does
the test suite catch?

From a fixed seed it picks mutation sites spread over the layers, applies each
one alone to the source in place, rebuilds the normal build incrementally in
its own folder, runs every test of that build (the mutated layer's own tests
first, stopping at the first failure) and restores the file. Each mutant ends
killed (a test failed or timed out), survived, did not compile, or gone (its
line is no longer in the tree judged). The report gives the product layers
and the simulator apart: the simulator is test equipment.

    python3 scripts/mutants.py [--seed N] [--count N] [--list] [--out FILE] [--only FILE]
                               [--write-sites FILE] [--sites FILE] [--root DIR]

--write-sites keeps the seeded sample in a file (one site a line, with the
text of its line) and --sites judges exactly the sites of such a file, found
again by their line's text when the code around them moved: the sample stays
fixed while the product changes. --root judges another checkout (a worktree
of an earlier commit), so a baseline and a result use the same sampler.

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
TREE = ROOT  # the checkout sampled and mutated (--root)

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
PRODUCT_LAYERS = [layer for layer in LAYER_TESTS if layer != "sim"]

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
    with open(os.path.join(TREE, path), encoding="utf-8", errors="replace") as f:
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
    return [(path,) + s + (lines[s[0] - 1],) for s in found]


def product_files(layer):
    out = subprocess.run(["git", "ls-files", layer + "/*.cpp"], cwd=TREE,
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


def write_sites(sample, path):
    with open(path, "w", encoding="utf-8") as f:
        f.write("# layer\tpath\tline\tcolumn\toperator\told\tnew\tline text\n")
        for site in sample:
            f.write("\t".join(str(part) for part in site) + "\n")


def read_sites(path):
    sample = []
    with open(path, encoding="utf-8") as f:
        for row in f:
            if row.startswith("#") or not row.strip():
                continue
            layer, file, line, column, op, old, new, text = row.rstrip("\n").split("\t", 7)
            sample.append((layer, file, int(line), int(column), op, old, new, text))
    return sample


def locate(site, root):
    """The line number the site's line has in this tree, or None when it is gone:
    the recorded number if the text is still there, else the nearest line with
    the same text."""
    layer, path, line, column, op, old, new, text = site
    full = os.path.join(root, path)
    if not os.path.exists(full):
        return None
    with open(full, encoding="utf-8", errors="replace") as f:
        lines = f.read().split("\n")
    if line <= len(lines) and lines[line - 1] == text:
        return line
    same = [n for n, candidate in enumerate(lines, 1) if candidate == text]
    return min(same, key=lambda n: abs(n - line)) if same else None


def apply(site, root, line):
    layer, path, _, column, op, old, new, text = site
    full = os.path.join(root, path)
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


def test_folders(build, first):
    """Every test folder of the build, the mutated layer's own first."""
    tests = os.path.join(build, "tests")
    every = sorted(d for d in os.listdir(tests) if os.path.exists(os.path.join(tests, d, "CTestTestfile.cmake")))
    return [os.path.join(tests, d) for d in first if d in every] + \
           [os.path.join(tests, d) for d in every if d not in first]


def judge(site, root, build, jobs):
    line = locate(site, root)
    if line is None:
        return "gone"
    makes_keys = site[1] == KEY_MAKER
    if makes_keys:
        clear_generated_keys(build)
    full, original = apply(site, root, line)
    try:
        if run(["cmake", "--build", build, "-j", str(jobs)], 1800) != 0:
            return "did not compile"
        for folder in test_folders(build, LAYER_TESTS[site[0]]):
            result = run(["ctest", "--test-dir", folder, "-j", str(jobs), "--timeout", "120",
                          "--stop-on-failure"], 1800)
            if result != 0:
                return "killed"
        return "survived"
    finally:
        with open(full, "wb") as f:
            f.write(original)
        if makes_keys:
            clear_generated_keys(build)


def rate_row(name, k, s, n, g):
    rate = f"{100.0 * k / (k + s):.1f} %" if k + s else "-"
    return f"{name:8} {k:7} {s:9} {n:9} {g:5} {rate:>10}"


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--seed", type=int, default=20261124)
    parser.add_argument("--count", type=int, default=120)
    parser.add_argument("--jobs", type=int, default=2)
    parser.add_argument("--build", default=os.path.join(ROOT, "build-mutants"))
    parser.add_argument("--list", action="store_true", help="print the sample and stop")
    parser.add_argument("--out", help="also write the report to this file")
    parser.add_argument("--only", help="judge only the sites named in this file")
    parser.add_argument("--write-sites", help="write the seeded sample to this file and stop")
    parser.add_argument("--sites", help="judge the sites of this file instead of a seeded sample")
    parser.add_argument("--root", default=ROOT, help="the checkout to mutate and build")
    args = parser.parse_args()
    args.root = os.path.abspath(args.root)
    global TREE
    TREE = args.root

    sample = read_sites(args.sites) if args.sites else pick_sample(args.seed, args.count)
    if args.write_sites:
        write_sites(sample, args.write_sites)
        return 0
    if args.only:
        named = set(re.findall(r"([\w/.]+\.cpp:\d+)", open(args.only).read()))
        sample = [s for s in sample if f"{s[1]}:{s[2]}" in named]
    describe = lambda s: f"{s[1]}:{s[2]} {s[4]}: {s[5]!r} -> {s[6]!r}"
    if args.list:
        for site in sample:
            print(f"{site[0]:8} {describe(site)}")
        return 0

    subprocess.run(["cmake", "-S", args.root, "-B", args.build, "-DCMAKE_BUILD_TYPE=RelWithDebInfo",
                    "-DKORVEX_BUILD_BENCH=OFF"], check=True, stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", args.build, "-j", str(args.jobs)], check=True,
                   stdout=subprocess.DEVNULL)
    results = defaultdict(lambda: defaultdict(int))
    survivors = []
    started = time.time()
    for number, site in enumerate(sample, 1):
        outcome = judge(site, args.root, args.build, args.jobs)
        results[site[0]][outcome] += 1
        if outcome == "survived":
            survivors.append(site)
        print(f"[{number:3}/{len(sample)}] {outcome:15} {site[0]:8} {describe(site)}", flush=True)
    # Leave the build matching the unmutated sources.
    subprocess.run(["cmake", "--build", args.build, "-j", str(args.jobs)], stdout=subprocess.DEVNULL)

    source = args.sites or f"seed {args.seed}"
    report = [f"{source}, {len(sample)} mutants, {time.time() - started:.0f} s, tree {args.root}",
              f"{'layer':8} {'killed':>7} {'survived':>9} {'no build':>9} {'gone':>5} {'kill rate':>10}"]
    counts = {layer: [results[layer][o] for o in ("killed", "survived", "did not compile", "gone")]
              for layer in LAYER_TESTS}
    for layer in LAYER_TESTS:
        report.append(rate_row(layer, *counts[layer]))
    product = [sum(counts[layer][i] for layer in PRODUCT_LAYERS) for i in range(4)]
    report.append(rate_row("product", *product))
    report.append(rate_row("sim", *counts["sim"]))
    report.append("survivors:")
    report += [f"  {s[0]:8} {describe(s)}" for s in survivors]
    print("\n".join(report))
    if args.out:
        with open(args.out, "w") as f:
            f.write("\n".join(report) + "\n")
    return 0


if __name__ == "__main__":
    sys.exit(main())
