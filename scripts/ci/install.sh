#!/usr/bin/env bash
# The install stage: installs the library (shared and static, then static only through
# BUILD_SHARED_LIBS=OFF) into throwaway prefixes, checks what was installed, and builds and runs
# the consumer of tests/install against each: with find_package(trdcomp 1.0) and with
# pkg-config, shared and static. Prints one line; the log is under build/ci-install.
set -euo pipefail
cd "$(dirname "$0")/../.."
root=$PWD
build=$root/build/ci-install
jobs=$(nproc)
mkdir -p "$build"
log=$build/log.txt
: >"$log"
start=$SECONDS
cxx=${CXX:-g++}

fail() {
  echo "install stage failed: $1 (log: $log)"
  tail -n 30 "$log"
  exit 1
}
quiet() { "$@" >>"$log" 2>&1; }

# Builds and installs the library with the given options into $build/$1.
install_tree() {
  local name=$1
  shift
  rm -rf "$build/$name"
  quiet cmake -S . -B "$build/$name-build" -DCMAKE_BUILD_TYPE=Release -DTRDCOMP_WERROR=ON \
    -DTRDCOMP_TESTS=OFF -DTRDCOMP_EXAMPLES=OFF -DTRDCOMP_BENCHMARKS=OFF \
    -DCMAKE_INSTALL_PREFIX="$build/$name" -DCMAKE_INSTALL_LIBDIR=lib "$@" ||
    fail "configuring $name"
  quiet cmake --build "$build/$name-build" -j"$jobs" || fail "building $name"
  quiet cmake --install "$build/$name-build" || fail "installing $name"
}

# Exactly these files (the library, its package files, the trdcomp command, the documents and,
# beside a shared library, the Python module), and the public headers of include/, nothing from
# src/.
check_tree() {
  local prefix=$1
  shift
  local expected actual
  expected=$( (
    printf '%s\n' "$@" share/doc/trdcomp/README.md share/doc/trdcomp/LICENSE \
      share/doc/trdcomp/CHANGELOG.md
    cd include && ls -- *.h | sed 's|^|include/|'
  ) | sort)
  actual=$(cd "$prefix" && find . -type f -o -type l | sed 's|^\./||' | sort)
  [ "$expected" = "$actual" ] ||
    fail "installed files in $prefix differ: $(diff <(echo "$expected") <(echo "$actual") | grep '^[<>]' | tr '\n' ' ')"
}

# Builds the consumer with CMake and runs it; $1 names the build, the rest are cache options.
cmake_consumer() {
  local name=$1
  shift
  quiet cmake -S tests/install -B "$build/consumer-$name" -DCMAKE_BUILD_TYPE=Release "$@" ||
    fail "find_package for $name"
  quiet cmake --build "$build/consumer-$name" || fail "building the consumer $name"
  quiet "$build/consumer-$name/consumer" || fail "running the consumer $name"
}

# Builds the consumer with pkg-config's flags for package $2 and runs it.
pkgconfig_consumer() {
  local prefix=$1 package=$2
  shift 2
  local flags
  flags=$(PKG_CONFIG_PATH="$prefix/lib/pkgconfig" pkg-config "$@" --cflags --libs "$package") ||
    fail "pkg-config $package"
  # shellcheck disable=SC2086  # the flags are words
  quiet "$cxx" tests/install/consumer.cpp $flags -o "$build/consumer-pc-$package" ||
    fail "building the consumer with pkg-config $package"
  LD_LIBRARY_PATH="$prefix/lib" quiet "$build/consumer-pc-$package" ||
    fail "running the consumer built with pkg-config $package"
}

# Does the program load libtrdcomp.so?
needs_shared() { readelf -d "$1" | grep -q 'NEEDED.*libtrdcomp\.so'; }

# Shared and static side by side.
both=$build/prefix
install_tree prefix -DTRDCOMP_STATIC=ON
version=$(sed -n 's/^project(trdcomp VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
check_tree "$both" lib/libtrdcomp.so "lib/libtrdcomp.so.${version%%.*}" "lib/libtrdcomp.so.$version" \
  lib/libtrdcomp.a lib/cmake/trdcomp/trdcompConfig.cmake \
  lib/cmake/trdcomp/trdcompConfigVersion.cmake lib/cmake/trdcomp/trdcompTargets.cmake \
  lib/cmake/trdcomp/trdcompTargets-release.cmake lib/pkgconfig/trdcomp.pc \
  lib/pkgconfig/trdcomp-static.pc bin/trdcomp lib/python3/site-packages/trdcomp/__init__.py \
  lib/python3/site-packages/trdcomp/_installed.py
readelf -d "$both/lib/libtrdcomp.so" | grep -q "SONAME.*\[libtrdcomp\.so\.${version%%.*}\]" ||
  fail "SONAME of libtrdcomp.so"

cmake_consumer shared -DCMAKE_PREFIX_PATH="$both"
needs_shared "$build/consumer-shared/consumer" || fail "the CMake consumer does not load libtrdcomp.so"
cmake_consumer static -DCMAKE_PREFIX_PATH="$both" -DTRDCOMP_TARGET=trdcomp::trdcomp_static
! needs_shared "$build/consumer-static/consumer" || fail "the static consumer loads libtrdcomp.so"
rm -rf "$build/consumer-too-new"
if quiet cmake -S tests/install -B "$build/consumer-too-new" -DCMAKE_PREFIX_PATH="$both" \
  -DTRDCOMP_REQUEST=$((${version%%.*} + 1)).0; then
  fail "find_package accepted a request for the next major version"
fi
[ "$(PKG_CONFIG_PATH="$both/lib/pkgconfig" pkg-config --modversion trdcomp)" = "$version" ] ||
  fail "pkg-config --modversion"
pkgconfig_consumer "$both" trdcomp
needs_shared "$build/consumer-pc-trdcomp" || fail "the pkg-config consumer does not load libtrdcomp.so"
pkgconfig_consumer "$both" trdcomp-static --static
! needs_shared "$build/consumer-pc-trdcomp-static" || fail "the static pkg-config consumer loads libtrdcomp.so"

# Static only, the CMake convention.
only=$build/prefix-static
install_tree prefix-static -DBUILD_SHARED_LIBS=OFF
check_tree "$only" lib/libtrdcomp.a lib/cmake/trdcomp/trdcompConfig.cmake \
  lib/cmake/trdcomp/trdcompConfigVersion.cmake lib/cmake/trdcomp/trdcompTargets.cmake \
  lib/cmake/trdcomp/trdcompTargets-release.cmake lib/pkgconfig/trdcomp.pc bin/trdcomp
cmake_consumer static-only -DCMAKE_PREFIX_PATH="$only"
! needs_shared "$build/consumer-static-only/consumer" || fail "the static-only consumer loads libtrdcomp.so"
pkgconfig_consumer "$only" trdcomp --static

echo "== install: shared (SONAME) and static, find_package(trdcomp 1.0) and pkg-config consumers" \
  "of each run, version $version ($((SECONDS - start)) s)"
