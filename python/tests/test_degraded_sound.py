import numpy as np
import pytest
import scipy.signal

import sorvel
from air import RATE, TEXT, delayed, echoing, noisy, stretched, transmission

DEGRADED = {
    "noise": lambda sound: (noisy(sound, -2), RATE),
    "44.1 kHz": lambda sound: (noisy(scipy.signal.resample_poly(sound, 147, 160), 3, 44100), 44100),
    "96 kHz": lambda sound: (noisy(scipy.signal.resample_poly(sound, 2, 1), 0, 96000), 96000),
    "delay": lambda sound: (noisy(delayed(sound, 4711.37), 0), RATE),
    "echo": lambda sound: (noisy(echoing(sound), 10), RATE),
    "another clock": lambda sound: (noisy(stretched(sound, 1 + 100e-6), 0), RATE),
    "clipping": lambda sound: (np.clip(20 * noisy(sound, 6), -1, 1), RATE),
    "far away, 16 bits": lambda sound: (np.round(sound * 65).astype(np.int16), RATE),
}


@pytest.mark.parametrize("receiver", ["classic", "deep"])
@pytest.mark.parametrize("name", DEGRADED)
def test_texts_arrive(name, receiver):
    sound, rate = DEGRADED[name](transmission())
    assert list(sorvel.listen(sound, rate, prefix="acme", receiver=receiver)) == [TEXT]


def test_deep_receiver_hears_further_down_and_tells_how():
    moving = stretched(transmission(), 1 - 1 / 343)  # 1 m/s closer
    (heard,) = sorvel.listen(noisy(moving, -10), RATE, "acme", "deep")
    assert heard == TEXT
    assert heard.snr_db == pytest.approx(-10, abs=1.5)
    assert heard.speed_m_s == pytest.approx(1, abs=0.1)
    assert 0 <= heard.echo < 0.2 and heard.margin > 0
    assert list(sorvel.listen(noisy(moving, -10), RATE, "acme", "classic")) == []


@pytest.mark.parametrize("receiver", ["classic", "deep"])
def test_the_clearer_channel_is_heard(receiver):
    sound = transmission()
    left, right = noisy(sound, -30, seed=3), noisy(sound, 0, seed=4)
    right *= 4 * np.std(left) / np.std(right)
    assert list(sorvel.listen(np.stack([left, right], axis=1), RATE, "acme", receiver)) == [TEXT]


def test_noise_gives_no_text():
    noise = np.random.default_rng(5).normal(scale=0.2, size=60 * RATE)
    for receiver in ("classic", "deep", "messages"):
        assert list(sorvel.listen(noise, RATE, receiver=receiver)) == []
