#!/usr/bin/env bash
# What sharding costs and gives, for the Cornell box at 1280x720 with Velder:
#  1. one shard of 64 samples: the task's wall time against its render time; the rest is start-up,
#     scene load and BVH build (the manifest's update time is the part the library reports);
#  2. the merge of a frame of 4 shards: wall time per frame;
#  3. one frame of 128 samples split into 1, 2 and 4 tasks on the one-node Slurm cluster of
#     scripts/slurm-test-cluster.sh (as root, when Slurm is installed): wall time from submit to merged.
# Prints numbers only; asserts nothing.   bench/farm_bench.sh [build folder]
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
bin=$(cd "${1:-$top/build}" && pwd)/bin
scene=$top/../shared/scenes/gltf/CornellBox/cornellBox-2.80-Eevee-gltf.gltf
work=$(mktemp -d)
cluster=""
cleanup() {
  [ -n "$cluster" ] && bash "$top/scripts/slurm-test-cluster.sh" stop "$cluster"
  rm -rf "$work"
}
trap cleanup EXIT
trap "exit 1" INT TERM
cd "$work"
cat > cfg.json <<CONF
{"plugin":"Velder64.dll","gui":0,"width":1280,"height":720,"iterations":64,"batchsize":16,"print.result":0,
 "print.progress":0,"output":"out.png","output.json":"stats.json","context":{"gpu0":0,"threads":$(nproc)}}
CONF
now() { date +%s.%N; }
calc() { awk "BEGIN { print $* }"; }
elapsed() { calc "$2 - $1"; }
field() { sed -n "s/.*\"$2\": *\([0-9.e+-]*\).*/\1/p" "$1"; }

echo "== one shard of 64 samples, 1280x720, $(nproc) threads"
"$bin/zvrsFarm" submit "$scene" cfg.json --shards 1 --local --job one > /dev/null
start=$(now); "$bin/zvrsFarm" task --job one --index 0 > /dev/null; end=$(now)
wall=$(elapsed "$start" "$end")
render=$(calc "$(field one/shards/0/done.json render.time.ms) / 1000")
update=$(calc "$(field one/shards/0/done.json update.time.ms) / 1000")
printf "task wall %.2f s, rendering %.2f s, overhead %.2f s (%.0f%% of the wall time), of which scene update (BVH) %.3f s\n" \
  "$wall" "$render" "$(calc "$wall - $render")" "$(calc "($wall - $render) * 100 / $wall")" "$update"

echo "== merge of one frame of 4 shards of 16 samples"
"$bin/zvrsFarm" submit "$scene" cfg.json --shards 4 --local --job four > /dev/null
start=$(now); "$bin/zvrsFarm" merge --job four > /dev/null; end=$(now)
printf "merge wall %.2f s per frame (4 accumulation files of %d bytes each)\n" "$(elapsed "$start" "$end")" \
  "$(stat -c %s four/shards/0/element0.zacc)"

if [ "$(id -u)" -ne 0 ] || ! command -v slurmctld > /dev/null; then
  echo "== scaling skipped: the one-node Slurm cluster needs root and Slurm (scripts/install-deps.sh)"
  exit 0
fi
echo "== one frame of 64 samples at 640x360 in 1, 2 and 4 tasks on a one-node Slurm cluster with $(nproc) CPUs"
cluster=$work/cluster
conf=$(bash "$top/scripts/slurm-test-cluster.sh" start "$cluster" 17901 17902)
export SLURM_CONF=$conf
for tasks in 1 2 4; do
  start=$(now)
  "$bin/zvrsFarm" submit "$scene" cfg.json '{"width":640,"height":360}' --shards "$tasks" --job "scale$tasks" > /dev/null
  until [ -f "scale$tasks/merged" ]; do sleep 0.1; done
  end=$(now)
  total=0
  for manifest in scale$tasks/shards/*/done.json; do total=$(calc "$total + $(field "$manifest" render.time.ms)"); done
  printf "%d tasks: wall %.2f s, rendering summed over tasks %.2f s\n" "$tasks" "$(elapsed "$start" "$end")" \
    "$(calc "$total / 1000")"
done
