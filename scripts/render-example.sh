#!/usr/bin/env bash
# From a fresh checkout to a rendered picture: installs the dependencies, builds the program and
# its libraries in build/, and renders examples/example.gltf into out/example.png.
set -euo pipefail
cd "$(dirname "$0")/.."
repo=$(pwd)

scene=examples/example.gltf
config=examples/example.json
if [ ! -f "$scene" ]; then
  echo "render-example: $scene is missing; it is the example scene this script renders." >&2
  exit 1
fi

bash scripts/install-deps.sh

cmake -S . -B build -G Ninja
ninja -C build -j2 zvrsRender64 Velder64

# The program writes its pictures and statistics into the working directory.
mkdir -p out
cd out
"$repo/build/bin/zvrsRender64" "$repo/$scene" "$repo/$config"

echo
echo "The rendered image is $repo/out/example.png (statistics in $repo/out/example_stats.json)."
