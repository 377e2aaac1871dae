#!/usr/bin/env bash
# Builds and tests everything, with its own set-up. By default with four builds: the sanitizers (of them the thread sanitizer only
# for what uses threads), clang, and gcc's release build last. `test.sh debug` takes the named presets instead.
set -euo pipefail
cd "$(dirname "$0")/.."
Scripts/setup.sh test

presets=("$@")
[ ${#presets[@]} -gt 0 ] || presets=(asan tsan clang release)

git ls-files -z '*.h' '*.cpp' 2>/dev/null | xargs -0 -r clang-format --dry-run --Werror

for preset in "${presets[@]}"; do
  echo "== $preset"
  cmake --preset "$preset" -Wno-dev >/dev/null
  cmake --build --preset "$preset" -- --quiet
  # The models, what clients make of an install, and the layers do not depend on the build: once is enough.
  skipped=(-LE model -E '^(Package|Layers)')
  [ "$preset" != "${presets[-1]}" ] || skipped=()
  ctest --preset "$preset" -j "$(nproc)" --progress "${skipped[@]}"
done
