#!/usr/bin/env bash
# Builds and runs the tests.
#   ./test.sh            the release build's tests on this machine
#   ./test.sh --debug    the same under the address and undefined-behaviour sanitizers
#   ./test.sh --windows  cross-builds everything for Windows and runs the Windows tests under Wine
set -euo pipefail
cd "$(dirname "$0")"
. ./setup.sh
packages+=(libgtest-dev python3)
case "${1:-}" in
  "") preset=host ;;
  --debug) preset=host-debug ;;
  --windows)
    preset=windows
    packages+=(g++-mingw-w64-x86-64 mingw-w64-tools googletest wine wine64)
    ;;
  *)
    echo "usage: ./test.sh [--debug | --windows]" >&2
    exit 2
    ;;
esac
build "$preset" all ztl_tests
if [ "$preset" = windows ]; then
  WINEPREFIX=$(mktemp -d)
  export WINEPREFIX WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
  # The property page's test has a screen of its own.
  screen=
  trap 'wineserver -k 2>/dev/null || true; ${screen:+kill "$screen"} 2>/dev/null || true; rm -rf "$WINEPREFIX"' EXIT
  if (need xvfb) && exec 3< <(exec Xvfb -displayfd 1 -screen 0 800x600x24 -nolisten tcp 2>/dev/null) && screen=$! &&
    read -r -t 30 display <&3; then
    export DISPLAY=":$display"
  else
    echo "There is no virtual screen (Xvfb): the property page's test is skipped." >&2
    export ZTL_NO_SCREEN=1
  fi
  wineserver -p  # stays between tests: one that is just going would take a new program's start with it
  wineboot -i >/dev/null 2>&1
  # No window manager: Wine draws the frames itself.
  wine reg add 'HKCU\Software\Wine\X11 Driver' /v Managed /d N /f >/dev/null 2>&1
fi
ctest --preset "$preset" --parallel 2
