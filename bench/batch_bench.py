"""Throughput of the batch command on 1080p pictures and a long 1080p video, on a local cluster
of one and of two workers, beside one `lfx apply` process doing the same work.

    PYTHONPATH=build/python /usr/bin/python3 bench/batch_bench.py --lfx build/bin/lfx

Prints pictures per second and video frames per second for each, the two-worker to one-worker
ratio, and the share of a picture task spent outside the work itself (scheduling, transfer,
writing): one worker's time per picture against the same work called in this process. Cluster
start-up is not counted; the media are generated first.
"""

import argparse
import os
import subprocess
import sys
import tempfile
import time

import av
import numpy as np
from distributed import Client, LocalCluster

from libfilter import _media, batch

CHAIN = [("blur", []), ("brightness-contrast", [("contrast", "30")]),
         ("mosaic", [("mosaic_step", "4"), ("mosaic_x2", "960"), ("mosaic_y2", "540")])]
W, H = 1920, 1080


def scene(i):
    """A picture that compresses like a photograph more than noise or flat colour does."""
    y, x = np.mgrid[0:H, 0:W]
    rng = np.random.default_rng(i)
    rgb = np.stack([(x + 5 * i) % 256, (y * 2 + 3 * i) % 256, ((x ^ y) + 7 * i) % 256], 2)
    rgb = rgb + rng.integers(0, 24, (H, W, 1))
    return np.clip(rgb, 0, 255).astype(np.uint8)


def make_pictures(folder, count):
    paths = []
    for i in range(count):
        path = os.path.join(folder, f"p{i:03}.png")
        with av.open(path, "w", format="image2", container_options={"update": "1"}) as out:
            stream = out.add_stream("png", rate=1)
            stream.width, stream.height, stream.pix_fmt = W, H, "rgb24"
            for p in stream.encode(av.VideoFrame.from_ndarray(scene(i), format="rgb24")):
                out.mux(p)
            for p in stream.encode(None):
                out.mux(p)
        paths.append(path)
    return paths


def make_video(path, seconds):
    with av.open(path, "w") as out:
        stream = out.add_stream("libx264", rate=25)
        stream.width, stream.height, stream.pix_fmt = W, H, "yuv420p"
        stream.codec_context.gop_size = 25
        stream.codec_context.options = {"preset": "veryfast"}
        base = scene(0)
        for i in range(int(seconds * 25)):
            frame = np.roll(base, 8 * i, axis=1)
            for p in stream.encode(av.VideoFrame.from_ndarray(frame, format="rgb24")):
                out.mux(p)
        for p in stream.encode(None):
            out.mux(p)
    return path


def lfx_args():
    return [a for name, props in CHAIN
            for a in ["-e", name] + [x for k, v in props for x in ("-p", f"{k}={v}")]]


def timed(action):
    start = time.perf_counter()
    action()
    return time.perf_counter() - start


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--pictures", type=int, default=16)
    parser.add_argument("--seconds", type=float, default=12, help="length of the video")
    parser.add_argument("--segment", type=float, default=2)
    parser.add_argument("--lfx", help="lfx program to compare with")
    args = parser.parse_args()
    spec = batch.resolve_chain(CHAIN)
    folder = tempfile.mkdtemp(prefix="batch-bench-")
    pictures = make_pictures(folder, args.pictures)
    video = make_video(os.path.join(folder, "long.mp4"), args.seconds)
    frames = _media.probe(video)["frames"]
    rows = []

    if args.lfx:
        def lfx_pictures():
            for p in pictures:
                subprocess.run([args.lfx, "apply", "--quiet", "-i", p, "-o",
                                os.path.join(folder, "lfx.png")] + lfx_args(), check=True)
        seconds = timed(lfx_pictures)
        rows.append(("lfx apply, one process", args.pictures / seconds, None))
        seconds = timed(lambda: subprocess.run(
            [args.lfx, "apply", "--quiet", "-i", video, "-o", os.path.join(folder, "lfx.mkv"),
             "--codec", "ffv1"] + lfx_args(), check=True))
        rows[-1] = rows[-1][:2] + (frames / seconds,)

    def in_process():
        for p in pictures:
            _media.process_picture(open(p, "rb").read(), ".png", spec, "bgra")
    work = timed(in_process) / args.pictures
    rows.append(("same work in this process", 1 / work, None))

    per_picture = {}
    for workers in (1, 2):
        with LocalCluster(n_workers=workers, threads_per_worker=1, processes=True,
                          host="127.0.0.1", dashboard_address=None) as cluster, \
                Client(cluster) as client:
            out = os.path.join(folder, f"out{workers}")
            client.run(lambda: None)
            seconds = timed(lambda: batch.run(client, pictures, out, spec, quiet=True))
            per_picture[workers] = seconds / args.pictures
            video_seconds = timed(lambda: batch.run(client, [video], out, spec, "bgra", "ffv1",
                                                    args.segment, quiet=True))
            rows.append((f"batch, {workers} worker{'s' if workers > 1 else ''}",
                         args.pictures / seconds, frames / video_seconds))

    print(f"{args.pictures} pictures {W}x{H} PNG; video {frames} frames {W}x{H} H.264 -> ffv1, "
          f"segments of {args.segment:g} s; chain: {' '.join(lfx_args())}")
    print(f"{'':30} {'pictures/s':>11} {'frames/s':>9}")
    for name, pics, fps in rows:
        print(f"{name:30} {pics:11.2f} {fps if fps is not None else float('nan'):9.1f}")
    two, one = rows[-1], rows[-2]
    print(f"two workers / one: pictures {two[1] / one[1]:.2f}x, video {two[2] / one[2]:.2f}x")
    print(f"per-task overhead (one worker vs. this process): "
          f"{100 * (per_picture[1] - work) / work:.1f}% of a picture task")
    subprocess.run(["rm", "-rf", folder], check=False)


if __name__ == "__main__":
    sys.exit(main())
