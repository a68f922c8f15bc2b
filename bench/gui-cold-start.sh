#!/usr/bin/env bash
# Cold start of `vlorfx gui` to its first painted window over 5000 known
# plugins of each format and 1000 pairs, against 1 s, and the library's part
# of it (Initialize, install, the catalogs' loads, the first menu build)
# against 100 ms. Usage: bench/gui-cold-start.sh [BUILD_DIR] [RUNS]
set -euo pipefail
build=${1:-build}
runs=${2:-7}
data=$(mktemp -d)
trap 'rm -rf "$data"' EXIT
"$build/bin/bench_write_catalogs" "$data"
export QT_QPA_PLATFORM=offscreen
lib=(); paint=(); wall=()
for i in $(seq "$runs"); do
  sync; echo 3 > /proc/sys/vm/drop_caches 2>/dev/null || true
  start=$(date +%s%N)
  out=$("$build/bin/vlorfx" --data "$data" gui --startup-report 2>/dev/null)
  end=$(date +%s%N)
  lib+=("$(sed -n 's/^library: \(.*\) ms/\1/p' <<<"$out")")
  paint+=("$(sed -n 's/^first paint: \(.*\) ms/\1/p' <<<"$out")")
  wall+=("$(( (end - start) / 1000000 ))")
  children=$(sed -n 's/^children: //p' <<<"$out")
  [ "$children" = 0 ] || echo "run $i: $children child processes at the first paint" >&2
done
median() { printf '%s\n' "$@" | sort -g | awk '{a[NR]=$1} END {print a[int((NR+1)/2)]}'; }
ml=$(median "${lib[@]}"); mp=$(median "${paint[@]}"); mw=$(median "${wall[@]}")
echo "vlorfx gui over 5000 plugins of each format and 1000 pairs, $runs runs (medians):"
awk -v l="$ml" -v p="$mp" -v w="$mw" 'BEGIN {
  printf "  library part: %.1f ms = %.2f of 100 ms\n", l, l / 100
  printf "  first paint:  %.1f ms = %.2f of 1000 ms (whole process to its exit: %d ms)\n", p, p / 1000, w
}'
