#!/usr/bin/env bash
# Makes docs/viewer.png, the README's picture of the viewer: the example scene in a real window under
# Xvfb, rendered to its stop, photographed with its panel, then closed as a window manager would.
set -euo pipefail
cd "$(dirname "$0")/.."
repo=$(pwd)

bash scripts/install-deps.sh
cmake -S . -B build -G Ninja > /dev/null
ninja -C build -j2 zvrsRender64 Velder64 zvrs_window_shot

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p docs

cat > "$work/shoot.sh" <<SHOOT
set -euo pipefail
cd "$work"
"$repo/build/bin/zvrsRender64" "$repo/examples/example.gltf" "$repo/examples/example.json" \
  '{"gui":1,"gui.stop_at_iterations":48,"gamma":2.2}' > viewer.out 2> viewer.err &
viewer=\$!
for _ in \$(seq 1 600); do grep -q "ZVR Render finish after" viewer.out && break; sleep 0.2; done
sleep 1
"$repo/build/bin/zvrs_window_shot" ZvrsRender "$repo/docs/viewer.png" --close
wait \$viewer
SHOOT
xvfb-run -a -s "-screen 0 1280x1024x24" bash "$work/shoot.sh"
echo "The viewer's picture is $repo/docs/viewer.png"
