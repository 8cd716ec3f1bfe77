#!/usr/bin/python3
"""A picture through Pillow: aged film, then a soft blur.

    python3 examples/python/pillow_picture.py [in.jpg] [out.png]

Without an input it draws one. Pillow's pixels are red first, so the frame says order="rgb".
"""
import sys

import numpy as np
from PIL import Image, ImageDraw

import libfilter


def drawn():
    picture = Image.new("RGB", (640, 360), "steelblue")
    draw = ImageDraw.Draw(picture)
    draw.ellipse((220, 80, 420, 280), fill="orange")
    draw.rectangle((40, 240, 600, 330), fill="darkgreen")
    return picture


def main():
    picture = Image.open(sys.argv[1]).convert("RGB") if len(sys.argv) > 1 else drawn()
    pixels = np.array(picture)  # H x W x 3, a writable copy
    chain = libfilter.Chain([libfilter.Effect("aged-film"), libfilter.Effect("blur", blur_count=2)])
    chain(pixels, order="rgb")
    Image.fromarray(pixels).save(sys.argv[2] if len(sys.argv) > 2 else "aged.png")


if __name__ == "__main__":
    main()
