#!/usr/bin/env python3
"""Which product lines each test reaches, and which tests reach nothing alone.

Runs every test of a coverage build (made by scripts/coverage.sh) on its own,
each with its counters written under a folder of its own (GCOV_PREFIX), reads
them back with gcov and keeps, per test, the product lines it ran. Then it
proposes tests whose every line some other kept test also runs, largest
first, so that dropping all of them together loses no covered line.

A developer's tool for trimming the suite: a proposal is a lead to read, not a
verdict. A test may assert what no other test asserts on the same lines, so
every cut is checked afterwards with the mutants (scripts/mutants.sh).

    xvfb-run -a python3 scripts/coverage-per-test.py [build-coverage] [map.json]
    python3 scripts/coverage-per-test.py --propose map.json [--keep FILE]
        [--budget POINTS --lines coverage-lines.json]

--keep names tests ("Suite.Name", one per line) that stay whatever they cover.
--budget lets the proposal go on past the free drops: it then drops the tests
that give up the fewest covered lines per test line, as long as no layer's line
coverage falls by more than POINTS; coverage-lines.json (from coverage.sh)
gives each layer's count of instrumented lines.
"""
import concurrent.futures
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import threading

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
NOT_PRODUCT = ("tests/", "bench/", "fuzz/")
RESOURCES = {}  # ctest's RESOURCE_LOCK names: tests sharing one never run together


def product_file(path):
    if not os.path.isabs(path):
        return None
    relative = os.path.relpath(os.path.realpath(path), ROOT)
    if relative.startswith("..") or relative.startswith("build") or relative.startswith(NOT_PRODUCT):
        return None
    return relative


def lines_from_counters(prefix):
    """Product lines with a count above zero in the .gcda files under prefix."""
    by_folder = {}
    for folder, _, files in os.walk(prefix):
        for name in files:
            if name.endswith(".gcda"):
                by_folder.setdefault(folder, []).append(name)
    covered = {}
    for folder, names in by_folder.items():
        original = "/" + os.path.relpath(folder, prefix)
        for name in names:
            note = os.path.join(original, name[:-5] + ".gcno")
            if os.path.exists(note):
                shutil.copy(note, folder)
        run = subprocess.run(["gcov", "--json-format", "--stdout", "--object-directory", folder] + names,
                             cwd=folder, capture_output=True, text=True)
        for document in run.stdout.splitlines():
            if not document.startswith("{"):
                continue
            for entry in json.loads(document).get("files", []):
                source = entry["file"]
                if not os.path.isabs(source):
                    source = os.path.join(ROOT, source)
                relative = product_file(source)
                if relative is None:
                    continue
                hit = {line["line_number"] for line in entry["lines"] if line["count"] > 0}
                if hit:
                    covered.setdefault(relative, set()).update(hit)
    return covered


def run_one(test, work):
    prefix = os.path.join(work, str(test["index"]))
    env = dict(os.environ)
    for setting in test.get("environment", []):
        key, _, value = setting.partition("=")
        env[key] = value
    env["GCOV_PREFIX"] = prefix
    env["GCOV_PREFIX_STRIP"] = "0"
    locks = [RESOURCES.setdefault(name, threading.Lock()) for name in sorted(test["locks"])]
    for lock in locks:
        lock.acquire()
    try:
        result = subprocess.run(test["command"], cwd=test["cwd"], env=env, capture_output=True, timeout=600)
        passed = result.returncode == 0
    except subprocess.TimeoutExpired:
        passed = False
    finally:
        for lock in reversed(locks):
            lock.release()
    covered = lines_from_counters(prefix)
    shutil.rmtree(prefix, ignore_errors=True)
    return test["name"], passed, {f: sorted(lines) for f, lines in covered.items()}


def list_tests(build):
    shown = json.loads(subprocess.run(["ctest", "--show-only=json-v1"], cwd=build, capture_output=True,
                                      text=True, check=True).stdout)
    tests = []
    for index, test in enumerate(shown["tests"]):
        properties = {p["name"]: p["value"] for p in test.get("properties", [])}
        tests.append({"index": index, "name": test["name"], "command": test["command"],
                      "cwd": properties.get("WORKING_DIRECTORY", build),
                      "environment": properties.get("ENVIRONMENT", []),
                      "locks": properties.get("RESOURCE_LOCK", [])})
    return tests


def measure(build, out):
    tests = list_tests(build)
    work = tempfile.mkdtemp(prefix="coverage-per-test-")
    result = {}
    jobs = int(os.environ.get("JOBS", "2"))
    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        for done, (name, passed, covered) in enumerate(pool.map(lambda t: run_one(t, work), tests), 1):
            result[name] = {"passed": passed, "lines": covered}
            print(f"{done:4d}/{len(tests)} {'ok  ' if passed else 'FAIL'} {name}: "
                  f"{sum(len(v) for v in covered.values())} lines", flush=True)
    shutil.rmtree(work, ignore_errors=True)
    with open(out, "w") as f:
        json.dump(result, f)


def test_sizes():
    """Non-blank source lines of each gtest case, by 'Suite.Name'."""
    sizes = {}
    start = re.compile(r"^(?:TEST|TEST_F|TEST_P)\((\w+),\s*(\w+)\)")
    for folder, _, files in os.walk(os.path.join(ROOT, "tests")):
        for name in files:
            if not name.endswith(".cpp"):
                continue
            path = os.path.join(folder, name)
            text = open(path, encoding="utf-8", errors="replace").read().splitlines()
            heads = [(i, m.group(1) + "." + m.group(2)) for i, line in enumerate(text) if (m := start.match(line))]
            for n, (first, case) in enumerate(heads):
                depth, seen, last = 0, False, len(text) - 1
                for i in range(first, len(text)):
                    depth += text[i].count("{") - text[i].count("}")
                    seen = seen or "{" in text[i]
                    if seen and depth <= 0:
                        last = i
                        break
                body = [l for l in text[first:last + 1] if l.strip()]
                sizes[case] = (len(body), os.path.relpath(path, ROOT))
    return sizes


def layer_of(source):
    return source.split("/", 1)[0]


def instrumented_lines(lines_file):
    """Instrumented (code) lines per layer in a gcovr JSON report."""
    per_layer = {}
    for entry in json.load(open(lines_file))["files"]:
        code = sum(1 for line in entry["lines"] if not line.get("gcovr/noncode"))
        per_layer[layer_of(entry["file"])] = per_layer.get(layer_of(entry["file"]), 0) + code
    return per_layer


def propose(map_file, keep=(), budget=0.0, lines_file=None):
    data = json.load(open(map_file))
    holders = {}
    for test, entry in data.items():
        for source, lines in entry["lines"].items():
            for line in lines:
                holders.setdefault((source, line), set()).add(test)
    sizes = test_sizes()
    kept = set(data)
    dropped = []

    def size(test):
        return sizes.get(test.split("/")[-1], (0, "?"))[0]

    def points(test):
        return [(s, l) for s, lines in data[test]["lines"].items() for l in lines]

    def droppable(test):
        return data[test]["passed"] and size(test) > 0 and test.split("/")[-1] not in keep

    for test in sorted(data, key=size, reverse=True):
        if droppable(test) and all(len(holders[point] & kept) > 1 for point in points(test)):
            kept.discard(test)
            dropped.append((test, 0))

    # Past the free drops: the cheapest lines lost per test line first, while
    # every layer stays within its budget of lost coverage.
    allowed = {layer: int(total * budget / 100) for layer, total in
               (instrumented_lines(lines_file) if lines_file and budget > 0 else {}).items()}
    while allowed:
        best = None
        for test in kept:
            if not droppable(test):
                continue
            lost = [p for p in points(test) if len(holders[p] & kept) == 1]
            cost = {}
            for source, _ in lost:
                cost[layer_of(source)] = cost.get(layer_of(source), 0) + 1
            if any(n > allowed.get(layer, 0) for layer, n in cost.items()):
                continue
            score = size(test) / (len(lost) + 1)
            if best is None or score > best[0]:
                best = (score, test, cost, len(lost))
        if best is None or best[0] < 2:
            break
        _, test, cost, lost = best
        for layer, n in cost.items():
            allowed[layer] -= n
        kept.discard(test)
        dropped.append((test, lost))

    total = 0
    print(f"{'lines':>5} {'lost':>4}  test (file)")
    for test, lost in dropped:
        n, path = sizes.get(test.split("/")[-1], (0, "?"))
        total += n
        print(f"{n:5d} {lost:4d}  {test} ({path})")
    print(f"{total} test lines in {len(dropped)} tests; {sum(l for _, l in dropped)} covered lines lost")


if __name__ == "__main__":
    if len(sys.argv) >= 3 and sys.argv[1] == "--propose":
        options = dict(zip(sys.argv[3::2], sys.argv[4::2]))
        keep = set(open(options["--keep"]).read().split()) if "--keep" in options else set()
        propose(sys.argv[2], keep, float(options.get("--budget", 0)), options.get("--lines"))
    else:
        build = sys.argv[1] if len(sys.argv) > 1 else os.path.join(ROOT, "build-coverage")
        out = sys.argv[2] if len(sys.argv) > 2 else os.path.join(build, "coverage-per-test.json")
        measure(os.path.abspath(build), out)
