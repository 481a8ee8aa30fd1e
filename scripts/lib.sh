# Shared steps of the README's commands: packages, builds, the wine prefix and server.
# Sourced by scripts/demo.sh and scripts/test.sh; every step may run again safely.

KOVRA_ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
KOVRA_PACKAGES="g++-mingw-w64-i686-posix g++-mingw-w64-x86-64-posix wine64 googletest cmake ninja-build clang-16 lld-16 llvm-16"
WINE=/usr/lib/wine/wine64
WINESERVER=/usr/lib/wine/wineserver

kovra_install_packages() {
  local missing=""
  for package in $KOVRA_PACKAGES; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" || missing="$missing $package"
  done
  if [ -n "$missing" ]; then
    kovra_need_root || return 1
    echo "== installing:$missing"
    apt-get update -qq
    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq $missing >/dev/null
  fi
  kovra_install_wine32
}

kovra_need_root() {
  [ "$(id -u)" -eq 0 ] && return 0
  echo "installing packages needs root (apt-get)" >&2
  return 1
}

# The 32-bit wine (wine32:i386) runs the i686 programs. Debian's security suite often has
# no i386 index of the same version as its amd64 packages, which multiarch needs; so apt
# gets a configuration of its own here that sees only the main suites and prefers them
# over what is installed. The machine's own apt configuration is left as it is.
kovra_install_wine32() {
  dpkg-query -W -f='${Status}' wine32:i386 2>/dev/null | grep -q "install ok installed" && return 0
  kovra_need_root || return 1
  echo "== installing the 32-bit wine"
  local own=/var/lib/kovra-apt
  local mirror keyring
  mirror=$(awk '/^URIs:/ {print $2; exit}' /etc/apt/sources.list.d/debian.sources 2>/dev/null || true)
  keyring=$(awk '/^Signed-By:/ {print $2; exit}' /etc/apt/sources.list.d/debian.sources 2>/dev/null || true)
  if [ -z "$mirror" ]; then
    echo "cannot install the 32-bit wine: no Debian mirror in /etc/apt/sources.list.d/debian.sources" >&2
    return 1
  fi
  mkdir -p "$own/sources.list.d" "$own/preferences.d" "$own/lists/partial"
  cat >"$own/sources.list.d/bookworm.sources" <<SOURCES
Types: deb
URIs: $mirror
Suites: bookworm bookworm-updates
Components: main
Architectures: amd64 i386
Signed-By: ${keyring:-/usr/share/keyrings/debian-archive-keyring.gpg}
SOURCES
  printf 'Package: *\nPin: release n=bookworm\nPin-Priority: 1001\n' >"$own/preferences.d/bookworm.pref"
  local options=(-o Dir::Etc::SourceList=/dev/null -o "Dir::Etc::SourceParts=$own/sources.list.d"
                 -o "Dir::Etc::PreferencesParts=$own/preferences.d" -o "Dir::State::Lists=$own/lists")
  dpkg --add-architecture i386
  if ! apt-get "${options[@]}" update -qq ||
     ! DEBIAN_FRONTEND=noninteractive apt-get "${options[@]}" install -y -qq --no-install-recommends \
         --allow-downgrades wine32:i386 wine64 libwine >/dev/null; then
    echo "cannot install the 32-bit wine (wine32:i386) from the Debian mirror $mirror" >&2
    return 1
  fi
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
  # A prefix made before the 32-bit wine was installed has no syswow64 and runs 64-bit
  # programs only: make it again.
  if [ -f "$WINEPREFIX/system.reg" ] && [ ! -d "$WINEPREFIX/drive_c/windows/syswow64" ]; then
    "$WINESERVER" -k >/dev/null 2>&1 || true
    rm -rf "$WINEPREFIX"
  fi
  if [ ! -f "$WINEPREFIX/system.reg" ]; then
    echo "== creating the wine prefix"
    "$WINE" wineboot -i >/dev/null 2>&1 || true
    "$WINE" reg add 'HKCU\Software\Wine\Drivers' /v Graphics /d null /f >/dev/null 2>&1
    "$WINESERVER" -k >/dev/null 2>&1 || true  # a fresh persistent server follows
  fi
  # Drive letters of the test fixtures: X: unit, L: logging, M: message boxes, P: processes,
  # R: the read-only area, D: the demo, B: the benchmark, F: the fault walk, S: the stress
  # program. Q: must stay unassigned.
  local drive
  for drive in x l m p r d b f s; do
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
