#!/usr/bin/python3
"""A frame through OpenCV, three ways: BGR with the order named, BGRA as the effects take it, and
I420 as OpenCV converts to it.

    python3 examples/python/opencv_frame.py [in.jpg] [out.png]
"""
import sys

import cv2
import numpy as np

import libfilter


def drawn():
    frame = np.full((360, 640, 3), (160, 110, 40), np.uint8)
    cv2.circle(frame, (320, 180), 100, (0, 160, 255), -1)
    cv2.putText(frame, "libfilter", (190, 330), cv2.FONT_HERSHEY_SIMPLEX, 2, (255, 255, 255), 4)
    return frame


def main():
    frame = cv2.imread(sys.argv[1]) if len(sys.argv) > 1 else drawn()
    height, width = frame.shape[:2]

    # OpenCV's own layout: blue, green, red. Converted to BGRA and back around the effect.
    mosaic = libfilter.Effect("mosaic", mosaic_x1=width // 4, mosaic_y1=height // 4,
                              mosaic_x2=width * 3 // 4, mosaic_y2=height * 3 // 4, mosaic_step=4)
    mosaic(frame, order="bgr")

    # BGRA goes straight to the effects, in place, even for a crop of a larger array.
    bgra = cv2.cvtColor(frame, cv2.COLOR_BGR2BGRA)
    libfilter.Effect("emboss", emboss_level=3)(bgra[:, : width // 2])

    # I420, (H*3/2) x W, as cvtColor gives it (even sizes only).
    i420 = cv2.cvtColor(cv2.cvtColor(bgra, cv2.COLOR_BGRA2BGR)[: height & ~1, : width & ~1],
                        cv2.COLOR_BGR2YUV_I420)
    libfilter.Effect("brightness-contrast", contrast=40, saturation=50)(i420)
    cv2.imwrite(sys.argv[2] if len(sys.argv) > 2 else "frame.png",
                cv2.cvtColor(i420, cv2.COLOR_YUV2BGR_I420))


if __name__ == "__main__":
    main()
