# Sourced by the CI stages that run Windows programs: starts Wine, quiet, in the throwaway prefix
# "$1". Its server and helper processes are started here, with their output detached, and
# stopped on exit: helpers started from a test would hold its output open and stall ctest.
# Sets `wine` (the loader, empty when not installed), and `wine_ok` (yes when it runs a
# program) or `why` (the reason it cannot).
wine=$(command -v wine64 || command -v wine || ls /usr/lib/wine/wine64 2>/dev/null || true)
export WINEPREFIX=$1 WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
wineserver=""
wine_ok=""
why=""
if [ -n "$wine" ]; then
  wineserver=$(ls "$(dirname "$wine")"/wineserver64 "$(dirname "$wine")"/wineserver 2>/dev/null |
    head -n 1 || true)
  [ -n "$wineserver" ] || wineserver=$(command -v wineserver || true)
fi
if [ -n "$wine" ] && [ -n "$wineserver" ]; then
  trap '"$wineserver" -k >/dev/null 2>&1 || true' EXIT
  "$wineserver" -p </dev/null >/dev/null 2>&1 || true
  timeout 120 "$wine" wineboot </dev/null >/dev/null 2>&1 || true
  if [ "$(timeout 60 "$wine" cmd /c echo wine-runs </dev/null 2>/dev/null | tr -d '\r')" = "wine-runs" ]; then
    wine_ok=yes
  else
    why="wine cannot start a program"
  fi
else
  why="wine is not installed"
fi
