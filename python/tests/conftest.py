import os
import subprocess

import numpy as np
import pytest

import libfilter

# Grain draws from a generator the library seeds from the clock, so no two processes agree on it.
EXACT = [e.name for e in libfilter.effects() if e.name != "add-noise"]


def settings(name, width, height):
    """The effect's own showcase for this frame size: values under which it visibly works."""
    return next(e for e in libfilter.effects() if e.name == name).showcase(width, height)


def picture(height, width, channels=4, seed=7):
    return np.random.default_rng(seed).integers(0, 256, (height, width, channels), np.uint8)


def planes(height, width, seed=7):
    """YUV420P planes, the chroma rounded down as the library lays it out."""
    rng = np.random.default_rng(seed)
    return tuple(rng.integers(0, 256, shape, np.uint8)
                 for shape in [(height, width)] + [(height // 2, width // 2)] * 2)


def text(value):
    return str(int(value)) if isinstance(value, bool) else repr(value)


def reference(name, layout, width, height, properties, frame):
    """The same effect on the same frame, run by a C++ host straight through the library."""
    program = os.environ.get("LIBFILTER_REFERENCE")
    if not program:
        pytest.skip("needs the build's python_reference program (run through ctest)")
    args = [program, name, layout, str(width), str(height)]
    args += [f"{k}={text(v)}" for k, v in properties.items()]
    data = b"".join(np.ascontiguousarray(p).tobytes() for p in frame)
    return subprocess.run(args, input=data, capture_output=True, check=True).stdout
