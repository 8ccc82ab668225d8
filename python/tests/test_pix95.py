"""The Python binding: declarations, layouts, zero copy, errors, files,
JPEG against Pillow, strip streaming and handle release."""
import glob
import io
import os
import subprocess
import tracemalloc

import numpy as np
import pytest
from PIL import Image as Pil

import pix95
from pix95 import _api, _header, jpeg

ROOT = os.path.normpath(os.path.join(os.path.dirname(__file__), "..", ".."))
rng = np.random.default_rng(95)

# format: (dtype, samples a pixel or None)
LAYOUTS = {"y8": (np.uint8, None), "paletted": (np.uint8, None), "rgb8": (np.uint8, None),
           "rgb15": (np.uint16, None), "rgb16": (np.uint16, None), "y16": (np.uint16, None),
           "rgb24": (np.uint8, 3), "bgr24": (np.uint8, 3), "yuv422": (np.uint8, 2), "rgbx32": (np.uint8, 4),
           "bgrx32": (np.uint8, 4), "xbgr32": (np.uint8, 4), "xrgb32": (np.uint8, 4), "cmyk32": (np.uint8, 4),
           "hsi": (np.uint8, 4)}


def random_array(fmt, h, w):
    dtype, samples = LAYOUTS[fmt]
    return rng.integers(0, 256 if dtype == np.uint8 else 65536, (h, w) + ((samples,) if samples else ()), dtype)


def test_declarations_follow_the_header_and_cover_every_export():
    with open(os.path.join(ROOT, "include", "pix95.h"), encoding="utf-8") as f:
        generated = _header.generate(f.read())
    with open(_api.__file__, encoding="utf-8") as f:
        assert f.read() == generated, "regenerate: python3 -m pix95._header include/pix95.h > python/pix95/_api.py"
    exported = set()
    for path in glob.glob(os.path.join(ROOT, "*", "*.exports")):
        with open(path) as f:
            exported |= {line.strip() for line in f if line.strip()}
    assert len(exported) > 200
    assert exported <= set(_api.FUNCTIONS), exported - set(_api.FUNCTIONS)
    assert exported == set(_api.FUNCTIONS), set(_api.FUNCTIONS) - exported
    assert pix95.lib.missing == []
    for name, (result, arguments) in _api.FUNCTIONS.items():
        f = getattr(pix95.lib, name)
        assert (f.restype, tuple(f.argtypes)) == (result, arguments), name


@pytest.mark.parametrize("fmt", sorted(LAYOUTS) + ["bilevel"])
@pytest.mark.parametrize("width", [1, 13, 64])
def test_layout_of_every_format(fmt, width):
    with pix95.Image(fmt, width, 5) as image:
        a = image.array
        if fmt == "bilevel":
            assert a.shape == (5, (width + 7) // 8) and a.dtype == np.uint8
            return
        dtype, samples = LAYOUTS[fmt]
        assert a.dtype == dtype and a.shape == (5, width) + ((samples,) if samples else ())
        assert a.strides[0] == image.bytes_per_line >= a.shape[1] * a.strides[1]
        assert a.strides[1] == np.dtype(dtype).itemsize * (samples or 1)


# Conversions by their definitions: grey by 77, 150 and 29 of R, G, B, >> 8.
CONVERSIONS = {("y8", "rgb24"): lambda a: np.repeat(a[..., None], 3, 2),
               ("rgb24", "y8"): lambda a: ((a.astype(int) * [77, 150, 29]).sum(2) >> 8).astype(np.uint8),
               ("rgb24", "bgrx32"): lambda a: a[..., ::-1],
               ("yuv422", "y8"): lambda a: a[..., 0],
               ("y16", "y8"): lambda a: (a >> 8).astype(np.uint8),
               ("rgbx32", "rgb24"): lambda a: a[..., :3]}


@pytest.mark.parametrize("fmt,to", CONVERSIONS)
@pytest.mark.parametrize("width", [10, 9])
def test_arrays_and_images_of_any_line_step_convert_right(fmt, to, width):
    if fmt == "yuv422" and width % 2:
        return
    a = random_array(fmt, 6, width)
    # The library's own line: the pixels' bytes rounded up to an even count.
    row = width * a.strides[1]
    step = row + row % 2
    own = np.lib.stride_tricks.as_strided(np.zeros(6 * step, np.uint8).view(a.dtype), a.shape,
                                          (step,) + a.strides[1:])
    own[...] = a
    padded = np.zeros((6, width + 3) + a.shape[2:], a.dtype)[:, :width]
    padded[...] = a
    frozen = own.copy()
    frozen.setflags(write=False)
    shared = [own] + ([a] if step == row else [])
    want = CONVERSIONS[fmt, to]
    cut = (lambda x: x[..., :3]) if to == "bgrx32" else (lambda x: x)
    for source in shared + [padded, a[::-1], frozen] + ([a] if step != row else []):
        with pix95.Image.from_array(source, fmt) as image:
            # Some converters walk lines packed, others at the library's
            # step: images and arrays of any layout and width come out right.
            with pix95.convert(image, to) as out:
                assert (cut(out.array) == want(source)).all()
            assert (cut(pix95.convert(source, to)) == want(source)).all()
            view = image.array
            assert np.shares_memory(view, source) == any(source is s for s in shared)
            assert (view == source).all()
            if np.shares_memory(view, source):
                view[2, 3] = 7
                assert (source[2, 3] == 7).all()
                source[4, 1] = 9
                assert (image.array[4, 1] == 9).all()


@pytest.mark.parametrize("fmt,to", [("rgb24", "y8"), ("rgb24", "yuv422"), ("yuv422", "rgb24"),
                                    ("yuv422", "bgrx32"), ("y8", "rgb16"), ("rgbx32", "bgr24")])
@pytest.mark.parametrize("width", [14, 64])
def test_convert_into_a_reused_output(fmt, to, width):
    # Lines padded to the output's alignment (14 RGB24 pixels: 42 bytes in
    # a 44-byte line): a reused output must keep the layout it was lent.
    # The unused byte of a 32-bit layout is never written (kept): left out.
    def written(x):
        return x[..., :3] if to == "bgrx32" else x

    a, b = random_array(fmt, 9, width), random_array(fmt, 9, width)
    with pix95.Image.from_array(a, fmt) as ia, pix95.Image.from_array(b, fmt) as ib, \
            pix95.convert(ib, to) as fresh, pix95.convert(ia, to) as out:
        kept = out.array
        assert pix95.convert(ib, to, out=out) is out
        assert np.shares_memory(out.array, kept) and (written(out.array) == written(fresh.array)).all()
        assert (written(pix95.convert(b, to)) == written(fresh.array)).all()  # arrays in, an array out
        with pix95.Image.from_array(a[:5], fmt) as shorter, pix95.convert(shorter, to, out=out) as other:
            assert other is not out and (written(other.array) == written(pix95.convert(a, to)[:5])).all()
        with out.copy() as copy:
            assert not np.shares_memory(copy.array, kept) and (copy.array == kept).all()


def _raises(code, function, message, call, *args):
    with pytest.raises(pix95.PixError) as e:
        call(*args)
    assert (e.value.code, e.value.function, e.value.message) == (code, function, message)


def test_every_failure_raises_with_the_library_report():
    rgb = random_array("rgb24", 8, 8)
    _raises(0x10140000, "PIX_convert_to_Y16", "Unsupported image format", pix95.convert, rgb, "y16")
    _raises(0x10140000, "PIX_convert_to_YUV422", "Only even width YUV422 images are supported",
            pix95.convert, rgb[:, :7], "yuv422")
    _raises(0x10030000, "PIX_JPEG_buffer_read", "Expecting PREFIX marker", jpeg.decompress, b"not a jpeg")
    with pix95.Image("y8", 4, 4) as image:
        _raises(0x10280000, "PIX_image_set_parameter", "", image.set, 999, 1)
    missing = "/nonexistent/file.bmp"
    with pytest.raises(pix95.PixError) as e:
        pix95.read(missing)
    assert pix95.is_error(e.value.code) and e.value.function.startswith("PIX_")
    with pytest.raises(ValueError):
        pix95.write("/tmp/x.png", rgb)
    seq = jpeg.Sequence([rgb, rgb])
    with pytest.raises(IndexError):
        seq[2]
    # Outside the binding's calls no handler is left installed: the raw
    # interface returns its status silently.
    assert pix95.lib.PIX_image_set_parameter(60000, pix95.PIX_IMAGE_FORMAT, 2) == 0x10010000


FILES = {  # extension: pixel formats written and read back as they are
    "bmp": ["y8", "rgb24"], "tif": ["y8", "rgb24", "y16"], "tga": ["y8", "rgb24"], "eps": ["y8", "rgb24"]}
PIL_MODES = {"y8": "L", "rgb24": "RGB", "y16": "I;16"}


@pytest.mark.parametrize("ext,fmt", [(e, f) for e, fs in FILES.items() for f in fs])
@pytest.mark.parametrize("width", [37, 64])
def test_file_round_trips_against_pillow(tmp_path, ext, fmt, width):
    a = random_array(fmt, 21, width)
    ours = str(tmp_path / f"ours.{ext}")
    pix95.write(ours, a)
    with pix95.read(ours) as image:
        assert pix95._image._NAMES[image.format] in (fmt, "paletted") and (image.array == a).all()
    if ext == "eps":
        return  # Pillow reads EPS through Ghostscript: covered by the C interop tests
    theirs = Pil.open(ours)
    assert theirs.size == (width, 21) and (np.asarray(theirs) == a).all()
    if fmt == "y16":
        return  # kept by the library: 16-bit TIFF samples are read in Motorola order whatever the file says
    path = str(tmp_path / f"theirs.{ext}")
    # Top-down TGA: the library ignores the origin bit (kept), Pillow writes bottom-up by default.
    Pil.fromarray(a, PIL_MODES[fmt]).save(path, **({"orientation": 1} if ext == "tga" else {}))
    with pix95.read(path) as image:
        assert (image.array == a).all()


@pytest.fixture(scope="module")
def photos(tmp_path_factory):
    folder = os.environ.get("PIX95_PHOTOS") or str(tmp_path_factory.mktemp("photos"))
    sizes = {"640x480": (480, 640), "100x75": (75, 100)}
    if not all(os.path.exists(f"{folder}/photo-{s}.rgb") for s in sizes):
        subprocess.run(["/usr/bin/python3", os.path.join(ROOT, "tools", "photos.py"), folder, *sizes], check=True)
    return [np.fromfile(f"{folder}/photo-{s}.rgb", np.uint8).reshape(h, w, 3) for s, (h, w) in sizes.items()]


def psnr(a, b):
    mse = np.mean((a.astype(np.float64) - b) ** 2)
    return 99.0 if mse == 0 else 10 * np.log10(255.0 ** 2 / mse)


@pytest.mark.parametrize("quality", [50, 75, 90])
def test_jpeg_against_pillow_on_photographs(photos, quality):
    for photo in photos:
        for source in (photo, pix95.convert(photo, "y8")):
            data = jpeg.compress(source, quality=quality)
            ours = jpeg.decompress(data)
            theirs = np.asarray(Pil.open(io.BytesIO(data)))
            assert ours.shape == theirs.shape == source.shape
            # The same stream through two decoders: grey differs only by the
            # inverse transforms' rounding, colour also by chroma upsampling.
            assert psnr(ours, theirs) > (45 if source.ndim == 2 else 35)
            assert psnr(ours, source) > psnr(theirs, source) - 2.5
    data = io.BytesIO()
    Pil.fromarray(photos[0]).save(data, "JPEG", quality=85, subsampling=1)  # 4:2:2
    assert psnr(jpeg.decompress(data.getvalue()), photos[0]) > 33


def test_motion_sequence(photos):
    frames = [np.roll(photos[0], 16 * k, axis=1) for k in range(6)]
    seq = jpeg.Sequence(frames, quality=90)
    again = jpeg.Sequence.from_bytes(seq.tobytes())
    assert len(seq) == len(again) == 6
    for k, decoded in enumerate(again):
        assert (decoded == seq[k]).all() and psnr(decoded, frames[k]) > 30
        assert (decoded == jpeg.decompress(jpeg.compress(frames[k], quality=90))).all()


def test_decoding_into_other_formats_and_sequence_files(tmp_path):
    # The decoder writes Y8, YUV 4:2:2 or RGB24 whatever its output says: any
    # other format is converted after it (an output described otherwise used
    # to be overrun).
    frames = [random_array("rgb24", 17, 30) for _ in range(3)]
    seq = jpeg.Sequence(frames, qscale=40)
    path = str(tmp_path / "frames.jpg")
    seq.write(path)
    with jpeg.Sequence.read(path) as again:
        assert len(again) == 3 and (again[-1] == seq[2]).all() and (again[-3] == seq[0]).all()
        with pytest.raises(IndexError):
            again[-4]
        yuv = again.frame(1, format="yuv422")
        assert yuv.shape == (17, 30, 2) and (again.frame(1, format="y8") == yuv[..., 0]).all()
        assert (again.frame(1, format="rgbx32")[..., :3] == seq[1]).all()
    grey = jpeg.compress(frames[0][..., 1].copy())
    assert (jpeg.decompress(grey, format="rgb24") == jpeg.decompress(grey)[..., None]).all()
    with pytest.raises(ValueError):
        jpeg.Sequence([frames[0], frames[0][:8]])


def test_strips_keep_one_strip_in_memory(tmp_path):
    big = random_array("rgb24", 1080, 1920)
    path = str(tmp_path / "big.bmp")
    pix95.write(path, big)
    tracemalloc.start()
    try:
        done = 0
        for strip in pix95.strips(path, 16):
            assert (strip == big[done:done + len(strip)]).all()
            done += len(strip)
        _, peak = tracemalloc.get_traced_memory()
    finally:
        tracemalloc.stop()
    assert done == 1080 and peak < 4 * 16 * 1920 * 3, peak  # a strip is 92 KiB, the image 6 MiB
    jpg = str(tmp_path / "big.jpg")
    pix95.write(jpg, big[:100, :200], quality=90)
    whole = pix95.read(jpg).array
    assert (np.concatenate(list(s.copy() for s in pix95.strips(jpg, 16))) == whole).all()


def test_no_handle_leaks():
    first = pix95.Image()
    start = first.handle
    first.close()
    small = random_array("rgb24", 4, 8)
    for k in range(10000):
        if k % 2:
            with pix95.Image.from_array(small) as image:
                pix95.convert(image, "y8").close()
        else:
            pix95.convert(small, "yuv422")  # released when collected
    with pix95.Image() as last:
        assert last.handle == start
