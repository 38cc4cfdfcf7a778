#!/bin/bash
# Times vkseq on one folder of many files (default 200,000): several sequences with gaps and
# different paddings, plus loose files. Usage: benchmarks/vkseq_folder.sh [COUNT] [BUILD_DIR]
set -euo pipefail
count=${1:-200000}
build=${2:-build/default}
vkseq="$build/tools/vkseq/vkseq"
[ -x "$vkseq" ] || { echo "build $vkseq first" >&2; exit 1; }

dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
mkdir -p "$dir/card"
# Four kinds of names in turn: a camera sequence, renders with several versions, a padded plate
# with gaps, and unpadded frames with a few loose notes.
(cd "$dir/card" && awk -v n="$count" 'BEGIN {
    for (i = 0; i < n; i++) {
        k = i % 4
        f = int(i / 4)  # each kind counts its own frames
        if (k == 0) name = sprintf("A001_C%03d_%07d.dpx", int(f / 2000), f % 2000)
        else if (k == 1) name = sprintf("render_v%d.%d.exr", f % 3, int(f / 3) + 1)
        else if (k == 2) name = sprintf("plate.%08d.tif", (f % 97 == 0) ? f + 5000000 : f)
        else if (f % 1000 == 3) name = sprintf("notes_%d.txt", f)
        else name = sprintf("frame%d.jpg", f)
        print name
    }
}' | xargs touch)
echo "files: $(ls -f "$dir/card" | wc -l) entries (including . and ..)"
"$vkseq" "$dir/card" > /dev/null  # warm the cache
runs=5
best=""
for _ in $(seq $runs); do
    start=$EPOCHREALTIME
    "$vkseq" "$dir/card" > "$dir/out.txt"
    end=$EPOCHREALTIME
    best=$(awk -v s="$start" -v e="$end" -v b="$best" 'BEGIN { t = e - s; if (b == "" || t < b) b = t; print b }')
done
echo "sequences: $(wc -l < "$dir/out.txt")"
printf 'vkseq on %d files: best of %d runs %.3f s\n' "$count" "$runs" "$best"
start=$EPOCHREALTIME; "$vkseq" -s "$dir/card" > /dev/null; end=$EPOCHREALTIME
printf 'vkseq -s on %d files: %.3f s\n' "$count" "$(awk -v s="$start" -v e="$end" 'BEGIN { print e - s }')"
