#!/usr/bin/env bash
# Installs what the build needs on Debian. `setup.sh demo` takes the packages of the library and its tools, `setup.sh test` those of
# the tests as well, `setup.sh bench` those of the benchmarks. Nothing happens when all of them are there already.
set -euo pipefail

packages=(g++ cmake ninja-build ccache pkg-config qt6-base-dev libicu-dev libtbb-dev libcli11-dev libfmt-dev libassimp-dev zlib1g-dev assimp-testmodels)
if [ "${1:-demo}" = test ]; then
  packages+=(libgtest-dev clang-14 clang-format spin valgrind)
elif [ "${1:-demo}" = bench ]; then
  packages+=(libbenchmark-dev rapidjson-dev libsimdjson-dev libpugixml-dev libboost-dev valgrind python3)
fi

missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q '^install ok installed$' || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

command -v apt-get >/dev/null || { echo "Please install: ${missing[*]}" >&2; exit 2; }
as_root=()
[ "$(id -u)" -eq 0 ] || as_root=(sudo)
echo "Installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
"${as_root[@]}" apt-get update -qq
"${as_root[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
