#!/usr/bin/env python3
"""Computes ratios of the figures collected by scripts/bench, and compares them with their limits.

    report.py [--short] RESULTS

Without --short, also writes docs/performance.md and its plot. The exit status is 1 if a limit is
exceeded.
"""

import argparse
import json
import os
import pathlib
import platform
import statistics
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
# The kernel sums the per-processor memory counters of a process in steps of 32 pages.
MEMORY_STEP = 128  # kilobytes
TOOLS = ["setpriv", "gosu", "s6-setuidgid", "runuser", "sudo"]


class Rounds:
    """Figures by name, one per round. The speed of a machine varies, so figures of the same round
    are compared, and the median of the ratios counts."""

    def __init__(self):
        self.values = {}

    def add(self, name, value):
        self.values.setdefault(name, []).append(value)

    def __contains__(self, name):
        return name in self.values

    def median(self, name):
        return statistics.median(self.values[name])

    def ratio(self, name, base):
        pairs = zip(self.values[name], self.values[base], strict=True)
        return statistics.median(value / other for value, other in pairs)


class Figures:
    def __init__(self, results):
        self.functions = benchmarks(results, "functions")
        self.allocations = benchmarks(results, "functions", "allocations")
        self.load = benchmarks(results, "load")
        self.launch = benchmarks(results, "launch")
        self.memory = memory(results / "memory.tsv")
        self.processes = processes(results, "processes")
        self.tool = processes(results, "tool")
        self.batch = processes(results, "batch")
        self.batch_cpu = processes(results, "batch", lambda run: run["user"] + run["system"])
        self.growth = processes(results, "growth")
        self.batch_memory = {
            name: int(kilobytes)
            for name, kilobytes in rows_of(results / "batch_memory.tsv")
        }
        self.sizes = sorted(int(name.split("/")[1]) for name in self.launch.values)


def benchmarks(results, program, figure="real_time"):
    """A run with repetitions is one round with their medians."""
    rounds = Rounds()
    for path in sorted(results.glob(f"{program}-*.json")):
        for run in json.loads(path.read_text())["benchmarks"]:
            if run.get("aggregate_name") == "median" or run["repetitions"] == 1:
                rounds.add(run["run_name"].removesuffix("/real_time"), run[figure])
    return rounds


def memory(path):
    peaks = {}
    for line in path.read_text().splitlines():
        tasks, loader, kilobytes = line.split("\t")
        peaks.setdefault(f"{loader}/{tasks}", []).append(int(kilobytes))
    return {name: statistics.median(values) for name, values in peaks.items()}


def processes(results, kind, seconds=lambda run: run["median"]):
    rounds = Rounds()
    for path in sorted(results.glob(f"{kind}-*.json")):
        for run in json.loads(path.read_text())["results"]:
            rounds.add(run["command"], seconds(run) * 1000)
    return rounds


def rows_of(path):
    return [line.split("\t") for line in path.read_text().splitlines()]


def batch_checks(figures):
    rows = []
    for at_a_time in (2, 8):
        names = f"run/{at_a_time}", f"xargs/{at_a_time}"
        what = f"{at_a_time} tasks at a time / `xargs`"
        rows.append((f"wall time of run, {what}", figures.batch.ratio(*names), 2.0, 3.0))
        rows.append((f"CPU time of run, {what}", figures.batch_cpu.ratio(*names), 2.0, 3.0))
    values = figures.growth.values
    cost = {
        job: statistics.median(
            all_tasks - one for all_tasks, one in zip(values[f"{job}/501"], values[f"{job}/1"], strict=True)
        )
        for job in ("few", "many")
    }
    rows.append(("a task of run, in a job of 100,000 / of 501", cost["many"] / cost["few"], 1.2, 1.6))
    more = (figures.batch_memory["run"] - figures.batch_memory["load"]) / 1024
    rows.append(("memory of run of 100,000 tasks above the load, MB", more, 20.0, 20.0))
    return rows


def checks(figures):
    """Rows of name, value, limit, and the limit that only a gross regression exceeds."""
    functions, load, launch, processes = (
        figures.functions, figures.load, figures.launch, figures.processes)
    rows = []
    for tasks in (1000, 100000, 1000000):
        if tasks not in figures.sizes:
            continue
        time_ratio = load.ratio(f"load/adapter/{tasks}", f"load/library/{tasks}")
        peak = figures.memory[f"adapter/{tasks}"] / figures.memory[f"library/{tasks}"]
        step = MEMORY_STEP / figures.memory[f"library/{tasks}"]
        rows.append((f"load of {tasks:,} tasks / library alone", time_ratio, 0.95, 1.15))
        if tasks >= 100000:
            rows.append((f"peak memory for {tasks:,} tasks / library alone", peak, 1.02 + step, 1.15 + step))
    most = figures.sizes[-1]
    growth = load.ratio(f"load/adapter/{most}", "load/adapter/1000") / (most / 1000)
    rows.append((f"load for each of {most:,} tasks / of 1,000", growth, 1.50, 1.80))
    for tasks, limit in ((10000, 1.1), (100000, 1.8)):
        if tasks in figures.sizes:
            ratio = launch.ratio(f"launch/{tasks}", "launch/10")
            rows.append((f"launch in a job of {tasks:,} tasks / of 10", ratio, limit, limit * 1.5))
    for what, limit, gross in (("GetInfo", 1.15, 1.40), ("task", 1.10, 1.30)):
        ratio = processes.ratio(f"{what}, adapter", f"{what}, bare")
        rows.append((f"process of a {what} / bare C program", ratio, limit, gross))
    for tool in TOOLS:
        if f"task, {tool}" in processes:
            ratio = processes.ratio("task, adapter", f"task, {tool}")
            rows.append((f"process of a task / {tool}", ratio, 1.0, 1.3))
    for verb in ("check", "expand"):
        ratio = figures.tool.ratio(verb, "load")
        rows.append((f"{verb} of 100,000 tasks / load by the adapter", ratio, 2.0, 2.6))
    rows += batch_checks(figures)
    fill_in = functions.ratio("fillIn", "fillInByPrintf")
    split = functions.ratio("split", "splitByStrtok")
    rows.append(("fill-in of ten placeholders / printf", fill_in, 4.0, 6.0))
    rows.append(("splitting 2,000 bytes / strtok", split, 0.8, 2.0))
    rows.append(("fill-in of ten placeholders, µs", functions.median("fillIn") / 1000, 1.0, None))
    rows.append(("splitting 2,000 bytes, µs", functions.median("split") / 1000, 2.0, None))
    rows.append(("allocations of a fill-in", figures.allocations.median("fillIn"), 1.0, 1.0))
    return rows


def judge(rows, short):
    """Prints the rows; returns whether all are within their limits."""
    good = True
    for what, value, limit, gross in rows:
        bound = gross if short else limit
        if bound is None:
            continue
        within = value <= bound
        good = good and within
        print(f"{'ok  ' if within else 'OVER'} {what:52} {value:6.3f}  limit {bound:.2f}")
    return good


def table(header, rows):
    lines = ["| " + " | ".join(header) + " |", "|---" * len(header) + "|"]
    lines += ["| " + " | ".join(row) + " |" for row in rows]
    return "\n".join(lines)


def limits_table(rows):
    return table(
        ["", "measured", "at most"],
        [[what, f"{value:.2f}", f"{limit:.2f}"] for what, value, limit, _ in rows],
    )


def sizes_table(figures):
    rows = []
    for tasks in figures.sizes:
        row = [f"{tasks:,}"]
        row += [f"{figures.load.median(f'load/{by}/{tasks}'):.4g}"
                for by in ("library", "libraryWithoutColumns", "adapter")]
        row += [f"{figures.load.ratio(f'load/adapter/{tasks}', f'load/library/{tasks}'):.2f}"]
        row += [f"{figures.memory[f'{by}/{tasks}'] / 1024:.1f}" for by in ("library", "adapter")]
        row += [f"{figures.launch.median(f'launch/{tasks}'):.0f}"]
        rows.append(row)
    return table(
        ["tasks", "library, ms", "the same without columns", "adapter, ms", "adapter / library",
         "library, MiB", "adapter, MiB", "one launch, µs"],
        rows,
    )


def processes_table(figures, what, names):
    rows = []
    for name, text in names:
        name = f"{what}, {name}"
        if name in figures.processes:
            ratio = figures.processes.ratio(name, f"{what}, bare")
            rows.append([text, f"{figures.processes.median(name):.3f}", f"{ratio:.2f}"])
    return ["", "ms", "/ bare"], rows


def page_faults(command):
    """Of the process: the minimum of a few runs."""
    faults = []
    for _ in range(9):
        null = os.open(os.devnull, os.O_WRONLY)
        child = os.posix_spawn(command[0], command, {}, file_actions=[(os.POSIX_SPAWN_DUP2, null, 1)])
        faults.append(os.wait4(child, 0)[2].ru_minflt)
        os.close(null)
    return min(faults)


def relocations(program):
    text = subprocess.run(["readelf", "-rW", program], capture_output=True, check=True, text=True).stdout
    return sum(line[:1] in "0123456789abcdef" for line in text.splitlines() if line)


def info_table(figures):
    """Including the start-up of each program before main."""
    header, rows = processes_table(figures, "GetInfo", VARIANTS)
    for row, (name, _) in zip(rows, VARIANTS):
        program = str(PROGRAM_FOLDER / PROGRAM_FILES.get(name, f"adapter_{name}"))
        command = [program] if name == "bare" else [program, "-o", "GetInfo"]
        row += [str(page_faults(command)), str(relocations(program))]
    return table(header + ["page faults", "relocations"], rows)


PROGRAM_FOLDER = ROOT / "build-bench" / "bin"
PROGRAM_FILES = {"bare": "bare_info", "adapter": "UserRunletAdapter"}

VARIANTS = [
    ("bare", "bare C program"),
    ("adapter", "**the adapter as released**"),
    ("shared", "libstdc++ and TinyXML not linked in"),
    ("lazy", "released, but relocated lazily"),
    ("writable_relocations", "the same, and relocations left writable"),
    ("fixed_addresses", "released, but at fixed addresses"),
    ("one_segment", "released, but code and constants in one segment"),
    ("packed_relocations", "released, but with packed relocations"),
    ("unprotected", "without any hardening"),
]

PROGRAMS = [("bare", "bare C program"), ("adapter", "**the adapter as released**")] + [
    (tool, f"`{tool}`") for tool in TOOLS + ["chpst"]] + [("sh", "`sh -c`")]


def functions_table(figures):
    rows = [
        ("fillIn", "fill-in, ten placeholders"),
        ("fillInByPrintf", "the same line by `snprintf`"),
        ("split", "splitting 2,000 bytes"),
        ("splitByStrtok", "at spaces only, by `strtok_r`"),
    ]
    return table(
        ["", "ns", "allocations"],
        [[text, f"{figures.functions.median(name):.0f}", f"{figures.allocations.median(name):.0f}"]
         for name, text in rows],
    )


def tool_table(figures):
    rows = [("load", "`UserRunletAdapter -o PingTask`"), ("check", "`runlet-job check`"),
            ("expand", "`runlet-job expand`"), ("json", "`runlet-job expand --json`")]
    return table(
        ["", "ms", "/ load"],
        [[text, f"{figures.tool.median(name):.0f}", f"{figures.tool.ratio(name, 'load'):.2f}"]
         for name, text in rows],
    )


def batch_table(figures):
    rows = []
    for at_a_time in (2, 8):
        for name in ("xargs", "run", "ninja", "parallel"):
            both = f"{name}/{at_a_time}", f"xargs/{at_a_time}"
            wall, cpu = figures.batch, figures.batch_cpu
            program = "`runlet-job run`" if name == "run" else f"`{name}`"
            rows.append([program, str(at_a_time), f"{wall.median(both[0]):.0f}", f"{wall.ratio(*both):.2f}",
                         f"{cpu.median(both[0]):.0f}", f"{cpu.ratio(*both):.2f}"])
    return table(["", "at a time", "ms", "/ `xargs`", "CPU ms", "/ `xargs`"], rows)


def instructions_table(path):
    rows = rows_of(path)
    return table(["", "instructions"], [[what, f"{int(count):,}"] for what, count in rows])


def machine():
    lines = pathlib.Path("/proc/cpuinfo").read_text().splitlines()
    models = [line.split(":")[1].strip() for line in lines if line.startswith("model name")]
    kernel = ".".join(platform.release().split("-")[0].split(".")[:2])
    system = platform.freedesktop_os_release()["PRETTY_NAME"]
    virtual = "virtual, " if any("hypervisor" in line for line in lines) else ""
    return f"{models[0]}, {virtual}{len(models)} processors, Linux {kernel}, {system}"


def write_page(figures, rows, results):
    template = (ROOT / "bench" / "performance.md.in").read_text()
    parts = {
        "DATE": time.strftime("%Y-%m-%d"),
        "MACHINE": machine(),
        "LIMITS": limits_table(rows),
        "SIZES": sizes_table(figures),
        "INFO": info_table(figures),
        "TASK": table(*processes_table(figures, "task", VARIANTS)),
        "PROGRAMS": table(*processes_table(figures, "task", PROGRAMS)),
        "FUNCTIONS": functions_table(figures),
        "TOOL": tool_table(figures),
        "BATCH": batch_table(figures),
        "INSTRUCTIONS": instructions_table(results / "instructions.tsv"),
    }
    for name, text in parts.items():
        template = template.replace(f"@{name}@", text)
    (ROOT / "docs" / "performance.md").write_text(template)


def write_plot(figures, results):
    with open(results / "sizes.tsv", "w") as file:
        for tasks in figures.sizes:
            values = [figures.load.median(f"load/{by}/{tasks}") for by in ("library", "adapter")]
            values += [figures.memory[f"{by}/{tasks}"] / 1024 for by in ("library", "adapter")]
            values += [figures.launch.median(f"launch/{tasks}")]
            file.write("\t".join(str(value) for value in [tasks, *values]) + "\n")
    plot = ROOT / "docs" / "performance.svg"
    subprocess.run(
        ["gnuplot", "-e", f"figures='{results / 'sizes.tsv'}'; plot='{plot}'",
         ROOT / "bench" / "performance.gp"],
        check=True,
    )


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--short", action="store_true")
    parser.add_argument("results", type=pathlib.Path)
    options = parser.parse_args()
    figures = Figures(options.results)
    rows = checks(figures)
    good = judge(rows, options.short)
    if not options.short:
        write_plot(figures, options.results)
        write_page(figures, rows, options.results)
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main())
