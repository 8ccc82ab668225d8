#!/bin/sh
# The pix tool end to end: the demo checks its own files; every lossless file
# format then round-trips through `pix convert`, strip by strip, back to the
# same pixels; JPEG files open in djpeg; failures give the library's code and
# a non-zero status.
# Usage: pix_cli.sh PIX SCRATCH_DIR
set -eu
pix=$1
dir=$2
rm -rf "$dir"
mkdir -p "$dir"
fail() { echo "pix_cli: $*" >&2; exit 1; }

"$pix" demo "$dir/demo" > "$dir/demo.txt" || { cat "$dir/demo.txt"; fail "pix demo failed"; }
grep -q "every file read back as written" "$dir/demo.txt" || fail "demo summary missing"

# RGB24 through every file format and back, against a raw reference.
"$pix" convert "$dir/demo/card_rgb24.bmp" "$dir/ref.raw" --to rgb24
for ext in bmp tif tga eps; do
  "$pix" convert "$dir/demo/card_rgb24.bmp" "$dir/rgb.$ext" --strip-lines 50
  "$pix" convert "$dir/rgb.$ext" "$dir/rgb_$ext.raw" --to rgb24 --strip-lines 7
  cmp -s "$dir/ref.raw" "$dir/rgb_$ext.raw" || fail "RGB24 through .$ext changed the pixels"
done
# Grey likewise (a grey BMP reads back as a grey palette).
"$pix" convert "$dir/demo/card_y8.tif" "$dir/grey_ref.raw" --to y8
for ext in bmp tif tga eps; do
  "$pix" convert "$dir/demo/card_y8.tif" "$dir/grey.$ext" --strip-lines 0
  "$pix" convert "$dir/grey.$ext" "$dir/grey_$ext.raw" --to y8
  cmp -s "$dir/grey_ref.raw" "$dir/grey_$ext.raw" || fail "Y8 through .$ext changed the pixels"
done

# JPEG: a file of each layout decodes in djpeg; decoding ours gives the
# picture's size whatever the strips; the demo's sequence splits into frames
# that djpeg opens one by one.
"$pix" convert "$dir/demo/card_rgb24.bmp" "$dir/colour.jpg" --quality 90 --strip-lines 40
"$pix" convert "$dir/demo/card_y8.tif" "$dir/grey.jpg" --to y8 --qscale 16
for f in colour grey; do
  djpeg -outfile "$dir/$f.pnm" "$dir/$f.jpg" || fail "djpeg refused $f.jpg"
  "$pix" convert "$dir/$f.jpg" "$dir/${f}_back.tif" --strip-lines 24
  "$pix" info "$dir/${f}_back.tif" | grep -q "^height *576$" || fail "$f.jpg decoded to another height"
done
"$pix" info "$dir/colour.jpg" > "$dir/jinfo.txt"
grep -q "^sampling *YUV 4:2:2" "$dir/jinfo.txt" || fail "info: JPEG sampling"
"$pix" info "$dir/demo/bars_25.jpg" | grep -q "^frames *25$" || fail "info: frame count"
"$pix" frames "$dir/demo/bars_25.jpg" "$dir/frames" > /dev/null
[ "$(ls "$dir/frames" | wc -l)" -eq 25 ] || fail "frames: not 25 files"
for f in "$dir"/frames/*.jpg; do djpeg -outfile /dev/null "$f" 2> "$dir/djpeg.txt" || fail "djpeg refused $f"; done
[ ! -s "$dir/djpeg.txt" ] || fail "djpeg warned: $(cat "$dir/djpeg.txt")"

"$pix" info "$dir/rgb.tif" > "$dir/info.txt"
grep -q "^width *720$" "$dir/info.txt" || fail "info: width"
grep -q "^pixel format *rgb24$" "$dir/info.txt" || fail "info: pixel format"

# Failures: the library's code on standard error and status 1; usage errors 2.
if "$pix" convert "$dir/no-such-file.bmp" "$dir/x.bmp" 2> "$dir/err.txt"; then fail "a missing file succeeded"; fi
grep -q "0x10640000" "$dir/err.txt" || fail "missing file: no status code in '$(cat "$dir/err.txt")'"
# A disk that takes no bytes: every writer fails, and so does pix.
if [ -e /dev/full ]; then
  for ext in bmp tif tga eps raw jpg; do
    ln -sf /dev/full "$dir/full.$ext"
    if "$pix" convert "$dir/demo/card_rgb24.bmp" "$dir/full.$ext" 2> "$dir/err.txt"; then fail "writing .$ext to a full disk succeeded"; fi
    grep -q "status 0x106" "$dir/err.txt" || fail "full disk, .$ext: no status code in '$(cat "$dir/err.txt")'"
  done
fi
set +e
"$pix" convert only-one-file 2> /dev/null
[ $? -eq 2 ] || fail "usage error: status not 2"
set -e
echo "pix_cli: ok"
