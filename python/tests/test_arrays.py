import array
import tracemalloc

import numpy as np
import pytest

import sorvel
from air import RATE, TEXT, noisy, transmission

SOUND = noisy(transmission(), 3).astype(np.float32)
SOUND /= 2 * np.abs(SOUND).max()


def unaligned(sound):
    memory = np.zeros(sound.nbytes + 1, np.uint8)[1:]
    memory[:] = sound.view(np.uint8)
    return memory.view(sound.dtype)


def read_only(sound):
    sound = sound.copy()
    sound.flags.writeable = False
    return sound


def amid_others(sound):
    many = np.zeros((len(sound), 3, 2), sound.dtype)
    many[:, 1, 1] = sound
    return many[:, 1, 1]


def integers(dtype):
    return lambda sound: np.round(sound * np.iinfo(dtype).max).astype(dtype)


ARRAYS = {
    "float16": lambda sound: sound.astype(np.float16),
    "float64": lambda sound: sound.astype(np.float64),
    "long double": lambda sound: sound.astype(np.longdouble),
    "int16": integers(np.int16),
    "int32": integers(np.int32),
    "uint8": lambda sound: np.round(sound * 127 + 128).astype(np.uint8),
    "big-endian float32": lambda sound: sound.astype(">f4"),
    "big-endian float64": lambda sound: sound.astype(">f8"),
    "big-endian int16": lambda sound: integers(np.int16)(sound).astype(">i2"),
    "reversed": lambda sound: sound[::-1].copy()[::-1],
    "every other": lambda sound: np.repeat(sound, 2)[::2],
    "amid others": amid_others,
    "unaligned": unaligned,
    "read-only": read_only,
    "column": lambda sound: sound[:, np.newaxis],
    "list": lambda sound: sound.tolist(),
    "array.array": lambda sound: array.array("f", sound),
    "not numbers between": lambda sound: np.where(np.arange(len(sound)) % 4801, sound, np.nan),
    "infinities between": lambda sound: np.where(np.arange(len(sound)) % 4801, sound.astype(float), -np.inf),
    "huge between": lambda sound: np.where(np.arange(len(sound)) % 4801, sound.astype(float), 1e300),
}


@pytest.mark.parametrize("name", ARRAYS)
def test_whatever_the_array_the_same_is_heard(name):
    (plain,) = sorvel.listen(SOUND, RATE, "acme", "deep")
    (heard,) = sorvel.listen(ARRAYS[name](SOUND), RATE, "acme", "deep")
    coarse = name in ("uint8", "not numbers between", "infinities between", "huge between")
    assert heard == TEXT
    assert heard.snr_db == pytest.approx(plain.snr_db, abs=1 if coarse else 0.01)


@pytest.mark.parametrize("dtype", [np.float32, np.int16, np.float64, ">i2"])
def test_channels_in_any_layout(dtype):
    scale = 1 if np.dtype(dtype).kind == "f" else 32767
    frames = np.stack([0 * SOUND, SOUND * scale, 0 * SOUND], axis=1).astype(dtype)
    for sound in (frames, np.asfortranarray(frames), frames[::-1].copy()[::-1], np.repeat(frames, 2, axis=1)[:, ::2]):
        assert list(sorvel.listen(sound, RATE, "acme")) == [TEXT]
    many = np.broadcast_to(frames[:, 1:2], (len(frames), 64))
    assert list(sorvel.listen(many, RATE, "acme")) == [TEXT]


def test_types_may_change_within_a_sound():
    listener = sorvel.Listener(RATE, "acme")
    third = len(SOUND) // 3
    heard = listener.push((SOUND[:third] * 32767).astype(np.int16)) + listener.push(SOUND[third : 2 * third])
    assert heard + listener.push(SOUND[2 * third :].astype(float)) == [TEXT]


@pytest.mark.parametrize("dtype", [np.float32, np.int16, np.float64])
def test_no_array_is_copied(dtype):
    listener = sorvel.Listener(RATE)
    sound = np.zeros(2 * 10**6, dtype)[::2]
    tracemalloc.start()
    listener.push(sound)
    assert tracemalloc.get_traced_memory()[1] < 10000
    tracemalloc.stop()


def test_empty_arrays_are_silence_of_no_length():
    for channels, empty in [(1, []), (1, np.zeros(0, np.int16)), (1, np.zeros((0, 1))), (5, np.zeros((0, 5)))]:
        assert sorvel.Listener(RATE, channels=channels).push(empty) == []
        assert list(sorvel.listen(empty, RATE)) == []
