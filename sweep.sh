#!/usr/bin/env bash
# Fails every call to the operating system, of every scenario on every sample machine and on some random ones.
#   ./sweep.sh [--every N] [--seed N] [--jobs N] [--run TEXT]
# One in N calls alone, with another seed, in so many processes, in the runs whose name holds the text ("upgrade of loop").
set -euo pipefail
cd "$(dirname "$0")"
. ./setup.sh
packages+=(libgtest-dev python3)
build host ztl_sweep
# Where files cost the least.
[ -w /dev/shm ] && export TMPDIR=/dev/shm
exec build/host/tests/ztl_sweep "$@"
