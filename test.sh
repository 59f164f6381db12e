#!/usr/bin/env bash
# Builds and runs the tests.
#   ./test.sh            the release build's tests on this machine
#   ./test.sh --debug    the same under the address and undefined-behaviour sanitizers
#   ./test.sh --windows  cross-builds everything for Windows and runs the Windows tests under Wine
set -euo pipefail
cd "$(dirname "$0")"
. ./setup.sh
case "${1:-}" in
  "") preset=host ;;
  --debug) preset=host-debug ;;
  --windows) preset=windows ;;
  *)
    echo "usage: ./test.sh [--debug | --windows]" >&2
    exit 2
    ;;
esac
need "${build_packages[@]}"
if [ "$preset" = windows ]; then
  need g++-mingw-w64-x86-64 mingw-w64-tools googletest wine wine64
  WINEPREFIX=$(mktemp -d)
  export WINEPREFIX WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
  trap 'wineserver -k 2>/dev/null || true; rm -rf "$WINEPREFIX"' EXIT
  wineboot -i >/dev/null 2>&1
fi
build "$preset"
ctest --preset "$preset" --parallel 2
