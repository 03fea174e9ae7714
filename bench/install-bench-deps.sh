#!/usr/bin/env bash
# Installs what the benchmarks alone use: Blender (its Cycles renders the side-by-side comparison in
# bench_versus_cycles) and hyperfine (start-up timing). The product never needs these, so they stay out
# of scripts/install-deps.sh. Safe to run again.
set -euo pipefail

# python3-numpy: Blender's glTF importer needs it, and Debian only recommends it.
packages=(blender python3-numpy hyperfine)

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
