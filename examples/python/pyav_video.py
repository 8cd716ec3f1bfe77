#!/usr/bin/python3
"""A video through PyAV: decode, an effect chain on each frame's I420 array, encode.

    python3 examples/python/pyav_video.py [in.mp4] [out.mp4]

Without an input it decodes FFmpeg's test pattern for three seconds.
"""
import sys

import av

import libfilter


def main():
    source = (av.open(sys.argv[1]) if len(sys.argv) > 1 else
              av.open("testsrc2=size=640x360:rate=25:duration=3", format="lavfi"))
    video = source.streams.video[0]
    output = av.open(sys.argv[2] if len(sys.argv) > 2 else "chain.mp4", "w")
    stream = output.add_stream("libx264" if "libx264" in av.codecs_available else "mpeg4",
                               rate=video.average_rate or 25)
    stream.width, stream.height, stream.pix_fmt = video.width & ~1, video.height & ~1, "yuv420p"
    chain = libfilter.Chain([
        libfilter.Effect("brightness-contrast", contrast=30, saturation=40),
        libfilter.Effect("mirage", mirage_width=20, mirage_alpha=30),
        libfilter.Effect("mirror", mirror=True),
    ])
    for frame in source.decode(video):
        frame = frame.reformat(stream.width, stream.height, "yuv420p")
        pixels = frame.to_ndarray()  # (H*3/2) x W, I420
        chain(pixels)
        for packet in stream.encode(av.VideoFrame.from_ndarray(pixels, format="yuv420p")):
            output.mux(packet)
    for packet in stream.encode():
        output.mux(packet)
    output.close()


if __name__ == "__main__":
    main()
