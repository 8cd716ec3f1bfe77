"""Runs an effect chain over many pictures and videos on a Dask cluster.

    python3 -m libfilter.batch -e mosaic -p mosaic_step=8 -e invert -o out/ photos/*.png clip.mp4

The chain is given as `lfx apply` takes it. Every picture is one task, decoded, processed and
encoded in a worker's memory; a video is one task, or with `--segment SECONDS` one task per
stretch between key frames, whose encoded pieces are then joined without re-encoding and given
the input's audio. Without `--scheduler` the run starts a local cluster of `--workers`
processes on the loopback interface. Inputs are read by the workers at the paths given, and the
pieces of a video are written in the output folder, so on a cluster of several machines both
must be at the same path everywhere (a shared file system).

Each output is written under a temporary name in a hidden folder inside the output folder and
renamed into place only when complete; a task that fails is tried once more, then its input is
reported and the other outputs are still written. Interrupting the run (Ctrl-C) removes what is
unfinished.
"""

import argparse
import logging
import math
import os
import pickle
import re
import shutil
import subprocess
import sys
import tempfile
import time
import uuid

from . import effects
from . import _media

__all__ = ["main", "run", "resolve_chain"]


class _ChainAction(argparse.Action):
    """-e and -p in the order given: each -p sets a property of the -e before it."""

    def __call__(self, parser, namespace, value, option):
        chain = list(getattr(namespace, self.dest) or [])
        if option in ("-e", "--effect"):
            chain.append((value, []))
        else:
            name, equals, text = value.partition("=")
            if not chain:
                parser.error(f"-p {value}: a property follows the -e of its effect")
            if not equals or not name:
                parser.error(f"-p {value}: write property=value")
            chain[-1][1].append((name, text))
        setattr(namespace, self.dest, chain)


def _parser():
    parser = argparse.ArgumentParser(
        prog="python3 -m libfilter.batch",
        description="Run an effect chain over pictures and videos on a Dask cluster.")
    parser.add_argument("inputs", nargs="+", metavar="INPUT", help="pictures (.png, .jpg) "
                        "and videos")
    parser.add_argument("-o", "--output", required=True, metavar="DIR",
                        help="folder for the outputs, each named after its input")
    parser.add_argument("-e", "--effect", dest="chain", action=_ChainAction, metavar="NAME",
                        help="an effect, in chain order")
    parser.add_argument("-p", "--property", dest="chain", action=_ChainAction,
                        metavar="NAME=VALUE", help="a property of the -e before it")
    parser.add_argument("--format", choices=("bgra", "yuv420p"), default="bgra",
                        help="the frame layout the effects work on (default bgra)")
    parser.add_argument("--codec", default="", help="video encoder (ffv1 is lossless; default "
                        "H.264); a container that cannot hold it becomes .mkv")
    parser.add_argument("--workers", type=int, default=os.cpu_count() or 1, metavar="N",
                        help="processes of the local cluster (default: the number of cores)")
    parser.add_argument("--scheduler", metavar="ADDRESS",
                        help="an existing cluster's scheduler, e.g. tcp://host:8786")
    parser.add_argument("--segment", type=float, default=0, metavar="SECONDS",
                        help="split videos at key frames into pieces of about this length "
                             "(default 0: one task per video)")
    parser.add_argument("-q", "--quiet", action="store_true", help="no progress")
    return parser


# ---- the chain, checked as lfx checks it ---------------------------------------------------

def _number(text, integer):
    pattern = r"[+-]?\d+" if integer else r"[+-]?(\d+\.?\d*|\.\d+)([eE][+-]?\d+)?"
    if not re.fullmatch(pattern, text):
        return None
    value = int(text) if integer else float(text)
    return value if math.isfinite(value) else None


def _colour(text):
    if re.fullmatch(r"(0[xX]|#)[0-9a-fA-F]{6}", text):
        return int(text.lstrip("#")[2:] if text[0] == "0" else text[1:], 16)
    value = _number(text, True)
    return value if value is not None and 0 <= value <= 0xFFFFFF else None


def _value(effect, prop, text):
    low, top = prop.range
    where = f"effect '{effect}': property '{prop.name}' takes "
    if prop.kind == "flag":
        if text not in ("0", "1"):
            raise ValueError(where + f"0 or 1, not '{text}'")
        return int(text)
    if prop.kind == "colour":
        value = _colour(text)
        if value is None:
            raise ValueError(where + f"a colour as 0xRRGGBB, #RRGGBB or a decimal number, "
                             f"not '{text}'")
        return value
    value = _number(text, prop.kind == "integer")
    span = f"{low:g}..{top if isinstance(top, str) else format(top, 'g')}"
    if value is None or value < low or (not isinstance(top, str) and value > top):
        raise ValueError(where + f"{'an integer' if prop.kind == 'integer' else 'a number'} "
                         f"in {span}, not '{text}'")
    return value


def resolve_chain(requests):
    """[(effect, [(property, text), ...]), ...] checked against the effects' descriptions, as
    the chain description the tasks take. Raises ValueError naming the first problem."""
    known = {e.name: e for e in effects()}
    spec = []
    for name, props in requests:
        if name not in known:
            raise ValueError(f"unknown effect '{name}' (effects: {', '.join(known)})")
        described = {p.name: p for p in known[name].properties}
        values = []
        for prop, text in props:
            if prop not in described:
                names = ", ".join(described) or "it has none"
                raise ValueError(f"effect '{name}' has no property '{prop}' ({names})")
            values.append((prop, _value(name, described[prop], text)))
        spec.append((name, tuple(values)))
    _media.make_chain(spec)  # an effect this build cannot make fails here, before any task
    return tuple(spec)


# ---- the tasks -------------------------------------------------------------------------------

_CHILD = """import pickle, sys
function, arguments = pickle.load(sys.stdin.buffer)
try:
    answer = (True, function(*arguments))
except Exception as error:
    answer = (False, str(error) or type(error).__name__)
pickle.dump(answer, sys.stdout.buffer)
"""


def _fresh(function, *arguments):
    """function(*arguments) in a new interpreter, whose random generator has drawn nothing yet:
    the grain effect then draws the pattern a one-process run draws at its first frame."""
    env = dict(os.environ, PYTHONPATH=os.pathsep.join(p for p in sys.path if p))
    child = subprocess.run([sys.executable, "-c", _CHILD],
                           input=pickle.dumps((function, arguments)), capture_output=True,
                           env=env, check=False)
    if child.returncode != 0 or not child.stdout:
        lines = child.stderr.decode(errors="replace").strip().splitlines()
        raise RuntimeError(lines[-1] if lines else
                           f"the task's process ended with {child.returncode}")
    ok, answer = pickle.loads(child.stdout)
    if not ok:
        raise RuntimeError(answer)
    return answer


def _call(function, spec, *arguments):
    if _media.needs_fresh_process(spec):
        return _fresh(function, *arguments)
    return function(*arguments)


def _picture_task(path, spec, layout):
    with open(path, "rb") as file:
        data = file.read()
    return _call(_media.process_picture, spec, data, os.path.splitext(path)[1], spec, layout)


def _segment_task(path, start, end, spec, layout, codec, base):
    # A name of its own per attempt: a retry never meets a half-written file of a lost one.
    out = f"{base}.{uuid.uuid4().hex}.nut"
    return out, _call(_media.encode_segment, spec, path, start, end, spec, layout, codec, out)


def _join_task(path, pieces, out):
    _media.join(path, pieces, out)
    return sum(len(stamps) for _, stamps in pieces)


def _default_codec():
    import av
    for name in ("libx264", "h264", "mpeg4"):
        try:
            av.Codec(name, "w")
            return name
        except Exception:  # noqa: BLE001 - not in this FFmpeg build
            continue
    return "mpeg4"


class _Progress:
    """One line of progress on a terminal, the finished outputs on any stream."""

    def __init__(self, tasks, frames, quiet, stream):
        self.tasks, self.frames = tasks, frames
        self.tasks_done = self.frames_done = 0
        self.quiet, self.stream = quiet, stream
        self.live = not quiet and stream.isatty()
        self.start = time.monotonic()

    def step(self, frames=0):
        self.tasks_done += 1
        self.frames_done += frames
        if self.live:
            rate = self.frames_done / max(time.monotonic() - self.start, 1e-6)
            self.stream.write(f"\rbatch: {self.tasks_done}/{self.tasks} tasks, "
                              f"{self.frames_done}/{self.frames} frames, {rate:.1f} frames/s ")
            self.stream.flush()

    def say(self, text):
        if self.quiet:
            return
        if self.live:
            self.stream.write("\r\033[K")
        print(text, file=self.stream, flush=True)


def run(client, inputs, out_dir, spec, layout="bgra", codec="", segment=0.0, quiet=False,
        stream=None):
    """Runs the chain over the inputs on the client's cluster and writes the outputs into
    out_dir. Answers {input: error text} for the inputs that failed (empty when all went)."""
    from distributed import as_completed

    stream = stream or sys.stdout
    os.makedirs(out_dir, exist_ok=True)
    video_codec = codec or _default_codec()
    whole = segment > 0 and _media.clock_seeded(spec)
    if whole:
        segment = 0  # one grain pattern per video, drawn once, as in one process
    work = tempfile.mkdtemp(prefix=".libfilter-batch-", dir=out_dir)
    failures, finals, owner, frames_of, taken = {}, {}, {}, {}, {}
    futures, total_frames = [], 0
    try:
        for index, path in enumerate(inputs):
            source = os.path.abspath(path)
            name = _media.output_name(path, codec)
            if name in taken:
                failures[path] = f"its output {name} is also {taken[name]}'s"
                continue
            taken[name] = path
            temp = os.path.join(work, f"{index}.{name}")
            if _media.is_picture(path):
                future = client.submit(_picture_task, source, spec, layout, retries=1,
                                       pure=False, key=f"picture-{index}-{uuid.uuid4().hex}")
                frames_of[future.key] = 1
                total_frames += 1
            else:
                try:
                    info = _media.probe(source)
                except Exception as error:  # noqa: BLE001 - reported with its input
                    failures[path] = _text(error)
                    continue
                pieces = []
                for number, (start, end) in enumerate(_media.plan_segments(info, segment)):
                    piece = client.submit(
                        _segment_task, source, start, end, spec, layout, video_codec,
                        os.path.join(work, f"{index}.{number}"), retries=1, pure=False,
                        key=f"segment-{index}-{number}-{uuid.uuid4().hex}")
                    owner[piece.key] = path
                    futures.append(piece)
                    pieces.append(piece)
                future = client.submit(_join_task, source, pieces, temp, retries=1, pure=False,
                                       key=f"join-{index}-{uuid.uuid4().hex}")
                total_frames += info["frames"]
            owner[future.key] = path
            finals[future.key] = (temp, os.path.join(out_dir, name))
            futures.append(future)

        progress = _Progress(len(futures), total_frames, quiet, stream)
        workers = len(client.scheduler_info().get("workers", {}))
        progress.say(f"batch: {len(inputs)} input(s), {len(futures)} task(s) on {workers} "
                     f"worker(s); dashboard {client.dashboard_link}")
        if whole:
            progress.say("batch: videos are kept whole: add-noise at a level other than 4 "
                         "draws its grain from the clock, once per process")
        # Results come in batches as tasks finish, not one round trip each.
        for future, result in as_completed(futures, with_results=True, raise_errors=False):
            path = owner[future.key]
            if future.status != "finished":
                if path not in failures:
                    failures[path] = _text(result[1] if isinstance(result, tuple) else result)
                    progress.say(f"batch: failed: {path}: {failures[path]}")
                progress.step()
                continue
            if future.key.startswith("segment-"):
                progress.step(len(result[1]))
                continue
            temp, final = finals[future.key]
            if future.key.startswith("picture-"):
                with open(temp, "wb") as file:
                    file.write(result)
            os.replace(temp, final)
            progress.step(frames_of.get(future.key, 0))
            progress.say(f"batch: wrote {final}")
    except KeyboardInterrupt:
        client.cancel(futures)
        progress_stream = stream
        print("batch: interrupted; unfinished outputs removed", file=progress_stream)
        raise
    finally:
        shutil.rmtree(work, ignore_errors=True)
    return failures


def _text(error):
    text = str(error) or type(error).__name__
    return text.splitlines()[0] if text else type(error).__name__


def _client(args):
    from distributed import Client, LocalCluster

    if args.scheduler:
        return Client(args.scheduler)
    cluster = LocalCluster(n_workers=max(1, args.workers), threads_per_worker=1, processes=True,
                           host="127.0.0.1", dashboard_address="127.0.0.1:8787",
                           silence_logs=logging.ERROR)
    return Client(cluster)


def main(argv=None):
    args = _parser().parse_args(argv)
    try:
        spec = resolve_chain(args.chain or [])
    except (ValueError, TypeError) as error:
        print(f"batch: {error}", file=sys.stderr)
        return 2
    try:
        client = _client(args)
    except BaseException as error:  # noqa: BLE001 - Ctrl-C while the cluster starts
        if isinstance(error, KeyboardInterrupt) or isinstance(error.__context__, KeyboardInterrupt):
            print("batch: interrupted", file=sys.stderr)
            return 130
        raise
    try:
        failures = run(client, args.inputs, args.output, spec, args.format, args.codec,
                       args.segment, args.quiet)
    except KeyboardInterrupt:
        return 130
    finally:
        cluster = client.cluster
        client.close()
        if cluster is not None and not args.scheduler:
            cluster.close()
    for path, text in failures.items():
        print(f"batch: {path}: {text}", file=sys.stderr)
    if not args.quiet:
        print(f"batch: {len(args.inputs) - len(failures)} of {len(args.inputs)} written"
              + (f", {len(failures)} failed" if failures else ""))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
