import os
import subprocess
import sys
import threading
import time

import numpy as np
import pytest

import libfilter


def test_other_threads_run_while_a_4k_frame_is_processed():
    blur, frame = libfilter.Effect("blur", blur_count=10), np.zeros((2160, 3840, 4), np.uint8)
    started, times = threading.Event(), {}

    def work():
        started.set()
        times["start"] = time.perf_counter()
        blur(frame)
        times["end"] = time.perf_counter()

    worker = threading.Thread(target=work)
    worker.start()
    started.wait()
    woke = time.perf_counter()  # needs the interpreter lock, which the worker holds unless released
    worker.join()
    assert woke < times["end"] - (times["end"] - times["start"]) / 2


def resident_kib():
    with open("/proc/self/status") as status:
        return next(int(line.split()[1]) for line in status if line.startswith("VmRSS"))


def test_resident_memory_stays_flat_over_ten_thousand_calls():
    chain = libfilter.Chain([libfilter.Effect("mirage"), libfilter.Effect("invert")])
    frame, rgb = np.zeros((16, 16, 4), np.uint8), np.zeros((16, 16, 3), np.uint8)
    planes = (np.zeros((16, 16), np.uint8),) + (np.zeros((8, 8), np.uint8),) * 2

    def calls(n):
        for _ in range(n):
            chain(frame)
            chain.apply(planes)
            chain(rgb, order="rgb")
            libfilter.Effect("gray").apply(frame)

    calls(1000)
    before = resident_kib()
    calls(10000)
    assert resident_kib() - before < 1024


def test_the_installed_tree_imports_the_package():
    build = os.environ.get("LIBFILTER_BUILD_DIR")
    if not build:
        pytest.skip("needs the build folder (run through ctest)")
    prefix = os.path.join(build, "python-install-test")
    subprocess.run([os.environ["LIBFILTER_CMAKE"], "--install", build, "--prefix", prefix],
                   check=True, capture_output=True)
    package = os.path.join(prefix, os.environ["LIBFILTER_PYTHON_INSTALL_DIR"])
    check = ("import libfilter, numpy; f = numpy.zeros((2, 2, 4), numpy.uint8); "
             "assert libfilter.Effect('invert')(f)[0, 0, 0] == 255; print(libfilter.__file__)")
    run = subprocess.run([sys.executable, "-c", check], capture_output=True, text=True, check=True,
                         env={"PYTHONPATH": package, "PATH": os.environ["PATH"]}, cwd=prefix)
    assert run.stdout.startswith(package)
