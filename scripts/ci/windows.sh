#!/usr/bin/env bash
# The Windows stage: cross-builds the library as trdcomp.dll with mingw-w64 (the C++ runtime
# linked in, MSVC-decorated exports, an MSVC import library), and its tests and examples, with
# char unsigned to show that no byte depends on its signedness; then runs all of them under Wine.
# The DLL's decorated names are resolved and called by a Windows program whose digest of packed
# and restored samples must equal the Linux build's.
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

# The Linux digest of the same samples.
quiet cmake -S . -B "$build/linux" -DCMAKE_BUILD_TYPE=Release -DTRDCOMP_BENCHMARKS=OFF \
  -DTRDCOMP_EXAMPLES=OFF -DTRDCOMP_TOOLS=OFF || fail "configuring the Linux build"
quiet cmake --build "$build/linux" -j"$jobs" --target trdcomp_dll_digest ||
  fail "building the Linux digest"
linux=$("$build/linux/tests/windows/trdcomp_dll_digest") || fail "the Linux digest program"
digest=$(sed -n 's/^digest //p' <<<"$linux")
[ -n "$digest" ] || fail "no Linux digest"

# Wine, quiet, in a throwaway prefix.
source scripts/ci/wine.sh "$build/wine"

quiet cmake -S . -B "$build/mingw" --toolchain "$toolchain" -DCMAKE_BUILD_TYPE=Release \
  -DTRDCOMP_WERROR=ON -DTRDCOMP_BENCHMARKS=OFF -DTRDCOMP_TOOLS=OFF -DCMAKE_CXX_FLAGS=-funsigned-char \
  -DCMAKE_PREFIX_PATH="$build/gtest" -DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST \
  -DCMAKE_CROSSCOMPILING_EMULATOR="${wine:-}" -DTRDCOMP_EXPECTED_DIGEST="$digest" ||
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
echo "== windows: trdcomp.dll, $summary under Wine, 2 examples, digest $digest as on Linux" \
  "($((SECONDS - start)) s)"
