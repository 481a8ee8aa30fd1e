#!/bin/bash
# Builds and runs the benchmark under wine for i686 (the product) and x86_64: every road
# of the library against the platform sequence that it stands on, how the cost grows with
# thread bindings, directory sizes and the file-type table, and the first process's load
# with large configurations. Each target works in installations of its own on drive B: of
# its wine prefix. bench/RESULTS.md explains a run.
set -euo pipefail
. "$(dirname "$0")/lib.sh"

kovra_install_packages

bench_target() {
  local target=$1
  kovra_build "$target" -- kovra_bench kovra_bench_load kovra_config_load
  local build="$KOVRA_ROOT/build/$target"
  kovra_wine_up "$build"
  local install="$build/fixtures/b"
  rm -rf "$install"
  mkdir -p "$install/APP/DAT/WS1/TMP" "$install/LOAD"
  printf '[DefaultSettings]\r\nOption=32\r\n[BENCH]\r\nLocation=BASE\r\n' >"$install/APP/DAT/CKOVRA.INI"
  export TARNEL31_WKSTA='B:\APP\DAT\WS1\' TARNEL31_WKSTATMP='B:\APP\DAT\WS1\TMP\'
  "$WINE" "$build/bin/kovra_bench.exe" || status=1
  # Run after the roads have ended: every process it starts must be the library's first.
  "$WINE" "$build/bin/kovra_bench_load.exe" 'B:\LOAD' || status=1
  "$WINE" "$build/bin/kovra_config_load.exe" 'B:\CONFLOAD' || status=1
  kovra_wine_down
}

trap kovra_wine_down EXIT
status=0
for target in i686 x86_64; do
  bench_target "$target"
done
exit $status
