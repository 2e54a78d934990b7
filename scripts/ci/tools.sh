#!/usr/bin/env bash
# The trdcomp tool and the Python module, end to end: installs a build into a temporary prefix,
# runs the installed tool on files and pipes, and runs the Python module's tests twice: as
# cmake --install put it beside the library (no pip, no TRDCOMP_LIBRARY: it must find the
# library by its relative path), and as the README's pip command installs it into a fresh
# virtual environment. Prints one line per suite, and the failures.
set -euo pipefail
cd "$(dirname "$0")/../.."
build=${1:-build/ci-gcc}
python=/usr/bin/python3
[ -x "$python" ] || python=python3
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT

cmake --build "$build" -j"$(nproc)" --target trdcomp trdcomp-tool trdcomp-samples >/dev/null
cmake --install "$build" --prefix "$prefix" >/dev/null
library=$(find "$prefix" -name 'libtrdcomp.so.1' | head -n 1)
# The README's command, offline: Debian's setuptools and wheel through the system site packages.
"$python" -m venv --system-site-packages "$prefix/venv" >"$prefix/pip.log" 2>&1 &&
  "$prefix/venv/bin/pip" install -q --no-build-isolation --no-index ./python \
    >>"$prefix/pip.log" 2>&1 || { cat "$prefix/pip.log"; exit 1; }

# The module cmake installed loads the library installed with it.
loaded=$(env -u TRDCOMP_LIBRARY LD_LIBRARY_PATH= PYTHONPATH="$prefix/lib/python3/site-packages" \
  "$python" -c 'import trdcomp; print(trdcomp._lib()._name)')
[ "$(realpath "$loaded")" = "$(realpath "$library")" ] ||
  { echo "the installed Python module loaded $loaded, not $library"; exit 1; }

suite() {
  local name=$1
  shift
  if "$@" >"$prefix/out.log" 2>&1; then
    echo "$name: $(tail -n 1 "$prefix/out.log")"
  else
    cat "$prefix/out.log"
    return 1
  fi
}
suite "trdcomp tool" env TRDCOMP_BIN="$prefix/bin/trdcomp" \
  TRDCOMP_SAMPLES="$build/examples/trdcomp-samples" \
  "$python" -m pytest -q -p no:cacheprovider tests/e2e
suite "python module, installed by cmake" env -u TRDCOMP_LIBRARY LD_LIBRARY_PATH= \
  PYTHONPATH="$prefix/lib/python3/site-packages" "$python" -m pytest -q -p no:cacheprovider \
  python/tests
suite "python module, installed by pip" env TRDCOMP_LIBRARY="$library" \
  "$prefix/venv/bin/python" -m pytest -q -p no:cacheprovider python/tests
