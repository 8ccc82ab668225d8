"""pix95 from Python: frames as numpy arrays, files, conversion, JPEG and
motion sequences, over the library's public C interface.

    import pix95
    with pix95.read("card.bmp") as image:
        grey = pix95.convert(image.array, "y8")
    data = pix95.jpeg.compress(grey, quality=90)

`pix95.lib` is the C interface itself (ctypes functions typed from pix95.h,
returning statuses as in C); everything else raises PixError on failure.
"""
from ._lib import C as constants, PixError, check, is_error, lib, session, set_error_handler  # noqa: F401
from ._image import FORMATS, Image, convert, read, strips, write  # noqa: F401
from . import jpeg  # noqa: F401

globals().update(constants)  # PIX_Y8, PIX_STRIP_NEXT, ... as in C
globals().update({name.upper(): code for name, code in FORMATS.items()})  # Y8, RGB24, ...

__all__ = ["Image", "PixError", "convert", "jpeg", "lib", "read", "strips", "write", "FORMATS", "constants"]
