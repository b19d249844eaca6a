import copy
import pickle

import numpy as np
import pytest

import sorvel
from air import END, RATE, TEXT, transmission


@pytest.mark.parametrize("frames", [1, 127, 1024, 4801, 10**6])
@pytest.mark.parametrize("receiver", ["classic", "deep"])
def test_blocks_of_any_length_give_the_same(frames, receiver):
    sound = transmission()
    if frames == 1:
        sound = sound[: round((END + 0.2) * RATE)]
    listener = sorvel.Listener(RATE, "acme", receiver=receiver)
    heard = [one for at in range(0, len(sound), frames) for one in listener.push(sound[at : at + frames])]
    heard += listener.finish()
    (whole,) = sorvel.listen(transmission(), RATE, "acme", receiver)
    assert [(one, one.end_s) for one in heard] == [(TEXT, whole.end_s)]
    assert whole.end_s == pytest.approx(END, abs=0.01 if receiver == "deep" else 0.15)


def test_what_is_heard_is_a_str_that_knows_more():
    (classic,) = sorvel.listen(transmission(), RATE)
    (deep,) = sorvel.listen(transmission(), RATE, receiver="deep")
    assert classic == deep == TEXT == deep.text == f"{deep}" and {deep: 1}[TEXT] == 1
    assert type(deep.text) is str and deep.data == TEXT.encode()
    assert (classic.snr_db, classic.speed_m_s, classic.echo, classic.margin) == (None,) * 4
    assert repr(classic) == f"Heard('{TEXT}', end_s={classic.end_s:.4g})" and "snr_db=" in repr(deep)
    for again in (pickle.loads(pickle.dumps(deep)), copy.deepcopy(deep)):
        assert again == deep and again.end_s == deep.end_s and again.margin == deep.margin


def test_prefix_decides_and_its_case_does_not():
    sound = transmission()
    for prefix, count in [(None, 1), ("", 1), ("AC", 1), (b"acme", 1), (TEXT, 1), ("acne", 0)]:
        assert len(list(sorvel.listen(sound, RATE, prefix))) == count, prefix


def test_finish_ends_a_sound_and_reset_forgets_it():
    sound = transmission()[: round((END + 0.01) * RATE)]  # too short for the deep receiver to be sure
    listener = sorvel.Listener(RATE, receiver="deep")
    assert listener.push(sound) == [] and listener.finish() == [TEXT] and listener.finish() == []
    (again,) = listener.push(sound) + listener.finish()  # a new sound, at 0 s
    assert again.end_s == pytest.approx(END, abs=0.01)
    assert listener.push(sound) == []
    listener.reset()
    assert listener.finish() == []


def test_one_long_push_loses_nothing():
    minute = np.concatenate([transmission(f"acme_{n}") for n in range(15)])
    sound = np.tile(minute, 12)  # 180 texts; 64 can wait inside
    assert sorvel.Listener(RATE, "acme").push(sound) == [f"acme_{n}" for n in range(15)] * 12


class Watched(np.ndarray):
    """Notes how far it was read."""

    read = 0

    def __getitem__(self, part):
        Watched.read = max(Watched.read, part.stop or 0)
        return super().__getitem__(part)


def test_listen_hears_as_far_as_it_is_asked():
    texts = sorvel.listen(np.tile(transmission(), 30).view(Watched), RATE)
    assert next(texts) == TEXT
    assert END * RATE <= Watched.read <= (END + 2) * RATE
