#!/usr/bin/env python3
"""Stores and presents the results of orv-benchmark.

report.py add RESULTS          adds lines of JSON from the standard input to the file RESULTS
report.py draw RESULTS DOCS    draws DOCS/benchmarks/*.svg and writes the tables of DOCS/benchmarks.md
"""

import json
import platform
import re
import subprocess
import sys
from html import escape
from pathlib import Path
from statistics import median

BLUE, ORANGE, GREY, INK = "#3465a4", "#d9730d", "#b8bec7", "#24292f"


# Results


def load(path):
    return json.loads(path.read_text()) if path.exists() else {"machine": {}, "measurements": []}


def first_line(*command):
    try:
        run = subprocess.run(command, capture_output=True, text=True, check=False)
    except FileNotFoundError:
        return "missing"
    return (run.stdout + run.stderr).splitlines()[0].strip()


def machine():
    cpu = re.search(r"model name\s*: (.*)", Path("/proc/cpuinfo").read_text())
    threads = Path("/proc/cpuinfo").read_text().count("processor\t")
    return {
        "processor": f"{cpu[1] if cpu else platform.machine()}, {threads} threads",
        "system": re.search(r'PRETTY_NAME="(.*)"', Path("/etc/os-release").read_text())[1],
        "Qt": first_line("qmake6", "-query", "QT_VERSION"),
        "compiler": first_line("c++", "--version"),
        "nginx": first_line("/usr/sbin/nginx", "-v").removeprefix("nginx version: "),
        "valgrind": first_line("valgrind", "--version"),
    }


def add(path):
    new = [json.loads(line) for line in sys.stdin]
    if not new:
        sys.exit("report.py: nothing was measured")
    results = load(path)
    names = {measurement["benchmark"] for measurement in new}
    results["machine"] = machine()
    results["measurements"] = [m for m in results["measurements"] if m["benchmark"] not in names] + new
    path.write_text(json.dumps(results, indent=1) + "\n")


def of(results, name):
    return [m for m in results["measurements"] if m["benchmark"] == name]


# Texts


def title(measurement):
    counted = measurement["unit"].startswith("instructions")
    return measurement["figure"] + (": instructions" if counted else "")



def number(value):
    if value >= 1000:
        return f"{value:,.0f}"
    return f"{value:.3g}"


def unit_and_scale(unit):
    """Converts nanoseconds to microseconds, which are easier to read."""
    return (unit.replace("ns ", "µs ", 1), 1e-3) if unit.startswith("ns per ") else (unit, 1)


def table(head, rows):
    lines = ["| " + " | ".join(head) + " |", "|" + "---|" * len(head)]
    return "\n".join(lines + ["| " + " | ".join(row) + " |" for row in rows])


def figures_table(results):
    rows = []
    for m in results["measurements"]:
        if "limit" not in m:
            continue
        unit, scale = unit_and_scale(m["unit"])
        last, first = m["series"][-1], m["series"][0]
        alone = len(m["series"]) == 1
        rows.append([
            title(m),
            "" if alone else f"{first['name']}: {number(first['median'] * scale)}",
            f"{last['name']}: {number(last['median'] * scale)} {unit}",
            number(m["measured"]) if alone else f"{m['measured']:.3f}",
            number(m["limit"]),
            "yes" if m["met"] else "**no**",
        ])
    return table(["figure", "baseline", "measured", "comes to", "at most", "met"], rows)


def clients_table(results):
    measurements = of(results, "clients") + of(results, "client-bodies")
    head, names = ["client"], {}
    for m in measurements:
        unit, scale = unit_and_scale(m["unit"])
        head.append(f"{m['figure']}, {unit}")
        for series in m["series"]:
            names.setdefault(series["name"].split(",")[0].split(" in a ")[0], []).append(
                number(series["median"] * scale))
    return table(head, [[name, *cells] for name, cells in names.items()])


def machine_table(results):
    return table(["what", "which"], [[key, value] for key, value in results["machine"].items()])


# Plots


class Plot:
    def __init__(self, width, height, title):
        self.parts = [
            f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" width="{width}" '
            f'height="{height}" font-family="DejaVu Sans, Arial, sans-serif" font-size="12" fill="{INK}">',
            f"<title>{escape(title)}</title>",
            f'<rect width="{width}" height="{height}" fill="#ffffff"/>',
        ]
        self.text(12, 22, title, size=14, weight="bold")

    def text(self, x, y, text, anchor="start", size=12, colour=INK, weight="normal"):
        self.parts.append(f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}" font-size="{size}" fill="{colour}" '
                          f'font-weight="{weight}">{escape(text)}</text>')

    def bar(self, x, y, width, height, colour):
        self.parts.append(f'<rect x="{x:.1f}" y="{y:.1f}" width="{max(width, 0):.1f}" height="{height}" fill="{colour}"/>')

    def dot(self, x, y, colour, radius=3.0):
        self.parts.append(f'<circle cx="{x:.1f}" cy="{y:.1f}" r="{radius}" fill="{colour}"/>')

    def line(self, points, colour, width=1.5):
        path = " ".join(f"{x:.1f},{y:.1f}" for x, y in points)
        self.parts.append(f'<polyline points="{path}" fill="none" stroke="{colour}" stroke-width="{width}"/>')

    def write(self, path):
        path.write_text("\n".join(self.parts + ["</svg>\n"]))


def draw_ratios(results, path):
    """Draws a row for each ratio: every round as a dot, the median as a bar, the limit as a line."""
    rows = [m for m in results["measurements"] if "limit" in m and len(m["series"]) > 1]
    left, width, row_height, top = 370, 420, 26, 62
    highest = max(max(m["limit"] for m in rows), max(m["measured"] for m in rows)) * 1.05
    plot = Plot(left + width + 90, top + row_height * len(rows) + 12, "In multiples of the baseline")
    plot.text(12, 42, "bar: median of the rounds; dots: rounds; orange line: the mark", colour="#57606a")
    at = lambda value: left + width * min(value, highest) / highest
    plot.line([(at(1), top - 8), (at(1), top + row_height * len(rows))], GREY)
    for i, m in enumerate(rows):
        y = top + i * row_height
        base, last = m["series"][0]["rounds"], m["series"][-1]["rounds"]
        plot.text(left - 8, y + 13, title(m), anchor="end")
        plot.bar(left, y + 3, at(m["measured"]) - left, 13, BLUE)
        for ratio in (b / a for a, b in zip(base, last)):
            plot.dot(at(ratio), y + 9.5, INK, 1.6)
        plot.line([(at(m["limit"]), y), (at(m["limit"]), y + 19)], ORANGE, 2.5)
        plot.text(left + width + 84, y + 13, f"{m['measured']:.3f} of {m['limit']:g}", anchor="end")
    plot.write(path)


def draw_queue(results, path):
    """Draws the cost of a task over the length of its queue, on a scale that starts at 0."""
    lengths, queued, bare = [], [], []
    for m in of(results, "queue"):
        if m["unit"] == "instructions per task" and "in a queue of" in m["figure"]:
            lengths.append(int(m["figure"].rsplit(" ", 1)[1]))
            bare.append(m["series"][0]["median"])
            queued.append(m["series"][1]["median"])
    if not lengths:
        return
    left, top, width, height = 70, 50, 420, 190
    plot = Plot(left + width + 170, top + height + 50, "Task that does nothing: instructions per task")
    highest = max(queued) * 1.2
    x = lambda i: left + width * (i + 0.5) / len(lengths)
    y = lambda value: top + height * (1 - value / highest)
    plot.line([(left, top), (left, top + height), (left + width, top + height)], GREY)
    for i, length in enumerate(lengths):
        plot.text(x(i), top + height + 18, f"{length:,}", anchor="middle")
    plot.text(left + width / 2, top + height + 38, "tasks in the queue", anchor="middle", colour="#57606a")
    for values, colour, name in ((queued, BLUE, "TasksQueue"), (bare, ORANGE, "QTimer::singleShot(0)")):
        plot.line([(x(i), y(v)) for i, v in enumerate(values)], colour, 2)
        for i, value in enumerate(values):
            plot.dot(x(i), y(value), colour)
            plot.text(x(i), y(value) - 8, number(value), anchor="middle", size=11)
        plot.text(left + width + 8, y(values[-1]) + 4, name, colour=colour)
    plot.text(left - 6, top + height + 4, "0", anchor="end")
    plot.write(path)


def draw_clients(results, path):
    measurements = of(results, "clients") + of(results, "client-bodies")
    if not measurements:
        return
    left, width, bar_height = 330, 320, 16
    rows = sum(len(m["series"]) for m in measurements)
    plot = Plot(left + width + 110, 44 + rows * (bar_height + 5) + len(measurements) * 30, "The same with other clients")
    y = 52
    for m in measurements:
        unit, scale = unit_and_scale(m["unit"])
        plot.text(12, y + 4, f"{m['figure']}, {unit}", weight="bold")
        y += 12
        highest = max(series["median"] for series in m["series"])
        for series in m["series"]:
            colour = BLUE if series["name"].startswith("NetworkTask") else GREY
            plot.text(left - 8, y + 12, series["name"].replace(", a thread for each request at a time", ", threads"),
                      anchor="end")
            plot.bar(left, y, width * series["median"] / highest, bar_height, colour)
            plot.text(left + width * series["median"] / highest + 6, y + 12, number(series["median"] * scale), size=11)
            y += bar_height + 5
        y += 18
    plot.write(path)


def draw_growth(results, path):
    memory = next((m for m in of(results, "growth") if m["unit"] == "bytes"), None)
    if not memory:
        return
    values = [value / 1024 for series in memory["series"] for value in series["rounds"]]
    left, top, width, height = 70, 50, 480, 150
    plot = Plot(left + width + 40, top + height + 50, "Memory in use while tasks come and go, KB")
    highest = max(values) * 1.25
    points = [(left + width * (i + 0.5) / len(values), top + height * (1 - v / highest)) for i, v in enumerate(values)]
    plot.line([(left, top), (left, top + height), (left + width, top + height)], GREY)
    plot.line(points, BLUE, 2)
    for point in points:
        plot.dot(*point, BLUE)
    plot.text(left - 6, top + height + 4, "0", anchor="end")
    plot.text(left - 6, points[0][1] + 4, number(median(values)), anchor="end")
    plot.text(left + width / 2, top + height + 30, "time: a dot for each tenth of the count", anchor="middle",
              colour="#57606a")
    plot.write(path)


def draw(path, docs):
    results = load(path)
    for name, function in (("ratios", draw_ratios), ("queue", draw_queue), ("clients", draw_clients),
                           ("growth", draw_growth)):
        function(results, docs / "benchmarks" / f"{name}.svg")
    page = docs / "benchmarks.md"
    text = page.read_text()
    for name, content in (("figures", figures_table(results)), ("clients", clients_table(results)),
                          ("machine", machine_table(results))):
        begin, end = f"<!-- {name}: written by tools/benchmark -->\n", f"<!-- end of {name} -->"
        before, rest = text.split(begin)
        text = before + begin + content + "\n" + end + rest.split(end, 1)[1]
    page.write_text(text)


def main():
    match sys.argv[1:]:
        case ["add", results]:
            add(Path(results))
        case ["draw", results, docs]:
            draw(Path(results), Path(docs))
        case _:
            sys.exit(__doc__)


if __name__ == "__main__":
    main()
