"""libfilter's video and image effects on NumPy arrays.

    import libfilter
    mosaic = libfilter.Effect("mosaic", mosaic_step=4, mosaic_x2=640, mosaic_y2=360)
    mosaic(frame)                      # changes the frame in place and returns it

Effects go by the names `lfx list` prints; `effects()` describes each one. Properties are
keyword arguments and attributes (`mosaic.mosaic_step = 5`; `mosaic.properties` reads them all).
Values outside the range an effect describes are clamped to it, and reading a property answers
the clamped value; a top that is the frame's width or height is clamped by the effect itself to
the frame it gets.

Frames (uint8 NumPy arrays):
  * BGRA, H x W x 4. Rows may lie further apart than a row's bytes, so a crop of a larger array
    (`big[y0:y1, x0:x1]`) is processed in place without a copy.
  * BGR or RGB, H x W x 3, with the order named: `effect(frame, order="bgr")` for OpenCV,
    `order="rgb"` for Pillow. The pixels are converted to BGRA and back around the effects (two
    extra passes over the frame and a scratch block per thread); the alpha the effects write is
    dropped.
  * YUV420P as a tuple of three planes (y, u, v), the chroma planes half the height and width,
    rounded down or up; or one C-contiguous (H*3/2) x W array in I420, as OpenCV's
    `cvtColor(..., COLOR_BGR2YUV_I420)` and PyAV's `to_ndarray()` give it.

`effect(frame)` works in place (a read-only array raises ValueError); `effect.apply(frame)`
returns a changed copy and leaves the input alone. `Chain([a, b, c])` runs several effects on a
frame in one call. Anything else raises TypeError or ValueError naming what was expected; a
failure the library reports raises `libfilter.Error` with the library's text.

`empty(shape)` makes a uint8 array that starts on a 64-byte boundary, which the simplest effects
run on up to a third faster than on NumPy's own large arrays (16 or 32 bytes past one).

The interpreter lock is released while pixels are processed, so frames processed on several
Python threads run in parallel. An effect runs one frame at a time: threads sharing one effect
take turns, so give each thread its own.
"""

from dataclasses import dataclass
from typing import Tuple, Union

import numpy as np

from ._libfilter import Chain, Effect, Error, _descriptions, _showcase

__all__ = ["Chain", "Effect", "EffectInfo", "Error", "PropertyInfo", "effects", "empty"]


@dataclass(frozen=True)
class PropertyInfo:
    """One property of an effect, as the effect describes it."""

    name: str
    kind: str  # "integer", "number", "flag" or "colour"
    default: Union[int, float, bool]
    range: Tuple[float, Union[float, str]]  # the top is "width" or "height" for frame-sized ones
    explanation: str

    def __str__(self):
        low, high = self.range
        top = f"frame {high}" if isinstance(high, str) else f"{high:g}"
        span = {"flag": "0 or 1", "colour": "0xRRGGBB"}.get(self.kind, f"{low:g}..{top}")
        return f"{self.name} ({self.kind}, default {self.default}, {span}): {self.explanation}"


@dataclass(frozen=True)
class EffectInfo:
    """An effect this build makes, as it describes itself."""

    id: int
    name: str
    description: str
    making: str  # how a C++ host makes it: "factory id 13" or "class ..."
    needs_converters: bool
    properties: Tuple[PropertyInfo, ...]

    def showcase(self, width, height):
        """Property values under which the effect visibly works on a width x height frame."""
        return _showcase(self.name, width, height)

    def __str__(self):
        lines = [f"{self.name}: {self.description}"]
        lines += [f"    {p}" for p in self.properties]
        return "\n".join(lines)


def _property(record):
    top = record["maximum"] if record["upper"] == "fixed" else record["upper"]
    return PropertyInfo(record["name"], record["kind"], record["default"],
                        (record["minimum"], top), record["explanation"])


def _effect(record):
    return EffectInfo(record["id"], record["name"], record["description"], record["making"],
                      record["needs_converters"],
                      tuple(_property(p) for p in record["properties"]))


_EFFECTS = tuple(_effect(r) for r in _descriptions())
_BY_NAME = {e.name: e for e in _EFFECTS}


def empty(shape):
    """A new uint8 array whose data starts on a 64-byte boundary. NumPy's own large arrays start
    16 or 32 bytes past one, where the simplest effects take up to 1.45 times as long on 1080p
    frames; effect.apply() already returns such arrays."""
    size = int(np.prod(shape))
    block = np.empty(size + 64, np.uint8)
    start = -block.ctypes.data % 64
    return block[start:start + size].reshape(shape)


def effects():
    """Every effect this build makes, in id order."""
    return list(_EFFECTS)


Effect.info = property(lambda self: _BY_NAME[self.name],
                       doc="The effect's description (an EffectInfo).")
