"""The compiled part. What it is handed has been checked, but for samples."""

from typing import Any, Final

import numpy as np
import numpy.typing as npt

Quality = tuple[float, float, float, float]
_Told = tuple[bytes, float, Quality | None]

ALPHABET: Final[str]
LOWEST_BAND_RATE_HZ: Final[int]
MESSAGES: Final[int]
MOST_CHANNELS: Final[int]
RECEIVERS: Final[dict[str, int]]
TEXTS: Final[int]
VERSION: Final[str]

def open(rate_hz: float, prefix: bytes, channels: int, receiver: int) -> object: ...
def push(stream: object, samples: npt.NDArray[Any]) -> list[_Told]: ...
def finish(stream: object) -> list[_Told]: ...
def reset(stream: object) -> None: ...
def send(content: bytes, kind: int, rate_hz: float, volume_percent: int) -> npt.NDArray[np.float32]: ...
def pack(text: bytes) -> bytes: ...
def unpack(payload: bytes) -> str: ...
