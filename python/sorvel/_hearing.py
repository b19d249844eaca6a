from __future__ import annotations

import sys
import warnings
from collections.abc import Iterator
from typing import Any, Literal

import numpy as np
import numpy.typing as npt

from . import _sorvel
from ._samples import as_array, as_bytes, as_integer, as_rate, refuse

Receiver = Literal["classic", "deep", "messages"]


class Heard(str):
    """A text, and how it was heard: a str like every other, with

    text       the text as a plain str. Of a message, its bytes as UTF-8, with escapes (\\xff) for what is none
    data       what was sent, as bytes
    end_s      when the transmission ended, in seconds from the first frame. The deep receiver tells it to some
               20 ms; the others tell when they had heard enough, some 0.1 s before, of messages 0.25 s
    snr_db     power of the tones over that of the noise from 18.0 to 19.5 kHz
    speed_m_s  at which the source came closer
    echo       part of a tone's energy that rang on for 192 ms, 0 to 1
    margin     nats above what a text must have to be believed

    The last four are None unless the deep receiver heard it.
    """

    __slots__ = ("data", "end_s", "snr_db", "speed_m_s", "echo", "margin")
    data: bytes
    end_s: float
    snr_db: float | None
    speed_m_s: float | None
    echo: float | None
    margin: float | None

    def __new__(cls, data: bytes, end_s: float, quality: _sorvel.Quality | None = None) -> Heard:
        heard = super().__new__(cls, data.decode(errors="backslashreplace"))
        heard.data = data
        heard.end_s = end_s
        heard.snr_db, heard.speed_m_s, heard.echo, heard.margin = quality or (None,) * 4
        return heard

    @property
    def text(self) -> str:
        return str(self)

    def __repr__(self) -> str:
        known = [(name, getattr(self, name)) for name in self.__slots__[1:]]
        told = "".join(f", {name}={value:.4g}" for name, value in known if value is not None)
        return f"Heard({str(self)!r}{told})"

    def __reduce__(self) -> tuple[Any, ...]:
        quality = (self.snr_db, self.speed_m_s, self.echo, self.margin)
        return type(self), (self.data, self.end_s, None if self.snr_db is None else quality)


class Listener:
    """Hears texts, or messages, in a sound that comes in blocks of any length.

    Whatever the blocks are, the same sound gives the same texts at the same times. Of texts that come
    within one second of the one before, by the sound's own time, none is told. Of several channels it hears
    one: that with the most energy from 18.0 to 19.5 kHz.

    rate      of the samples in Hz, 8000 to 384000, of the deep receiver from 32000. Below 44100 Hz the band is
              not all there, and a UserWarning says so
    prefix    only what begins so is told; None or "": everything. Of texts at most 15 characters of ALPHABET,
              upper case taken for lower; of messages at most 140 bytes, none of them zero
    channels  1 to 64
    receiver  "classic": texts, down to -4 dB in-band; "deep": texts, 9 dB further down and from sources that
              move, and tells how it heard them; "messages": messages of 1 to 140 bytes instead of texts

    Costs 0.25 MiB, deep 0.5 MiB, messages 8.2 MiB. Calls from several threads take turns, each as a whole;
    Python's lock is released meanwhile. A signal's handler that calls the Listener whose push it interrupts
    gets a RuntimeError.
    """

    __slots__ = ("_stream", "rate", "prefix", "channels", "receiver", "__weakref__")

    def __init__(
        self, rate: float, prefix: str | bytes | None = None, channels: int = 1, receiver: Receiver = "classic"
    ) -> None:
        number = _number_of(receiver)
        beginning = b"" if prefix is None else as_bytes("the prefix", prefix)
        if 0 in beginning:
            raise ValueError("the prefix cannot hold a zero byte")
        self.rate = as_rate(rate)
        self.prefix = prefix
        self.channels = as_integer("channels", channels, 1, _sorvel.MOST_CHANNELS)
        self.receiver = receiver
        self._stream = _sorvel.open(self.rate, beginning, self.channels, number)
        if self.rate < _sorvel.LOWEST_BAND_RATE_HZ:
            warnings.warn(
                f"at {self.rate:g} Hz little or nothing of the band from 18 to 19.5 kHz is left to be heard; "
                "record at 44100 Hz or more",
                stacklevel=3 if sys._getframe(1).f_globals is globals() else 2,  # the line that is not listen's own
            )

    def push(self, samples: npt.ArrayLike) -> list[Heard]:
        """Hears a block, and gives what was heard in it, mostly nothing.

        samples  (frames,) for one channel, or (frames, channels); also empty. Full scale is -1.0 to 1.0 of
                 float16, float32 and float64, and the whole range of int16, int32 and uint8, which is centred
                 at 128. Any strides and either byte order; no array is copied. What is not finite or
                 beyond 1e6 counts as 0

        TypeError for samples of other types, ValueError for other shapes. KeyboardInterrupt ends a long block
        in the middle; reset then. After finish, a new sound begins, at 0 s.
        """
        heard = _sorvel.push(self._stream, samples if type(samples) is np.ndarray else as_array(samples))
        return [Heard(*one) for one in heard] if heard else []

    def finish(self) -> list[Heard]:
        """The sound has ended: gives what it ends with, as a second of silence would bring out."""
        return [Heard(*one) for one in _sorvel.finish(self._stream)]

    def reset(self) -> None:
        """As newly made: forgets what it has heard. The next block is at 0 s."""
        _sorvel.reset(self._stream)

    def __reduce__(self) -> tuple[Any, ...]:
        raise TypeError("a Listener can be neither copied nor pickled: make another one")

    def __repr__(self) -> str:
        return f"Listener({self.rate:g}, {self.prefix!r}, {self.channels}, {self.receiver!r})"


def listen(
    samples: npt.ArrayLike, rate: float, prefix: str | bytes | None = None, receiver: Receiver = "classic"
) -> Iterator[Heard]:
    """Hears the texts, or messages, in a whole sound, in their order.

    samples  (frames,) or (frames, channels) with at most 64 channels; the rest as of Listener.push
    rate, prefix, receiver  as of Listener

    What is wrong is told at once; the sound is heard as the texts are asked for, so that who leaves the
    loop early does not wait for the rest.
    """
    array = as_array(samples)
    if array.ndim not in (1, 2):
        raise ValueError(f"samples have the shape {array.shape}; (frames,) or (frames, channels) is needed")
    channels = 1 if array.ndim == 1 else array.shape[1]
    if not 1 <= channels <= _sorvel.MOST_CHANNELS:
        hint = ": give them transposed, as samples.T" if 1 <= len(array) <= _sorvel.MOST_CHANNELS < channels else ""
        raise ValueError(f"samples have {channels} channels; 1 to {_sorvel.MOST_CHANNELS} are taken{hint}")
    listener = Listener(rate, prefix, channels, receiver)
    listener.push(array[:0])  # for what is wrong with the samples' type
    return _heard_in(listener, array)


def _heard_in(listener: Listener, array: npt.NDArray[Any]) -> Iterator[Heard]:
    step = int(listener.rate)
    for start in range(0, len(array), step):
        yield from listener.push(array[start : start + step])
    yield from listener.finish()


def _number_of(receiver: str) -> int:
    if not isinstance(receiver, str):
        refuse("the receiver", "a str", receiver)
    if receiver not in _sorvel.RECEIVERS:
        raise ValueError(f"there is no receiver {receiver!r}; there are {', '.join(_sorvel.RECEIVERS)}")
    return _sorvel.RECEIVERS[receiver]
