#!/usr/bin/env bash
# The Windows stage: cross-builds the library as trdcomp.dll with mingw-w64 (the C++ runtime
# linked in, MSVC-decorated exports, an MSVC import library), and its tests and examples, with
# char unsigned to show that no byte depends on its signedness; then runs all of them under Wine.
# The unit tests under Wine check the golden corpora there, so the packed and restored bytes are
# the Linux build's; a program with MSVC's ABI calls the DLL through its decorated names.
#
# Where Wine cannot run, the stage says so, builds everything, checks the DLL's imports and
# exports, and skips what needs Wine. Prints one line; the logs are under build/ci-windows.
set -euo pipefail
cd "$(dirname "$0")/../.."
root=$PWD
build=$root/build/ci-windows
jobs=$(nproc)
toolchain=$root/cmake/mingw-w64-x86_64.cmake
stage=windows
source "$root/scripts/ci/stage.sh"

# GoogleTest for mingw, built once from Debian's sources.
if [ ! -f "$build/gtest/lib/cmake/GTest/GTestConfig.cmake" ]; then
  quiet cmake -S /usr/src/googletest -B "$build/gtest-build" --toolchain "$toolchain" \
    -DCMAKE_BUILD_TYPE=Release -DBUILD_GMOCK=OFF -DCMAKE_INSTALL_PREFIX="$build/gtest" ||
    fail "configuring GoogleTest for mingw"
  quiet cmake --build "$build/gtest-build" -j"$jobs" || fail "building GoogleTest for mingw"
  quiet cmake --install "$build/gtest-build" || fail "installing GoogleTest for mingw"
fi

# Wine, quiet, in a throwaway prefix.
source scripts/ci/wine.sh "$build/wine"

quiet cmake -S . -B "$build/mingw" --toolchain "$toolchain" -DCMAKE_BUILD_TYPE=Release \
  -DTRDCOMP_WERROR=ON -DTRDCOMP_BENCHMARKS=OFF -DTRDCOMP_TOOLS=OFF -DCMAKE_CXX_FLAGS=-funsigned-char \
  -DCMAKE_PREFIX_PATH="$build/gtest" -DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST \
  -DCMAKE_CROSSCOMPILING_EMULATOR="${wine:-}" ||
  fail "configuring the mingw build"
quiet cmake --build "$build/mingw" -j"$jobs" || fail "cross-building"

if [ -z "$wine_ok" ]; then
  quiet cmake --build "$build/mingw" --target trdcomp_dll_checks || fail "DLL imports or exports"
  echo "== windows: SKIPPED the tests under Wine ($why); DLL, tests and examples cross-built," \
    "imports and exports checked ($((SECONDS - start)) s)"
  exit 0
fi

ctest --test-dir "$build/mingw" -j"$jobs" --timeout 300 --output-on-failure \
  >"$build/ctest.txt" 2>&1 || {
  grep -v -E '^ *(Start|[0-9]+/[0-9]+ Test +#[0-9]+:.* Passed)' "$build/ctest.txt" | tail -n 60
  echo "windows stage failed: tests under Wine (log: $build/ctest.txt)"
  exit 1
}
summary=$(grep -E 'tests passed' "$build/ctest.txt" | head -n 1)
for example in trdcomp-report trdcomp-usage; do
  quiet "$wine" "$build/mingw/bin/$example.exe" || fail "$example under Wine"
done
echo "== windows: trdcomp.dll, $summary under Wine, 2 examples ($((SECONDS - start)) s)"
