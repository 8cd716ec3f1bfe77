import numpy as np
import pytest

import libfilter
from conftest import EXACT, picture, planes, reference, settings

SIZES = [(36, 64), (21, 37)]  # the second with an odd width and height


@pytest.mark.parametrize("height,width", SIZES)
@pytest.mark.parametrize("name", EXACT)
def test_bgra_matches_the_library(name, height, width):
    frame, props = picture(height, width), settings(name, width, height)
    expected = reference(name, "bgra", width, height, props, [frame])
    assert libfilter.Effect(name, **props)(frame).tobytes() == expected


@pytest.mark.parametrize("height,width", SIZES)
@pytest.mark.parametrize("name", EXACT)
def test_yuv420p_matches_the_library(name, height, width):
    frame, props = planes(height, width), settings(name, width, height)
    expected = reference(name, "yuv420p", width, height, props, frame)
    result = libfilter.Effect(name, **props)(frame)
    assert b"".join(p.tobytes() for p in result) == expected


@pytest.mark.parametrize("name", EXACT)
def test_one_i420_array_is_the_three_planes(name):
    y, u, v = planes(36, 64)
    props = settings(name, 64, 36)
    i420 = np.concatenate([y.ravel(), u.ravel(), v.ravel()]).reshape(54, 64)
    expected = libfilter.Effect(name, **props)((y, u, v))
    assert libfilter.Effect(name, **props)(i420).tobytes() == b"".join(p.tobytes() for p in expected)


@pytest.mark.parametrize("name", EXACT)
def test_a_crop_is_processed_in_place_and_nothing_around_it(name):
    whole = picture(50, 80)
    before = whole.copy()
    crop = whole[5:41, 3:67]
    expected = libfilter.Effect(name, **settings(name, 64, 36)).apply(np.ascontiguousarray(crop))
    assert libfilter.Effect(name, **settings(name, 64, 36))(crop) is crop
    assert np.array_equal(crop, expected)
    crop[...] = before[5:41, 3:67]
    assert np.array_equal(whole, before)


@pytest.mark.parametrize("order", ["bgr", "rgb"])
@pytest.mark.parametrize("width", [6, 37])
@pytest.mark.parametrize("name", EXACT)
def test_three_channels_are_bgra_with_an_opaque_alpha(name, width, order):
    frame = picture(21, width + 3, 3)[:, 1:-2]  # a crop: rows further apart than their bytes
    bgr = frame if order == "bgr" else frame[..., ::-1]
    bgra = np.dstack([bgr, np.full(frame.shape[:2], 255, np.uint8)])
    props = settings(name, width, 21)
    expected = libfilter.Effect(name, **props)(bgra)[..., :3]
    expected = expected if order == "bgr" else expected[..., ::-1]
    assert np.array_equal(libfilter.Effect(name, **props).apply(frame, order=order), expected)
    assert np.array_equal(libfilter.Effect(name, **props)(frame, order=order), expected)


def test_a_chain_is_its_steps_in_one_call_and_apply_leaves_the_input():
    steps = [libfilter.Effect("mirror", mirror=True), libfilter.Effect("blur", blur_count=2),
             libfilter.Effect("mosaic", mosaic_x2=30, mosaic_y2=20), libfilter.Effect("invert")]
    frame = picture(36, 64)
    before = frame.copy()
    chained = libfilter.Chain(steps).apply(frame)
    assert np.array_equal(frame, before)
    for step in steps:
        step(frame)
    assert np.array_equal(chained, frame)


def test_grain_is_drawn_once_and_kept():
    grain, frame = libfilter.Effect("add-noise", addnoise_level=6), picture(36, 64)
    first = grain.apply(frame)
    assert not np.array_equal(first, frame)
    assert np.array_equal(grain.apply(frame), first)


def test_properties_are_attributes():
    effect = libfilter.Effect("brightness-contrast", brightness=15)
    assert effect.brightness == 15.0 and effect.contrast == 0.0
    effect.contrast = -20
    assert effect.properties == {"brightness": 15.0, "contrast": -20.0, "saturation": 0.0}
    key = libfilter.Effect("color-filter", filter_color="#FF8000")
    assert key.filter_color == 0xFF8000 and libfilter.Effect("mirror", mirror=1).mirror is True
    assert libfilter.Effect("mosaic").info.properties[4].default == 3
