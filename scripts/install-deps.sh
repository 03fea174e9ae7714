#!/usr/bin/env bash
# Installs every Debian package the build, the tests and the benchmarks need. Safe to run again.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config git
  libembree-dev libtbb-dev
  libopenimageio-dev openimageio-tools libopenexr-dev libpng-dev
  libtinygltf-dev nlohmann-json3-dev libpugixml-dev
  libopencolorio-dev picojson-dev libstb-dev
  libglfw3-dev libglew-dev libimgui-dev
  libgtest-dev libgmock-dev googletest libbenchmark-dev
  clang libclang-rt-14-dev
  xvfb xauth libgl1-mesa-dri libx11-dev libxtst-dev
  slurm-wlm munge
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo_cmd=()
[ "$(id -u)" -eq 0 ] || sudo_cmd=(sudo)
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
