"""The work of one batch task: a picture, or a stretch of a video, through an effect chain.

Decoding, pixel conversion and encoding go through PyAV (FFmpeg's libraries); the effects run
on the NumPy frames through the package. Everything here is plain functions of paths, bytes and
a chain description, so a Dask worker, a test or a single process runs the same code.

A chain description is a tuple of (effect name, ((property, value), ...)) with Python values,
cheap to send to a worker; each task makes its own effect objects from it, since effects carry
per-instance state and run one frame at a time.
"""

import heapq
import io
import itertools
import os
import warnings
from fractions import Fraction

import av

from . import Chain, Effect, effects

av.logging.set_level(av.logging.ERROR)  # FFmpeg's notes on deprecated formats are not news

PICTURE_CODECS = {".png": "png", ".jpg": "mjpeg", ".jpeg": "mjpeg"}
# Containers that take only a few video codecs; any other codec goes into Matroska instead.
_MP4_FAMILY = {".mp4", ".m4v", ".mov"}
_MP4_CODECS = {"libx264", "h264", "libx265", "hevc", "mpeg4", "mjpeg", "libaom-av1", "av1",
               "libvpx-vp9", "vp9"}
_FF_QP2LAMBDA = 118
# Effects whose output depends on more than the frame in hand: the grain pattern is drawn once,
# at an effect's first frame, from a random generator the whole process shares. A fresh process
# starts that generator at the same place, so the first pattern is the same in every process,
# unless a level other than 4 (the level a new effect works at) reseeds it from the clock.
STATEFUL_EFFECTS = {"add-noise"}


def needs_fresh_process(spec):
    return any(name in STATEFUL_EFFECTS for name, _ in spec)


def clock_seeded(spec):
    return any(name == "add-noise" and dict(props).get("addnoise_level", 4) != 4
               for name, props in spec)


def is_picture(path):
    return os.path.splitext(path)[1].lower() in PICTURE_CODECS


def output_name(path, codec):
    """The output's file name: the input's, in another container when its own cannot hold
    the codec asked for."""
    stem, ext = os.path.splitext(os.path.basename(path))
    if codec and not is_picture(path) and ext.lower() in _MP4_FAMILY and codec not in _MP4_CODECS:
        ext = ".mkv"
    return stem + ext


def make_chain(spec):
    return Chain([Effect(name, **dict(props)) for name, props in spec])


def check_frame_bounds(spec, width, height):
    """Refuses a property whose range ends at the frame's width or height when the value is
    beyond this input's; the effect would clamp it silently."""
    info = {e.name: {p.name: p for p in e.properties} for e in effects()}
    for name, props in spec:
        for prop, value in props:
            top = info[name][prop].range[1]
            if isinstance(top, str):
                limit = width if top == "width" else height
                if value > limit:
                    raise ValueError(f"effect '{name}': property '{prop}' takes 0..{limit} for "
                                     f"this {width}x{height} input, not {value}")


def _matrix(height):
    # Untagged video is taken as HD colours from 720 lines up, SD below.
    return "bt709" if height >= 720 else "bt601"


def _full_range(pix_fmt):
    return av.VideoFormat(pix_fmt).is_rgb or pix_fmt.startswith("yuvj")


class _Converter:
    """Converts frames to a pixel format with libswscale's bicubic filter at accurate rounding,
    as lfx converts them, through a filter graph kept while the frames keep their shape."""

    def __init__(self):
        self._shape, self._graph = None, None

    def __call__(self, frame, pix_fmt):
        if frame.format.name == pix_fmt:
            return frame
        shape = (frame.format.name, frame.width, frame.height, pix_fmt)
        if shape != self._shape:
            self._shape, self._graph = shape, self._make(frame, pix_fmt)
        self._graph.push(frame)
        out = self._graph.pull()
        out.pts = frame.pts
        return out

    @staticmethod
    def _make(frame, pix_fmt):
        matrix = _matrix(frame.height)
        ranges = ["pc" if _full_range(f) else "tv" for f in (frame.format.name, pix_fmt)]
        graph = av.filter.Graph()
        steps = [graph.add_buffer(width=frame.width, height=frame.height,
                                  format=frame.format.name, time_base=Fraction(1, 1)),
                 graph.add("scale", f"flags=bicubic+accurate_rnd:in_color_matrix={matrix}:"
                                    f"out_color_matrix={matrix}:in_range={ranges[0]}:"
                                    f"out_range={ranges[1]}"),
                 graph.add("format", pix_fmt), graph.add("buffersink")]
        for a, b in zip(steps, steps[1:]):
            a.link_to(b)
        graph.configure()
        return graph


def _run(chain, frame, layout, convert):
    """The frame converted to the layout, through the chain, as a new frame in that layout."""
    pixels = convert(frame, layout).to_ndarray()
    chain(pixels)
    out = av.VideoFrame.from_ndarray(pixels, format=layout)
    out.pts = frame.pts
    return out


def _encoder_format(codec_name, layout):
    if codec_name == "mjpeg":  # full-range YUV, as JPEG files hold it
        return "yuvj444p" if layout == "bgra" else "yuvj420p"
    formats = [f.name for f in av.Codec(codec_name, "w").video_formats or []]
    if not formats or layout in formats:
        return layout
    if codec_name == "png":
        return "rgba" if layout == "bgra" else "rgb24"
    for preferred in ("yuv420p", "yuvj420p"):
        if preferred in formats:
            return preferred
    return formats[0]


def _aspect(stream):
    aspect = stream.codec_context.sample_aspect_ratio
    return aspect if aspect and aspect > 0 else Fraction(1)


def _configure(context, codec_name, width, height, pix_fmt, aspect):
    context.width, context.height, context.pix_fmt = width, height, pix_fmt
    context.sample_aspect_ratio = aspect
    options = {}
    if pix_fmt.startswith("yuv"):
        options["colorspace"] = "bt709" if height >= 720 else "smpte170m"
    if codec_name == "libx264":
        options.update(preset="fast", crf="20")
    elif codec_name == "png":
        options["pred"] = "mixed"
    elif codec_name in ("mjpeg", "mpeg4"):
        options.update(flags="+qscale", global_quality=str(3 * _FF_QP2LAMBDA))
    context.options = options


# ---- pictures ------------------------------------------------------------------------------

def process_picture(data, suffix, spec, layout):
    """The picture (the bytes of a PNG or JPEG file) through the chain, encoded as the same kind
    of file; the whole round trip happens in memory."""
    with av.open(io.BytesIO(data)) as container:
        aspect = _aspect(container.streams.video[0])
        frame = next(container.decode(video=0))
    check_frame_bounds(spec, frame.width, frame.height)
    convert = _Converter()
    done = _run(make_chain(spec), frame, layout, convert)
    codec_name = PICTURE_CODECS[suffix.lower()]
    context = av.CodecContext.create(codec_name, "w")
    context.thread_count = 1  # one picture: slices would only add restart markers to a JPEG
    pix_fmt = _encoder_format(codec_name, layout)
    _configure(context, codec_name, done.width, done.height, pix_fmt, aspect)
    packets = context.encode(convert(done, pix_fmt)) + context.encode(None)
    return b"".join(bytes(p) for p in packets)


# ---- videos --------------------------------------------------------------------------------

def probe(path):
    """What planning a video needs, read from its packets without decoding: the time stamps of
    its key frames, frame count, size, time base and rate."""
    with av.open(path) as container:
        if not container.streams.video:
            raise ValueError(f"'{path}' has no video")
        stream = container.streams.video[0]
        keys, frames = [], 0
        for packet in container.demux(stream):
            if packet.size == 0:
                continue
            frames += 1
            if packet.is_keyframe and packet.pts is not None:
                keys.append(packet.pts)
        if frames == 0:
            raise ValueError(f"'{path}' has no video frames")
        rate = stream.guessed_rate or stream.average_rate or Fraction(25)
        return {"keys": sorted(keys), "frames": frames, "time_base": stream.time_base,
                "rate": Fraction(rate), "width": stream.codec_context.width,
                "height": stream.codec_context.height}


def plan_segments(info, seconds):
    """Cuts at key frames, each piece at least `seconds` long (the last may be shorter):
    a list of [start, end) time stamps, end None for the last. 0 seconds: one piece."""
    keys = info["keys"]
    if seconds <= 0 or len(keys) < 2:
        return [(None, None)]
    step = seconds / float(info["time_base"])
    starts = [keys[0]]
    for key in keys[1:]:
        if key - starts[-1] >= step:
            starts.append(key)
    return [(None if i == 0 else s, starts[i + 1] if i + 1 < len(starts) else None)
            for i, s in enumerate(starts)]


def _frames(container, stream, start, end):
    """Decoded frames with start <= pts < end, decoding from the key frame at start."""
    if start is not None:
        container.seek(start, stream=stream, backward=True, any_frame=False)
    step = max(1, round(1 / (stream.guessed_rate or Fraction(25)) / stream.time_base))
    next_pts = None
    for frame in container.decode(stream):
        if frame.pts is None:  # streams without time stamps get them from the frame rate
            frame.pts = next_pts if next_pts is not None else 0
        next_pts = frame.pts + step
        if start is not None and frame.pts < start:
            continue
        if end is not None and frame.pts >= end:
            return
        yield frame


def encode_segment(src, start, end, spec, layout, codec_name, out_path):
    """Decodes the frames of [start, end) from the key frame at start, runs them through a new
    chain and writes them, video only, to out_path. Answers the packets' (pts, dts) in
    the input's time base, in order: the container keeps the packets and codec parameters,
    but not every container keeps the decoding time stamps of reordered frames."""
    with av.open(src) as container, av.open(out_path, "w", format="nut") as out:
        stream = container.streams.video[0]
        stream.thread_type = "AUTO"
        width, height = stream.codec_context.width, stream.codec_context.height
        check_frame_bounds(spec, width, height)
        chain = make_chain(spec)
        rate = stream.guessed_rate or Fraction(25)
        target = out.add_stream(codec_name, rate=rate)
        pix_fmt = _encoder_format(codec_name, layout)
        _configure(target.codec_context, codec_name, width, height, pix_fmt,
                   _aspect(stream))
        target.codec_context.time_base = stream.time_base
        target.time_base = stream.time_base
        target.codec_context.thread_count = 0
        stamps, last = [], None
        to_layout, to_encoder = _Converter(), _Converter()

        def write(packets):
            for packet in packets:
                stamps.append((packet.pts, packet.dts))
                out.mux(packet)

        for frame in _frames(container, stream, start, end):
            done = to_encoder(_run(chain, frame, layout, to_layout), pix_fmt)
            if last is not None and done.pts <= last:
                done.pts = last + 1
            last = done.pts
            done.pict_type = "NONE"
            write(target.encode(done))
        write(target.encode(None))
    if not stamps:
        raise ValueError(f"'{src}' has no video frames" +
                         ("" if start is None else f" from time stamp {start}"))
    return stamps


def _packets(container, stream):
    for packet in container.demux(stream):
        if packet.size:
            yield packet


def join(src, segments, out_path, container_format=None):
    """Writes the segments' video one after another into out_path without re-encoding, with the
    input's audio stream copied once, interleaved by time. `segments` holds (path, stamps) as
    encode_segment wrote and answered them."""
    parts = [av.open(p) for p, _ in segments]
    source = av.open(src)
    try:
        ext = os.path.splitext(out_path)[1].lower()
        options = {"movflags": "+faststart"} if ext in _MP4_FAMILY else {}
        with av.open(out_path, "w", format=container_format,
                     container_options=options) as out:
            first = parts[0].streams.video[0]
            extradata = first.codec_context.extradata
            for part in parts[1:]:
                if part.streams.video[0].codec_context.extradata != extradata:
                    raise ValueError("the segments of '" + src + "' were encoded with different "
                                     "encoder settings and cannot be joined")
            video = out.add_stream(template=first)
            with warnings.catch_warnings():  # PyAV warns as the template was a decoder's
                warnings.simplefilter("ignore")
                video.time_base = source.streams.video[0].time_base
            time_base = source.streams.video[0].time_base
            audio_in = source.streams.audio[0] if source.streams.audio else None
            audio = out.add_stream(template=audio_in) if audio_in is not None else None

            def pieces():
                for part, (_, stamps) in zip(parts, segments):
                    packets = _packets(part, part.streams.video[0])
                    for packet, stamp in itertools.zip_longest(packets, stamps):
                        if packet is None or stamp is None:
                            raise ValueError(f"a piece of '{src}' lost packets")
                        pts, dts = stamp
                        packet.stream, packet.time_base = video, time_base
                        packet.pts, packet.dts = pts, dts
                        yield (dts if dts is not None else pts) * time_base, packet

            def sound():
                for packet in _packets(source, audio_in):
                    packet.stream = audio
                    when = packet.dts if packet.dts is not None else packet.pts
                    yield (when or 0) * audio_in.time_base, packet

            merged = [pieces()] + ([sound()] if audio is not None else [])
            for _, packet in heapq.merge(*merged, key=lambda item: item[0]):
                out.mux(packet)
    finally:
        source.close()
        for part in parts:
            part.close()


def process_video(src, out_path, spec, layout, codec_name, work_dir):
    """The whole video in this process: one piece from the first frame to the last, joined with
    the audio as the batch joins its pieces. Answers the number of frames."""
    piece = os.path.join(work_dir, os.path.basename(out_path) + ".whole.nut")
    try:
        stamps = encode_segment(src, None, None, spec, layout, codec_name, piece)
        join(src, [(piece, stamps)], out_path)
    finally:
        if os.path.exists(piece):
            os.remove(piece)
    return len(stamps)
