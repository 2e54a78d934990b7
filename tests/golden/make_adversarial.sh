#!/usr/bin/env bash
# Rebuilds the adversarial corpus, tests/golden/adversarial.zst: the inputs come from this tree's
# layout tables, the bytes from the reference release of the library (built here from its
# commit), except where a documented decision since then changed a result on purpose; there the
# bytes of this tree are taken and the decision is named in the entry. Every entry on which the
# two builds differ is listed. Run it only for a deliberate change of the corpus, and commit the
# result with the reason.
#   bash tests/golden/make_adversarial.sh [REFERENCE-COMMIT]
set -euo pipefail
cd "$(dirname "$0")/../.."
root=$PWD
reference=${1:-5db3f9b}
jobs=$(nproc)
# TRDCOMP_ADVERSARIAL_WORK keeps the builds and outcomes in that folder, for a closer look.
if [ -n "${TRDCOMP_ADVERSARIAL_WORK:-}" ]; then
  work=$TRDCOMP_ADVERSARIAL_WORK
  mkdir -p "$work"
else
  work=$(mktemp -d)
  trap 'rm -rf "$work"' EXIT
fi

echo "building the reference library ($reference)"
rm -rf "$work/reference"
mkdir -p "$work/reference"
git archive "$reference" | tar -x -C "$work/reference"
cmake -S "$work/reference" -B "$work/reference-build" -DCMAKE_BUILD_TYPE=Release \
  -DTRDCOMP_TESTS=OFF -DTRDCOMP_BENCHMARKS=OFF -DTRDCOMP_EXAMPLES=OFF >"$work/log" 2>&1
cmake --build "$work/reference-build" -j"$jobs" --target trdcomp >>"$work/log" 2>&1
"${CXX:-g++}" -std=c++20 -O2 -I"$work/reference/include" -I"$root/tests/golden" \
  "$root/tests/golden/adversarial_runner.cpp" -o "$work/runner-reference" \
  -L"$work/reference-build" -ltrdcomp -Wl,-rpath,"$work/reference-build"

echo "building this tree"
cmake -S "$root" -B "$work/current" -DCMAKE_BUILD_TYPE=Release -DTRDCOMP_BENCHMARKS=OFF \
  -DTRDCOMP_EXAMPLES=OFF -DTRDCOMP_TOOLS=OFF >>"$work/log" 2>&1
cmake --build "$work/current" -j"$jobs" --target trdcomp-adversarial trdcomp-adversarial-runner \
  >>"$work/log" 2>&1

"$work/current/tests/golden/trdcomp-adversarial" inputs "$work/inputs"
echo "packing and restoring with both builds"
"$work/runner-reference" "$work/inputs" "$work/reference.out"
"$work/current/tests/golden/trdcomp-adversarial-runner" "$work/inputs" "$work/current.out"
"$work/current/tests/golden/trdcomp-adversarial" merge "$work/inputs" "$work/reference.out" \
  "$work/current.out" "$root/tests/golden/adversarial.zst"
