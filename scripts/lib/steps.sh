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
  local status errexit=$-
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
  [[ $errexit == *e* ]] && set -e
  if [ "$status" -ne 0 ]; then
    step "building $label failed; the end of its log ($log):"
    tail -n 60 "$log"
    return 1
  fi
  step "built $label"
}

# The counts of every test run, for the last line.
passed=0
failed=0
parts=()
status=0

# Runs the tests of a tree; its log keeps everything, the screen gets the
# failures and a line of counts. run_tests DIR LABEL HOW [CTEST OPTIONS...]
run_tests() {
  local dir=$1 label=$2 how=$3
  shift 3
  local log=$dir/tests.log
  step "running the $label$how"
  local rc errexit=$-
  set +e
  (cd "$dir" && ctest --output-on-failure -j "$jobs" "$@") > "$log" 2>&1
  rc=$?
  [[ $errexit == *e* ]] && set -e
  local line total bad
  line=$(grep -E '[0-9]+ tests failed out of [0-9]+' "$log" | tail -n 1 || true)
  if [ -z "$line" ]; then
    step "the $label did not run; the end of their log ($log):"
    tail -n 40 "$log"
    failed=$((failed + 1))
    status=1
    return
  fi
  bad=$(sed -E 's/.* ([0-9]+) tests failed out of ([0-9]+).*/\1/' <<< "$line")
  total=$(sed -E 's/.* ([0-9]+) tests failed out of ([0-9]+).*/\2/' <<< "$line")
  passed=$((passed + total - bad))
  failed=$((failed + bad))
  parts+=("$((total - bad))/$total $label")
  if [ "$rc" -ne 0 ] || [ "$bad" -ne 0 ]; then
    status=1
    sed -n '/The following tests FAILED/,$p' "$log"
    step "the failing tests' output is in $log"
  fi
  printf '  %s: %d passed, %d failed\n' "$label" $((total - bad)) "$bad"
}

# One line for all runs, in the "N passed, N failed" form CI reads.
print_summary() {
  local summary
  summary=$(printf '%s, ' "${parts[@]}")
  summary=${summary%, }
  printf 'scripts/%s: %d passed, %d failed (%s)\n' "${0##*/}" "$passed" "$failed" "$summary"
}
