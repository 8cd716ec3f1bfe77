#!/usr/bin/python3
"""libfilter through Python: per-call overhead, each effect against the C++ in-place time of
libfilter_peers, beside OpenCV doing the same or the nearest work, and two threads against one.

    PYTHONPATH=build/python /usr/bin/python3 bench/python_bench.py [--peers build/bin/libfilter_peers]

Times are medians per frame of the calling thread's processor time (our effects are
single-threaded; libfilter_peers reports processor time too); OpenCV runs with
cv2.setNumThreads(1), and again with its own threads timed by the wall clock. Prints Markdown
tables.
"""
import argparse
import json
import os
import platform
import re
import statistics
import subprocess
import tempfile
import threading
import time

import cv2
import numpy as np

import libfilter

SIZES = [(1080, 1920), (2160, 3840)]


def per_call(run, budget=0.4, clock=time.thread_time):
    """Median seconds per call over batches that together take about `budget` seconds. The
    calling thread's processor time by default, so other work on a shared machine counts less."""
    run()
    start, calls = clock(), 0
    while clock() - start < budget / 10:
        run()
        calls += 1
    batch, samples = max(1, calls), []
    for _ in range(10):
        t = clock()
        for _ in range(batch):
            run()
        samples.append((clock() - t) / batch)
    return statistics.median(samples)


def filled(shape, seed=1):
    """Random pixels in an array starting on a 64-byte boundary, as the C++ benchmark's frames do."""
    array = libfilter.empty(shape)
    array[...] = np.random.default_rng(seed).integers(0, 256, shape, np.uint8)
    return array


def frame(height, width, channels=4):
    return filled((height, width, channels))


def i420_planes(height, width):
    return tuple(filled(s) for s in [(height, width), (height // 2, width // 2), (height // 2, width // 2)])


def cpu_name():
    with open("/proc/cpuinfo") as info:
        names = [line.split(":", 1)[1].strip() for line in info if line.startswith("model name")]
    return f"{names[0] if names else platform.processor()}, {os.cpu_count()} cores"


def overhead():
    tiny, tiny3, invert = frame(16, 16), frame(16, 16, 3), libfilter.Effect("invert")
    chain = libfilter.Chain([invert])
    print("| call on a 16x16 BGRA frame | us per call |\n|---|---:|")
    for label, run in [("effect(frame)", lambda: invert(tiny)),
                       ("Chain([effect])(frame)", lambda: chain(tiny)),
                       ("effect.apply(frame)", lambda: invert.apply(tiny)),
                       ("effect(frame, order='bgr'), 16x16x3", lambda: invert(tiny3, order="bgr"))]:
        print(f"| {label} | {per_call(run) * 1e6:.2f} |")
    print()


def against_cpp(peers):
    """Every effect libfilter_peers times in place, run the same way through Python."""
    with tempfile.NamedTemporaryFile(suffix=".json") as out:
        subprocess.run([peers, "--benchmark_filter=^ours/", "--benchmark_min_time=0.2",
                        f"--benchmark_out={out.name}", "--benchmark_out_format=json"],
                       capture_output=True, check=True)
        runs = json.load(out)["benchmarks"]
    print("| effect (settings) | frame | C++ ms | Python ms | Python / C++ |\n|---|---|---:|---:|---:|")
    for run in runs:
        m = re.match(r"ours/([^ /]+)(?: \((.*)\))?/(\w+)/(\d+)x(\d+)$", run["name"])
        name, settings, layout, width, height = m.groups()
        props = dict(s.split("=") for s in settings.split()) if settings else {}
        effect = libfilter.Effect(name, **{k: float(v) if "." in v else int(v) for k, v in props.items()})
        pixels = frame(int(height), int(width)) if layout == "BGRA" else i420_planes(int(height), int(width))
        ours = per_call(lambda: effect(pixels)) * 1e3
        cpp = run["cpu_time"]  # processor milliseconds per frame
        print(f"| {name} ({settings or 'its usual work'}) | {layout} {width}x{height} | {cpp:.3f} | {ours:.3f} | {ours / cpp:.2f} |")
    print()


def opencv_pairs(height, width):
    """Our effect and OpenCV's nearest work on the same BGRA frame; OpenCV writes a second array
    where it cannot work in place."""
    src, out = frame(height, width), libfilter.empty((height, width, 4))
    small = np.empty((height // 16, width // 16, 4), np.uint8)
    noise = filled((height, width, 4), seed=2) // 8
    fit = (height * height // width + 1) & ~1
    turned = np.empty((height, fit, 4), np.uint8)

    def rotate():
        canvas = np.zeros_like(src)
        cv2.resize(cv2.rotate(src, cv2.ROTATE_90_CLOCKWISE), (fit, height), dst=turned)
        canvas[:, (width - fit) // 2:(width - fit) // 2 + fit] = turned

    def mosaic():
        cv2.resize(src, (width // 16, height // 16), dst=small, interpolation=cv2.INTER_AREA)
        cv2.resize(small, (width, height), dst=out, interpolation=cv2.INTER_NEAREST)

    gray = np.array([[1, 1, 1, 0]] * 3 + [[0, 0, 0, 3]], np.float32) / 3
    sepia = np.array([[.131, .534, .272, 0], [.168, .686, .349, 0], [.189, .769, .393, 0], [0, 0, 0, 1]], np.float32)
    swap = np.array([[0, 0, 1, 0], [0, 1, 0, 0], [1, 0, 0, 0], [0, 0, 0, 1]], np.float32)
    table = np.clip((np.arange(256) - 127) * 1.4 + 127 + 51, 0, 255).astype(np.uint8)
    sharpen = np.array([[-1, -1, -1], [-1, 9, -1], [-1, -1, -1]], np.float32)
    emboss = np.array([[0, -5, 0], [0, 5, 0], [0, 0, 0]], np.float32)
    return [
        ("invert", {}, "bitwise_not", lambda: cv2.bitwise_not(src, dst=src)),
        ("mirror", {"mirror": 1}, "flip 1", lambda: cv2.flip(src, 1, dst=out)),
        ("mirror", {"mirror": 1, "vertical": 1}, "flip -1", lambda: cv2.flip(src, -1, dst=out)),
        ("blur", {"blur_count": 1}, "GaussianBlur 3x3", lambda: cv2.GaussianBlur(src, (3, 3), 0, dst=out)),
        ("sharpen", {"sharpen_count": 1}, "filter2D 3x3", lambda: cv2.filter2D(src, -1, sharpen, dst=out)),
        ("emboss", {}, "filter2D 3x3, delta 128", lambda: cv2.filter2D(src, -1, emboss, dst=out, delta=128)),
        ("gray", {}, "transform 4x4", lambda: cv2.transform(src, gray, dst=out)),
        ("aged-film", {}, "transform 4x4", lambda: cv2.transform(src, sepia, dst=out)),
        ("flip-color", {}, "transform 4x4", lambda: cv2.transform(src, swap, dst=out)),
        ("brightness-contrast", {"brightness": 20, "contrast": 40}, "LUT", lambda: cv2.LUT(src, table, dst=out)),
        ("mosaic", {"mosaic_x2": width, "mosaic_y2": height, "mosaic_step": 4}, "resize area + nearest", mosaic),
        ("add-noise", {"addnoise_level": 4}, "add of a drawn noise array", lambda: cv2.add(src, noise, dst=src)),
        ("rotate90", {"rotate90_angle": 90}, "rotate + resize + place", rotate),
    ]


def against_opencv():
    print("| effect | OpenCV | frame | ours ms | OpenCV 1 thread ms | ours / OpenCV | "
          f"OpenCV {cv2.getNumberOfCPUs()} threads ms | ours / OpenCV |\n|---|---|---|---:|---:|---:|---:|---:|")
    for height, width in SIZES:
        for name, props, theirs, run in opencv_pairs(height, width):
            pixels, effect = frame(height, width), libfilter.Effect(name, **props)
            ours = per_call(lambda: effect(pixels)) * 1e3
            cv2.setNumThreads(1)
            single = per_call(run) * 1e3
            cv2.setNumThreads(cv2.getNumberOfCPUs())
            threaded = per_call(run, clock=time.perf_counter) * 1e3
            print(f"| {name} | `{theirs}` | BGRA {width}x{height} | {ours:.3f} | {single:.3f} | "
                  f"{ours / single:.2f} | {threaded:.3f} | {ours / threaded:.2f} |")
    print()


def conversions():
    print("| 1080p invert | ms | over BGRA |\n|---|---:|---:|")
    invert = libfilter.Effect("invert")
    bgra, bgr = frame(1080, 1920), frame(1080, 1920, 3)
    # 16 bytes past a 64-byte boundary, where NumPy's own large arrays often start.
    shifted = libfilter.empty(1080 * 1920 * 4 + 16)[16:].reshape(1080, 1920, 4)
    base = per_call(lambda: invert(bgra)) * 1e3
    for label, run in [("BGRA in place", lambda: invert(bgra)),
                       ("BGRA in place, 16 bytes past a 64-byte boundary", lambda: invert(shifted)),
                       ("BGR in place (order='bgr')", lambda: invert(bgr, order="bgr")),
                       ("RGB in place (order='rgb')", lambda: invert(bgr, order="rgb")),
                       ("BGRA apply (a copy)", lambda: invert.apply(bgra))]:
        ms = per_call(run) * 1e3
        print(f"| {label} | {ms:.3f} | {ms / base:.2f} |")
    print()


def threads(count=16):
    frames = [frame(2160, 3840) for _ in range(count)]

    def batch(workers):
        def work(part):
            blur = libfilter.Effect("blur", blur_count=2)
            for f in part:
                blur(f)
        pool = [threading.Thread(target=work, args=(frames[i::workers],)) for i in range(workers)]
        start, cpu = time.perf_counter(), time.process_time()
        for t in pool:
            t.start()
        for t in pool:
            t.join()
        return time.perf_counter() - start, time.process_time() - cpu

    (one, one_cpu), (two, two_cpu) = (min(batch(n) for _ in range(3)) for n in (1, 2))
    # Processor time over wall time shows how many cores the batch really had.
    print(f"{count} 4K BGRA frames, blur_count=2: one thread {one * 1e3:.0f} ms "
          f"({one_cpu / one:.2f} cores busy), two threads {two * 1e3:.0f} ms "
          f"({two_cpu / two:.2f} cores busy), speed-up {one / two:.2f}x\n")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--peers", default="build/bin/libfilter_peers",
                        help="the C++ benchmark whose in-place times Python is compared with")
    parser.add_argument("--only", choices=["overhead", "cpp", "opencv", "conversions", "threads"])
    args = parser.parse_args()
    print(f"CPU: {cpu_name()}; OpenCV {cv2.__version__}; NumPy {np.__version__}\n")
    steps = {"overhead": overhead, "cpp": lambda: against_cpp(args.peers), "opencv": against_opencv,
             "conversions": conversions, "threads": threads}
    for name, step in steps.items():
        if args.only in (None, name):
            step()


if __name__ == "__main__":
    main()
