#!/usr/bin/env bash
# An unchanged VST3 rescan at scale: 5000 probed bundles (empty folders, with
# a catalog that knows them) plus the system's own, scanned twice by
# `vlorfx scan --no-vst2`. The second scan loads nothing; its time is the
# manager's walk, stamp checks, publish and save.
#
#   bench/rescan-many.sh            (after a build; installs nothing)
set -euo pipefail
cd "$(dirname "$0")/.."
bin=$PWD/build/bin
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/root" "$work/data"
python3 - "$work" <<'PY'
import json, os, sys
work = sys.argv[1]
bundles = []
for i in range(5000):
    p = f"{work}/root/P{i:05d}.vst3"
    os.makedirs(p)
    st = os.stat(p)
    bundles.append({"path": p, "mtime": int(st.st_mtime), "size": st.st_size, "probed": True, "enabled": True,
                    "classes": [{"cid": f"{i:032X}", "name": f"P{i}", "vendor": "V", "subCategories": "Fx",
                                 "version": "1", "enabled": True, "state": "enabled"}]})
json.dump({"version": 1, "bundles": bundles, "disabledVendors": []}, open(f"{work}/data/catalog_vst3.json", "w"))
PY
"$bin/vlorfx" --data "$work/data" scan --no-vst2 --vst3-path "$work/root" > "$work/first.txt"
"$bin/vlorfx" --data "$work/data" scan --no-vst2 > "$work/second.txt"
echo "bundles: $(grep '^VST3:' "$work/second.txt" | cut -d' ' -f2)"
echo "first scan (the system's bundles probed and verified): $(grep '^time:' "$work/first.txt" | cut -d' ' -f2-)"
echo "second scan, nothing changed: $(grep '^time:' "$work/second.txt" | cut -d' ' -f2-)"
