"""Microseconds per block of 1024 frames and per empty call, in Python and, in the same run, in C.

blocks.py FOLDER: FOLDER holds sorvel_python_blocks.so, which `make python-bench` builds. Rounds alternate; the median
of all rounds, in brackets the fastest and the slowest, and the median of what a round took beyond the one in C before it.
"""

import ctypes
import statistics
import sys
import time
from pathlib import Path

import numpy as np

import sorvel

RATE, FRAMES, BLOCKS, ROUNDS = 48000, 1024, 400, 60


def in_python(samples, frames, receiver):
    listener = sorvel.Listener(RATE, "acme", receiver=receiver)
    blocks = [samples[at * frames : (at + 1) * frames] for at in range(BLOCKS)]
    begin = time.perf_counter()
    for block in blocks:
        listener.push(block)
    return (time.perf_counter() - begin) * 1e6 / BLOCKS


def main():
    in_c = ctypes.CDLL(str(Path(sys.argv[1]) / "sorvel_python_blocks.so")).microseconds_per_call
    in_c.restype = ctypes.c_double
    in_c.argtypes = [ctypes.c_void_p, ctypes.c_size_t, ctypes.c_size_t, ctypes.c_double, ctypes.c_int]
    noise = (0.1 * np.random.default_rng(1).standard_normal(BLOCKS * FRAMES)).astype(np.float32)
    sounds = [("float32", noise), ("int16", (noise * 32767).astype(np.int16)), ("float64", noise.astype(float))]
    print(f"us per push, {RATE} Hz, {ROUNDS} rounds of {BLOCKS}")
    for number, receiver in enumerate(["classic", "deep"]):
        for frames in (FRAMES, 0):
            times = {}
            for _ in range(ROUNDS):
                took = in_c(noise.ctypes.data, BLOCKS, frames, RATE, number)
                times.setdefault("C", []).append(took)
                for name, sound in sounds if frames else sounds[:1]:
                    times.setdefault(name, []).append(in_python(sound, frames, receiver))
            for name, took in times.items():
                beyond = statistics.median(mine - c for mine, c in zip(took, times["C"]))
                spread = f"({min(took):.2f} to {max(took):.2f})"
                print(f"{receiver:8}{frames:5} frames  {name:8}{statistics.median(took):7.2f} {spread:17}{beyond:+6.2f}")


main()
