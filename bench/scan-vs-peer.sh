#!/usr/bin/env bash
# The first scan of the system's VST2 plugins against another host's scanner
# run once per file, and a second scan with nothing changed; both scanners go
# one plugin at a time. Counts the host programs our scans start through a
# logging wrapper found first on the helpers path.
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
echo "plugin files: ${#files[@]}"

now() { date +%s.%N; }
t0=$(now)
VLOR_HELPERS_PATH="$work/helpers" "$bin/vlorfx" --data "$work/data" scan \
  --vst2-path /usr/lib/vst --vst2-path /usr/lib/lxvst > "$work/first.txt"
t1=$(now)
first_children=$(wc -l < "$work/starts.log")
: > "$work/starts.log"
t2=$(now)
VLOR_HELPERS_PATH="$work/helpers" "$bin/vlorfx" --data "$work/data" scan > "$work/second.txt"
t3=$(now)
second_children=$(wc -l < "$work/starts.log")

peer=/usr/lib/ardour7/ardour-vst-scanner
if [ -x "$peer" ]; then
  p0=$(now)
  for f in "${files[@]}"; do
    LD_LIBRARY_PATH=/usr/lib/ardour7 HOME="$work" timeout 60 "$peer" -f -q "$f" >/dev/null 2>&1 || true
  done
  p1=$(now)
  peer_time=$(echo "$p1 - $p0" | bc)
else
  peer_time=""
fi

first=$(echo "$t1 - $t0" | bc)
second=$(echo "$t3 - $t2" | bc)
echo "first scan:  ${first} s wall, $(grep '^time:' "$work/first.txt"), $first_children host programs started"
echo "second scan: ${second} s wall, $(grep '^time:' "$work/second.txt"), $second_children host programs started"
grep -E '^(enabled|failed):' "$work/first.txt" | tr '\n' ' '; echo
if [ -n "$peer_time" ]; then
  echo "peer scanner, once per file: ${peer_time} s wall"
  echo "ratio first scan / peer: $(echo "scale=2; $first / $peer_time" | bc)"
else
  echo "peer scanner not installed ($peer): apt-get install ardour"
fi
