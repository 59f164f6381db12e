#!/usr/bin/env bash
# Builds the benchmarks and runs them; the ratios that matter stand at the end. Arguments go to the benchmark program.
set -euo pipefail
cd "$(dirname "$0")"
. ./setup.sh
packages+=(libbenchmark-dev)
build host ztl_bench
exec build/host/bench/ztl_bench "$@"
