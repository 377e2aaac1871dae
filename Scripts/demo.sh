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
model=$(realpath "${1:-/usr/share/assimp/models/OBJ/spider.obj}")
mkdir -p build/demo/scenes
cd build/demo/scenes

step() {
  printf '\n$ nqtoken'
  printf ' %s' "$@"
  printf '\n'
  "$nqtoken" "$@"
}

# With six decimals, and with payloads that keep every bit.
step import "$model" -o scene.nq
step show scene.nq --depth 2 --values 4
step check scene.nq
step compare "$model" scene.nq

step import "$model" -o exact.nq --payload raw
step check exact.nq
step compare "$model" exact.nq

# Back to a model. Formats other than the first one's hold less, or more, than it did: there is nothing to compare.
case $model in
*.obj | *.ply | *.stl | *.gltf | *.glb)
  step export exact.nq -o "back.${model##*.}"
  step compare "$model" "back.${model##*.}"
  ;;
*)
  step export exact.nq -o back.glb
  ;;
esac
printf '\nThe scenes and the exported model are in %s\n' "$PWD"
