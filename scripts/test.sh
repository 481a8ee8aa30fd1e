#!/bin/bash
# Sets up the machine, builds both targets with their tests and runs every test of each
# under wine: i686 (the product, under the 32-bit wine) and x86_64, each in its own
# build tree and wine prefix. Arguments go to ctest: scripts/test.sh -R process.Cli
set -euo pipefail
. "$(dirname "$0")/lib.sh"

kovra_install_packages
kovra_build i686 -DKOVRA_BUILD_TESTS=ON
kovra_build x86_64 -DKOVRA_BUILD_TESTS=ON

trap kovra_wine_down EXIT
declare -A outcome
status=0
for target in i686 x86_64; do
  build="$KOVRA_ROOT/build/$target"
  rm -rf "$build/fixtures"
  kovra_wine_up "$build"
  echo "== testing $target"
  if ctest --test-dir "$build" --output-on-failure --timeout 120 "$@"; then
    outcome[$target]=passed
  else
    outcome[$target]=FAILED
    status=1
  fi
  kovra_wine_down
done
echo "== i686: ${outcome[i686]}, x86_64: ${outcome[x86_64]}"
exit $status
