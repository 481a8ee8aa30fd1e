#!/bin/bash
# Sets up the machine, builds both targets and runs every test (the x86_64 build under wine).
set -euo pipefail
. "$(dirname "$0")/lib.sh"

kovra_install_packages
kovra_build i686 -DKOVRA_BUILD_TESTS=OFF
kovra_build x86_64 -DKOVRA_BUILD_TESTS=ON

build="$KOVRA_ROOT/build/x86_64"
rm -rf "$build/fixtures"
trap kovra_wine_down EXIT
kovra_wine_up "$build"
echo "== testing"
ctest --test-dir "$build" --output-on-failure --timeout 120 "$@"
