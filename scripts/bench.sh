#!/bin/bash
# Builds and runs the benchmarks under wine: what the library adds to the platform calls
# underneath, printed as ratios, and the first process's load with large configurations.
# They work in installations of their own on drive B:.
set -euo pipefail
. "$(dirname "$0")/lib.sh"

kovra_install_packages
kovra_build x86_64 -- kovra_bench kovra_config_load

build="$KOVRA_ROOT/build/x86_64"
trap kovra_wine_down EXIT
kovra_wine_up "$build"
install="$build/fixtures/b"
rm -rf "$install"
mkdir -p "$install/APP/DAT/WS1/TMP"
printf '[DefaultSettings]\r\nOption=32\r\n[BENCH]\r\nLocation=BASE\r\n' >"$install/APP/DAT/CKOVRA.INI"
TARNEL31_WKSTA='B:\APP\DAT\WS1\' TARNEL31_WKSTATMP='B:\APP\DAT\WS1\TMP\' "$WINE" "$build/bin/kovra_bench.exe"
# A first process's load with large configurations, in an installation of its own.
"$WINE" "$build/bin/kovra_config_load.exe" 'B:\CONFLOAD'
