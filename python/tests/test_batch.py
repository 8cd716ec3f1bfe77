"""The batch command on a local cluster of two worker processes on the loopback interface,
against one process running the same chain."""

import glob
import os
import signal
import subprocess
import threading
import time

import numpy as np
import pytest

av = pytest.importorskip("av")
distributed = pytest.importorskip("distributed")

from libfilter import _media, batch  # noqa: E402

MOSAIC = (("mosaic", (("mosaic_step", 3), ("mosaic_x2", 40), ("mosaic_y2", 30))), ("invert", ()))
GRAIN = (("add-noise", ()), ("mirror", (("mirror", 1),)))


@pytest.fixture(scope="module")
def client():
    with distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                                  host="127.0.0.1", dashboard_address=None) as cluster, \
            distributed.Client(cluster) as connected:
        yield connected


def lfx():
    build = os.environ.get("LIBFILTER_BUILD_DIR", "")
    program = os.path.join(build, "bin", "lfx")
    return program if build and os.path.exists(program) else None


def lfx_args(spec):
    args = []
    for name, props in spec:
        args += ["-e", name] + [a for k, v in props for a in ("-p", f"{k}={v}")]
    return args


def write_picture(path, seed):
    rng = np.random.default_rng(seed)
    pixels = np.repeat(np.repeat(rng.integers(0, 256, (12, 16, 3), np.uint8), 4, 0), 4, 1)
    with av.open(path, "w", format="image2", container_options={"update": "1"}) as out:
        stream = out.add_stream("png" if path.endswith(".png") else "mjpeg", rate=1)
        stream.width, stream.height = 64, 48
        stream.pix_fmt = "rgb24" if path.endswith(".png") else "yuvj420p"
        frame = av.VideoFrame.from_ndarray(pixels, format="rgb24")
        for packet in stream.encode(frame.reformat(format=stream.pix_fmt)) + stream.encode(None):
            out.mux(packet)


def write_video(path, frames=75, size=(192, 108)):
    """Moving stripes at 25 fps, a key frame every 10 frames, with a sound track."""
    with av.open(path, "w") as out:
        video = out.add_stream("mpeg4", rate=25)
        video.width, video.height, video.pix_fmt = size[0], size[1], "yuv420p"
        video.codec_context.gop_size = 10
        sound = out.add_stream("pcm_s16le", rate=8000)
        sound.layout = "mono"
        x = np.arange(size[0])
        for i in range(frames):
            row = ((x + 3 * i) % 32 * 8).astype(np.uint8)
            rgb = np.repeat(np.tile(row, (size[1], 1))[:, :, None], 3, 2)
            rgb[:, :, 1] = np.arange(size[1])[:, None] * 2
            for packet in video.encode(av.VideoFrame.from_ndarray(rgb, format="rgb24")):
                out.mux(packet)
            samples = np.full((1, 320), (i * 97) % 2000, np.int16)
            audio = av.AudioFrame.from_ndarray(samples, format="s16", layout="mono")
            audio.sample_rate, audio.pts = 8000, i * 320
            for packet in sound.encode(audio):
                out.mux(packet)
        for stream in (video, sound):
            for packet in stream.encode(None):
                out.mux(packet)


def decoded(path):
    with av.open(path) as container:
        stream = container.streams.video[0]
        frames = [(f.pts, f.to_ndarray()) for f in container.decode(stream)]
        rate, base = stream.guessed_rate, stream.time_base
        container.seek(0)
        audio = sum(1 for p in container.demux(audio=0) if p.size) if container.streams.audio else 0
    return frames, rate, base, audio


def assert_same_video(path, expected):
    got, want = decoded(path), decoded(expected)
    assert [p for p, _ in got[0]] == [p for p, _ in want[0]]
    assert all(np.array_equal(a, b) for (_, a), (_, b) in zip(got[0], want[0]))
    assert got[1:] == want[1:]


def test_a_folder_of_pictures_is_what_one_process_writes(client, tmp_path):
    pictures = [str(tmp_path / f"p{i}.png") for i in range(4)] + [str(tmp_path / "photo.jpg")]
    for seed, path in enumerate(pictures):
        write_picture(path, seed)
    out = tmp_path / "out"
    assert batch.run(client, pictures, str(out), MOSAIC, quiet=True) == {}
    assert sorted(os.listdir(out)) == sorted(os.path.basename(p) for p in pictures)
    for path in pictures:
        data = open(path, "rb").read()
        one = _media.process_picture(data, os.path.splitext(path)[1], MOSAIC, "bgra")
        assert (out / os.path.basename(path)).read_bytes() == one
    for path in (pictures[0], pictures[-1]) if lfx() else ():  # byte for byte what lfx writes
        theirs = str(tmp_path / ("lfx" + os.path.splitext(path)[1]))
        subprocess.run([lfx(), "apply", "--quiet", "--format", "bgra", "-i", path, "-o", theirs]
                       + lfx_args(MOSAIC),
                       check=True)
        assert (out / os.path.basename(path)).read_bytes() == open(theirs, "rb").read()


@pytest.mark.parametrize("layout", ["yuv420p", "bgra"])
def test_a_video_in_pieces_is_what_one_process_writes(client, tmp_path, layout):
    source = str(tmp_path / "clip.mkv")
    write_video(source)
    assert len(_media.plan_segments(_media.probe(source), 0.8)) >= 3
    out = tmp_path / "out"
    chain = GRAIN if layout == "yuv420p" else MOSAIC
    assert batch.run(client, [source], str(out), chain, layout, "ffv1", 0.8, quiet=True) == {}
    # The same code in one fresh process, whose grain generator has drawn nothing yet.
    whole = str(tmp_path / "whole.mkv")
    batch._fresh(_media.process_video, source, whole, chain, layout, "ffv1", str(tmp_path))
    assert_same_video(str(out / "clip.mkv"), whole)
    if lfx():  # lfx's frames too, converted to and from the layout alike
        reference = str(tmp_path / "lfx.mkv")
        subprocess.run([lfx(), "apply", "--quiet", "-i", source, "-o", reference, "--codec",
                        "ffv1", "--format", layout] + lfx_args(chain), check=True)
        assert_same_video(str(out / "clip.mkv"), reference)


def test_a_corrupt_input_is_reported_and_the_rest_written(client, tmp_path):
    good = [str(tmp_path / "a.png"), str(tmp_path / "b.jpg")]
    for seed, path in enumerate(good):
        write_picture(path, seed)
    bad_picture, bad_video = tmp_path / "bad.png", tmp_path / "bad.mp4"
    bad_picture.write_bytes(b"\x89PNG\r\n\x1a\n" + b"\x00" * 200)
    bad_video.write_bytes(b"\x00\x00\x00\x18ftypmp42" + os.urandom(500))
    out = tmp_path / "out"
    failures = batch.run(client, good + [str(bad_picture), str(bad_video)], str(out), MOSAIC,
                         quiet=True)
    assert sorted(failures) == [str(bad_video), str(bad_picture)]
    assert sorted(os.listdir(out)) == ["a.png", "b.jpg"]


def test_a_worker_killed_mid_task_leaves_the_output_complete(client, tmp_path):
    source = str(tmp_path / "clip.mkv")
    write_video(source)
    out = tmp_path / "out"
    pids = client.run(os.getpid)
    result = {}
    worker = threading.Thread(target=lambda: result.update(failures=batch.run(
        client, [source], str(out), GRAIN, "yuv420p", "ffv1", 0.8, quiet=True)))
    worker.start()
    killed = None
    deadline = time.monotonic() + 20
    while killed is None and time.monotonic() < deadline:
        busy = [w for w, keys in client.processing().items()
                if any(str(k).startswith("segment-") for k in keys)]
        writing = glob.glob(str(out / ".libfilter-batch-*" / "*.nut"))
        if writing and busy and busy[0] in pids:  # a piece is being written: kill its worker
            os.kill(pids[busy[0]], signal.SIGKILL)
            killed = busy[0]
        time.sleep(0.02)
    worker.join(60)
    assert killed is not None and result["failures"] == {}
    whole = str(tmp_path / "whole.mkv")
    batch._fresh(_media.process_video, source, whole, GRAIN, "yuv420p", "ffv1", str(tmp_path))
    assert_same_video(str(out / "clip.mkv"), whole)
    assert os.listdir(out) == ["clip.mkv"]


def test_h264_pieces_join_with_their_reordered_frames(client, tmp_path):
    source = str(tmp_path / "clip.mkv")
    write_video(source, frames=60)
    out = tmp_path / "out"
    assert batch.run(client, [source], str(out), MOSAIC, "yuv420p", "", 0.8, quiet=True) == {}
    got, want = decoded(str(out / "clip.mkv")), decoded(source)
    assert [p for p, _ in got[0]] == [p for p, _ in want[0]] and got[1:] == want[1:]
