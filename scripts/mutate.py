#!/usr/bin/env python3
"""Measures what a test suite catches: applies small faults to the code it
covers, one at a time, rebuilds, runs the suite, and counts the faults it
kills (a failing or hanging run). The faults are chosen at random with a
fixed seed from every place in the given sources where one applies, so the
same command picks the same faults while the sources stay the same: run it
before and after a change to the tests, and compare.

  scripts/mutate.py --suite vhdx_tests src/vhdx [more files or folders]
  scripts/mutate.py --suite vrig_tests --count 40 --seed 7 tools/vrig
  scripts/mutate.py --list ...            # the chosen faults, nothing run
  scripts/mutate.py --fuzz --suite vhdx_disk_fuzz src/vhdx
                                          # a harness replaying its seeds

Kinds of fault: a comparison flipped (== and !=, < and <=, > and >=), && and
|| swapped, an integer constant changed by one, a statement that calls
something dropped, a true or false inverted, and in a message catalogue
(resources/messages/en.txt, named on its own) a text changed after its
first word, which is what the tests of texts and error contracts catch.
A folder gives its .cc files
only, since a change in a header rebuilds much of the project; a header
named on its own is taken, for code that lives in headers alone.

Builds into its own folder (default build/mutate, build/mutate-fuzz with
--fuzz), configured like the release variant without -Werror, since a
fault may well warn. A harness (--fuzz) is built with clang and runs once
over its seed corpus; a crash or a sanitizer report kills. The file is
always put back, also on Ctrl-C.
"""
import argparse
import json
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))

COMPARISONS = {" == ": " != ", " != ": " == ", " < ": " <= ", " <= ": " < ",
               " > ": " >= ", " >= ": " > ", " && ": " || ", " || ": " && "}
INTEGER = re.compile(r"(?<![\w.])(\d+)(?![\w.'])")
CALL_STATEMENT = re.compile(r"^(\s*)(?!return\b|throw\b|co_return\b)[A-Za-z_][\w:.\->]*(<[^;]*>)?\(.*\);\s*$")
BOOLEAN = re.compile(r"\b(true|false)\b")


def code_part(line):
    """The line without a trailing // comment and string or char literals,
    with positions kept, so that no fault lands inside either."""
    out, i, quote = [], 0, None
    while i < len(line):
        c = line[i]
        if quote:
            if c == "\\":
                out.append("  ")
                i += 2
                continue
            out.append(" ")
            if c == quote:
                quote = None
        elif c in "\"'" and not (c == "'" and i > 0 and line[i - 1].isalnum()):
            quote = c
            out.append(" ")
        elif line.startswith("//", i):
            break
        else:
            out.append(c)
        i += 1
    return "".join(out).ljust(len(line))[:len(line)]


MESSAGE_ENTRY = re.compile(r"^(\d+\s+\w+\s+)(\S+)(.*)$")


def sites(path):
    """Every fault that applies to one file: (path, line number, old, new)."""
    found = []
    with open(path, encoding="utf-8") as f:
        lines = f.read().split("\n")
    if path.endswith(".txt"):
        for number, line in enumerate(lines, 1):
            m = MESSAGE_ENTRY.match(line)
            if m and not line.startswith("#"):
                found.append((path, number, line, m.group(1) + m.group(2) + "#" + m.group(3)))
        return found
    in_block_comment = False
    for number, line in enumerate(lines, 1):
        stripped = line.strip()
        if in_block_comment:
            in_block_comment = "*/" not in stripped
            continue
        if stripped.startswith("/*"):
            in_block_comment = "*/" not in stripped
            continue
        if not stripped or stripped.startswith(("#", "//", "*")) or "static_assert" in line:
            continue
        code = code_part(line)
        for old, new in COMPARISONS.items():
            for m in re.finditer(re.escape(old), code):
                found.append((path, number, line, line[:m.start()] + new + line[m.end():]))
        for m in INTEGER.finditer(code):
            value = int(m.group(1), 0) if not m.group(1).startswith("0") or m.group(1) == "0" else None
            if value is None:
                continue
            found.append((path, number, line, line[:m.start()] + str(value + 1) + line[m.end():]))
        for m in BOOLEAN.finditer(code):
            flipped = "false" if m.group(1) == "true" else "true"
            found.append((path, number, line, line[:m.start()] + flipped + line[m.end():]))
        if CALL_STATEMENT.match(code) and stripped.endswith(");"):
            found.append((path, number, line, CALL_STATEMENT.match(code).group(1) + ";"))
    return found


def sources(arguments):
    files = []
    for argument in arguments:
        path = os.path.join(ROOT, argument)
        if os.path.isdir(path):
            for folder, _, names in os.walk(path):
                files += [os.path.join(folder, n) for n in names if n.endswith(".cc")]
        elif path.endswith((".cc", ".h", ".txt")):
            files.append(path)
        else:
            sys.exit(f"not a .cc, .h or .txt file or a folder: {argument}")
    return sorted(set(files))


def build(folder, target, jobs):
    return subprocess.run(["cmake", "--build", folder, "--target", target] + (["-j", str(jobs)] if jobs else []),
                          stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode == 0


def run(command, timeout):
    try:
        return subprocess.run(command, shell=True, cwd=ROOT, timeout=timeout,
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode == 0
    except subprocess.TimeoutExpired:
        return False


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--suite", required=True, help="the test program's target, e.g. vhdx_tests")
    parser.add_argument("--run", help="command that runs the suite (default: the built program)")
    parser.add_argument("--count", type=int, default=30)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--build", help="build folder (default build/mutate or build/mutate-fuzz)")
    parser.add_argument("--fuzz", action="store_true", help="the suite is a fuzz harness")
    parser.add_argument("--jobs", type=int, help="build jobs at once (default: the build tool's)")
    parser.add_argument("--list", action="store_true", help="print the chosen faults only")
    parser.add_argument("--matrix", help="a GoogleTest suite: write to this JSON file which tests fail for each "
                                         "fault, and print the tests that kill no fault alone")
    parser.add_argument("paths", nargs="+")
    options = parser.parse_args()
    if options.matrix and options.fuzz:
        parser.error("--matrix reads GoogleTest reports; a fuzz harness writes none")
    # A kill must put the file back as Ctrl-C does: SystemExit runs the
    # finally that restores it.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))

    candidates = [site for path in sources(options.paths) for site in sites(path)]
    if not candidates:
        sys.exit("no place for a fault in those sources")
    chosen = random.Random(options.seed).sample(candidates, min(options.count, len(candidates)))
    describe = lambda s: f"{os.path.relpath(s[0], ROOT)}:{s[1]}: {s[2].strip()}  ->  {s[3].strip()}"
    if options.list:
        print("\n".join(describe(s) for s in chosen))
        return 0

    folder = os.path.join(ROOT, options.build or ("build/mutate-fuzz" if options.fuzz else "build/mutate"))
    if not os.path.exists(os.path.join(folder, "CMakeCache.txt")):
        configure = ["cmake", "-S", ROOT, "-B", folder, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=RelWithDebInfo",
                     "-DVELLUMRIG_WERROR=OFF"]
        environment = dict(os.environ)
        if options.fuzz:
            configure.append("-DVELLUMRIG_FUZZ=ON")
            environment.update(CC="clang", CXX="clang++")
        else:
            configure.append("-DVELLUMRIG_SANITIZE=OFF")
        subprocess.run(configure, check=True, stdout=subprocess.DEVNULL, env=environment)
    command = options.run or os.path.join(folder, "bin", options.suite)
    if options.fuzz and not options.run:
        # New inputs would go to the first folder: a scratch one, never the seeds.
        scratch = os.path.join(folder, "mutate-scratch")
        os.makedirs(scratch, exist_ok=True)
        seeds = os.path.join(ROOT, "fuzz", "corpus", options.suite.removesuffix("_fuzz"))
        command = f"{command} -runs=0 -timeout=10 -rss_limit_mb=2048 {scratch} {seeds}"
    report = os.path.join(folder, "mutate-report.json")
    if options.matrix:
        command += f" --gtest_output=json:{report}"
    if not build(folder, options.suite, options.jobs):
        sys.exit(f"{options.suite} does not build unchanged")
    start = time.monotonic()
    if not run(command, None):
        sys.exit(f"{options.suite} fails unchanged")
    tests = (failing(report, everything=True) or []) if options.matrix else []
    matrix = []
    timeout = 5 * (time.monotonic() - start) + 10

    killed, built, survivors = 0, 0, []
    for site in chosen:
        path, number, old, new = site
        with open(path, encoding="utf-8") as f:
            original = f.read()
        lines = original.split("\n")
        lines[number - 1] = new
        try:
            with open(path, "w", encoding="utf-8") as f:
                f.write("\n".join(lines))
            if not build(folder, options.suite, options.jobs):
                print(f"does not build  {describe(site)}", flush=True)
                continue
            built += 1
            if options.matrix and os.path.exists(report):
                os.remove(report)
            caught = not run(command, timeout)
            killed += caught
            if options.matrix and caught:
                names = failing(report)
                if names is None:
                    # A crash or hang ends the program without a report, so
                    # the tests are run one by one to learn which kill it.
                    base = command.split(" --gtest_output")[0]
                    names = [t for t in tests if not run(f"{base} --gtest_filter={t}", timeout)]
                matrix.append({"fault": describe(site), "failing": names})
            print(f"{'killed  ' if caught else 'SURVIVED'}        {describe(site)}", flush=True)
            if not caught:
                survivors.append(site)
        finally:
            with open(path, "w", encoding="utf-8") as f:
                f.write(original)
    build(folder, options.suite, options.jobs)
    print(f"{options.suite}: killed {killed} of {built} faults that build "
          f"({len(chosen)} chosen, seed {options.seed}, from {len(candidates)} places)")
    if options.matrix:
        with open(options.matrix, "w", encoding="utf-8") as f:
            json.dump({"tests": tests, "killed": matrix}, f, indent=1)
        summarize(tests, matrix)
    return 0


def failing(report, everything=False):
    """The tests of a GoogleTest JSON report that failed (all of them with
    `everything`); None when the run left no report: it crashed or hung."""
    try:
        with open(report, encoding="utf-8") as f:
            suites = json.load(f)["testsuites"]
    except (OSError, ValueError, KeyError):
        return None
    return [f"{s['name']}.{t['name']}" for s in suites for t in s["testsuite"] if everything or "failures" in t]


def summarize(tests, matrix):
    """Per test, the faults it kills and those no other test kills."""
    kills = {t: 0 for t in tests}
    alone = {t: 0 for t in tests}
    for entry in matrix:
        names = entry["failing"] or []
        for name in names:
            kills[name] = kills.get(name, 0) + 1
        if len(names) == 1:
            alone[names[0]] = alone.get(names[0], 0) + 1
    unattributed = sum(1 for e in matrix if not e["failing"])
    print(f"\n{unattributed} killed only when the whole suite runs")
    for name in sorted(kills, key=lambda n: (alone.get(n, 0), kills[n])):
        print(f"{kills[name]:4} killed {alone.get(name, 0):4} alone  {name}")


if __name__ == "__main__":
    sys.exit(main())
