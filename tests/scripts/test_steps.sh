#!/usr/bin/env bash
# The steps of scripts/demo and scripts/test as a person sees them without a
# terminal: a build's progress in a few lines, its log only when it fails,
# and test counts summed into one last line.
#   test_steps.sh SOURCE_DIR
set -uo pipefail
source_dir=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
jobs=2
. "$source_dir/scripts/lib/steps.sh"

failures=0
expect() { # expect WHAT TEXT PATTERN
  if ! grep -qE -- "$3" <<< "$2"; then
    echo "FAILED: $1: no '$3' in:"
    echo "$2"
    failures=$((failures + 1))
  fi
}
refuse() { # refuse WHAT TEXT PATTERN
  if grep -qE -- "$3" <<< "$2"; then
    echo "FAILED: $1: '$3' should not be in:"
    echo "$2"
    failures=$((failures + 1))
  fi
}

# A small project: twelve objects, one test that passes, one that fails.
mkdir -p "$work/project"
cat > "$work/project/CMakeLists.txt" <<'CMAKE'
cmake_minimum_required(VERSION 3.16)
project(tiny C)
enable_testing()
foreach(n RANGE 1 12)
  file(WRITE ${CMAKE_BINARY_DIR}/f${n}.c "int f${n}(void) { return ${n}; }\n")
  list(APPEND sources ${CMAKE_BINARY_DIR}/f${n}.c)
endforeach()
add_library(tiny STATIC ${sources})
add_test(NAME passes COMMAND true)
add_test(NAME fails COMMAND sh -c "echo the reason it failed; exit 1")
CMAKE
cd "$work/project"

out=$(build_tree "$work/build" "the tiny project" 2>&1 | cat)
expect "progress" "$out" "^  building the tiny project: [0-9]+ of [0-9]+$"
expect "done" "$out" "^scripts/test_steps.sh: built the tiny project$"
refuse "quiet build" "$out" "Building C object"
[ "$(grep -c 'building the tiny project' <<< "$out")" -le 11 ] || { echo "FAILED: more than a line a tenth"; failures=$((failures + 1)); }

out=$(run_tests "$work/build" "checks" "" 2>&1; echo "status=$status passed=$passed failed=$failed")
expect "counts" "$out" "^  checks: 1 passed, 1 failed$"
expect "failing test named" "$out" "fails"
expect "totals" "$out" "status=1 passed=1 failed=1"
out=$(passed=3; failed=1; parts=("2/3 suites" "1/1 fuzz targets"); print_summary)
expect "last line" "$out" "^scripts/test_steps.sh: 3 passed, 1 failed \(2/3 suites, 1/1 fuzz targets\)$"

# A build that fails shows the end of its log, the compiler's words included.
echo "int broken(void) { return nope; }" > "$work/project/broken.c"
echo 'add_library(broken STATIC broken.c)' >> "$work/project/CMakeLists.txt"
out=$(build_tree "$work/build" "the tiny project" 2>&1; echo "rc=$?")
expect "failure said" "$out" "building the tiny project failed; the end of its log"
expect "compiler's words" "$out" "nope"
expect "failure status" "$out" "rc=1"

[ "$failures" -eq 0 ] && echo "all steps as expected"
exit $((failures > 0))
