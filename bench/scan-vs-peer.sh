#!/usr/bin/env bash
# The first scan of the system's plugins of both formats (VST2 files checked,
# VST3 bundles probed and their classes verified), one check at a time and one
# a core at a time, against another host's two scanners run once per file and
# once per bundle; and a second scan with nothing changed. Counts the host
# programs our scans start: VST2 through a logging wrapper found first on the
# helpers path, VST3 through the manager's own log of each run.
#
#   bench/scan-vs-peer.sh            (after a build; installs nothing)
set -euo pipefail
cd "$(dirname "$0")/.."
bin=$PWD/build/bin
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

mkdir -p "$work/helpers"
cat > "$work/helpers/vlorvst" <<WRAP
#!/bin/sh
echo "\$1" >> "$work/starts.log"
exec "$bin/vlorvst" "\$@"
WRAP
chmod +x "$work/helpers/vlorvst"
: > "$work/starts.log"

mapfile -t files < <(find /usr/lib/vst /usr/lib/lxvst -name '*.so' -type f 2>/dev/null | sort)
mapfile -t bundles < <(find /usr/lib/vst3 -maxdepth 1 -iname '*.vst3' 2>/dev/null | sort)
echo "VST2 plugin files: ${#files[@]}, VST3 bundles: ${#bundles[@]}"

now() { date +%s.%N; }
cores=$(nproc); [ "$cores" -gt 8 ] && cores=8
# The timed first scans go straight to the host programs (the wrapper costs
# a shell a check); one check at a time, then one a core at a time, each in
# a data folder of its own.
o0=$(now)
"$bin/vlorfx" --data "$work/one" scan --quiet --parallel 1 \
  --vst2-path /usr/lib/vst --vst2-path /usr/lib/lxvst > "$work/one.txt" 2> /dev/null
o1=$(now)
t0=$(now)
"$bin/vlorfx" --data "$work/cores" scan --quiet --parallel "$cores" \
  --vst2-path /usr/lib/vst --vst2-path /usr/lib/lxvst > "$work/cores.txt" 2> /dev/null
t1=$(now)
# The same first scan again, untimed, through the wrapper: the children it starts.
VLORFX_VERBOSE=1 VLOR_HELPERS_PATH="$work/helpers" "$bin/vlorfx" --data "$work/data" scan --parallel "$cores" \
  --vst2-path /usr/lib/vst --vst2-path /usr/lib/lxvst > "$work/first.txt" 2> "$work/first.err"
first_children=$(( $(wc -l < "$work/starts.log") + $(grep -c 'host run' "$work/first.err" || true) ))
: > "$work/starts.log"
t2=$(now)
VLORFX_VERBOSE=1 VLOR_HELPERS_PATH="$work/helpers" "$bin/vlorfx" --data "$work/data" scan \
  > "$work/second.txt" 2> "$work/second.err"
t3=$(now)
second_children=$(( $(wc -l < "$work/starts.log") + $(grep -c 'host run' "$work/second.err" || true) ))

peer=/usr/lib/ardour7/ardour-vst-scanner
peer3=/usr/lib/ardour7/ardour-vst3-scanner
if [ -x "$peer" ] && [ -x "$peer3" ]; then
  p0=$(now)
  for f in "${files[@]}"; do
    LD_LIBRARY_PATH=/usr/lib/ardour7 HOME="$work" timeout 60 "$peer" -f -q "$f" >/dev/null 2>&1 || true
  done
  for b in "${bundles[@]}"; do
    LD_LIBRARY_PATH=/usr/lib/ardour7 HOME="$work" timeout 60 "$peer3" -f -q "$b" >/dev/null 2>&1 || true
  done
  p1=$(now)
  peer_time=$(echo "$p1 - $p0" | bc)
else
  peer_time=""
fi

first=$(echo "$t1 - $t0" | bc)
one=$(echo "$o1 - $o0" | bc)
second=$(echo "$t3 - $t2" | bc)
echo "first scan, one at a time: ${one} s wall, $(grep '^time:' "$work/one.txt")"
echo "first scan, $cores at a time:  ${first} s wall, $(grep '^time:' "$work/cores.txt"), $first_children host programs started"
echo "scaling from 1 to $cores: $(echo "scale=2; $one / $first" | bc)x"
echo "second scan: ${second} s wall, $(grep '^time:' "$work/second.txt"), $second_children host programs started"
grep -E '^(VST2|VST3|pairs):' "$work/first.txt" | tr '\n' ' '; echo
if [ -n "$peer_time" ]; then
  echo "peer scanners, once per file and once per bundle: ${peer_time} s wall"
  echo "ratio first scan / peer: one at a time $(echo "scale=2; $one / $peer_time" | bc), $cores at a time $(echo "scale=2; $first / $peer_time" | bc)"
else
  echo "peer scanners not installed ($peer, $peer3): apt-get install ardour"
fi
