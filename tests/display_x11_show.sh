#!/bin/sh
# pix show and pix print end to end on a real X server (run under xvfb-run):
# each way of showing (bitmaps strip by strip, the MIT-SHM direct path, a
# whole DIB) puts the picture at its region, as a screenshot of the root
# window shows; a key closes the window; the printed PDF page, rasterised by
# Ghostscript, holds the picture centred at half the largest size.
# Usage: display_x11_show.sh PIX SCRATCH_DIR
set -eu
pix=$1
dir=$2
rm -rf "$dir"
mkdir -p "$dir"
fail() { echo "display_x11_show: $*" >&2; exit 1; }
"$pix" demo "$dir/demo" > /dev/null
card=$dir/demo/card_rgb24.bmp   # 720 x 576
convert "$card" "$dir/ref.png"

for way in "" --direct --dib; do
  "$pix" show "$card" --roi 20,10,32767,32767 --strip-lines 50 $way > "$dir/out.txt" 2>&1 &
  pid=$!
  i=0
  until grep -q shown "$dir/out.txt"; do
    i=$((i + 1)); [ $i -lt 100 ] || { kill $pid; cat "$dir/out.txt"; fail "pix show $way drew nothing"; }
    sleep 0.1
  done
  xwd -root -silent > "$dir/shot.xwd"
  convert "$dir/shot.xwd" -crop 720x576+20+10 +repage "$dir/shot$way.png"
  differ=$(compare -metric AE "$dir/shot$way.png" "$dir/ref.png" null: 2>&1) || true
  [ "$differ" = 0 ] || fail "pix show $way: $differ pixels differ from the file"
  # Nothing drawn left of or above the region (the window is black).
  [ "$(convert "$dir/shot.xwd" -crop 20x586+0+0 -format '%[fx:maxima.r+maxima.g+maxima.b]' info:)" = 0 ] ||
    fail "pix show $way drew outside its region"
  xdotool search --sync --name "pix show" keydown --window %1 q 2>/dev/null
  wait $pid || fail "pix show $way did not end well on a key"
done

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
echo "display_x11_show: 3 ways shown and closed, page printed"
