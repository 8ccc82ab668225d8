"""Natural photographs for the benchmarks and the interoperability tests.

Usage: /usr/bin/python3 tools/photos.py OUT_DIR [WIDTHxHEIGHT ...]

Debian's python3-skimage ships sample photographs.  The package is fetched
(not installed) into a scratch folder and unpacked there; four of its
photographs are cropped to the frame's shape, scaled and laid out two by two,
and written as raw RGB24 to OUT_DIR/photo-WIDTHxHEIGHT.rgb for every size
asked for (by default the benchmark's 640x480 and 1920x1080).  Nothing is kept but those files.  Exits non-zero,
with a one-line reason, when the package or Pillow is not available.
"""
import glob
import os
import subprocess
import sys
import tempfile

DEFAULT_SIZES = [(640, 480), (1920, 1080)]
PICTURES = ["coffee.png", "motorcycle_left.png", "rocket.jpg", "chelsea.png"]


def fetch(scratch):
    subprocess.run(["apt-get", "download", "python3-skimage"], cwd=scratch, check=True,
                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    deb = glob.glob(os.path.join(scratch, "python3-skimage_*.deb"))[0]
    unpacked = os.path.join(scratch, "unpacked")
    subprocess.run(["dpkg-deb", "-x", deb, unpacked], check=True)
    return glob.glob(os.path.join(unpacked, "usr/lib/python3*/dist-packages/skimage/data"))[0]


def cover(picture, width, height):
    """The picture cropped about its centre to width:height, then scaled to it."""
    from PIL import Image
    w, h = picture.size
    if w * height > h * width:
        crop = h * width // height
        box = ((w - crop) // 2, 0, (w - crop) // 2 + crop, h)
    else:
        crop = w * height // width
        box = (0, (h - crop) // 2, w, (h - crop) // 2 + crop)
    return picture.crop(box).resize((width, height), Image.LANCZOS)


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    out_dir = sys.argv[1]
    try:
        sizes = [tuple(int(n) for n in arg.split("x")) for arg in sys.argv[2:]] or DEFAULT_SIZES
    except ValueError:
        sys.exit(__doc__)
    try:
        from PIL import Image
    except ImportError:
        sys.exit("photos: Pillow (python3-pil) is not installed")
    os.makedirs(out_dir, exist_ok=True)
    with tempfile.TemporaryDirectory() as scratch:
        try:
            data = fetch(scratch)
        except (subprocess.CalledProcessError, IndexError, OSError) as e:
            sys.exit(f"photos: python3-skimage could not be fetched ({e})")
        pictures = [Image.open(os.path.join(data, name)).convert("RGB") for name in PICTURES]
        for width, height in sizes:
            frame = Image.new("RGB", (width, height))
            cell_w, cell_h = (width + 1) // 2, (height + 1) // 2
            for i, picture in enumerate(pictures):
                frame.paste(cover(picture, cell_w, cell_h), ((i % 2) * (width // 2), (i // 2) * (height // 2)))
            with open(os.path.join(out_dir, f"photo-{width}x{height}.rgb"), "wb") as f:
                f.write(frame.tobytes())


if __name__ == "__main__":
    main()
