"""What the Python binding costs: per call, and per 1920x1080 frame for
conversion, JPEG compression and decompression, against the same library
work called directly (one ctypes call into C on prepared images and buffers)
and against Pillow and, if installed, OpenCV's Python module.

Usage: PIX95_LIBRARY=build/libpix95.so /usr/bin/python3 bench/python_bench.py [PHOTO.rgb]
(the photograph is raw RGB24 1920x1080, as tools/photos.py makes it; by
default build/bench-photos/photo-1920x1080.rgb, else a synthetic frame).
"""
import ctypes
import io
import os
import statistics
import sys
import time

import numpy as np
from PIL import Image as Pil

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "python"))
import pix95  # noqa: E402
from pix95 import jpeg, lib  # noqa: E402

try:
    import cv2
except ImportError:
    cv2 = None

W, H = 1920, 1080
NEXT = pix95.PIX_STRIP_NEXT


def median_ms(f, runs=40):
    f()
    times = []
    for _ in range(runs):
        t = time.perf_counter()
        f()
        times.append(time.perf_counter() - t)
    return statistics.median(times) * 1e3


def per_call_us(f, n=200000):
    t = time.perf_counter()
    for _ in range(n):
        f()
    return (time.perf_counter() - t) / n * 1e6


def frame():
    path = sys.argv[1] if len(sys.argv) > 1 else os.path.join(os.path.dirname(__file__), "..", "build",
                                                               "bench-photos", "photo-1920x1080.rgb")
    if os.path.exists(path):
        return np.fromfile(path, np.uint8).reshape(H, W, 3), "photograph"
    y, x = np.mgrid[0:H, 0:W]
    return np.stack([(x * 255 // W), (y * 255 // H), ((x ^ y) & 255)], -1).astype(np.uint8), "synthetic"


def main():
    rgb, kind = frame()
    print(f"pix95 Python binding, {W}x{H} {kind}, library {lib.path}")
    yuv = pix95.convert(rgb, "yuv422")

    # ------------------------------------------------------------ per call
    with pix95.Image("y8", 16, 16) as image:
        h = image.handle
        raw = per_call_us(lambda: lib.PIX_get_width(h))
        wrapped = per_call_us(lambda: image.width, 100000)

        def checked():
            with pix95.session():
                pix95.check(lib.PIX_image_set_parameter(h, 16, 1), "PIX_image_set_parameter")
        guarded = per_call_us(checked, 100000)
    small = np.zeros((16, 16, 3), np.uint8)
    tiny = per_call_us(lambda: pix95.convert(small, "y8"), 5000)
    print("\nper call (us)")
    print(f"  raw ctypes call (PIX_get_width)                 {raw:7.2f}")
    print(f"  property (image.width)                          {wrapped:7.2f}")
    print(f"  checked call with the error handler installed   {guarded:7.2f}")
    print(f"  convert of a 16x16 array (images made and freed) {tiny:6.1f}")

    rows = []

    # ------------------------------------------------------------ convert
    src = pix95.Image.from_array(yuv)
    out = pix95.convert(src, "rgb24")
    rows.append(("convert YUV422 -> RGB24",
                 median_ms(lambda: lib.PIX_image_convert(src.handle, out.handle, pix95.RGB24,
                                                         pix95.PIX_FLAG_LOCKED, NEXT)),
                 median_ms(lambda: pix95.convert(src, "rgb24", out=out)),
                 median_ms(lambda: pix95.convert(yuv, "rgb24")),
                 None,
                 median_ms(lambda: cv2.cvtColor(np.ascontiguousarray(yuv), cv2.COLOR_YUV2RGB_YUY2)) if cv2 else None))

    # ------------------------------------------------------------ compress
    source = pix95.Image.from_array(rgb)
    q = jpeg.q_scale(75)
    jimg = pix95.Image(jpeg=True)
    lib.PIX_JPEG_set_Quality_factor(jimg.handle, q)
    buffer = np.empty(W * H * 3, np.uint8)
    bp = buffer.ctypes.data_as(ctypes.POINTER(ctypes.c_uint8))
    written = ctypes.c_uint32()

    def c_compress():
        lib.PIX_JPEG_compress(source.handle, jimg.handle, NEXT)
        lib.PIX_JPEG_make_Q_tables(jimg.handle)
        lib.PIX_JPEG_set_default_H_tables(jimg.handle)
        lib.PIX_image_set_parameter(jimg.handle, pix95.PIX_LINES_THIS_STRIP, H)
        lib.PIX_JPEG_buffer_write(jimg.handle, bp, ctypes.byref(written), NEXT)

    def pil_compress():
        b = io.BytesIO()
        Pil.fromarray(rgb).save(b, "JPEG", quality=75, subsampling=1)  # 4:2:2, as ours
        return b.getvalue()

    bgr = np.ascontiguousarray(rgb[:, :, ::-1])
    cv_params = [cv2.IMWRITE_JPEG_QUALITY, 75]
    if cv2 is not None and hasattr(cv2, "IMWRITE_JPEG_SAMPLING_FACTOR"):
        cv_params += [cv2.IMWRITE_JPEG_SAMPLING_FACTOR, cv2.IMWRITE_JPEG_SAMPLING_FACTOR_422]
    rows.append(("JPEG compress RGB24 q75 (4:2:2)", median_ms(c_compress),
                 median_ms(lambda: jpeg.compress(source)), median_ms(lambda: jpeg.compress(rgb)),
                 median_ms(pil_compress),
                 median_ms(lambda: cv2.imencode(".jpg", bgr, cv_params)) if cv2 else None))

    # ------------------------------------------------------------ decompress
    data = jpeg.compress(rgb)
    stream = pix95.Image(jpeg=True)
    dest = pix95.Image("rgb24", W, (H + 15) // 16 * 16)
    keep = ctypes.create_string_buffer(data, len(data))
    kp = ctypes.cast(keep, ctypes.POINTER(ctypes.c_uint8))

    def c_decompress():
        lib.PIX_JPEG_buffer_read(stream.handle, kp, len(data))
        lib.PIX_image_set_parameter(stream.handle, pix95.PIX_LINES_THIS_STRIP, dest.lines)
        lib.PIX_JPEG_decompress(stream.handle, dest.handle, NEXT)

    rows.append(("JPEG decompress to RGB24", median_ms(c_decompress), None,
                 median_ms(lambda: jpeg.decompress(data)),
                 median_ms(lambda: np.asarray(Pil.open(io.BytesIO(data)))),
                 median_ms(lambda: cv2.imdecode(np.frombuffer(data, np.uint8), cv2.IMREAD_COLOR)) if cv2 else None))

    print(f"\nper {W}x{H} frame (ms, median of 40)")
    print(f"  {'':34} {'C direct':>9} {'binding':>9} {'+%':>6} {'from array':>10} {'+%':>6} "
          f"{'Pillow':>8} {'OpenCV':>8}")
    for name, c, reused, fresh, pil, cv in rows:
        def pct(v):
            return f"{(v / c - 1) * 100:+6.1f}" if v is not None else f"{'':>6}"
        def ms(v, width):
            return f"{v:{width}.2f}" if v is not None else f"{'-':>{width}}"
        print(f"  {name:34} {c:9.2f} {ms(reused, 9)} {pct(reused)} {fresh:10.2f} {pct(fresh)} "
              f"{ms(pil, 8)} {ms(cv, 8)}")
    print("\nC direct: the library's calls on prepared images and buffers (through ctypes, about 1 us each).")
    print("binding: pix95 on an Image (convert with out= reusing the output); from array: the call as")
    print("written from numpy, images made, lent and released every time.  OpenCV's conversion is its")
    print("YUY2 decoder (the byte order of the library's 4:2:2); its encoder uses 4:2:2 when it can.")
    for x in (src, out, source, jimg, stream, dest):
        x.close()


if __name__ == "__main__":
    main()
