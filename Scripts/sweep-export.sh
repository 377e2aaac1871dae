#!/usr/bin/env bash
# Takes every installed model through all formats that nqtoken writes, and each written file through two readers. Prints a line for
# each model and what came of it, and fails when a file cannot be read again, or differs from its scene where no note says so.
#   sweep-export.sh [NQTESTS]      the test program; by default that of the release build, which is made first
set -euo pipefail
cd "$(dirname "$0")/.."

tests=${1:-build/release/Tests/NqTests}
if [ $# -eq 0 ]; then
  Scripts/setup.sh test
  cmake --preset release -Wno-dev >/dev/null
  cmake --build --preset release --target NqTests -- --quiet
fi

lines=$(mktemp)
trap 'rm -f "$lines"' EXIT
jobs=$(nproc)
parts=()
for part in $(seq "$jobs"); do
  NQ_SWEEP=$part/$jobs "$tests" --gtest_filter=ModelExport.EveryModelThatIsWrittenCanBeReadAgain >>"$lines" 2>&1 &
  parts+=($!)
done
failed=0
for part in "${parts[@]}"; do
  wait "$part" || failed=1
done

models=$(grep -E '^/.*:  ' "$lines" | LC_ALL=C sort || true)
printf '%s\n' "$models"
# What is left are notes of the readers and failures.
grep -vE '^/.*:  |^\[|^Note: |^$' "$lines" >&2 || true
count() { grep -oE "$1" <<<"$models" | wc -l; }
printf '%s files; %s are models, written %s times: %s hold the whole scene, %s say what they do not; %s refused, %s faults\n' \
  "$(grep -c . <<<"$models" || true)" "$(count ':  obj ')" "$(count '  [a-z]+ (same|[0-9]+ told)')" "$(count '  [a-z]+ same')" \
  "$(count '  [a-z]+ [0-9]+ told')" "$(count '  [a-z]+ refused')" "$(count 'FAULT')"
exit $failed
