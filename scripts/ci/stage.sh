# Sourced by the CI stages after they set `stage` (its name) and `build` (its folder): the
# stage's log, `quiet` to run a step into it, `fail` to stop with the end of it.
mkdir -p "$build"
log=$build/log.txt
: >"$log"
start=$SECONDS

fail() {
  echo "$stage stage failed: $1 (log: $log)"
  tail -n 40 "$log"
  exit 1
}
quiet() { "$@" >>"$log" 2>&1; }
