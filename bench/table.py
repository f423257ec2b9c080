"""Runs the benchmarks, pairs the contestants of each case and prints one table (see scripts/bench)."""

import argparse
import json
import os
import re
import statistics
import subprocess
import sys
import tempfile

# What is compared, in the order of the table: the case, the unit, ours and the contestant it is held against, the
# figure that is read (a time, or a counter of the benchmark), and the most that ours may be as a multiple of the
# other; None where nothing is asked. A rate is turned round, so that less is better in every row.
ROWS = [
    ("wire: Heartbeat", "ns", "wire/heartbeat/ours", "wire/heartbeat/protozero", "cpu", 1.0),
    ("wire: Heartbeat", "ns", "wire/heartbeat/ours", "wire/heartbeat/protobuf-reused", "cpu", None),
    ("wire: Heartbeat", "ns", "wire/heartbeat/ours", "wire/heartbeat/protobuf-lite-reused", "cpu", None),
    ("wire: Heartbeat", "ns", "wire/heartbeat/ours", "wire/heartbeat/nanopb", "cpu", None),
    ("wire: Heartbeat", "ns", "wire/heartbeat/ours", "wire/heartbeat/memcpy", "cpu", None),
    ("wire: CounterMetric", "ns", "wire/counter/ours", "wire/counter/protozero", "cpu", 1.1),
    ("wire: CounterMetric", "ns", "wire/counter/ours", "wire/counter/protobuf-reused", "cpu", None),
    ("wire: CounterMetric", "ns", "wire/counter/ours", "wire/counter/protobuf-lite-reused", "cpu", None),
    ("wire: CounterMetric", "ns", "wire/counter/ours", "wire/counter/nanopb", "cpu", None),
    ("wire: CounterMetric", "ns", "wire/counter/ours", "wire/counter/memcpy", "cpu", None),
    ("wire: batch of 1000", "ns", "wire/batch-1000/ours", "wire/batch-1000/protozero", "cpu", 0.5),
    ("wire: batch of 1000", "ns", "wire/batch-1000/ours", "wire/batch-1000/protobuf-reused", "cpu", None),
    ("wire: batch of 1000", "ns", "wire/batch-1000/ours", "wire/batch-1000/nanopb", "cpu", None),
    ("wire: text of 64 KB", "ns", "wire/text-64k/ours", "wire/text-64k/protozero", "cpu", None),
    ("wire: text of 64 KB", "ns", "wire/text-64k/ours", "wire/text-64k/memcpy", "cpu", None),
    ("wire: at the ceiling", "ns", "wire/ceiling/ours", "wire/ceiling/protozero", "cpu", None),
    ("wire: at the ceiling", "ns", "wire/ceiling/ours", "wire/ceiling/memcpy", "cpu", None),
    ("push: caller, burst, p50", "ns", "push/caller-burst/ours", 250, "p50_ns", 1.0),
    ("push: caller, burst, p99", "ns", "push/caller-burst/ours", None, "p99_ns", None),
    ("push: caller, paced, p50", "ns", "push/caller-paced/ours", None, "p50_ns", None),
    ("push: caller, paced, p99", "ns", "push/caller-paced/ours", None, "p99_ns", None),
    ("push: caller, 8 threads, p50", "ns", "push/caller-8-threads/ours", None, "p50_ns", None),
    ("push: caller, 8 threads, p99", "ns", "push/caller-8-threads/ours", None, "p99_ns", None),
] + [
    (f"push: event on disk, {n} in the list", "us/event", f"push/persisted-{n}/ours", "push/persisted-10/sqlite",
     "events_per_second", 0.2 if n <= 10 else None)
    for n in (1, 10, 100, 1000, 20000)
] + [
    (f"push: burst of {n}, {how}", "us/event", f"push/burst-{n}/{how}", f"push/burst-{n}/{peer}",
     "events_per_second", most)
    for n in (10000, 100000) for how in ("undecided", "sent")
    for peer, most in (("sqlite-each", 0.15), ("sqlite-one", 1.5))
] + [
    ("push: one by one", "us/event", "push/one-by-one/ours", "push/one-by-one/sqlite", "events_per_second", 2.0),
    ("push: processor time, 8000 deferred", "us/event", "push/deferred-8000/cpu", "push/deferred-0/cpu",
     "events_per_second", 10.0),
] + [
    (f"archive: encode {n}", "ns", f"archive/encode-{n}/ours", f"archive/encode-{n}/libplist", "cpu", 0.1)
    for n in (10, 100, 1000, 20000)
] + [
    (f"archive: decode {n}", "ns", f"archive/decode-{n}/ours", f"archive/decode-{n}/libplist", "cpu", None)
    for n in (10, 100, 1000, 20000)
] + [
    (f"archive: one change of {n}", "ns", f"archive/rewrite-{n}/ours", f"archive/rewrite-{n}/exchange", "cpu", 1.3)
    for n in (10, 100, 1000, 20000)
] + [
    ("file: replace 1 KB", "ns", "file/1k/ours", "file/1k/exchange", "cpu", 1.3),
    ("file: replace 1 KB", "ns", "file/1k/ours", "file/1k/rename", "real", None),
    ("file: replace 100 KB", "ns", "file/100k/ours", "file/100k/exchange", "cpu", 1.3),
    ("file: replace 100 KB", "ns", "file/100k/ours", "file/100k/rename", "real", None),
    ("file: replace 1 KB, flushed", "ns", "file/1k/ours-flushed", "file/1k/rename-flushed", "real", None),
    ("file: replace 100 KB, flushed", "ns", "file/100k/ours-flushed", "file/100k/rename-flushed", "real", None),
    ("token", "ns", "token/whole/ours", "token/whole/naive", "cpu", 0.5),
    ("token", "ns", "token/whole/ours", "token/whole/limit", "cpu", None),
    ("base64: 1 KB", "ns", "base64/encode-1k/ours", "base64/encode-1k/openssl", "cpu", None),
    ("hex: 1 KB", "ns", "hex/encode-1k/ours", "hex/encode-1k/openssl", "cpu", None),
    ("url: query of two", "ns", "url/query/ours", "url/query/libcurl", "cpu", None),
    ("send: one by one", "us/event", "send/one-by-one/ours", "send/one-by-one/curl-reused", "events_per_second", 1.11),
    ("send: one by one", "us/event", "send/one-by-one/ours", "send/one-by-one/curl-fresh", "events_per_second", None),
    ("send: in tens", "us/event", "send/tens/ours", "send/one-by-one/curl-reused", "events_per_second", 1.11),
    ("start: first heartbeat on the wire", "us", "start/first-heartbeat/ours", "start/first-heartbeat/curl", "real", None),
]

START_ROWS = [
    ("start: first sharedInstance", "us", "setup_us", 300),
    ("start: first push", "us", "first_push_us", None),
    ("start: threads before the first push", "", "threads_after_setup", 1),
    ("start: threads, most (the host's included)", "", "threads_most", 4),
    ("start: memory, idle", "KB", "rss_idle_growth_kb", 1365),
    ("start: memory, after 10,000 events", "KB", "rss_growth_kb", None),
]


def pinned(core):
    """The command in front of a benchmark: one core for everything that is compared."""
    return ["taskset", "-c", str(core)]


def run_benchmarks(build, program, core, pattern, repetitions):
    """Every repetition of every benchmark, by name."""
    command = pinned(core) + [
        f"{build}/bench/{program}",
        "--benchmark_format=json",
        "--benchmark_min_time=0.05",
        f"--benchmark_repetitions={repetitions}",
        "--benchmark_enable_random_interleaving=true",
        f"--benchmark_filter={pattern}",
    ]
    with tempfile.TemporaryDirectory(dir=build) as directory:
        output = subprocess.run(command, cwd=directory, check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    if not output.stdout.strip():
        return {}
    runs = {}
    for run in json.loads(output.stdout)["benchmarks"]:
        if run["run_type"] != "iteration":
            continue
        runs.setdefault(re.sub(r"/(iterations|manual_time|real_time|threads).*", "", run["name"]), []).append(run)
    return runs


def figures(runs, figure, unit):
    """One number for each repetition; less is better."""
    scale = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}
    values = []
    for run in runs:
        if figure in ("cpu", "real"):
            nanos = run[f"{figure}_time"] * scale[run["time_unit"]]
            values.append(nanos / 1e3 if unit == "us" else nanos)
        elif figure == "events_per_second":
            values.append(1e6 / run[figure])
        else:
            values.append(run[figure])
    return values


def run_start_probe(build, core, repetitions, events):
    """The same process again and again, each time below a new home directory."""
    results = {}
    for _ in range(repetitions):
        with tempfile.TemporaryDirectory(dir=build) as home:
            environment = {"HOME": home, "PATH": os.environ["PATH"], "https_proxy": "http://127.0.0.1:9"}
            output = subprocess.run(pinned(core) + [f"{build}/bench/qlsdk_bench_start", "probe", str(events)],
                                    check=True, stdout=subprocess.PIPE, env=environment)
        result = json.loads(output.stdout)
        result["rss_idle_growth_kb"] = result["rss_idle_kb"] - result["rss_before_kb"]
        result["rss_growth_kb"] = result["rss_after_kb"] - result["rss_before_kb"]
        for name, value in result.items():
            results.setdefault(name, []).append(value)
    return results


def library_facts(build):
    """Size, exports and needed libraries of the stripped shared library, for speed and for size."""
    facts = []
    for name, preset, options in (("-O2", "release", ["-DBUILD_SHARED_LIBS=ON", "-DQLSDK_BUILD_BENCHMARKS=OFF"]),
                                  ("-Os", "small", [])):
        tree = f"{build}/{preset}-library"
        subprocess.run(["cmake", "--preset", preset, "-B", tree, "--log-level=WARNING"] + options, check=True,
                       stdout=subprocess.DEVNULL)
        subprocess.run(["cmake", "--build", tree, "--target", "QLSDKCoreKit"], check=True, stdout=subprocess.DEVNULL)
        library = os.path.realpath(f"{tree}/QLSDKCoreKit/libqlsdkcorekit.so")
        stripped = f"{tree}/stripped.so"
        subprocess.run(["strip", "-o", stripped, library], check=True)
        symbols = subprocess.run(["nm", "-D", "--defined-only", stripped], check=True, stdout=subprocess.PIPE, text=True)
        dynamic = subprocess.run(["readelf", "-d", stripped], check=True, stdout=subprocess.PIPE, text=True)
        facts.append({"flags": name, "bytes": os.path.getsize(stripped), "exports": len(symbols.stdout.splitlines()),
                      "needed": re.findall(r"NEEDED.*\[(.*)\]", dynamic.stdout)})
    return facts


def number(value):
    return f"{value:,.0f}" if value >= 100 else f"{value:.3g}"


def spread(values):
    """Half the distance between the quartiles, as a share of the median."""
    if len(values) < 4:
        return 0.0
    low, middle, high = statistics.quantiles(values, n=4)
    return (high - low) / 2 / middle if middle else 0.0


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", required=True)
    parser.add_argument("--json")
    parser.add_argument("--filter", default=".")
    parser.add_argument("--repetitions", type=int, default=9)
    parser.add_argument("--core", type=int, default=max(os.sched_getaffinity(0)))
    arguments = parser.parse_args()
    arguments.build = os.path.abspath(arguments.build)

    runs = {}
    for program in ("qlsdk_bench", "qlsdk_bench_send"):
        runs.update(run_benchmarks(arguments.build, program, arguments.core, arguments.filter, arguments.repetitions))

    table = []
    for case, unit, ours, other, figure, goal in ROWS:
        if ours not in runs or (isinstance(other, str) and other not in runs):
            continue
        mine = figures(runs[ours], figure, unit)
        theirs = figures(runs[other], figure, unit) if isinstance(other, str) else [other] if other else []
        median = statistics.median(mine)
        peer = statistics.median(theirs) if theirs else None
        table.append({"case": case, "unit": unit, "ours": median, "spread": spread(mine),
                      "against": other.split("/")[-1] if isinstance(other, str) else "goal" if other else "",
                      "peer": peer, "ratio": median / peer if peer else None, "goal": goal})
    facts = []
    if arguments.filter == "." or "start" in arguments.filter:
        start = run_start_probe(arguments.build, arguments.core, arguments.repetitions, 10000)
        for case, unit, name, goal in START_ROWS:
            median = statistics.median(start[name])
            table.append({"case": case, "unit": unit, "ours": median, "spread": spread(start[name]),
                          "against": "goal" if goal else "", "peer": goal, "ratio": median / goal if goal else None,
                          "goal": 1.0 if goal else None})
        facts = library_facts(arguments.build)
        for fact in facts:
            limit = 300 * 1024 if fact["flags"] == "-Os" else None
            table.append({"case": f"size: stripped shared library, {fact['flags']}", "unit": "bytes", "ours": fact["bytes"],
                          "spread": 0.0, "against": "goal" if limit else "", "peer": limit,
                          "ratio": fact["bytes"] / limit if limit else None, "goal": 1.0 if limit else None})

    print(f"| {'case':43} | {'ours':>10} | {'±':>5} | {'against':>19} | {'theirs':>10} | {'unit':8} | {'ratio':>6} | {'goal':>6} | met |")
    print(f"|{'-' * 45}|{'-' * 11}:|{'-' * 6}:|{'-' * 20}:|{'-' * 11}:|{'-' * 10}|{'-' * 7}:|{'-' * 7}:|-----|")
    for row in table:
        met = "" if row["goal"] is None or row["ratio"] is None else "yes" if row["ratio"] <= row["goal"] else "no"
        peer = number(row["peer"]) if row["peer"] else ""
        ratio = f"{row['ratio']:.2f}" if row["ratio"] else ""
        goal = f"{row['goal']:.2f}" if row["goal"] else ""
        print(f"| {row['case']:43} | {number(row['ours']):>10} | {100 * row['spread']:4.0f}% | {row['against']:>19} | {peer:>10} "
              f"| {row['unit']:8} | {ratio:>6} | {goal:>6} | {met:3} |")
    for fact in facts:
        print(f"\n{fact['flags']}: {fact['exports']} exported symbols; needs {', '.join(fact['needed'])}")
    if arguments.json:
        with open(arguments.json, "w", encoding="utf-8") as file:
            json.dump({"table": table, "libraries": facts, "runs": runs}, file, indent=1)
    return 0


if __name__ == "__main__":
    sys.exit(main())
