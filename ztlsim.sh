#!/usr/bin/env bash
# Builds ztlsim and runs it with the arguments given; without arguments, shows the main job on a sample machine.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
caller=$PWD
cd "$here"
. ./setup.sh
build host ztlsim
cd "$caller"
if [ $# -eq 0 ]; then
  echo "\$ ztlsim run upgrade --machine samples/laptop.reg"
  set -- run upgrade --machine "$here/samples/laptop.reg"
fi
exec "$here/build/host/ztlsim" "$@"
