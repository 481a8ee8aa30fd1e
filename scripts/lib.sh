# Shared steps of the README's commands: packages, builds, the wine prefix and server.
# Sourced by scripts/demo.sh and scripts/test.sh; every step may run again safely.

KOVRA_ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
KOVRA_PACKAGES="g++-mingw-w64-i686-posix g++-mingw-w64-x86-64-posix wine64 googletest cmake ninja-build"
WINE=/usr/lib/wine/wine64
WINESERVER=/usr/lib/wine/wineserver

kovra_install_packages() {
  local missing=""
  for package in $KOVRA_PACKAGES; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" || missing="$missing $package"
  done
  [ -z "$missing" ] && return 0
  echo "== installing:$missing"
  if [ "$(id -u)" -ne 0 ]; then
    echo "installing packages needs root (apt-get)" >&2
    return 1
  fi
  apt-get update -qq
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq $missing >/dev/null
}

# kovra_build TARGET [cmake options...] [-- build targets...]: configures build/TARGET
# and builds the named build targets, or everything.
kovra_build() {
  local target=$1
  shift
  local options=()
  while [ $# -gt 0 ] && [ "$1" != "--" ]; do
    options+=("$1")
    shift
  done
  [ $# -gt 0 ] && shift
  echo "== building $target"
  cmake -S "$KOVRA_ROOT" -B "$KOVRA_ROOT/build/$target" -G Ninja \
    -DCMAKE_TOOLCHAIN_FILE="$KOVRA_ROOT/cmake/toolchain-$target.cmake" -DCMAKE_BUILD_TYPE=Release \
    "${options[@]}" >/dev/null
  if [ $# -gt 0 ]; then
    cmake --build "$KOVRA_ROOT/build/$target" --target "$@"
  else
    cmake --build "$KOVRA_ROOT/build/$target"
  fi
}

# kovra_wine_up BUILD_DIR: a headless prefix in BUILD_DIR/wineprefix, the fixture drives,
# and a warm persistent server. Stopped again by kovra_wine_down.
kovra_wine_up() {
  local build
  build=$(cd "$1" && pwd)
  export WINEPREFIX="$build/wineprefix" WINEDEBUG=-all
  if [ ! -f "$WINEPREFIX/system.reg" ]; then
    echo "== creating the wine prefix"
    "$WINE" wineboot -i >/dev/null 2>&1 || true
    "$WINE" reg add 'HKCU\Software\Wine\Drivers' /v Graphics /d null /f >/dev/null 2>&1
    "$WINESERVER" -k >/dev/null 2>&1 || true  # a fresh persistent server follows
  fi
  # Drive letters of the test fixtures: X: unit, L: logging, M: message boxes, P: processes,
  # R: the read-only area, D: the demo, B: the benchmark. Q: must stay unassigned.
  local drive
  for drive in x l m p r d b; do
    mkdir -p "$build/fixtures/$drive"
    ln -sfn "$build/fixtures/$drive" "$WINEPREFIX/dosdevices/$drive:"
  done
  rm -f "$WINEPREFIX/dosdevices/q:"
  "$WINESERVER" -p </dev/null >/dev/null 2>&1 &
  sleep 0.5
  "$WINE" cmd /c exit </dev/null >/dev/null 2>&1 || true
}

kovra_wine_down() {
  [ -n "${WINEPREFIX:-}" ] && "$WINESERVER" -k >/dev/null 2>&1 || true
}
