#!/usr/bin/env bash
# Probing and verifying every class of the zam-plugins VST3 bundles, one host
# process a job, against another host's VST3 scanner run once per bundle.
# Three rounds, interleaved so that both sides see the same machine; the best
# round of each is reported.
#
#   bench/probe-vs-peer.sh            (after a build; installs nothing)
set -euo pipefail
cd "$(dirname "$0")/.."
bin=$PWD/build/bin
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

mapfile -t bundles < <(find /usr/lib/vst3 -maxdepth 1 -iname 'Zam*.vst3' | sort)
echo "bundles: ${#bundles[@]}"
peer=/usr/lib/ardour7/ardour-vst3-scanner
now() { date +%s.%N; }

ours() {
  local jobs=0
  for b in "${bundles[@]}"; do
    reply=$("$bin/vlorvst3" --probe "$b" 2>/dev/null | tail -n 1)
    jobs=$((jobs + 1))
    for cid in $(printf '%s' "$reply" | grep -o '"cid":"[0-9A-F]*"' | cut -d'"' -f4); do
      "$bin/vlorvst3" --verify "$b" --cid "$cid" 2>/dev/null | tail -n 1 | grep -q '"ok":true' ||
        echo "verify failed: $b $cid" >&2
      jobs=$((jobs + 1))
    done
  done
  echo "$jobs" > "$work/jobs"
}
through_library() {
  for b in "${bundles[@]}"; do
    "$bin/vlorfx" probe --verify "$b" >/dev/null 2>&1 || echo "probe failed: $b" >&2
  done
}
theirs() {
  for b in "${bundles[@]}"; do
    LD_LIBRARY_PATH=/usr/lib/ardour7 HOME="$work" timeout 60 "$peer" -f -q "$b" >/dev/null 2>&1 || true
  done
}
timed() { local t0; t0=$(now); "$@"; echo "$(now) - $t0" | bc; }
best() { printf '%s\n' "$@" | sort -g | head -n 1; }

a=() b=() c=()
for round in 1 2 3; do
  a+=("$(timed ours)")
  b+=("$(timed through_library)")
  [ -x "$peer" ] && c+=("$(timed theirs)")
done
ours_t=$(best "${a[@]}")
lib_t=$(best "${b[@]}")
printf 'vlorvst3 probe + verify (%s host processes): %.3f s\n' "$(cat "$work/jobs")" "$ours_t"
printf 'vlorfx probe --verify (through the library):  %.3f s\n' "$lib_t"
if [ ${#c[@]} -gt 0 ]; then
  peer_t=$(best "${c[@]}")
  printf 'peer scanner, once per bundle:               %.3f s\n' "$peer_t"
  printf 'ratio ours/peer: %.2f   library/peer: %.2f\n' "$(echo "$ours_t / $peer_t" | bc -l)" "$(echo "$lib_t / $peer_t" | bc -l)"
else
  echo "peer scanner not installed: $peer"
fi
