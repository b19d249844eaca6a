#!/usr/bin/env python3
"""Measures how far the receivers hear and writes hearing.md with its pictures, hearing_*.svg.

    bench/hearing/report.py                                  after `cmake --build build/bench`; `make hearing` does both
    bench/hearing/report.py --quick --build DIR --output DIR one short round, to see that everything runs

Takes some hours with its own figures: fewer trials with --trials, --table, --superset and --hours. What is done is kept
below the build, so that an interrupted run goes on where it was. Draws are those for reporting, which no setting
was tuned on. Python's standard library only.
"""
import argparse
import collections
import datetime
import hashlib
import html
import json
import os
import pathlib
import statistics
import subprocess
import sys

SOURCE = pathlib.Path(__file__).resolve().parent.parent.parent
COLOURS = {"classic": "#b8bec4", "deep/4": "#1b6ca8", "deep/0": "#d98e04"}
NAMES = {"classic": "classic", "deep/4": "deep, prefix of 4", "deep/0": "deep, no prefix"}
COLUMNS, WIDTH, HEIGHT, LEFT, RIGHT, TOP, BOTTOM = 3, 330, 200, 44, 12, 34, 34


def hearing(build, *arguments, may_miss=False):
    """What the program printed, now or in an earlier run of this very program with these arguments. Status 1 tells of a
    miss, which is a result. CURVES among the arguments stands for a file, whose content is returned instead."""
    program = build / "bench/hearing/hearing"
    kept = build / "hearing_kept" / hashlib.sha256(program.read_bytes() + repr(arguments).encode()).hexdigest()[:16]
    if kept.exists():
        return kept.read_text()
    kept.parent.mkdir(exist_ok=True)
    curves = kept.with_suffix(".json")
    command = [str(program), *(str(curves) if argument == "CURVES" else argument for argument in arguments)]
    done = subprocess.run(command, stdout=subprocess.PIPE, text=True)
    if done.returncode not in ((0, 1) if may_miss else (0,)):
        sys.exit(f"hearing {' '.join(arguments)}: status {done.returncode}")
    print(f"hearing {' '.join(arguments)}\n{done.stdout}", file=sys.stderr, flush=True) # what is done so far
    curves.replace(kept) if "CURVES" in arguments else kept.write_text(done.stdout)
    return kept.read_text()


def families(records):
    """Group -> family -> receiver -> its records by value."""
    groups = collections.defaultdict(lambda: collections.defaultdict(lambda: collections.defaultdict(list)))
    for record in records:
        groups[record["group"]][record["family"]][record["receiver"]].append(record)
    for group in groups.values():
        for family in group.values():
            for points in family.values():
                points.sort(key=lambda record: record["value"])
    return groups


def panel(receivers, left, top):
    """One family: a curve for each receiver with its intervals, over evenly spaced values."""
    first = next(iter(receivers.values()))
    values = [record["value"] for record in first]
    step = (WIDTH - LEFT - RIGHT) / max(1, len(values) - 1)

    def x(value):
        return left + LEFT + values.index(value) * step

    def y(share):
        return top + TOP + (1 - share) * (HEIGHT - TOP - BOTTOM)

    meaning = first[0]["meaning"] + (f" [{first[0]['unit']}]" if first[0]["unit"] else "")
    size = 11 if len(meaning) < 52 else 11 * 52 / len(meaning)
    svg = [f'<text x="{left + 6}" y="{top + 18}" font-size="{size:.1f}">{html.escape(meaning)}</text>']
    for percent in (0, 50, 100):
        height = y(percent / 100)
        svg.append(f'<path d="M{left + LEFT} {height:.1f}H{left + WIDTH - RIGHT}" stroke="#ddd"/>'
                   f'<text x="{left + LEFT - 6}" y="{height + 4:.1f}" text-anchor="end">{percent} %</text>')
    for i, value in enumerate(values):
        if len(values) < 10 or i % 2 == 0:
            svg.append(f'<text x="{x(value):.1f}" y="{top + HEIGHT - BOTTOM + 15}" text-anchor="middle">{value:g}</text>')
    for name, records in receivers.items():
        bars = "".join(f'M{x(r["value"]):.1f} {y(r["low"]):.1f}V{y(r["high"]):.1f}' for r in records)
        line = " ".join(f'{x(r["value"]):.1f},{y(r["delivered"] / r["trials"]):.1f}' for r in records)
        svg.append(f'<path d="{bars}" stroke="{COLOURS[name]}" stroke-width="1" opacity="0.6"/>'
                   f'<polyline points="{line}" fill="none" stroke="{COLOURS[name]}" stroke-width="2"/>')
    return svg


def picture(group):
    rows = -(-len(group) // COLUMNS)
    svg = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {COLUMNS * WIDTH} {rows * HEIGHT + 24}" '
           'font-family="sans-serif" font-size="10">',
           f'<rect width="{COLUMNS * WIDTH}" height="{rows * HEIGHT + 24}" fill="white"/>']
    for i, (name, text) in enumerate(NAMES.items()):
        svg.append(f'<rect x="{LEFT + 160 * i}" y="8" width="14" height="4" fill="{COLOURS[name]}"/>'
                   f'<text x="{LEFT + 160 * i + 20}" y="14">{text}</text>')
    for i, receivers in enumerate(group.values()):
        svg += panel(receivers, i % COLUMNS * WIDTH, i // COLUMNS * HEIGHT + 24)
    return "\n".join(svg + ["</svg>\n"])


def delays(records):
    """Median and worst over all points, by receiver."""
    for name, text in NAMES.items():
        all_s = [delay for record in records if record["receiver"] == name for delay in record["delays"]]
        if all_s:
            yield f"| {text} | {1000 * statistics.median(all_s):.0f} ms | {1000 * max(all_s):.0f} ms | {len(all_s)} |"


def page(parts, records, groups, plan):
    wrong = sum(record["wrong"] for record in records)
    lines = ["# Hearing", "",
             "Made by `make hearing` (bench/hearing/report.py): all figures are of one build of the program, in one or several",
             f"sittings, and nothing is written by hand. {datetime.date.today()}, {os.cpu_count()} processors; {plan.trials}",
             "trials a point of the curves; draws that no setting was tuned on.", "",
             "All receivers hear the same simulated air (bench/hearing). The signal-to-noise ratio is the power of both tones",
             "together, as they arrive, over that of the noise from 18.0 to 19.5 kHz. The classic receiver hears through its",
             "real path, conversion to 96 kHz and 16 bits; the deep one at the microphone's rate.", "",
             "## What is to be reached", "", parts["table"].strip(), "", "## Curves", "",
             "Share of texts delivered, with 95 % intervals (Wilson). Values are evenly spaced, whatever lies between.", ""]
    lines += [line for group in groups for line in (f"![{group}](hearing_{group}.svg)", "")]
    lines += [f"Wrong texts in all of these: {wrong}.", "",
              "From a transmission's end to the end of the 100 ms block that brought its text:", "",
              "| receiver | median | worst | texts |", "|---|---|---|---|", *delays(records), ""]
    for title, name in (("Classic delivers, deep misses", "superset"), ("Sound without a text", "false"), ("Cost", "cost")):
        lines += [f"## {title}", "", "```", parts[name].strip(), "```", ""]
    return "\n".join(lines)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=pathlib.Path, default=SOURCE / "build/bench")
    parser.add_argument("--output", type=pathlib.Path, default=SOURCE / "docs")
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--trials", type=int, default=200, help="a point of the curves")
    parser.add_argument("--table", type=int, default=200, help="transmissions a row of what is to be reached")
    parser.add_argument("--superset", type=int, default=10000, help="transmissions over all channels")
    parser.add_argument("--hours", type=float, default=1.0, help="of each sound without a text")
    plan = parser.parse_args()
    if plan.quick:
        plan.trials, plan.table, plan.superset, plan.hours = 1, 1, 1, 0.003

    common = ["--draws", "reporting", "--jobs", str(os.cpu_count())]
    parts = {"superset": hearing(plan.build, "--superset", str(plan.superset), *common, may_miss=True)}
    which = ["--point", "white", "--point", "opus:128"] if plan.quick else ["--curves"]
    records = json.loads(hearing(plan.build, *which, *common, "--trials", str(plan.trials), "--output", "CURVES"))
    table = hearing(plan.build, "--table", *common, "--trials", str(plan.table), may_miss=True)
    parts["table"] = table[table.index("| channel"):]
    parts["false"] = hearing(plan.build, "--false-texts", str(plan.hours), *common, may_miss=True)
    parts["cost"] = hearing(plan.build, "--cost")

    groups = families(records)
    for name, group in groups.items():
        (plan.output / f"hearing_{name}.svg").write_text(picture(group))
    (plan.output / "hearing.md").write_text(page(parts, records, groups, plan))


if __name__ == "__main__":
    main()
