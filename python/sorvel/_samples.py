"""What may be handed over as sound: samples, rates and the like, checked before they reach C++."""

from __future__ import annotations

import numbers
import operator
from typing import Any, NoReturn

import numpy as np
import numpy.typing as npt


def as_array(samples: npt.ArrayLike) -> npt.NDArray[Any]:
    """Arrays as they are; what else numpy takes for one is made one."""
    if isinstance(samples, np.ndarray):
        return samples
    if isinstance(samples, (bytes, bytearray, memoryview)):
        raise TypeError("raw bytes do not say what samples they are: give np.frombuffer(data, np.int16), or another type")
    try:
        array = np.asarray(samples)
    except (TypeError, ValueError):
        refuse("samples", "an array of numbers", samples)
    if array.ndim == 0:  # which numpy makes of everything that it does not know
        refuse("samples", "an array of numbers", samples)
    return array


def refuse(name: str, wanted: str, given: object) -> NoReturn:
    raise TypeError(f"{name} must be {wanted}, not {type(given).__name__}") from None


def as_rate(rate: float) -> float:
    """In Hz; its range is checked by who uses it."""
    if not isinstance(rate, numbers.Real):
        refuse("the sample rate", "a number of Hz", rate)
    try:
        return float(rate)
    except OverflowError:
        return float("inf")


def as_integer(name: str, number: int, lowest: int, highest: int) -> int:
    try:
        value = operator.index(number)
    except TypeError:
        refuse(name, "an integer", number)
    if not lowest <= value <= highest:
        raise ValueError(f"{name} must be from {lowest} to {highest}, not {value}")
    return value


def as_bytes(name: str, content: str | bytes) -> bytes:
    """Text as UTF-8; what that cannot hold becomes a character that no text may have."""
    if isinstance(content, str):
        return content.encode(errors="replace")
    if isinstance(content, (bytes, bytearray, memoryview)):
        return bytes(content)
    refuse(name, "str or bytes", content)
