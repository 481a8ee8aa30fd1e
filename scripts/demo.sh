#!/bin/bash
# Sets up the machine, builds the 32-bit library (the product) and runs the demo under wine.
set -euo pipefail
. "$(dirname "$0")/lib.sh"

kovra_install_packages
# The tree is shared with the tests: build only what the demo runs.
kovra_build i686 -- kovra_demo

build="$KOVRA_ROOT/build/i686"
trap kovra_wine_down EXIT
kovra_wine_up "$build"
rm -rf "$build/fixtures/d"
mkdir -p "$build/fixtures/d"
"$WINE" "$build/bin/kovra_demo.exe" "$build/bin"
