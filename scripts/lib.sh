# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#
# What the commands of this folder share: messages, packages, building. Sourced, never run.

set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"

# Names of Debian 12 packages. Each command installs only the groups that it needs.
build_packages=(
  g++ cmake ninja-build pkg-config
  qt6-base-dev qt6-l10n-tools
  libpipewire-0.3-dev libyuv-dev libjpeg62-turbo-dev
  libxnnpack-dev libpthreadpool-dev libcpuinfo-dev libeigen3-dev
  libxcb1-dev libxcb-shape0-dev libxcb-randr0-dev libxcb-xfixes0-dev libxcb-composite0-dev libxcb-render0-dev
  libseccomp-dev libxcb-dpms0-dev libxcb-xinput-dev libxcb-xkb-dev libwayland-dev libwayland-bin wayland-protocols
)
run_packages=(
  pipewire wireplumber
  qt6-wayland
  fonts-inter fonts-jetbrains-mono fonts-dejavu-core fonts-quicksand
)
# A private desktop on X11, on which the demonstration and the tests run; also put into the bare system that tries the package.
desktop_packages=(dbus-daemon dbus-bin libglib2.0-bin xvfb openbox picom imagemagick fonts-dejavu-core)
# What the tests need besides.
test_packages=(
  libgtest-dev libgmock-dev libbenchmark-dev libopencv-dnn-dev gdb
  python3-dbusmock dunst feedbackd x11-utils x11-xserver-utils xdotool at-spi2-core
  sway swaybg grim wev
  gstreamer1.0-tools gstreamer1.0-plugins-base gstreamer1.0-plugins-good gstreamer1.0-pipewire
  desktop-file-utils appstream groff-base libxml2-utils
)
package_packages=(dpkg-dev debhelper)
check_packages=(strace devscripts clang-tidy clang-format reuse shellcheck qemu-user lintian debootstrap systemd)

say() { printf '\n\033[1m%s\033[0m\n' "$*"; }
if [[ ! -t 1 ]]; then say() { printf '\n== %s\n' "$*"; }; fi
fail() {
  printf '%s: %s\n' "${0##*/}" "$*" >&2
  exit 1
}

# Reads "percent text" lines and passes one on for every tenth of the way.
tenths() { awk '{ step = int($1 / 10); if (step > last) { last = step; print "  " $0; fflush() } }'; }

missing_packages() {
  local installed name
  installed=$(dpkg-query -W -f '${Package} ${db:Status-Status}\n' "$@" 2>/dev/null | awk '$2 == "installed" { print $1 }') || true
  for name in "$@"; do
    grep -qxF -- "$name" <<<"$installed" || echo "$name"
  done
}

# install_packages NAME...: installs those that are missing. Only this goes through sudo.
install_packages() {
  local missing as_root=() log=$root/build/install.log
  command -v dpkg-query >/dev/null || fail "packages can only be installed on Debian; needed here: $*"
  mapfile -t missing < <(missing_packages "$@")
  if ((${#missing[@]} == 0)); then return; fi
  if ((EUID != 0)); then
    command -v sudo >/dev/null ||
      fail "these packages are missing and sudo is not there to install them: ${missing[*]}"
    as_root=(sudo)
  fi
  say "Installing packages (${#missing[@]}): ${missing[*]}"
  mkdir -p build
  as_root+=(env DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8)
  "${as_root[@]}" apt-get update -q >"$log" 2>&1 || {
    tail -n 20 "$log" >&2
    fail "apt-get update failed; all it printed is in build/install.log"
  }
  # Its status comes over a descriptor of its own, because it makes that one non-blocking, which the packages' own
  # scripts do not expect of their output. The words behind $0 and $@ are for the inner shell.
  # shellcheck disable=SC2016
  "${as_root[@]}" sh -c 'exec 3>&1 >>"$0" 2>&1; exec apt-get "$@"' "$log" \
    install -y -q --no-install-recommends -o APT::Status-Fd=3 -o Dpkg::Use-Pty=0 "${missing[@]}" |
    awk -F: '
      /^dlstatus:/ { printf "%d %% downloading\n", $3 * 0.3; fflush() }
      /^pmstatus:/ { printf "%d %% %s\n", 30 + $3 * 0.7, $4; fflush() }' | tenths || {
    tail -n 20 "$log" >&2
    fail "the packages could not be installed; all that apt-get printed is in build/install.log"
  }
}

# The npm that is there may be newer than Debian's; it is needed only until the models are in place.
npm_package() { if [[ ! -d build/models ]] && ! command -v npm >/dev/null; then echo npm; fi; }

# setup GROUP...: packages of the groups (build, run, test, package, check), then models and, for tests, pictures.
setup() {
  local group names=()
  for group in "$@"; do
    case $group in
      build) names+=("${build_packages[@]}") ;;
      run) mapfile -t -O "${#names[@]}" names < <(printf '%s\n' "${run_packages[@]}" && npm_package) ;;
      test) names+=("${desktop_packages[@]}" "${test_packages[@]}") ;;
      package) names+=("${package_packages[@]}") ;;
      check) names+=("${check_packages[@]}") ;;
      *) fail "unknown group $group; groups are build, run, test, package and check" ;;
    esac
  done
  install_packages "${names[@]}"
  for group in "$@"; do
    case $group in
      run) scripts/fetch-models ;;
      test) scripts/fetch-test-pictures ;;
    esac
  done
}

# build PRESET [TARGET...]: configures and builds; everything without targets.
build() {
  local preset=$1
  shift
  say "Building ($preset)"
  cmake --preset "$preset" --log-level=WARNING >/dev/null
  local arguments=(--build --preset "$preset")
  if (($# > 0)); then arguments+=(--target "$@"); fi
  if [[ -t 1 ]]; then
    cmake "${arguments[@]}"
  else
    cmake "${arguments[@]}" | awk '
      match($0, /^\[[0-9]+\/[0-9]+\]/) {
        split(substr($0, 2, RLENGTH - 2), at, "/")
        step = int(10 * at[1] / at[2])
        if (step > last) { last = step; print "  " 10 * step " % (" at[1] " of " at[2] " steps)"; fflush() }
        next
      }
      { print; fflush() }'
  fi
}
