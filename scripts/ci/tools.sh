#!/usr/bin/env bash
# The trdcomp tool and the Python module, end to end: installs a build into a temporary prefix,
# runs the installed tool on files and pipes, installs the Python module with pip and runs its
# tests against the installed library. Prints one line per suite, and the failures.
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
"$python" -m pip install -q --no-build-isolation --no-deps --no-index --target "$prefix/python" \
  ./python >"$prefix/pip.log" 2>&1 || { cat "$prefix/pip.log"; exit 1; }

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
suite "python module" env TRDCOMP_LIBRARY="$library" PYTHONPATH="$prefix/python" \
  "$python" -m pytest -q -p no:cacheprovider python/tests
