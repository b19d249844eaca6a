import numpy as np
import pytest

import sorvel
from air import RATE, TEXT


@pytest.mark.parametrize("rate", [44100, 44100.5, 48000, 96000, 384000])
def test_a_text_as_sound(rate):
    sound = sorvel.send(TEXT, rate, volume=80)
    assert (sound.dtype, sound.ndim) == (np.float32, 1) and sound.flags.writeable and sound.flags.owndata
    assert len(sound) / rate == pytest.approx(3.264, abs=1e-4)
    assert 0.7 < np.abs(sound).max() <= 0.8001
    power = np.square(np.abs(np.fft.rfft(sound.astype(float))))
    hz = np.fft.rfftfreq(len(sound), 1 / rate)
    assert power[(hz > 17900) & (hz < 19600)].sum() > 0.999 * power.sum()
    assert list(sorvel.listen(sound, rate)) == [TEXT]


def test_every_character_arrives():
    for start in range(0, len(sorvel.ALPHABET), 13):
        text = sorvel.ALPHABET[start : start + 13].rstrip()
        assert list(sorvel.listen(sorvel.send(text, RATE), RATE)) == [text]


@pytest.mark.parametrize("message", [b"\0\xff\0", "Grüße", bytes(range(140))])
def test_a_message_as_sound(message):
    data = message.encode() if isinstance(message, str) else message
    sound = sorvel.send_message(message, RATE)
    (heard,) = sorvel.listen(np.concatenate([sound, np.zeros(RATE, np.float32)]), RATE, receiver="messages")
    assert heard.data == data and heard.text.isprintable() == (message == "Grüße")
    assert heard == data.decode(errors="backslashreplace")


def test_packed_texts():
    assert len(sorvel.pack(TEXT)) == 13
    for text in (TEXT, "a", "z" * 15, "a b_c", sorvel.ALPHABET[:15]):
        assert sorvel.unpack(sorvel.pack(text)) == text
        assert sorvel.unpack(bytearray(sorvel.pack(text))) == text
    damaged = bytearray(sorvel.pack(TEXT))
    damaged[5] ^= 1
    with pytest.raises(ValueError, match="damaged"):
        sorvel.unpack(damaged)
