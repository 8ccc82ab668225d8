#!/usr/bin/env python3
"""Reads and writes image files with Pillow for the interoperability tests.

  pillow_io.py dump IN OUT            OUT gets "W H MODE\n" then Image.tobytes()
  pillow_io.py save MODE W H RAW OUT [key=value ...]
                                      RAW holds the pixels; key=value pairs are
                                      passed to Image.save (ints when they parse)
  pillow_io.py savepal W H RAW PAL OUT [key=value ...]
                                      a "P" image; PAL holds 768 bytes r,g,b
"""
import sys
from PIL import Image


def options(pairs):
    out = {}
    for pair in pairs:
        key, value = pair.split("=", 1)
        try:
            out[key] = int(value)
        except ValueError:
            out[key] = value
    return out


def main(argv):
    if argv[1] == "dump":
        with Image.open(argv[2]) as im:
            im.load()
            with open(argv[3], "wb") as f:
                f.write(f"{im.width} {im.height} {im.mode}\n".encode())
                f.write(im.tobytes())
    elif argv[1] == "save":
        mode, w, h = argv[2], int(argv[3]), int(argv[4])
        raw = open(argv[5], "rb").read()
        im = Image.frombytes(mode, (w, h), raw)
        im.save(argv[6], **options(argv[7:]))
    elif argv[1] == "savepal":
        w, h = int(argv[2]), int(argv[3])
        im = Image.frombytes("P", (w, h), open(argv[4], "rb").read())
        im.putpalette(open(argv[5], "rb").read())
        im.save(argv[6], **options(argv[7:]))
    else:
        raise SystemExit("unknown command " + argv[1])


if __name__ == "__main__":
    main(sys.argv)
