#!/bin/sh
# The exports checked both ways: the functions libpix95.so exports are
# exactly the names of the generated Pix95.def (so a name missing from its
# .exports list cannot be exported here and silently absent from the DLL),
# and every function the header declares that the library defines is in both.
# Usage: exports_check.sh LIBRARY.so STATIC_LIBRARY.a Pix95.def pix95.h
set -eu
so=$1 static=$2 def=$3 header=$4
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT

nm -D --defined-only "$so" | awk '$2 == "T" { print $3 }' | sort -u > "$dir/so"
sed -n '/^EXPORTS/,$p' "$def" | awk 'NF == 1 && $1 != "EXPORTS" { print $1 }' | sort -u > "$dir/def"
sed -n 's/.*PIX_CALL \([A-Za-z_][A-Za-z0-9_]*\)(.*/\1/p' "$header" | sort -u > "$dir/declared"
nm --defined-only "$static" 2>/dev/null | awk '$2 == "T" { print $3 }' | sort -u > "$dir/defined"
comm -12 "$dir/declared" "$dir/defined" > "$dir/built"

status=0
if ! cmp -s "$dir/so" "$dir/def"; then
  echo "exported by $(basename "$so") but not in Pix95.def:"; comm -23 "$dir/so" "$dir/def"
  echo "in Pix95.def but not exported by $(basename "$so"):"; comm -13 "$dir/so" "$dir/def"
  status=1
fi
for list in so def; do
  missing=$(comm -23 "$dir/built" "$dir/$list")
  if [ -n "$missing" ]; then
    echo "declared in pix95.h and built, but missing from the $list list:"; echo "$missing"
    status=1
  fi
done
[ "$(wc -l < "$dir/built")" -ge 100 ] || { echo "too few built functions found: the check is not looking"; status=1; }
[ $status -eq 0 ] && echo "$(wc -l < "$dir/so") functions exported; $(wc -l < "$dir/built") declared and built; both ways equal"
exit $status
