"""Images as numpy arrays, files, conversion and strip streaming."""
import os
import weakref

import numpy as np

from ._lib import C, PixError, check, lib, session

NEXT = C["PIX_STRIP_NEXT"]
FINISH = C["PIX_STRIP_FINISH"]

# Pixel formats by their short names (as the pix tool spells them).
FORMATS = {name.lower(): C["PIX_" + name] for name in (
    "BILEVEL", "Y8", "PALETTED", "RGB8", "RGB15", "RGB16", "RGB24", "BGR24", "RGBX32", "BGRX32", "XBGR32",
    "YUV422", "CMYK32", "Y16", "XRGB32", "HSI")}
_NAMES = {v: k for k, v in FORMATS.items()}

# Pixel layout of each format as a numpy array: (dtype, samples a pixel or
# None for a 2-D array).  Bilevel lines are bytes of 8 pixels.
_LAYOUT = {
    C["PIX_BILEVEL"]: (np.uint8, None), C["PIX_Y8"]: (np.uint8, None), C["PIX_PALETTED"]: (np.uint8, None),
    C["PIX_RGB8"]: (np.uint8, None), C["PIX_RGB15"]: (np.uint16, None), C["PIX_RGB16"]: (np.uint16, None),
    C["PIX_Y16"]: (np.uint16, None), C["PIX_RGB24"]: (np.uint8, 3), C["PIX_BGR24"]: (np.uint8, 3),
    C["PIX_YUV422"]: (np.uint8, 2), C["PIX_RGBX32"]: (np.uint8, 4), C["PIX_BGRX32"]: (np.uint8, 4),
    C["PIX_XBGR32"]: (np.uint8, 4), C["PIX_XRGB32"]: (np.uint8, 4), C["PIX_CMYK32"]: (np.uint8, 4),
    C["PIX_HSI"]: (np.uint8, 4),
}

P_FORMAT, P_WIDTH, P_HEIGHT = C["PIX_IMAGE_FORMAT"], C["PIX_IMAGE_WIDTH"], C["PIX_IMAGE_HEIGHT"]
P_LINES, P_BPL, P_ALIGN = C["PIX_LINES_THIS_STRIP"], C["PIX_BYTES_PER_LINE"], C["PIX_LINE_ALIGN"]
P_DATA_WIDTH = C["PIX_DATA_WIDTH"]
LOCKED = C["PIX_FLAG_LOCKED"]
PTR_DATA = C["PIX_PTR_DATA"]


def format_code(f):
    """A pixel format from its code or its short name ('rgb24')."""
    if isinstance(f, str):
        try:
            return FORMATS[f.lower()]
        except KeyError:
            raise ValueError(f"unknown pixel format {f!r} (one of {', '.join(FORMATS)})") from None
    return int(f)


def format_of(a):
    """The pixel format an array's shape and dtype suggest."""
    if a.dtype == np.uint16 and a.ndim == 2:
        return C["PIX_Y16"]
    if a.dtype == np.uint8:
        if a.ndim == 2:
            return C["PIX_Y8"]
        if a.ndim == 3 and a.shape[2] in (2, 3, 4):
            return {2: C["PIX_YUV422"], 3: C["PIX_RGB24"], 4: C["PIX_RGBX32"]}[a.shape[2]]
    raise ValueError(f"no pixel format for an array of shape {a.shape} and {a.dtype}: give format=")


def _line_bytes(fmt, width):
    dtype, samples = _LAYOUT[fmt]
    if fmt == C["PIX_BILEVEL"]:
        return (width + 7) // 8
    return width * np.dtype(dtype).itemsize * (samples or 1)


class _Memory:
    """Bytes at an address as numpy sees them, holding what keeps them alive."""

    __slots__ = ("__array_interface__", "owner")

    def __init__(self, address, size, owner):
        self.__array_interface__ = {"data": (address, False), "shape": (size,), "typestr": "|u1", "version": 3}
        self.owner = owner


def _release(handle, lent):
    # A buffer lent by Python is taken back first: destroying frees the data
    # of an image even when it is locked.
    with session():
        if lent[0] is not None:
            lib.PIX_image_set_ptr(handle, PTR_DATA, None)
        lib.PIX_image_destroy(handle)


class Image:
    """A library image owned by Python: released by close(), at the end of a
    with block, when collected, or at interpreter exit.  Its pixels live in a
    numpy buffer lent to the library, so `array` views stay valid as long as
    they are referenced, even after the image is closed."""

    def __init__(self, format=None, width=0, height=0, *, lines=None, jpeg=False):
        with session():
            create = lib.PIX_JPEG_image_create if jpeg else lib.PIX_image_create
            self._handle = check(create(), create.__name__)
        self._lent = [None]
        self._finalizer = weakref.finalize(self, _release, self._handle, self._lent)
        if format is not None:
            fmt = format_code(format)
            self._describe(fmt, width, height, height if lines is None else lines)
            self._lend_new()

    # ---------------------------------------------------------------- basics

    @property
    def handle(self):
        if not self._finalizer.alive:
            raise ValueError("the image is closed")
        return self._handle

    def close(self):
        self._finalizer()

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()
        return False

    def __int__(self):
        return self.handle

    def get(self, parameter):
        return lib.PIX_image_get_parameter(self.handle, parameter)

    def set(self, parameter, value):
        with session():
            check(lib.PIX_image_set_parameter(self.handle, parameter, value), "PIX_image_set_parameter")

    format = property(lambda self: self.get(P_FORMAT))
    width = property(lambda self: self.get(P_WIDTH))
    height = property(lambda self: self.get(P_HEIGHT))
    lines = property(lambda self: self.get(P_LINES), doc="lines of the strip the image holds")
    bytes_per_line = property(lambda self: self.get(P_BPL))

    def __repr__(self):
        if not self._finalizer.alive:
            return "<pix95.Image closed>"
        return (f"<pix95.Image {_NAMES.get(self.format, self.format)} {self.width}x{self.height}"
                f" handle {self._handle}>")

    def _describe(self, fmt, width, height, lines, align=None):
        if align is not None:
            self.set(P_ALIGN, align)
        self.set(P_FORMAT, fmt)
        self.set(P_WIDTH, width)
        self.set(P_HEIGHT, height)
        self.set(P_LINES, lines)
        if fmt == C["PIX_Y16"]:
            self.set(P_DATA_WIDTH, 16)
        self._check()

    def _check(self):
        # The image check works out the line length (and refuses bad records).
        with session():
            check(lib.PIX_image_check(self.handle), "PIX_image_check")

    def _stride(self):
        if self.format == C["PIX_BILEVEL"]:  # the record counts no line bytes for bilevel images
            align = max(self.get(P_ALIGN), 1)
            return -(-_line_bytes(self.format, self.width) // align) * align
        return self.bytes_per_line

    def _lend(self, array):
        """Lends a numpy array's memory (kept alive by the image) as the strip."""
        with session():
            check(lib.PIX_image_set_ptr(self.handle, PTR_DATA, array.ctypes.data), "PIX_image_set_ptr")
            check(lib.PIX_image_set_flags(self.handle, LOCKED, 1), "PIX_image_set_flags")
        self._lent[0] = array

    def _lend_new(self):
        size = self._stride() * self.lines
        # 64-byte aligned, as the library's own allocations are for its vector code.
        raw = np.empty(size + 64, np.uint8)
        offset = (-raw.ctypes.data) % 64
        self._lend(raw[offset:offset + size])

    # ---------------------------------------------------------------- arrays

    @property
    def array(self):
        """A numpy view of the strip the image holds: (lines, width) or
        (lines, width, samples), strided by the library's bytes per line."""
        fmt = self.format
        if fmt not in _LAYOUT:
            raise ValueError(f"pixel format {fmt} has no array layout")
        dtype, samples = _LAYOUT[fmt]
        lines, stride = self.lines, self._stride()
        address = lib.PIX_image_get_ptr(self.handle, PTR_DATA)
        if not address:
            raise ValueError("the image holds no data")
        # The view keeps the memory alive: a lent array, or the image whose
        # library-owned data it is.
        buffer = _Memory(address, stride * lines, self._lent[0] if self._lent[0] is not None else self)
        itemsize = np.dtype(dtype).itemsize
        if fmt == C["PIX_BILEVEL"]:
            shape, strides = (lines, _line_bytes(fmt, self.width)), (stride, 1)
        elif samples is None:
            shape, strides = (lines, self.width), (stride, itemsize)
        else:
            shape, strides = (lines, self.width, samples), (stride, samples * itemsize, itemsize)
        return np.ndarray(shape, dtype, buffer=np.asarray(buffer), strides=strides)

    @property
    def palette(self):
        """The colour map, (entries, 4) uint8 red, green, blue, spare; None without one."""
        address = lib.PIX_image_get_ptr(self.handle, C["PIX_PTR_CMAP"])
        if not address:
            return None
        entries = self.get(C["PIX_CMAP_SIZE"]) or 256
        return np.asarray(_Memory(address, 4 * entries, self)).reshape(entries, 4)

    @classmethod
    def from_array(cls, a, format=None, align=2):
        """An image over the array's memory when its layout is the library's
        own (pixels packed along a line, lines at the step an image of that
        width has: its bytes rounded up to an even count, or to a multiple
        of `align`) and it is writeable, else over a copy.  The image keeps
        the array alive."""
        a = np.asarray(a)
        fmt = format_of(a) if format is None else format_code(format)
        dtype, samples = _LAYOUT[fmt]
        if fmt == C["PIX_BILEVEL"]:
            raise ValueError("bilevel images are made with Image(), not from arrays")
        want = (a.ndim == 2) if samples is None else (a.ndim == 3 and a.shape[2] == samples)
        if not want or a.dtype != dtype:
            raise ValueError(f"an array of shape {a.shape} and {a.dtype} does not hold {_NAMES.get(fmt, fmt)} pixels")
        height, width = a.shape[:2]
        itemsize = a.dtype.itemsize
        packed = a.strides[1] == itemsize * (samples or 1) and (samples is None or a.strides[2] == itemsize)
        image = cls()
        image._describe(fmt, width, height, height, None if align == 2 else align)
        # Another line step would do for the functions that honour an image's
        # line padding, but not for those that assume the library's own (most
        # converters): such arrays are copied.
        if packed and a.flags.writeable and (height == 1 or a.strides[0] == image._stride()):
            image._lend(a)
        else:
            image._lend_new()
            image.array[...] = a
        return image

    def copy(self):
        """A whole copy into a new image with its own buffer."""
        out = Image(self.format, self.width, self.height, lines=self.lines)
        out.array[...] = self.array
        return out


def as_image(x, format=None, align=2):
    """(image, made here) for an Image or an array."""
    if isinstance(x, Image):
        return x, False
    return Image.from_array(x, format, align), True


# ---------------------------------------------------------------- conversion

_PACKED_TARGETS = {C[f] for f in ("PIX_RGB24", "PIX_BGR24", "PIX_BGRX32", "PIX_XBGR32", "PIX_XRGB32")}
# Sources whose pixels are all the record says of them (not a colour map, not
# a data width), so that a copy at another line step converts the same.
_RELAID = {C[f] for f in ("PIX_Y8", "PIX_RGB24", "PIX_BGR24", "PIX_RGBX32", "PIX_BGRX32", "PIX_XBGR32",
                          "PIX_XRGB32", "PIX_YUV422", "PIX_RGB15", "PIX_RGB16")}


def _output_for(src, fmt):
    """An output image described as the converter will describe it, with a
    numpy buffer of that size lent to it."""
    out = Image()
    with session():
        check(lib.PIX_image_copy_parameters(src.handle, out.handle), "PIX_image_copy_parameters")
        check(lib.PIX_image_set_flags(out.handle, LOCKED | C["PIX_FLAG_JPEG"], 0), "PIX_image_set_flags")
        lib.PIX_image_set_ptr(out.handle, PTR_DATA, None)
        out_align = src.get(C["PIX_OUT_LINE_ALIGN"])
        if out_align:
            out.set(P_ALIGN, out_align)
        out.set(P_FORMAT, fmt)
        if fmt == C["PIX_Y16"]:
            out.set(P_DATA_WIDTH, 16)
        out._check()
    out._lend_new()
    return out


def convert(x, to, out=None):
    """x (an Image or an array) converted to the pixel format `to`: an Image
    for an Image, an array for an array.  `out` (an Image from an earlier
    call of the same shape) is reused instead of a new one.  As in the C
    interface, the unused byte of the 32-bit layouts is not written: it
    keeps what the output's memory held.  An array, or an image holding
    its whole picture at another line step, goes in laid out as the
    converter to `to` walks lines (packed or at the library's step)."""
    fmt = format_code(to)
    # The converters to these formats walk input and output as packed lines
    # (kept), the others the library's own line step or each image's: the
    # source goes in packed for them, so that odd-width lines come out right.
    align = 1 if fmt in _PACKED_TARGETS else 2
    src, made = as_image(x, align=align)
    if not made and src.lines == src.height and src.format in _RELAID:
        row = _line_bytes(src.format, src.width)
        # Packed output lines come only from a source described packed (the
        # output takes its record): lent again so, or copied.
        if src._stride() != -(-row // align) * align or (align == 1 and src.get(P_ALIGN) != 1):
            src, made = Image.from_array(src.array, src.format, align), True
    try:
        if out is None or out.format != fmt or out.width != src.width or out.lines != src.lines:
            out = _output_for(src, fmt)
        stride, lines = out._stride(), out.lines
        with session():
            # The caller gives the output its flags: the lock keeps the lent buffer.
            check(lib.PIX_image_convert(src.handle, out.handle, fmt, LOCKED, NEXT), "PIX_image_convert")
        if out._stride() != stride or out.lines > lines:
            raise PixError(C["PIX_MOD_IMAGE"] << 24 | C["PIX_ERR_INTERNAL"] << 16, "convert",
                           "the converter laid the output out otherwise than foreseen")
    finally:
        if made:
            src.close()
    return out if isinstance(x, Image) else out.array


# ---------------------------------------------------------------- files

_FILE_FORMATS = {".bmp": C["PIX_FILE_BMP"], ".tif": C["PIX_FILE_TIFF"], ".tiff": C["PIX_FILE_TIFF"],
                 ".tga": C["PIX_FILE_TGA"], ".eps": C["PIX_FILE_EPS"], ".raw": C["PIX_FILE_RAW"],
                 ".jpg": C["PIX_FILE_JPEG"], ".jpeg": C["PIX_FILE_JPEG"]}

# The pixel formats each file writer takes as they are.
_WRITTEN = {
    C["PIX_FILE_BMP"]: {"y8", "paletted", "rgb24"},
    C["PIX_FILE_TGA"]: {"y8", "rgb15", "rgb24"},
    C["PIX_FILE_TIFF"]: {"bilevel", "y8", "paletted", "rgb24", "cmyk32", "y16"},
    C["PIX_FILE_EPS"]: {"bilevel", "y8", "paletted", "rgb24"},
    C["PIX_FILE_RAW"]: set(FORMATS) - {"bilevel", "cmyk32"},
}


def _fspath(path):
    path = os.fsencode(path)
    if len(path) > 127:
        raise ValueError("the library takes file names of up to 127 bytes")
    return path


class _Reader:
    """A file read strip by strip into one lent buffer."""

    def __init__(self, path, lines):
        self.image = Image()
        self.done = 0
        self.started = False
        h = self.image.handle
        with session():
            check(lib.PIX_image_set_infilename(h, _fspath(path)), "PIX_image_set_infilename")
            lib.PIX_image_set_parameter(h, P_LINES, 0)
            lib.PIX_image_set_parameter(h, P_HEIGHT, 0)
            check(lib.PIX_image_read(h, 0, NEXT), "PIX_image_read")  # the header
        self.started = True
        self.height = self.image.height
        self.strip = max(1, min(lines or self.height, self.height))
        self.image.set(P_LINES, self.strip)
        self.image._lend_new()
        self.stride = self.image._stride()

    def next(self):
        with session():
            check(lib.PIX_image_read(self.image.handle, 0, NEXT), "PIX_image_read")
        n = self.image.lines
        if self.image._stride() != self.stride or n > self.strip:
            raise PixError(C["PIX_MOD_IMAGE"] << 24 | C["PIX_ERR_INTERNAL"] << 16, "read",
                           "the reader laid the strip out otherwise than foreseen")
        self.done += n
        return n

    def close(self):
        if self.started and self.done < self.height:
            # A run cut short: the read dispatcher keeps one file in progress library-wide.
            with session():
                lib.PIX_image_read(self.image.handle, 0, FINISH)
        self.image.close()


def strips(path, lines=64):
    """Yields the picture of a file strip by strip, `lines` lines at a time
    (the last may hold fewer): one buffer reused for every strip, so memory
    stays at one strip; copy a strip to keep it past the next one.  JPEG
    files are decoded strip by strip too."""
    if lib.PIX_image_find_file_format(_fspath(path)) == C["PIX_FILE_JPEG"]:
        from . import jpeg
        yield from jpeg._strips(path, lines)
        return
    reader = _Reader(path, lines)
    try:
        while reader.done < reader.height:
            n = reader.next()
            if n == 0:
                break
            yield reader.image.array[:n]
    finally:
        reader.close()


def read(path, format=None):
    """The whole picture of a file as an Image (converted to `format` if given)."""
    if lib.PIX_image_find_file_format(_fspath(path)) == C["PIX_FILE_JPEG"]:
        from . import jpeg
        with open(path, "rb") as f:
            image = jpeg._decode_image(f.read())
    else:
        reader = _Reader(path, 0)
        try:
            reader.next()
        except BaseException:
            reader.close()
            raise
        image = reader.image
    if format is not None and image.format != format_code(format):
        with image:
            return convert(image, format)
    return image


def write(path, x, format=None, **jpeg_options):
    """Writes an Image or array to a file of the format of the path's
    extension, first converted to `format` if given, or to RGB24 if the
    file format does not take its pixel format.  JPEG files take the
    options of jpeg.compress."""
    ext = os.path.splitext(os.fspath(path))[1].lower()
    if ext not in _FILE_FORMATS:
        raise ValueError(f"cannot tell the file format of {path!r} (use {' '.join(_FILE_FORMATS)})")
    file_format = _FILE_FORMATS[ext]
    src, made = as_image(x)
    try:
        if file_format == C["PIX_FILE_JPEG"]:
            from . import jpeg
            data = jpeg.compress(src if format is None else convert(src, format), **jpeg_options)
            with open(path, "wb") as f:
                f.write(data)
            return
        fmt = format_code(format) if format is not None else src.format
        if format is None and _NAMES.get(fmt) not in _WRITTEN[file_format]:
            fmt = C["PIX_RGB24"]
        if src.lines != src.height:
            raise ValueError("write takes a whole image (its strip holds all its lines)")
        image = src if fmt == src.format else convert(src, fmt)
        if image is src and file_format == C["PIX_FILE_BMP"]:
            # The BMP writer turns the strip's lines upside down in place
            # (kept: applications see their strip so after writing): it
            # writes from a copy, so the caller's pixels stay as they were.
            image = src.copy()
        try:
            with session():
                h = image.handle
                check(lib.PIX_image_set_outfilename(h, _fspath(path)), "PIX_image_set_outfilename")
                r = lib.PIX_image_write(h, 0, file_format, NEXT)
                if r & 0x00FF0000:
                    # The writers keep their run library-wide: end it for the next file.
                    lib.PIX_image_write(h, 0, file_format, FINISH)
                check(r, "PIX_image_write")
        finally:
            if image is not src:
                image.close()
    finally:
        if made:
            src.close()
