#!/usr/bin/env bash
# Builds the libFuzzer targets of tests/fuzz with clang in build-fuzz/ and runs each for SECONDS:
#   scripts/fuzz.sh SECONDS [TARGET...]
# A target first replays its committed regression inputs (tests/fuzz/regressions/<target>/), then
# fuzzes from its growing corpus (build-fuzz/fuzz/<target>/corpus/), those inputs and the seeds that
# its source's "// Seeds:" line names (globs from the top of the tree; ../shared is read in place,
# never copied in). Crashes land in build-fuzz/fuzz/<target>/artifacts/; each run's length and
# outcome is appended to build-fuzz/fuzz/runs.log. Exits non-zero when a target crashed.
set -euo pipefail
cd "$(dirname "$0")/.."
top=$PWD

if [ $# -lt 1 ] || ! [[ $1 =~ ^[0-9]+$ ]]; then
  echo "usage: $0 SECONDS [TARGET...]" >&2
  exit 2
fi
seconds=$1
shift

bash scripts/install-deps.sh

folder=build-fuzz
launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
cmake -S . -B "$folder" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DZVR_FUZZ=ON -DZVR_BUILD_TESTS=OFF -DZVR_BUILD_BENCH=OFF "${launcher[@]}" >/dev/null
ninja -C "$folder" -j2 fuzzers
bin=$top/$folder/bin

targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for source in tests/fuzz/*_fuzzer.cpp; do targets+=("$(basename "$source" .cpp)"); done
fi

# The words after "// <field>:" in a target's source.
header_field() { sed -n "s|^// $2:[ ]*||p" "tests/fuzz/$1.cpp" | head -n 1; }

# Seed files larger than this slow every mutation down more than they teach the fuzzer.
largest_seed=$((300 * 1024))

shopt -s nullglob
failed=()
for target in "${targets[@]}"; do
  [ -f "tests/fuzz/$target.cpp" ] || { echo "no fuzz target tests/fuzz/$target.cpp" >&2; exit 2; }
  work=$top/$folder/fuzz/$target
  regressions=$top/tests/fuzz/regressions/$target
  rm -rf "$work/seeds" "$work/run"
  mkdir -p "$work/corpus" "$work/seeds" "$work/run" "$work/artifacts" "$regressions"
  for pattern in $(header_field "$target" Seeds); do
    for file in $pattern; do
      [ "$(stat -c %s "$file")" -le $largest_seed ] || continue
      ln -sf "$top/$file" "$work/seeds/$(basename "$(dirname "$file")")_$(basename "$file")"
    done
  done
  via=($(header_field "$target" Seeds-via))
  if [ ${#via[@]} -gt 0 ]; then
    scenes=()
    for pattern in "${via[@]:1}"; do for file in $pattern; do scenes+=("$top/$file"); done; done
    "$bin/${via[0]}" "$work/seeds" "${scenes[@]}" >/dev/null
    for file in "$work/seeds"/*; do [ "$(stat -c %s "$file")" -le $largest_seed ] || rm -f "$file"; done
  fi
  # Files the inputs refer to by relative name (a .gltf's buffers and images) beside the run.
  for pattern in $(header_field "$target" Resources); do
    for file in $pattern; do ln -sf "$top/$file" "$work/run/$(basename "$file")"; done
  done

  echo "== $target: $(ls "$work/seeds" | wc -l) seeds, $(ls "$regressions" | wc -l) regression inputs, ${seconds}s"
  started=$(date +%s)
  status=0
  (cd "$work/run" && "$bin/$target" -max_total_time="$seconds" -timeout=30 -close_fd_mask=1 -print_final_stats=1 \
    -artifact_prefix="$work/artifacts/" "$work/corpus" "$regressions" "$work/seeds") >"$work/last.log" 2>&1 || status=$?
  ran=$(($(date +%s) - started))
  grep -E '^(stat::number_of_executed_units|stat::peak_rss_mb|#[0-9]+ *DONE)' "$work/last.log" || true
  if [ $status -ne 0 ]; then
    echo "$(date -u +%FT%TZ) $target ${ran}s crash" >>"$top/$folder/fuzz/runs.log"
    echo "== $target FAILED after ${ran}s; the log is $work/last.log, the input in $work/artifacts/:"
    grep -E 'ERROR|SUMMARY|Test unit written' "$work/last.log" | head -n 5
    failed+=("$target")
  else
    echo "$(date -u +%FT%TZ) $target ${ran}s clean" >>"$top/$folder/fuzz/runs.log"
  fi
done

if [ ${#failed[@]} -ne 0 ]; then
  echo "== fuzz targets that crashed: ${failed[*]}"
  exit 1
fi
echo "== no crash in ${targets[*]}"
