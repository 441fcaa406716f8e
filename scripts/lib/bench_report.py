"""Turns the benchmarks' results into a table of ratios.

usage: bench_report.py GOALS MEMORY [--markdown FILE] RESULTS...

GOALS is bench/goals.tsv, RESULTS are the JSON files of kvbench, MEMORY is the JSON of kvmemory. With --markdown, the table
between the two marker lines of FILE is replaced.
"""

import argparse
import json
import re
import statistics
import sys

NOISY = 0.15
BEGIN = "<!-- the table below is written by scripts/bench --markdown -->"
END = "<!-- end of the table -->"


def read_goals(path):
    goals = []
    with open(path, encoding="utf-8") as lines:
        for line in lines:
            if line.strip() and not line.startswith("#"):
                pattern, goal = line.rstrip("\n").split("\t")
                goals.append((re.compile(pattern), None if goal == "-" else float(goal)))
    return goals


def goal_of(job, goals):
    return next((goal for pattern, goal in goals if pattern.fullmatch(job)), None)


def order_of(job, goals):
    """That of the goals, so that two runs print alike."""
    return next((i for i, (pattern, _) in enumerate(goals) if pattern.fullmatch(job)), len(goals)), job


def read_times(paths):
    """Job name to contestant to the times of its repetitions: CPU time, or the wall clock's where the job says so."""
    jobs = {}
    for path in paths:
        with open(path, encoding="utf-8") as file:
            for run in json.load(file)["benchmarks"]:
                if run.get("run_type") == "aggregate":
                    continue
                if run.get("error_occurred"):
                    sys.exit(f"{run['name']}: {run['error_message']}")
                name, clock = re.subn(r"/(real|manual)_time\b", "", run["run_name"])
                job, contestant = re.sub(r"/(repeats|iterations):\d+", "", name).rsplit("/", 1)
                scale = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}[run["time_unit"]]
                jobs.setdefault(job, {}).setdefault(contestant, []).append(run["real_time" if clock else "cpu_time"] * scale)
    return jobs


def spread(times):
    """The middle half of the repetitions against their median: a single outlier does not count."""
    if len(times) < 4:
        return (max(times) - min(times)) / statistics.median(times)
    low, _, high = statistics.quantiles(times, n=4)
    return (high - low) / statistics.median(times)


def rows_of(jobs, goals):
    for job, contestants in sorted(jobs.items(), key=lambda item: order_of(item[0], goals)):
        if "ours" not in contestants:
            sys.exit(f"{job}: no result of ours")
        ours = statistics.median(contestants["ours"])
        peers = {name: statistics.median(times) for name, times in contestants.items() if name != "ours"}
        goal = goal_of(job, goals)
        noise = max(spread(times) for times in contestants.values())
        fastest = min(peers, key=peers.get) if peers else None
        for name, time in sorted(peers.items(), key=lambda peer: peer[1]):
            ratio = time / ours
            if name != fastest or goal is None:
                verdict = "reported"
            else:
                verdict = "met" if ratio >= goal else "NOT MET"
            shown = f"{goal:g}" if name == fastest and goal is not None else "-"
            yield [job, name, f"{ratio:.2f}", shown, verdict, f"{noise:.0%}"]


def memory_rows_of(path):
    with open(path, encoding="utf-8") as file:
        for row in json.load(file):
            verdict = "met" if row["value"] <= row["at_most"] else "NOT MET"
            yield [row["job"], f"{row['value']:.2f} {row['unit']}", f"at most {row['at_most']:g}", verdict]


def print_plain(header, rows):
    widths = [max(len(cell) for cell in column) for column in zip(header, *rows)]
    for cells in [header, *rows]:
        print("  ".join(cell.ljust(width) for cell, width in zip(cells, widths)).rstrip())


def markdown(header, rows):
    lines = [header, ["---"] * len(header), *rows]
    return "\n".join("| " + " | ".join(cells) + " |" for cells in lines)


def replace_table(path, text):
    with open(path, encoding="utf-8") as file:
        before, _, rest = file.read().partition(BEGIN)
    _, found, after = rest.partition(END)
    if not found:
        sys.exit(f"{path}: the marker lines of the table are missing")
    with open(path, "w", encoding="utf-8") as file:
        file.write(f"{before}{BEGIN}\n\n{text}\n\n{END}{after}")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("goals")
    parser.add_argument("memory")
    parser.add_argument("results", nargs="+")
    parser.add_argument("--markdown", metavar="FILE")
    arguments = parser.parse_args()

    goals = read_goals(arguments.goals)
    header = ["job", "beside", "ratio", "at least", "", "spread"]
    rows = list(rows_of(read_times(arguments.results), goals))
    memory_header = ["memory", "measured", "goal", ""]
    memory_rows = list(memory_rows_of(arguments.memory))

    print_plain(header, rows)
    print()
    print_plain(memory_header, memory_rows)
    noisy = [row[0] for row in rows if float(row[5].rstrip("%")) / 100 > NOISY]
    if noisy:
        print(f"\nThe repetitions of {len(set(noisy))} jobs differ by more than {NOISY:.0%}: something else is running, "
              "or the clock frequency changes. Run again on a quiet machine before you trust those rows.")
    missed = [row for row in rows + memory_rows if "NOT MET" in row]
    print(f"\n{len(rows) + len(memory_rows) - len(missed)} rows met or reported, {len(missed)} not met.")
    if arguments.markdown:
        replace_table(
            arguments.markdown, markdown(header, rows) + "\n\n" + markdown(memory_header, memory_rows))
        print(f"The table in {arguments.markdown} is up to date.")


main()
