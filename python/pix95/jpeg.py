"""The JPEG codec: compress, decompress and motion sequences."""
import ctypes

import numpy as np

from ._image import (FINISH, NEXT, P_HEIGHT, P_LINES, P_WIDTH, Image, as_image, convert, format_code, _fspath)
from ._lib import C, check, lib, session

_LENGTH = C["PIX_JPEG_LENGTH"]
_FRAMES = C["PIX_NUM_FRAMES"]
# Formats the encoder takes as they are (it pads these itself; YUV 4:2:2 it
# takes in whole 8x8 blocks only).
_TAKEN = {C[f] for f in ("PIX_Y8", "PIX_RGB24", "PIX_BGR24", "PIX_RGBX32", "PIX_BGRX32", "PIX_XBGR32")}


def q_scale(quality):
    """The familiar quality 1..100 as the library's Q scale (75 is 32, 50 is
    16, 90 is 80): percentages of the standard tables, 5000 / q below 50 and
    200 - 2q above, which the library divides by Q / 16."""
    if not 1 <= quality <= 100:
        raise ValueError("quality runs from 1 to 100")
    percent = 5000.0 / quality if quality < 50 else 200.0 - 2.0 * quality
    return 400 if percent <= 0 else min(max(int(1600.0 / percent + 0.5), 1), 400)


def _source(x):
    src, made = as_image(x)
    fmt = src.format
    if fmt in _TAKEN or (fmt == C["PIX_YUV422"] and src.width % 8 == 0 and src.height % 8 == 0):
        return src, made
    converted = convert(src, "rgb24")
    if made:
        src.close()
    return converted, True


def _encode(src, q):
    """A JPEG image holding the compressed data of a whole image."""
    j = Image(jpeg=True)
    try:
        with session():
            check(lib.PIX_JPEG_set_Quality_factor(j.handle, q), "PIX_JPEG_set_Quality_factor")
            check(lib.PIX_JPEG_compress(src.handle, j.handle, NEXT), "PIX_JPEG_compress")
    except BaseException:
        j.close()
        raise
    return j


def _tables(j):
    # The encoder codes with private tables and leaves the record without
    # them: a stream written from it needs them made first.
    check(lib.PIX_JPEG_make_Q_tables(j.handle), "PIX_JPEG_make_Q_tables")
    check(lib.PIX_JPEG_set_default_H_tables(j.handle), "PIX_JPEG_set_default_H_tables")


def _stream(j):
    """The JFIF stream of a JPEG image as bytes, written by the buffer writer."""
    with session():
        height, width = j.height, j.width
        lib.PIX_image_set_parameter(j.handle, P_LINES, height)  # one call writes it all
        out = np.empty(j.get(_LENGTH) + 4096, np.uint8)
        written = ctypes.c_uint32(0)
        r = lib.PIX_JPEG_buffer_write(j.handle, out.ctypes.data_as(ctypes.POINTER(ctypes.c_uint8)),
                                      ctypes.byref(written), NEXT)
        if r & 0x00FF0000:
            lib.PIX_JPEG_buffer_write(j.handle, out.ctypes.data_as(ctypes.POINTER(ctypes.c_uint8)),
                                      ctypes.byref(written), FINISH)
        check(r, "PIX_JPEG_buffer_write")
    data = out[:written.value]
    # The buffer writer keeps only the low bytes of the line count and line
    # length in the frame header (as its readers expect); a stream for
    # everyone else carries both bytes, as the file writer writes them.
    sof = bytes(data[:1024]).find(b"\xff\xc0")
    if sof >= 0:
        data[sof + 5:sof + 9] = [height >> 8, height & 255, width >> 8, width & 255]
    return data.tobytes()


def compress(x, quality=75, qscale=None):
    """A JFIF stream (bytes) of an Image or array: grey for Y8, YUV 4:2:2
    otherwise.  `quality` is the familiar 1..100 scale, `qscale` (1..400)
    the library's own."""
    q = q_scale(quality) if qscale is None else int(qscale)
    src, made = _source(x)
    try:
        with _encode(src, q) as j, session():
            _tables(j)
            return _stream(j)
    finally:
        if made:
            src.close()


def _read_stream(data):
    """A JPEG image read from a stream in memory."""
    data = bytes(data)
    j = Image(jpeg=True)
    try:
        with session():
            check(lib.PIX_JPEG_buffer_read(j.handle, ctypes.cast(ctypes.c_char_p(data), ctypes.POINTER(ctypes.c_uint8)),
                                           len(data)), "PIX_JPEG_buffer_read")
    except BaseException:
        j.close()
        raise
    return j


def _output(j, format, lines=None):
    """An image, with room for the block-padded size, in the format the
    decoder writes: Y8 from a grey stream whatever is asked; from a colour
    stream YUV 4:2:2 when that or another format than RGB24 is asked (see
    _decoded), else RGB24.  The decoder writes its format into whatever it
    is given, so the output lent to it must be described that way."""
    sampled = j.format
    grey = sampled == C["PIX_Y8"]
    asked = None if format is None else format_code(format)
    fmt = C["PIX_Y8"] if grey else C["PIX_RGB24"] if asked in (None, C["PIX_RGB24"]) else C["PIX_YUV422"]
    unit_h = 16 if sampled == C["PIX_JPEG"] else 8
    unit_w = 8 if grey else 16
    width, height = j.width, j.height
    padded_w = -(-width // unit_w) * unit_w
    padded_h = -(-height // unit_h) * unit_h
    strip = padded_h if lines is None else min(padded_h, -(-lines // unit_h) * unit_h)
    return Image(fmt, padded_w, padded_h, lines=strip), strip


def _decoded(dest, format, height, width):
    """The decoded picture as an array of its own size, converted to
    `format` when the decoder wrote another (whole blocks converted, then
    cut: a YUV 4:2:2 line needs an even width)."""
    if format is not None and format_code(format) != dest.format:
        with convert(dest, format) as out:
            return out.array[:height, :width]
    return dest.array[:height, :width]


def _decode_into(j, dest, strip):
    with session():
        lib.PIX_image_set_parameter(j.handle, P_LINES, strip)
        check(lib.PIX_JPEG_decompress(j.handle, dest.handle, NEXT), "PIX_JPEG_decompress")


def _decode_image(data):
    """A stream decoded into an Image of the picture's own size (Y8 or RGB24)."""
    with _read_stream(data) as j:
        width, height = j.width, j.height  # the decoder leaves the block-padded size
        dest, strip = _output(j, None)
        try:
            _decode_into(j, dest, strip)
        except BaseException:
            dest.close()
            raise
    if dest.width != width:
        with dest:
            exact = Image(dest.format, width, height)
            exact.array[...] = dest.array[:height, :width]
            return exact
    dest.set(P_HEIGHT, height)
    dest.set(P_LINES, height)
    return dest


def decompress(data, format=None):
    """The picture of a JFIF stream as an array: Y8 for grey streams, RGB24
    otherwise, or converted to `format` (any pixel format with an array
    layout)."""
    with _read_stream(data) as j:
        width, height = j.width, j.height  # the decoder leaves the block-padded size
        dest, strip = _output(j, format)
        with dest:
            _decode_into(j, dest, strip)
            return _decoded(dest, format, height, width)


def _strips(path, lines):
    """A JPEG file decoded strip by strip (whole block rows a strip)."""
    j = Image(jpeg=True)
    done = height = 0
    try:
        with session():
            check(lib.PIX_image_set_infilename(j.handle, _fspath(path)), "PIX_image_set_infilename")
            check(lib.PIX_JPEG_file_read(j.handle), "PIX_JPEG_file_read")
        height, width = j.height, j.width
        dest, strip = _output(j, None, lines)
        with dest:
            while done < height:
                _decode_into(j, dest, strip)
                n = min(strip, height - done)
                done += n
                yield dest.array[:n, :width]
    finally:
        if 0 < done < height:
            with session():
                lib.PIX_JPEG_decompress(j.handle, 0, FINISH)
        j.close()


class Sequence:
    """A motion-JPEG sequence held in memory: frames of one size and tables
    in one stream, each boundary an RST0 marker.  len() counts the frames;
    indexing (from 0) or iterating extracts and decodes them."""

    def __init__(self, frames=None, quality=75, qscale=None, *, _image=None):
        self._j = _image
        if _image is not None:
            return
        frames = list(frames or [])
        if not frames:
            raise ValueError("a sequence is built from at least one frame")
        q = q_scale(quality) if qscale is None else int(qscale)
        coded = []
        try:
            for frame in frames:
                src, made = _source(frame)
                try:
                    coded.append(_encode(src, q))
                finally:
                    if made:
                        src.close()
            first = coded[0]
            total = sum(c.get(_LENGTH) + 2 for c in coded)
            self._j = Image(jpeg=True)
            h = self._j.handle
            with session():
                check(lib.PIX_image_copy_parameters(first.handle, h), "PIX_image_copy_parameters")
                lib.PIX_image_set_parameter(h, _LENGTH, 0)
                _tables(self._j)
                check(lib.PIX_JPEG_malloc_N_bytes_data(h, total), "PIX_JPEG_malloc_N_bytes_data")
                for c in coded:
                    if (c.width, c.height, c.format) != (first.width, first.height, first.format):
                        raise ValueError("the frames of a sequence share one size and pixel format")
                    check(lib.PIX_JPEG_sequence_build(c.handle, h), "PIX_JPEG_sequence_build")
                check(lib.PIX_JPEG_sequence_build(0, h), "PIX_JPEG_sequence_build")
                # Appending counts on from the count the description brought
                # (an image has at least one frame): the count is the frames'.
                lib.PIX_image_set_parameter(h, _FRAMES, len(coded))
        except BaseException:
            if self._j is not None:
                self._j.close()
            raise
        finally:
            for c in coded:
                c.close()

    @classmethod
    def from_bytes(cls, data):
        return cls(_image=_read_stream(data))

    @classmethod
    def read(cls, path):
        with open(path, "rb") as f:
            return cls.from_bytes(f.read())

    def tobytes(self):
        """The sequence as one JFIF stream."""
        return _stream(self._j)

    def write(self, path):
        with open(path, "wb") as f:
            f.write(self.tobytes())

    def __len__(self):
        return self._j.get(_FRAMES)

    def frame(self, k, format=None):
        """Frame k (from 0) decoded: an array as decompress gives."""
        n = len(self)
        if k < 0:
            k += n
        if not 0 <= k < n:
            raise IndexError(f"frame {k} of a sequence of {n}")
        with Image(jpeg=True) as f:
            with session():
                check(lib.PIX_JPEG_sequence_extract_frame(self._j.handle, f.handle, k + 1),
                      "PIX_JPEG_sequence_extract_frame")
            width, height = f.width, f.height
            dest, strip = _output(f, format)
            with dest:
                _decode_into(f, dest, strip)
                return _decoded(dest, format, height, width)

    __getitem__ = frame

    def __iter__(self):
        for k in range(len(self)):
            yield self.frame(k)

    def close(self):
        self._j.close()

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()
        return False
