#!/bin/sh
# pix show and pix print end to end on a real X server (run under xvfb-run):
# each way of showing (bitmaps strip by strip, the direct path, a whole DIB)
# puts the picture at its region of the window, as a screenshot of the root
# window shows; a key closes the window; the printed PDF page, rasterised by
# Ghostscript, holds the picture centred at half the largest size.  With
# --windows, PIX is the Windows build's pix.exe, run under Wine (no PDF
# printing there), and DEMO_PIX a native pix that makes the test card.
# Usage: display_show.sh PIX SCRATCH_DIR [--windows DEMO_PIX]
set -eu
pix=$1
dir=$2
windows=${3:-}
rm -rf "$dir"
mkdir -p "$dir"
fail() { echo "display_show: $*" >&2; exit 1; }
run() { if [ -n "$windows" ]; then wine "$pix" "$@"; else "$pix" "$@"; fi; }
if [ -n "$windows" ]; then "$4" demo "$dir/demo" > /dev/null; else "$pix" demo "$dir/demo" > /dev/null; fi
card=$dir/demo/card_rgb24.bmp   # 720 x 576
convert "$card" "$dir/ref.png"

for way in "" --direct --dib; do
  # Each way writes its own file, gone before pix starts: the wait below must
  # not read the previous way's words while the new pix has not yet opened it.
  out=$dir/out$way.txt
  rm -f "$out"
  run show "$card" --roi 20,10,32767,32767 --strip-lines 50 $way > "$out" 2>&1 &
  pid=$!
  # Drawn once pix tells the client area's place on the screen.
  i=0
  until at=$(sed -n 's/^shown .* at \([0-9-][0-9]*\),\([0-9-][0-9]*\)\r*$/\1 \2/p' "$out" 2>/dev/null) && [ -n "$at" ]; do
    i=$((i + 1)); [ $i -lt 100 ] || { kill $pid 2>/dev/null || true; cat "$out" 2>/dev/null; fail "pix show $way drew nothing"; }
    sleep 0.1
  done
  x=${at% *} y=${at#* }
  # The window system may show the window a moment after pix has drawn it:
  # screenshots until one holds the picture at the region and nothing left
  # of it or above it (the window is black there: with the picture painted
  # over in black, the window holds one colour).  A stray draw would stay on the
  # screen: nothing repaints the window after pix has drawn it.
  tries=0
  while :; do
    xwd -root -silent > "$dir/shot.xwd"
    convert "$dir/shot.xwd" -crop 720x576+$((x + 20))+$((y + 10)) +repage "$dir/shot$way.png"
    differ=$(compare -metric AE "$dir/shot$way.png" "$dir/ref.png" null: 2>&1) || true
    outside=$(convert "$dir/shot.xwd" -crop 740x586+$x+$y +repage -fill black -draw 'rectangle 20,10 739,585' \
      -format '%k' info: 2>&1) || true
    tries=$((tries + 1))
    { [ "$differ" != 0 ] || [ "$outside" != 1 ]; } && [ $tries -lt 25 ] || break
    sleep 0.2
  done
  [ "$differ" = 0 ] || fail "pix show $way: $differ pixels differ from the file (window at $x,$y)"
  [ "$outside" = 1 ] || {
    cp "$dir/shot.xwd" "$dir/outside$way.xwd"
    fail "pix show $way drew outside its region (window at $x,$y; around the picture: $outside colours; screen kept in outside$way.xwd)"
  }
  xdotool search --sync --name "pix show" keydown --window %1 q 2>/dev/null
  wait $pid || fail "pix show $way did not end well on a key"
  # The key is let go once the window is gone (a key left down keeps the
  # next window of a Windows program from showing under Wine).
  xdotool keyup q 2>/dev/null || true
done

if [ -n "$windows" ]; then
  echo "display_show: 3 ways shown and closed (Windows)"
  exit 0
fi
# A4 at 300 dots an inch is 2480 x 3507 device pixels; the card fits at
# 2480 x 1984, half of it is 1240 x 992 at (620, 1257).
"$pix" print "$card" "$dir/page.pdf" --percent 50
gs -q -dSAFER -sDEVICE=png16m -r300 -o "$dir/page.png" "$dir/page.pdf"
# Compared at a tenth of the size: Ghostscript and ImageMagick round the
# edges of stretched pixels apart, a misplaced or misscaled picture shows.
convert "$dir/page.png" -crop 1240x992+620+1257 +repage -scale '124x99!' "$dir/printed.png"
convert "$dir/ref.png" -scale '124x99!' "$dir/ref_small.png"
rmse=$(compare -metric RMSE "$dir/printed.png" "$dir/ref_small.png" null: 2>&1 | sed 's/.*(\(.*\))/\1/') || true
awk -v e="$rmse" 'BEGIN { exit !(e < 0.05) }' || fail "printed picture differs from the card (RMSE $rmse)"
[ "$(convert "$dir/page.png" -crop 2480x1250+0+0 -format '%[fx:minima.r*minima.g*minima.b]' info:)" = 1 ] ||
  fail "the page above the picture is not blank"
echo "display_show: 3 ways shown and closed, page printed"
