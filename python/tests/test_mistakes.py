"""Every mistake is a TypeError or ValueError with one line, and what was before goes on."""

import copy

import numpy as np
import pytest

import sorvel
from air import RATE, TEXT, transmission

SOME = np.zeros(100, np.float32)

MISTAKES = [
    # what is called, the error, and what its line must hold
    (lambda: sorvel.Listener("48000"), TypeError, "rate must be a number of Hz, not str"),
    (lambda: sorvel.Listener(None), TypeError, "rate"),
    (lambda: sorvel.Listener(48000j), TypeError, "rate"),
    (lambda: sorvel.Listener(7999), ValueError, "8000 to 384000"),
    (lambda: sorvel.Listener(float("nan")), ValueError, "rate"),
    (lambda: sorvel.Listener(float("inf")), ValueError, "rate"),
    (lambda: sorvel.Listener(10**400), ValueError, "rate"),
    (lambda: sorvel.Listener(16000, receiver="deep"), ValueError, "32000"),
    (lambda: sorvel.Listener(RATE, "café"), ValueError, "prefix"),
    (lambda: sorvel.Listener(RATE, "a\0b"), ValueError, "zero byte"),
    (lambda: sorvel.Listener(RATE, "\udcff"), ValueError, "prefix"),
    (lambda: sorvel.Listener(RATE, "a" * 16), ValueError, "15"),
    (lambda: sorvel.Listener(RATE, "a" * 141, receiver="messages"), ValueError, "140"),
    (lambda: sorvel.Listener(RATE, 7), TypeError, "prefix must be str or bytes, not int"),
    (lambda: sorvel.Listener(RATE, channels=0), ValueError, "from 1 to 64, not 0"),
    (lambda: sorvel.Listener(RATE, channels=2**64), ValueError, "channels"),
    (lambda: sorvel.Listener(RATE, channels=2.0), TypeError, "channels must be an integer, not float"),
    (lambda: sorvel.Listener(RATE, receiver="depp"), ValueError, "'depp'; there are classic, deep, messages"),
    (lambda: sorvel.Listener(RATE, receiver=1), TypeError, "receiver"),
    (lambda: sorvel.listen(SOME), TypeError, "rate"),
    (lambda: sorvel.listen(np.zeros(()), RATE), ValueError, "shape"),
    (lambda: sorvel.listen(np.zeros((2, 2, 2)), RATE), ValueError, "(2, 2, 2)"),
    (lambda: sorvel.listen(np.zeros((2, 48000)), RATE), ValueError, "samples.T"),
    (lambda: sorvel.listen(np.zeros((48000, 0)), RATE), ValueError, "0 channels"),
    (lambda: sorvel.listen(np.zeros((1, 65)), RATE), ValueError, "65 channels"),
    (lambda: sorvel.listen(7, RATE), TypeError, "array of numbers, not int"),
    (lambda: sorvel.listen("sound.wav", RATE), TypeError, "not str"),
    (lambda: sorvel.listen(None, RATE), TypeError, "not NoneType"),
    (lambda: sorvel.listen([[1.0], [1.0, 2.0]], RATE), TypeError, "not list"),
    (lambda: sorvel.listen(b"\0\0", RATE), TypeError, "frombuffer"),
    (lambda: sorvel.listen(memoryview(SOME), RATE), TypeError, "frombuffer"),
    (lambda: sorvel.listen(SOME.astype(complex), RATE), TypeError, "type complex128"),
    (lambda: sorvel.listen(SOME.astype(int), RATE), TypeError, "type int64"),
    (lambda: sorvel.listen(SOME.astype(bool), RATE), TypeError, "type bool"),
    (lambda: sorvel.listen(SOME.astype(object), RATE), TypeError, "type object"),
    (lambda: sorvel.listen(SOME.astype("M8[s]"), RATE), TypeError, "datetime64"),
    (lambda: sorvel.listen(np.zeros(9, "f4, f4"), RATE), TypeError, "samples"),
    (lambda: sorvel.Listener(RATE).push(np.zeros((9, 2))), ValueError, "(9, 2); (frames,) or (frames, 1)"),
    (lambda: sorvel.Listener(RATE).push(np.zeros(())), ValueError, "shape ()"),
    (lambda: sorvel.Listener(RATE, channels=2).push(SOME), ValueError, "(100,); (frames, 2)"),
    (lambda: sorvel.Listener(RATE, channels=2).push(np.zeros((2, 9))), ValueError, "samples.T"),
    (lambda: sorvel.Listener(RATE).push(), TypeError, "samples"),
    (lambda: copy.copy(sorvel.Listener(RATE)), TypeError, "neither copied"),
    (lambda: sorvel.send(b"acme", RATE), TypeError, "text must be a str, not bytes"),
    (lambda: sorvel.send("", RATE), ValueError, "1 to 15"),
    (lambda: sorvel.send("a" * 16, RATE), ValueError, "1 to 15"),
    (lambda: sorvel.send("ACME", RATE), ValueError, "0123456789abc"),
    (lambda: sorvel.send("a\0", RATE), ValueError, "character"),
    (lambda: sorvel.send(TEXT, 44099), ValueError, "44100"),
    (lambda: sorvel.send(TEXT, "x"), TypeError, "rate"),
    (lambda: sorvel.send(TEXT, RATE, 0), ValueError, "volume must be from 1 to 100, not 0"),
    (lambda: sorvel.send(TEXT, RATE, 0.5), TypeError, "volume must be an integer, not float"),
    (lambda: sorvel.send_message(b"", RATE), ValueError, "1 to 140"),
    (lambda: sorvel.send_message("é" * 71, RATE), ValueError, "1 to 140"),
    (lambda: sorvel.send_message([1, 2], RATE), TypeError, "message must be str or bytes, not list"),
    (lambda: sorvel.pack(""), ValueError, "1 to 15"),
    (lambda: sorvel.pack(3), TypeError, "text must be a str, not int"),
    (lambda: sorvel.unpack(b"\0" * 12), ValueError, "13 bytes; these are 12"),
    (lambda: sorvel.unpack(bytes(range(13))), ValueError, "damaged"),
    (lambda: sorvel.unpack(13), TypeError, "payload must be bytes, not int"),
]


@pytest.mark.parametrize("number", range(len(MISTAKES)))
def test_mistakes_are_told_in_one_line(number):
    call, error, line = MISTAKES[number]
    with pytest.raises(error) as told:
        call()
    text = str(told.value)
    assert line in text and "\n" not in text and len(text) < 160


def test_a_mistake_costs_nothing_of_the_sound():
    listener = sorvel.Listener(RATE, "acme")
    heard = []
    for block in np.split(transmission(), 40):
        heard += listener.push(block)
        with pytest.raises(TypeError):
            listener.push(block.astype(complex))
        with pytest.raises(ValueError):
            listener.push(block[:, None, None])
    assert heard == [TEXT]


@pytest.mark.parametrize("rate", [8000, 39000, 44099])
def test_rates_without_the_band_are_warned_of(rate):
    for call in (lambda: sorvel.Listener(rate), lambda: sorvel.listen(SOME, rate)):
        with pytest.warns(UserWarning, match=f"at {rate} Hz.*44100") as warned:
            call()
        assert warned[0].filename == __file__
