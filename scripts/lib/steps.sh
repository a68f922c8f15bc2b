# Shared by scripts/demo and scripts/test: say each step, keep the build's
# output in a log unless it fails, and show its progress.

# A step of the script, on a line of its own, at once.
step() { printf 'scripts/%s: %s\n' "${0##*/}" "$*"; }

# Configures and builds a tree quietly: on a terminal one line that counts
# the build's steps, otherwise a line at each tenth; all of the build's
# output when it fails. build_tree DIR LABEL [CMAKE OPTIONS...]
build_tree() {
  local dir=$1 label=$2
  shift 2
  mkdir -p "$dir"
  local log=$dir/build.log
  if ! cmake -S . -B "$dir" -G Ninja "$@" > "$log" 2>&1; then
    step "configuring $label failed:"
    cat "$log"
    return 1
  fi
  local tty=0
  [ -t 1 ] && tty=1
  local status
  set +e
  cmake --build "$dir" -j "${jobs:-$(nproc)}" 2>&1 | tee -a "$log" | {
    last=-1
    while IFS= read -r line; do
      [[ $line =~ ^\[([0-9]+)/([0-9]+)\] ]] || continue
      n=${BASH_REMATCH[1]}
      total=${BASH_REMATCH[2]}
      if [ $tty = 1 ]; then
        printf '\r\033[K  building %s: %d of %d' "$label" "$n" "$total"
      elif [ $((n * 10 / total)) != "$last" ]; then
        last=$((n * 10 / total))
        printf '  building %s: %d of %d\n' "$label" "$n" "$total"
      fi
    done
    [ $tty = 1 ] && printf '\r\033[K'
  }
  status=${PIPESTATUS[0]}
  set -e
  if [ "$status" -ne 0 ]; then
    step "building $label failed; the end of its log ($log):"
    tail -n 60 "$log"
    return 1
  fi
  step "built $label"
}
