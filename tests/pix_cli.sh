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
# Processing, end to end on pictures cut from the card (strips of 64 lines, so
# most of them cross strip boundaries).  line A N B M: line N of A (W bytes a
# line) must equal line M of B.
line() { cmp -s -n "$W" -i "$(($2 * W)):$(($4 * W))" "$1" "$3" || fail "$5: line $2 of $1 is not line $4 of $3"; }
bytes() { od -An -v -tu1 "$1" | tr -s ' ' '\n' | grep -v '^$'; }
p=$dir/proc; mkdir -p "$p"
"$pix" convert "$dir/demo/card_y8.tif" "$p/card.raw" --to y8
"$pix" crop "$dir/demo/card_y8.tif" "$p/crop.raw" 100 380 16 70 > /dev/null
[ "$(wc -c < "$p/crop.raw")" -eq 1120 ] || fail "crop: size"
for j in 0 3 4 5 68 69; do W=16; cmp -s -n 16 -i "$(((380 + j) * 720 + 100)):$((j * 16))" "$p/card.raw" "$p/crop.raw" || fail "crop: line $j"; done
"$pix" crop "$dir/demo/card_rgb24.bmp" "$p/edge.bmp" 700 560 100 100 > /dev/null
"$pix" info "$p/edge.bmp" | grep -q "^width *20$" || fail "crop: not cut at the right edge"
# Scaling to the same size, mirroring twice, turning a full circle: the same pixels.
"$pix" scale "$p/crop.raw" "$p/x.raw" 16 70 2> /dev/null && fail "raw input read"
"$pix" crop "$dir/demo/card_rgb24.tif" "$p/small.tga" 250 250 40 90 > /dev/null
"$pix" convert "$p/small.tga" "$p/small.raw" --to rgb24
"$pix" scale "$p/small.tga" "$p/same.raw" 40 90 && cmp -s "$p/small.raw" "$p/same.raw" || fail "scale: same size changed pixels"
"$pix" scale "$p/small.tga" "$p/big.bmp" 97 201 && "$pix" info "$p/big.bmp" | grep -q "^height *201$" || fail "scale: size"
"$pix" mirror "$p/small.tga" "$p/m.bmp" && "$pix" mirror "$p/m.bmp" "$p/mm.raw" && cmp -s "$p/small.raw" "$p/mm.raw" || fail "mirror twice"
"$pix" mirror "$p/small.tga" "$p/m.raw"
W=3; cmp -s -n 3 -i 117:0 "$p/small.raw" "$p/m.raw" || fail "mirror: last pixel not first"
"$pix" rotate "$p/small.tga" "$p/r90.tif" 90 && "$pix" info "$p/r90.tif" | grep -q "^width *90$" || fail "rotate: size"
"$pix" rotate "$p/r90.tif" "$p/r180.bmp" 90 && "$pix" rotate "$p/r180.bmp" "$p/r0.raw" 180 && cmp -s "$p/small.raw" "$p/r0.raw" || fail "rotate: 90+90+180"
# A flat bar stays flat through smoothing and edges; a kernel summing to 0 is refused.
"$pix" crop "$dir/demo/card_rgb24.bmp" "$p/flat.bmp" 100 10 60 80 > /dev/null
"$pix" convert "$p/flat.bmp" "$p/flat.raw"
for k in smooth edge sharpen 1,1,1,1,1,1,1,1,1; do
  "$pix" filter "$p/flat.bmp" "$p/f.raw" $k && cmp -s "$p/flat.raw" "$p/f.raw" || fail "filter $k changed a flat picture"
done
# Across strips, one line late: the centre alone gives the picture back, the line above shifts it down.
"$pix" filter "$p/small.tga" "$p/c.raw" 0,0,0,0,1,0,0,0,0 && cmp -s "$p/small.raw" "$p/c.raw" || fail "filter: centre kernel"
"$pix" filter "$p/small.tga" "$p/u.raw" 0,1,0,0,0,0,0,0,0
W=120; for j in 1 63 64 65 88; do cmp -s -n 114 -i "$((j * 120 + 3)):$(((j - 1) * 120 + 3))" "$p/u.raw" "$p/small.raw" || fail "filter: line $j"; done
"$pix" filter "$p/small.tga" "$p/e.raw" edge && ! cmp -s "$p/small.raw" "$p/e.raw" || fail "filter: edge changed nothing"
if "$pix" filter "$p/flat.bmp" "$p/f.raw" 1,1,1,1,-8,1,1,1,1 2> "$dir/err.txt"; then fail "a zero-sum kernel was taken"; fi
grep -q "sum to 0" "$dir/err.txt" || fail "filter: no reason for the refusal"
# Threshold, then pseudo-colour of its black and white: 0x001F and 0xF800.
"$pix" crop "$dir/demo/card_y8.tif" "$p/ramp.bmp" 0 300 720 20 > /dev/null
"$pix" threshold "$p/ramp.bmp" "$p/t.raw" 100 150
[ "$(bytes "$p/t.raw" | awk '$1 != 0 && $1 != 255 && ($1 < 100 || $1 >= 150)' | wc -l)" -eq 0 ] || fail "threshold: a level outside"
[ "$(bytes "$p/t.raw" | sort -un | sed -n '1p;$p' | tr '\n' ' ')" = "0 255 " ] || fail "threshold: no black or white"
"$pix" threshold "$p/ramp.bmp" "$p/bw.tif" 128 128 && "$pix" pseudo "$p/bw.tif" "$p/ps.raw"
[ "$(od -An -v -tx2 "$p/ps.raw" | tr -s ' ' '\n' | grep -v '^$' | sort -u | tr '\n' ' ')" = "001f f800 " ] || fail "pseudo: grey"
"$pix" pseudo "$p/small.tga" "$p/ps.bmp" --hsi && "$pix" pseudo "$dir/demo/card_yuv422.jpg" "$p/ps.jpg" || fail "pseudo: colour"
# Fields: woven, one above the other woven, doubled.
"$pix" crop "$dir/demo/card_y8.tif" "$p/a.tif" 0 0 720 100 > /dev/null
"$pix" crop "$dir/demo/card_y8.tif" "$p/b.tif" 0 400 720 100 > /dev/null
"$pix" fields "$p/a.tif" "$p/b.tif" "$p/w.raw"
W=720; line "$p/w.raw" 0 "$p/card.raw" 0 woven; line "$p/w.raw" 1 "$p/card.raw" 400 woven; line "$p/w.raw" 199 "$p/card.raw" 499 woven
"$pix" fields --interlace "$p/w.raw" "$p/i.raw" 2> /dev/null && fail "raw frame read"
"$pix" crop "$dir/demo/card_y8.tif" "$p/ab.bmp" 0 0 720 200 > /dev/null
"$pix" fields --interlace "$p/ab.bmp" "$p/i.raw"
line "$p/i.raw" 1 "$p/card.raw" 100 interlace; line "$p/i.raw" 198 "$p/card.raw" 99 interlace
"$pix" fields --double "$p/b.tif" "$p/d.raw"; line "$p/d.raw" 130 "$p/card.raw" 465 doubled; line "$p/d.raw" 131 "$p/card.raw" 465 doubled
"$pix" fields "$p/a.tif" "$p/ab.bmp" "$p/x.raw" 2> /dev/null && fail "fields of two sizes"
# Histogram of a flat bar: every pixel in one bin; the plot has three planes.
"$pix" histogram "$p/flat.bmp" --svg "$p/h.svg" > "$p/h.txt"
grep -q "^intensity *4800 .* 4800$" "$p/h.txt" || fail "histogram: $(cat "$p/h.txt")"
[ "$(grep -c "<polygon" "$p/h.svg")" -eq 3 ] || fail "histogram: plot"
# Keying the demo's screen: its first line is the backdrop's, the card's ramp stays.
"$pix" convert "$dir/demo/backdrop.bmp" "$p/back.raw" --to yuv422
"$pix" convert "$dir/demo/card_on_screen.bmp" "$p/front.raw" --to yuv422
"$pix" key "$dir/demo/card_on_screen.bmp" "$p/k.raw" --background "$dir/demo/backdrop.bmp" --calibrate "$dir/demo/screen.bmp" > "$p/k.txt"
grep -q ": [1-9][0-9]* pixels changed" "$p/k.txt" || fail "key: $(cat "$p/k.txt")"
W=1440; line "$p/k.raw" 0 "$p/back.raw" 0 key; line "$p/k.raw" 575 "$p/back.raw" 575 key
cmp -s -n 960 -i $((300 * 1440 + 240)):$((300 * 1440 + 240)) "$p/k.raw" "$p/front.raw" || fail "key: the card was keyed"
"$pix" key "$p/flat.bmp" "$p/k.bmp" --colour 3 --hue 5,5 | grep -q " 0 pixels changed" || fail "key: yellow keyed"
for args in "key $p/flat.bmp $p/k.bmp" "key $p/flat.bmp $p/k.bmp --colour 1 --background $p/flat.bmp" "key $p/flat.bmp $p/k.bmp --colour 16" \
  "rotate $p/flat.bmp $p/x.bmp 45" "crop $p/flat.bmp $p/x.bmp 0 0 0 5" "filter $p/flat.bmp $p/x.bmp 1,2" "threshold $p/flat.bmp $p/x.bmp 1" "fields --interlace $p/x.bmp" "histogram"; do
  set +e; "$pix" $args 2> /dev/null; s=$?; set -e
  [ $s -eq 2 ] || fail "'pix $args': status $s, not 2"
done
set +e
"$pix" convert only-one-file 2> /dev/null
[ $? -eq 2 ] || fail "usage error: status not 2"
set -e
echo "pix_cli: ok"
