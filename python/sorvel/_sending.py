from __future__ import annotations

import numpy as np
import numpy.typing as npt

from . import _sorvel
from ._samples import as_bytes, as_integer, as_rate, refuse


def send(text: str, rate: float, volume: int = 50) -> npt.NDArray[np.float32]:
    """The sound of a text: float32 of the shape (frames,), 3.264 s.

    text    1 to 15 characters of ALPHABET
    rate    of the samples in Hz, 44100 to 384000
    volume  percent of full scale, 1 to 100; no sample is higher

    Any number of threads; Python's lock is released meanwhile.
    """
    return _sorvel.send(_of_text(text), _sorvel.TEXTS, as_rate(rate), as_integer("the volume", volume, 1, 100))


def send_message(message: str | bytes, rate: float, volume: int = 50) -> npt.NDArray[np.float32]:
    """The sound of a message, which only a listener with receiver="messages" hears: 1.8 to 38.9 s.

    message  1 to 140 bytes; a str as UTF-8
    rate, volume, and what is given  as of send
    """
    content = as_bytes("the message", message)
    return _sorvel.send(content, _sorvel.MESSAGES, as_rate(rate), as_integer("the volume", volume, 1, 100))


def pack(text: str) -> bytes:
    """A text as the 13 bytes that are sent: 1 to 15 characters of ALPHABET."""
    return _sorvel.pack(_of_text(text))


def unpack(payload: bytes) -> str:
    """The text in 13 bytes; ValueError where they are damaged or hold none."""
    if not isinstance(payload, (bytes, bytearray, memoryview)):
        refuse("the payload", "bytes", payload)
    return _sorvel.unpack(bytes(payload))


def _of_text(text: str) -> bytes:
    if not isinstance(text, str):
        refuse("the text", "a str", text)
    return as_bytes("the text", text)
