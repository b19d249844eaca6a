"""What air, rooms and sound cards do to a transmission, made with numpy and scipy."""

import numpy as np
import scipy.signal

import sorvel

TEXT = "acme_1234"
RATE = 48000
SECONDS = 4.0  # of which the transmission, which begins at BEGIN, takes 3.264
BEGIN = 0.5
END = BEGIN + 3.264


def transmission(text=TEXT, rate=RATE):
    sound = np.zeros(round(SECONDS * rate), np.float32)
    sent = sorvel.send(text, rate)
    begin = round(BEGIN * rate)
    sound[begin : begin + len(sent)] = sent
    return sound


def noisy(sound, in_band_db, rate=RATE, seed=1):
    """White noise; the ratio is that of the powers from 18 to 19.5 kHz, while the transmission lasts."""
    tones = np.sum(np.square(sound, dtype=float)) / (3.264 * rate)
    power = tones / 10 ** (in_band_db / 10) * (rate / 2) / 1500
    return sound + np.random.default_rng(seed).normal(scale=np.sqrt(power), size=len(sound))


def delayed(sound, samples):
    """By any part of a sample too."""
    turn = np.exp(-2j * np.pi * np.fft.rfftfreq(len(sound)) * samples)
    return np.fft.irfft(np.fft.rfft(sound) * turn, len(sound))


def echoing(sound, rt60_s=0.4, rate=RATE, seed=2):
    """A room with as much echo as direct sound."""
    tail = np.random.default_rng(seed).normal(size=round(rt60_s * rate))
    tail *= 10 ** (-3 * np.arange(len(tail)) / len(tail))
    tail /= np.sqrt(np.sum(np.square(tail)))
    return sound + scipy.signal.fftconvolve(sound, tail)[: len(sound)]


def stretched(sound, factor):
    """As from another clock, or from a source that moves."""
    return scipy.signal.resample(sound, round(len(sound) * factor))
