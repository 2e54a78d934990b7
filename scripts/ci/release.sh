#!/usr/bin/env bash
# The release stage: makes the packages with scripts/release and uses each as its users would.
#   .deb     unpacked with dpkg -x into a throwaway root: the consumer of tests/install builds
#            against it with CMake and with pkg-config and runs; the tool inspects a message that
#            the Python module packs, both run from the root and load its library.
#   .tar.gz  holds the same files as the .deb, without /usr.
#   .zip     unpacked: a mingw-w64 program (the consumer, found through the zip's CMake package)
#            and the MSVC-ABI caller (clang and lld-link against the zip's trdcomp.lib) link
#            against what it holds and run under Wine beside its trdcomp.dll.
# Prints one line; the log is under build/ci-release. The release builds stay there for the
# interface stage (scripts/abi).
set -euo pipefail
cd "$(dirname "$0")/../.."
root=$PWD
build=$root/build/ci-release
stage=release
source "$root/scripts/ci/stage.sh"
# same NAME EXPECTED ACTUAL: two sorted file lists must be equal.
same() {
  [ "$2" = "$3" ] || fail "$1: $(diff <(echo "$2") <(echo "$3") | grep '^[<>]' | tr '\n' ' ')"
}

rm -rf "$build/packages"
TRDCOMP_RELEASE_BUILD=$build/release quiet bash scripts/release "$build/packages" ||
  fail "scripts/release"
version=$(sed -n 's/^project(trdcomp VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
deb=$build/packages/trdcomp_${version}_amd64.deb
tgz=$build/packages/trdcomp-${version}-Linux.tar.gz
zip=$build/packages/trdcomp-${version}-win64.zip
headers=$(cd include && ls -- *.h)

# The .deb: exactly these files.
arch=$(g++ -print-multiarch)
expected=$( (
  printf 'usr/%s\n' bin/trdcomp "lib/$arch/libtrdcomp.so" "lib/$arch/libtrdcomp.so.${version%%.*}" \
    "lib/$arch/libtrdcomp.so.$version" "lib/$arch/pkgconfig/trdcomp.pc" \
    lib/python3/dist-packages/trdcomp/__init__.py lib/python3/dist-packages/trdcomp/_installed.py \
    share/doc/trdcomp/README.md share/doc/trdcomp/LICENSE share/doc/trdcomp/CHANGELOG.md
  for f in trdcompConfig trdcompConfigVersion trdcompTargets trdcompTargets-release; do
    echo "usr/lib/$arch/cmake/trdcomp/$f.cmake"
  done
  sed 's|^|usr/include/|' <<<"$headers"
) | sort)
files=$(dpkg-deb -c "$deb" | grep -v '^d' | awk '{print $6}' | sed 's|^\./||' | sort)
same "files of the .deb" "$expected" "$files"
[[ $(dpkg-deb -f "$deb" Depends) == *libstdc++6* ]] || fail "the .deb does not depend on libstdc++6"
same "files of the .tar.gz" "$(sed 's|^usr/||' <<<"$expected")" \
  "$(tar tzf "$tgz" | grep -v '/$' | sed 's|^[^/]*/||' | sort)"

# Used from a root it is unpacked into.
unpacked=$build/deb-root
rm -rf "$unpacked"
quiet dpkg -x "$deb" "$unpacked" || fail "dpkg -x"
libdir=$unpacked/usr/lib/$arch
[[ $(readelf -d "$libdir/libtrdcomp.so.$version") == *"SONAME"*"[libtrdcomp.so.${version%%.*}]"* ]] ||
  fail "SONAME of the packaged library"
# The library a program loads must be the unpacked one. (Whole outputs are matched: grep -q at the
# end of a pipe may stop reading early, and the writer's broken pipe then fails the pipe.)
loads_unpacked() { [[ $(ldd "$1") == *"libtrdcomp.so.${version%%.*} => $unpacked/"* ]]; }
rm -rf "$build/consumer-cmake"
quiet cmake -S tests/install -B "$build/consumer-cmake" -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_PREFIX_PATH="$unpacked/usr" || fail "find_package in the unpacked .deb"
quiet cmake --build "$build/consumer-cmake" || fail "building the CMake consumer"
loads_unpacked "$build/consumer-cmake/consumer" || fail "the CMake consumer loads another library"
quiet "$build/consumer-cmake/consumer" || fail "running the CMake consumer"
flags=$(PKG_CONFIG_PATH=$libdir/pkgconfig pkg-config --cflags --libs trdcomp) ||
  fail "pkg-config in the unpacked .deb"
# shellcheck disable=SC2086  # the flags are words
quiet g++ tests/install/consumer.cpp $flags -o "$build/consumer-pc" ||
  fail "building the pkg-config consumer"
LD_LIBRARY_PATH=$libdir loads_unpacked "$build/consumer-pc" ||
  fail "the pkg-config consumer loads another library"
LD_LIBRARY_PATH=$libdir quiet "$build/consumer-pc" || fail "running the pkg-config consumer"
loads_unpacked "$unpacked/usr/bin/trdcomp" || fail "the packaged tool loads another library"
inspected=$(PYTHONPATH=$unpacked/usr/lib/python3/dist-packages python3 -c '
import sys, trdcomp
assert trdcomp._lib()._name.startswith(sys.argv[1]), trdcomp._lib()._name
message = {"direction": "request", "function": 1002, "records": [{0: "A", 3: "ACC1"}]}
sys.stdout.buffer.write(trdcomp.pack(message, codec=2011))' "$unpacked/" |
  "$unpacked/usr/bin/trdcomp" inspect - 2>>"$log") || fail "the packaged Python module and tool"
grep -q '"ACC1"' <<<"$inspected" || fail "the packaged tool did not show the packed record"

# The .zip: exactly these files, under one directory.
expected=$( (
  printf '%s\n' bin/trdcomp.dll lib/trdcomp.lib lib/libtrdcomp.dll.a lib/trdcomp.def \
    lib/pkgconfig/trdcomp.pc README.md LICENSE CHANGELOG.md
  for f in trdcompConfig trdcompConfigVersion trdcompTargets trdcompTargets-release; do
    echo "lib/cmake/trdcomp/$f.cmake"
  done
  sed 's|^|include/|' <<<"$headers"
) | sort)
unzipped=$build/zip
rm -rf "$unzipped"
mkdir -p "$unzipped"
(cd "$unzipped" && quiet cmake -E tar xf "$zip") || fail "unpacking the .zip"
top=$unzipped/trdcomp-$version-win64
same "files of the .zip" "$expected" "$(cd "$top" && find . -type f | sed 's|^\./||' | sort)"

# A mingw-w64 program through the zip's CMake package, and the MSVC-ABI caller through its
# trdcomp.lib; each runs beside the zip's DLL. The caller is built without optimisation here, as
# a debug build of a user's program is, so that every special member it uses, the implicit ones
# included, is called through its import (the Windows stage builds it optimised).
rm -rf "$build/mingw-consumer"
quiet cmake -S tests/install -B "$build/mingw-consumer" -DCMAKE_BUILD_TYPE=Release \
  --toolchain "$root/cmake/mingw-w64-x86_64.cmake" -DCMAKE_PREFIX_PATH="$top" ||
  fail "find_package in the unpacked .zip (mingw-w64)"
quiet cmake --build "$build/mingw-consumer" || fail "building the mingw-w64 consumer"
callers=$build/callers
rm -rf "$callers"
mkdir -p "$callers"
cp "$build/mingw-consumer/consumer.exe" "$top/bin/trdcomp.dll" "$callers/"
includes=()
while read -r dir; do includes+=(-isystem "$dir"); done < <(
  echo | x86_64-w64-mingw32-g++-posix -xc++ -E -v - 2>&1 |
    sed -n '/#include <...> search starts here/,/End of search/p' | sed -n 's/^ //p')
quiet clang++-14 --target=x86_64-pc-windows-msvc -std=c++17 -O0 -fno-exceptions -fno-rtti -Wall \
  -Wextra -Werror -D__STRICT_ANSI__ -I"$top/include" "${includes[@]}" \
  -c tests/windows/msvc_caller.cpp -o "$callers/msvc_caller.obj" || fail "compiling the MSVC caller"
for dll in msvcrt kernel32; do
  quiet llvm-dlltool-14 -m i386:x86-64 -d "tests/windows/$dll.def" -l "$callers/$dll.lib" ||
    fail "import library of $dll"
done
quiet lld-link-14 /nologo /entry:mainCRTStartup /subsystem:console /nodefaultlib \
  /out:"$callers/msvc_caller.exe" "$callers/msvc_caller.obj" "$top/lib/trdcomp.lib" \
  "$callers/msvcrt.lib" "$callers/kernel32.lib" || fail "linking the MSVC caller"

source scripts/ci/wine.sh "$build/wine"
if [ -z "$wine_ok" ]; then
  echo "== release: .deb, .tar.gz and .zip of $version checked, .deb used from dpkg -x;" \
    "SKIPPED running the zip's callers ($why) ($((SECONDS - start)) s)"
  exit 0
fi
for program in consumer msvc_caller; do
  (cd "$callers" && quiet timeout 300 "$wine" "$program.exe" </dev/null) ||
    fail "$program.exe under Wine against the zip's DLL"
done
echo "== release: trdcomp_${version}_amd64.deb, .tar.gz and -win64.zip; from dpkg -x the CMake" \
  "and pkg-config consumers, the tool and the Python module run; against the zip a mingw-w64" \
  "and an MSVC-ABI program run under Wine ($((SECONDS - start)) s)"
