#!/usr/bin/env bash
# Builds everything twice, normally in build/ and with address and undefined-behaviour sanitizers
# in build-asan/, and runs the whole test suite in each; then builds only the render concurrency
# test with the thread sanitizer in build-tsan/ and runs it, and last the fuzz targets for a short
# time in build-fuzz/. Exits non-zero when a build, a test or a fuzz target fails.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh

jobs=2
failed=0

run_suite() {
  local folder=$1
  shift
  echo "== configuring and building in ${folder}/ $*"
  cmake -S . -B "$folder" -G Ninja "$@"
  ninja -C "$folder" -j"$jobs"
  echo "== running the tests of ${folder}/"
  # ctest prints its own summary: the share of tests passed and the names of those that failed.
  if ! (cd "$folder" && ctest -j"$jobs" --output-on-failure); then
    failed=1
  fi
}

run_suite build
# Leaks are reported as failures; the sanitizers stop at the first error they see.
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=0
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
run_suite build-asan -DZVR_SANITIZE=ON

unset ASAN_OPTIONS UBSAN_OPTIONS

# The thread sanitizer slows everything tenfold, so it gets only the test of a window thread working
# beside a render call: the core, the three plug-ins and that test. Embree and TBB are not built
# with it; tests/tsan.supp names only those libraries.
echo "== configuring build-tsan/ and building the render concurrency test with the thread sanitizer"
cmake -S . -B build-tsan -G Ninja -DZVR_TSAN=ON -DZVR_BUILD_BENCH=OFF
ninja -C build-tsan -j"$jobs" render_concurrency_test
echo "== running the render concurrency test of build-tsan/"
# The longest history keeps the stacks of earlier accesses restorable: a report whose old stack is
# lost cannot be matched against the suppressions.
export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1:history_size=7:suppressions=$PWD/tests/tsan.supp"
if ! (cd build-tsan && ctest -j1 --output-on-failure --no-tests=error -R '^(Families/HidingDuringARender|QuillonDuringARender|ProvisionalPictures)\.'); then
  failed=1
fi

# Every fuzz target replays its regression inputs and then fuzzes for a short fixed time; long runs
# are `bash scripts/fuzz.sh SECONDS` by hand.
echo "== building the fuzz targets with clang in build-fuzz/ and running each for 30 s"
if ! bash scripts/fuzz.sh 30; then
  failed=1
fi

if [ "$failed" -ne 0 ]; then
  echo "== some tests failed (see the summaries above)"
  exit 1
fi
echo "== all tests passed in build/ and build-asan/, the concurrency test in build-tsan/, no fuzz target crashed"
