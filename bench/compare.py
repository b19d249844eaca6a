#!/usr/bin/env python3
"""Measures the library and the command beside plain forms and other programs, all in one run.

    bench/compare.py                                  after `cmake --build build/bench`; `make bench` does both
    bench/compare.py --quick --build DIR --output DIR one short round, to see that everything runs

Writes performance.md and performance.svg. Everything runs once in each round, one after another, so that a busy
machine slows all alike; a ratio is taken within its round. Python's standard library only.
"""
import argparse
import collections
import datetime
import html
import json
import math
import os
import pathlib
import re
import resource
import shutil
import signal
import statistics
import subprocess
import sys
import tempfile
import time

SOURCE = pathlib.Path(__file__).resolve().parent.parent
TEXT = "acme_1234"
PERIOD_s, TEXT_s = 10, 3.264
FRAME_ms = 1024 / 48
STARTS = 20
AT_48_kHz, AT_44_kHz, IDLE = (f"ListeningToFloats/{x}" for x in ("48000/5120/1", "44100/4410/1", "48000/5120/0"))
BOTH, ALONE = "plain sum and transform, no vote", "plain transform, no vote"

# What is shown, the benchmark it comes from, its baseline's benchmark, and what the baseline is.
LIBRARY = [
    ("Listening at 96 kHz, 16 bits, 100 ms blocks", "Listening", "PlainListening/96000", BOTH),
    ("Listening at 48 kHz, floats, 107 ms blocks", AT_48_kHz, "PlainListening/48000", ALONE),
    ("Listening at 44.1 kHz, floats, 100 ms blocks", AT_44_kHz, "PlainListening/44100", BOTH),
    ("48 kHz, noise without a text", IDLE, "PlainListening/48000", ALONE),
    ("Resampler, 96 to 48 kHz", "Resample/96000", "PlainResample/96000", "plain sum in double"),
    ("Resampler, 44.1 to 48 kHz", "Resample/44100", "PlainResample/44100", "plain sum in double"),
    ("Transform of 1024 samples", "Transform", "PlainTransform", "textbook radix 2, complex"),
    ("Making a text's waveform, 48 kHz, floats", "Transmit", "PlainTransmit", "two sines a sample, in double"),
]
LITERAL = "literal, every chunk anew"
SEARCHES = {"the modem's": 3, LITERAL: 4}  # fields of analysis_times: a spoilt message
PEERS = {
    "minimodem": "minimodem --rx 1200: demodulates audible two-tone FSK (Bell 202), here in the file of 48 kHz",
    "multimon-ng": "multimon-ng -a AFSK1200: demodulates audible two-tone FSK and looks for AX.25 packets. It\n"
                   "  takes raw samples at 22.05 kHz; they were converted beforehand, outside of the timing",
}
OURS, PLAIN, PEER = "#1b6ca8", "#b8bec4", "#d98e04"  # bars


class Failure(Exception):
    """One line that a user can act on."""


def need(program):
    """The full path of a program, given by name or path."""
    found = shutil.which(program)
    if not found:
        raise Failure(f"{program} not found: `make bench` installs and builds all that is needed")
    return found


def run(*command):
    """Runs a program to its end and returns what it printed, as bytes."""
    # Its own process group: an interrupt ends its children too.
    with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, stdin=subprocess.DEVNULL,
                          start_new_session=True) as process:
        try:
            printed, errors = process.communicate()
        except BaseException:
            os.killpg(process.pid, signal.SIGKILL)
            raise
    if process.returncode != 0:
        last = errors.decode(errors="replace").strip().splitlines()[-1:] or ["no message"]
        raise Failure(f"{' '.join(command)}: status {process.returncode}: {last[0]}")
    return printed


def make_sound(sorvel, folder, seconds):
    """Quiet noise with a text every ten seconds, 16-bit mono, one file per rate."""
    for rate in (96000, 48000, 44100):
        text, sound = str(folder / "text.wav"), str(folder / f"{rate}.wav")
        run(sorvel, "send", TEXT, "--rate", str(rate), "--repeat", str(seconds // PERIOD_s),
            "--gap", str(PERIOD_s - TEXT_s), "-o", text)
        hiss = f"|sox -R -n -r {rate} -c 1 -p synth {seconds} whitenoise vol 0.0173"  # 0.01 rms
        run("sox", "-R", "-m", "-v", "0.1", text, "-v", "1", hiss, "-b", "16", sound, "trim", "0", str(seconds))
        os.remove(text)
    run("sox", "-R", str(folder / "48000.wav"), "-r", "22050", "-b", "16", str(folder / "22050.raw"))


def processes(sorvel, folder):
    """The whole programs: name, command."""
    for rate in (96000, 48000, 44100):
        sound = str(folder / f"{rate}.wav")
        for receiver in ("classic", "deep"):
            yield f"sorvel listen --receiver {receiver}, {rate / 1000:g} kHz", [
                sorvel, "listen", sound, "--no-telemetry", "--receiver", receiver]
    yield "minimodem", ["minimodem", "--rx", "1200", "-q", "-f", str(folder / "48000.wav")]
    yield "multimon-ng", ["multimon-ng", "-q", "-t", "raw", "-a", "AFSK1200", str(folder / "22050.raw")]


def measure_process(figures, name, command, folder, seconds):
    # GNU time in between: a child's peak memory starts from what its parent holds, and Python holds
    # more than some of these programs. User and system time together: the kernel tells them apart by
    # its tick only.
    peak = folder / "peak"
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    printed = run("time", "-q", "-f", "%M", "-o", str(peak), *command)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    spent = after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime
    figures[name].append(seconds / spent)
    figures[name, "s"].append(spent)
    figures[name, "MB"].append(int(peak.read_text().split()[-1]) * 1024 / 1e6)
    figures[name, "heard"].append(printed.decode(errors="replace").splitlines().count(TEXT))


def measure_starts(figures, sorvel):
    """From the start of a process to its end, ms by the clock: what every call costs before it does anything."""
    programs = {"start": [sorvel, "--version"], "minimodem's start": ["minimodem", "--version"], "true": ["true"]}
    times_ms = collections.defaultdict(list)
    for _ in range(STARTS):
        for name, command in programs.items():
            before = time.perf_counter()
            run(*command)
            times_ms[name].append(1000 * (time.perf_counter() - before))
    for name, times in times_ms.items():
        figures[name].append(statistics.median(times))


def measure_library(figures, program, least_s):
    report = json.loads(run(program, "--benchmark_format=json", f"--benchmark_min_time={least_s}",
                            "--benchmark_repetitions=3", "--benchmark_enable_random_interleaving=true",
                            "--benchmark_filter=-ReedSolomon"))
    found = collections.defaultdict(list)
    for result in report["benchmarks"]:
        name = result["run_name"]
        if result.get("error_occurred"):
            raise Failure(f"{name}: {result['error_message']}")
        if result["run_type"] == "iteration":
            found[name].append(result["x_real_time"])
            found[name, "ms"].append(result["cpu_time"] / 1e6)
    for name, values in found.items():
        figures[name].append(statistics.median(values))


def measure_analysis(figures, program, runs):
    fields = run(program, str(runs), "140").split()
    for name, field in SEARCHES.items():
        figures[name].append(float(fields[field]))


def figure(value):
    """Three significant digits, never an exponent."""
    digits = 2 - math.floor(math.log10(value)) if value > 0 else 0
    return f"{round(value, digits):.{max(0, digits)}f}"


def spread(values):
    middle = figure(statistics.median(values))
    return middle if len(values) == 1 else f"{middle} ({figure(min(values))} to {figure(max(values))})"


def ratio(figures, ours, theirs):
    return spread([a / b for a, b in zip(figures[ours], figures[theirs])])


def processor():
    facts = pathlib.Path("/proc/cpuinfo")
    name = re.search(r"^model name\s*: (.+)$", facts.read_text() if facts.exists() else "", re.MULTILINE)
    return name.group(1) if name else os.uname().machine


def compiler(build):
    cache = dict(re.findall(r"^(\w+):\w+=(.*)$", (build / "CMakeCache.txt").read_text(), re.MULTILINE))
    version = run(cache["CMAKE_CXX_COMPILER"], "--version").decode().splitlines()[0]
    sanitizers = cache.get("SORVEL_SANITIZE", "")
    return f"{version}, {cache['CMAKE_BUILD_TYPE']}" + (f", sanitizers: {sanitizers}" if sanitizers else "")


def table(*rows):
    lines = ["| " + " | ".join(row) + " |" for row in rows]
    return "\n".join([lines[0], "|---" * len(rows[0]) + "|", *lines[1:]]) + "\n"


def page(figures, names, head, seconds):
    """The text of performance.md."""
    library = [(what, spread(figures[ours]), spread(figures[plain]), ratio(figures, ours, plain), how)
               for what, ours, plain, how in LIBRARY]
    searches = [(name, spread(figures[name]), spread([100 * ms / FRAME_ms for ms in figures[name]]),
                 ratio(figures, LITERAL, name) if name != LITERAL else "1") for name in SEARCHES]
    whole = [(name, spread(figures[name]), spread(figures[name, "s"]), spread(figures[name, "MB"]),
              "another signal" if name in PEERS else f"{min(figures[name, 'heard'])} of {seconds // PERIOD_s}",
              *(ratio(figures, name, peer) if name != peer else "1" for peer in PEERS)) for name in names]
    return f"""# Performance

Made by `make bench` (bench/compare.py); every figure was measured in that run, and nothing is written by hand.

{table(*head)}
Figures are medians over the rounds, with the lowest and the highest. "x real time" is seconds of sound per second of
processor time on one core. A ratio is taken within each round: above 1, Sorvel is the faster one.

![Multiples of real time](performance.svg)

## The library

Quiet noise (-40 dBFS) with a text every 10 s. Plain forms do the same work, or the part that is named, the obvious way.

{table(("what", "x real time", "plain form, x real time", "ratio", "the plain form is"), *library)}
- A frame of 21.3 ms without a transmission takes {spread([100 / x for x in figures[IDLE]])} % of its time at 48 kHz.
- The waveform of a text, 3.3 s, takes {spread(figures["Transmit", "ms"])} ms.

## The longest analysis

The worst frame: the end of a message of 140 bytes (built-in protocol) that a burst of noise has spoilt, so that every
alignment is tried. A receiver has 21.3 ms for a frame.

{table(("search", "ms", "share of a frame, %", "ratio"), *searches)}
## Whole programs

{seconds} s of that sound from a 16-bit file, from the start of the process to its end. **No contest of like with like**:
nothing else at hand decodes this signal. Two modems for other signals run over the same sound, to give a scale.
`sorvel listen` feeds the classic receiver 48 and 96 kHz as they are; 44.1 kHz it converts to 48 kHz. The deep receiver,
which it takes by itself, hears every rate as it is.

{table(("program", "x real time", "processor time, s", "peak memory, MB", "texts heard",
        *(f"ratio to {peer}" for peer in PEERS)), *whole)}
- `sorvel --version` takes {spread(figures["start"])} ms from its start to its end, as this script sees it, `minimodem
  --version` {spread(figures["minimodem's start"])} ms and `true` {spread(figures["true"])} ms: medians of {STARTS} in each
  round, one after another.
""" + "".join(f"- {peer}.\n" for peer in PEERS.values())


def picture(figures, names):
    """The SVG: a bar up to the median, a line from the lowest to the highest."""
    bars = []
    for what, ours, plain, how in LIBRARY:
        bars += [(what, figures[ours], OURS), (how, figures[plain], PLAIN)]
    bars += [(f"{name} (decodes another signal)", figures[name], PEER) if name in PEERS else
             (name, figures[name], OURS) for name in names]
    width, left, right, top, row, gap = 860, 310, 70, 44, 17, 8
    heights = [top + row * i + gap * min(i // 2, len(LIBRARY)) for i in range(len(bars))]
    bottom = heights[-1] + row + 4
    lowest = min(0, math.floor(math.log10(min(min(values) for _, values, _ in bars))))
    highest = math.ceil(math.log10(max(max(values) for _, values, _ in bars)))

    def x(value):
        return left + (math.log10(value) - lowest) / (highest - lowest) * (width - left - right)

    svg = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {bottom + 40}" '
           'font-family="sans-serif" font-size="12">',
           f'<rect width="{width}" height="{bottom + 40}" fill="white"/>']
    for at, colour, text in ((0, OURS, "Sorvel"), (90, PLAIN, "plain form"), (200, PEER, "another program")):
        svg.append(f'<rect x="{left + at}" y="14" width="12" height="12" fill="{colour}"/>'
                   f'<text x="{left + at + 18}" y="24">{text}</text>')
    for tick in (10.0 ** power for power in range(lowest, highest + 1)):
        svg.append(f'<path d="M{x(tick):.1f} {top - 6}V{bottom}" stroke="#ddd"/>'
                   f'<text x="{x(tick):.1f}" y="{bottom + 16}" text-anchor="middle">{tick:g}</text>')
    for y, (what, values, colour) in zip(heights, bars):
        middle = statistics.median(values)
        ink = "#666" if colour == PLAIN else "#000"
        svg.append(f'<text x="{left - 8}" y="{y + 12}" text-anchor="end" fill="{ink}">{html.escape(what)}</text>'
                   f'<path d="M{left} {y + 1}H{x(middle):.1f}v{row - 3}H{left}Z" fill="{colour}"/>'
                   f'<path d="M{x(min(values)):.1f} {y + row / 2:.1f}H{x(max(values)):.1f}" stroke="#000"/>'
                   f'<text x="{x(max(values)) + 6:.1f}" y="{y + 12}" fill="{ink}">{figure(middle)}</text>')
    svg.append(f'<text x="{(left + width - right) / 2}" y="{bottom + 33}" text-anchor="middle">'
               'multiple of real time on one core, logarithmic; line: lowest to highest round</text></svg>\n')
    return "\n".join(svg)


def compare(options):
    rounds, seconds = (1, 20) if options.quick else (options.rounds, 600)
    sorvel, benchmarks, analysis = (need(str(options.build.resolve() / name)) for name in (
        "tools/sorvel", "bench/listening_bench", "bench/analysis_times"))
    for name in ("sox", "time", *PEERS):
        need(name)
    figures, load = collections.defaultdict(list), os.getloadavg()[0]
    with tempfile.TemporaryDirectory(prefix="sorvel-bench-") as temporary:
        folder = pathlib.Path(temporary)
        print(f"Making {seconds} s of sound at three rates", flush=True)
        make_sound(sorvel, folder, seconds)
        programs = dict(processes(sorvel, folder))
        for i in range(rounds):
            print(f"Round {i + 1} of {rounds}", flush=True)
            for name, command in programs.items():
                measure_process(figures, name, command, folder, seconds)
            measure_starts(figures, sorvel)
            measure_library(figures, benchmarks, 0.01 if options.quick else 0.05)
            measure_analysis(figures, analysis, 1 if options.quick else 3)
    head = (("machine", f"{processor()}, one core of {os.cpu_count()}; load average at the start {load:.1f}"),
            ("compiler", compiler(options.build)), ("date", f"{datetime.date.today()}; rounds: {rounds}"))
    options.output.mkdir(parents=True, exist_ok=True)
    (options.output / "performance.md").write_text(page(figures, programs, head, seconds))
    (options.output / "performance.svg").write_text(picture(figures, programs))
    print(f"Wrote performance.md and performance.svg to {options.output}")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=pathlib.Path, default=SOURCE / "build/bench", help="build folder")
    parser.add_argument("--output", type=pathlib.Path, help="folder for the results; docs/ unless --quick")
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--quick", action="store_true", help="one round, 20 s of sound; needs --output")
    options = parser.parse_args()
    if options.rounds < 1 or options.quick and not options.output:
        parser.error("--rounds from 1 on; --quick needs --output, so that docs/ keeps real figures")
    options.output = options.output or SOURCE / "docs"
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):  # unwind, so that the temporary folder goes
        signal.signal(number, lambda received, _: sys.exit(128 + received))
    try:
        compare(options)
    except (Failure, OSError) as failure:
        sys.exit(f"compare.py: {failure}")


if __name__ == "__main__":
    main()
