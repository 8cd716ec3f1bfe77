import numpy as np
import pytest

import libfilter

INVERT = libfilter.Effect("invert")


def read_only():
    frame = np.zeros((8, 8, 4), np.uint8)
    frame.flags.writeable = False
    return frame


u8 = np.uint8
BAD_FRAMES = [
    (np.zeros((8, 8, 4), np.float32), {}, TypeError, "uint8 numpy array, not a float32"),
    ([[0] * 4] * 4, {}, TypeError, "expected a uint8"),
    (b"\0" * 256, {}, TypeError, "not bytes"),
    (np.zeros((8, 8, 2), u8), {}, ValueError, "shape \\(8, 8, 2\\)"),
    (np.zeros(64, u8), {}, ValueError, "H x W x 4 \\(BGRA\\)"),
    (np.zeros((8, 8, 3), u8), {}, ValueError, "order='bgr' \\(OpenCV\\)"),
    (np.zeros((8, 8, 3), u8), {"order": "bgra"}, ValueError, "not 'bgra'"),
    (np.zeros((8, 8, 3), u8), {"order": 3}, TypeError, "order must be"),
    (np.zeros((8, 8, 4), u8), {"order": "rgb"}, ValueError, "is BGRA"),
    (np.zeros((8, 16, 4), u8)[:, ::2], {}, ValueError, "4 adjacent bytes"),
    (np.zeros((8, 8, 4), u8)[::-1], {}, ValueError, "run down in memory"),
    (np.zeros((0, 8, 4), u8), {}, ValueError, "1 to 65535 pixels"),
    (read_only(), {}, ValueError, "read-only.*apply"),
    (np.zeros((7, 8), u8), {}, ValueError, "I420"),
    (np.zeros((12, 8), u8)[:, ::1].T, {}, ValueError, "I420"),
    ((np.zeros((8, 8), u8), np.zeros((3, 4), u8), np.zeros((4, 4), u8)), {}, ValueError,
     "u plane .* half its height"),
    ((np.zeros((8, 8), u8), np.zeros((4, 4), u8), [0]), {}, TypeError, "the v plane must be"),
    ((np.zeros((8, 8), u8),) * 3, {"order": "bgr"}, ValueError, "not YUV420P planes"),
]


@pytest.mark.parametrize("frame,kwargs,error,words", BAD_FRAMES)
def test_a_bad_frame_raises_saying_what_was_expected(frame, kwargs, error, words):
    with pytest.raises(error, match=words):
        INVERT(frame, **kwargs)


def test_apply_takes_a_read_only_frame():
    assert INVERT.apply(read_only())[0, 0, 0] == 255


BAD_SETTINGS = [
    ("nope", {}, ValueError, "unknown effect 'nope' \\(effects: brightness-contrast, .*invert"),
    ("blur", {"radius": 2}, TypeError, "no property 'radius' \\(its properties: blur_count\\)"),
    ("invert", {"level": 2}, TypeError, "\\(it has none\\)"),
    ("blur", {"blur_count": 1.5}, TypeError, "blur_count takes an integer, not 1.5"),
    ("blur", {"blur_count": "2"}, TypeError, "takes an integer"),
    ("mirror", {"mirror": 2}, ValueError, "True, False, 1 or 0"),
    ("brightness-contrast", {"brightness": "x"}, TypeError, "takes a number"),
    ("color-filter", {"filter_color": "#12345"}, ValueError, "0xRRGGBB"),
    ("color-filter", {"filter_color": 1 << 24}, ValueError, "0xRRGGBB"),
]


@pytest.mark.parametrize("name,props,error,words", BAD_SETTINGS)
def test_a_bad_setting_raises_naming_what_is_known(name, props, error, words):
    with pytest.raises(error, match=words):
        libfilter.Effect(name, **props)


def test_unknown_attributes_and_chain_members_raise():
    with pytest.raises(AttributeError, match="its properties: mirror, vertical"):
        libfilter.Effect("mirror").flip = 1
    with pytest.raises(AttributeError, match="no property 'flip'"):
        libfilter.Effect("mirror").flip
    with pytest.raises(TypeError, match="libfilter.Effect objects, not int"):
        libfilter.Chain([INVERT, 3])


CLAMPED = [
    ("blur", "blur_count", 10**30, 10),
    ("blur", "blur_count", -5, 0),
    ("brightness-contrast", "brightness", float("inf"), 100.0),
    ("brightness-contrast", "saturation", -1e300, -100.0),
    ("mosaic", "mosaic_step", 2**40, 8),
    ("mosaic", "mosaic_x2", 10**12, 2**31 - 1),  # the effect clamps it to the frame it gets
    ("rotate90", "rotate90_angle", -90, 0),
]


@pytest.mark.parametrize("name,prop,value,clamped", CLAMPED)
def test_values_out_of_range_are_clamped_to_the_described_range(name, prop, value, clamped):
    effect = libfilter.Effect(name, **{prop: value})
    assert getattr(effect, prop) == clamped
    effect.apply(np.zeros((9, 9, 4), np.uint8))


@pytest.mark.parametrize("name", [e.name for e in libfilter.effects()])
def test_tiny_frames_work_or_raise_the_librarys_report(name):
    for height, width in [(1, 1), (2, 1), (1, 2), (3, 5)]:
        chroma = ((height + 1) // 2, (width + 1) // 2)
        for frame, order in [(np.full((height, width, 4), 200, u8), None),
                             (np.full((height, width, 3), 200, u8), "rgb"),
                             ((np.zeros((height, width), u8),) + (np.zeros(chroma, u8),) * 2, None)]:
            effect = libfilter.Effect(name, **libfilter.Effect(name).info.showcase(width, height))
            try:
                effect(frame, order=order)
            except libfilter.Error as error:  # the quarter turn cannot scale a frame this small
                assert str(error).startswith(f"effect '{name}' failed: ")
