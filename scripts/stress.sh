#!/bin/bash
# Builds the stress programs and runs the full load under wine for both targets, i686
# (the product) first, each in an installation of its own on drive S: of its build's
# wine prefix. Exit status 0 when both ran to their end with nothing lost.
# Arguments go to kovra_stress: scripts/stress.sh --short runs the short load.
set -euo pipefail
. "$(dirname "$0")/lib.sh"

kovra_install_packages
trap kovra_wine_down EXIT
declare -A outcome
status=0
for target in i686 x86_64; do
  kovra_build "$target" -- kovra_stress
  build="$KOVRA_ROOT/build/$target"
  kovra_wine_up "$build"
  echo "== stress $target"
  started=$SECONDS
  if "$WINE" "$build/bin/kovra_stress.exe" "$@" 'S:\'; then
    outcome[$target]="nothing lost"
  else
    outcome[$target]=FAILED
    status=1
  fi
  echo "== $target: $((SECONDS - started)) s"
  kovra_wine_down
done
echo "== i686: ${outcome[i686]}, x86_64: ${outcome[x86_64]}"
exit $status
