#!/usr/bin/env bash
# A real model becomes a scene file, is shown, checked, exported, and compared with where it came from. Does its own set-up.
#   demo.sh [MODEL]
set -euo pipefail
cd "$(dirname "$0")/.."
Scripts/setup.sh demo

echo "Building nqtoken"
cmake -S . -B build/demo -G Ninja -DCMAKE_BUILD_TYPE=Release -DNQCORE_TESTS=OFF -DNQCORE_EXAMPLES=OFF >/dev/null
cmake --build build/demo --target nqtoken -- --quiet

nqtoken=$PWD/build/demo/Tools/nqtoken/nqtoken
model=$(realpath "${1:-/usr/share/assimp/models/glTF2/2CylinderEngine-glTF-Binary/2CylinderEngine.glb}")
mkdir -p build/demo/scenes
cd build/demo/scenes

step() {
  printf '\n$ nqtoken'
  printf ' %s' "$@"
  printf '\n'
  "$nqtoken" "$@"
}

step import "$model" -o engine.nq
step show engine.nq --depth 2 --values 4
step check engine.nq
step compare "$model" engine.nq

step import "$model" -o engine-exact.nq --payload raw
step check engine-exact.nq
step export engine-exact.nq -o engine.glb
step compare "$model" engine-exact.nq
step compare "$model" engine.glb
printf '\nThe scenes and the exported model are in %s\n' "$PWD"
