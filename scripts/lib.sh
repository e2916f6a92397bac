# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#
# What the commands of this folder share: messages, packages, building. Sourced, never run.

set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"

# Names of packages of Debian 12 and 13. Each group names all that it itself uses, even what another group or a dependency
# brings as well, and each command installs only the groups that it needs.
build_packages=(
  g++ cmake ninja-build pkg-config
  qt6-base-dev qt6-base-private-dev qt6-l10n-tools
  libpipewire-0.3-dev libyuv-dev libjpeg-dev
  libxnnpack-dev libpthreadpool-dev libeigen3-dev
  libxcb1-dev libxcb-shape0-dev libxcb-randr0-dev libxcb-xfixes0-dev libxcb-composite0-dev
  libseccomp-dev libsystemd-dev libxcb-dpms0-dev libxcb-xinput-dev libxcb-xkb-dev libwayland-dev libwayland-bin wayland-protocols
)
run_packages=(
  pipewire wireplumber
  qt6-wayland
  fonts-inter fonts-jetbrains-mono fonts-dejavu-core fonts-quicksand
)
# The private desktop on X11 of the demonstration and the tests, what the other scenes need besides, and what the tests do.
demo_packages=(dbus-daemon xvfb openbox picom imagemagick pipewire-bin fonts-dejavu-core)
demo_wayland_packages=(sway swaybg grim)
demo_day_packages=(python3-dbusmock dunst)
demo_hands_packages=(dbus-bin xdotool x11-xkb-utils gstreamer1.0-tools gstreamer1.0-plugins-base gstreamer1.0-pipewire)
soak_packages=("${demo_hands_packages[@]}" x11-xserver-utils)
test_packages=(
  libgtest-dev libgmock-dev libbenchmark-dev gdb
  feedbackd x11-utils x11-xserver-utils x11-xkb-utils xdotool at-spi2-core wev
  gstreamer1.0-tools gstreamer1.0-plugins-base gstreamer1.0-plugins-good gstreamer1.0-pipewire
  desktop-file-utils appstream groff-base libxml2-utils
)
# Real desktops, without a screen, and what tells and does there what a person would.
desktops=(gnome-wayland gnome-x11 plasma-wayland sway wayfire xfce kwin-x11)
desktop_packages=(dbus-daemon dbus-bin pipewire-bin x11-utils)
x11_desktop_packages=(xvfb x11-xserver-utils xdotool wmctrl imagemagick)
gnome_packages=(gnome-shell gjs xwayland libglib2.0-bin xdg-desktop-portal xdg-desktop-portal-gnome python3-dbusmock)
xfce_packages=(xfwm4 xfce4-settings xfce4-panel xfce4-notifyd i3lock "${x11_desktop_packages[@]}")
kwin_x11_packages=(kwin-x11 plasma-workspace python3-dbusmock "${x11_desktop_packages[@]}")
plasma_packages=(plasma-workspace plasma-desktop kscreen kwin-wayland qtwayland5 xwayland xdg-desktop-portal-kde python3-dbusmock "${x11_desktop_packages[@]}")
sway_packages=(sway swaybg swaylock mako-notifier grim xwayland libglib2.0-bin gsettings-desktop-schemas dconf-gsettings-backend "${x11_desktop_packages[@]}")
# Of Debian 12 only.
wayfire_packages=(wayfire wayfire-dev libglm-dev libxml2-dev libdrm-dev libgl1-mesa-dri waybar swaylock mako-notifier grim xwayland libglib2.0-bin gsettings-desktop-schemas dconf-gsettings-backend)
# What gives away the screen of sway.
sharing_packages=(xdg-desktop-portal-wlr)
fuzz_packages=(clang libclang-rt-dev)
package_packages=(build-essential git dpkg-dev debhelper)
check_packages=(git strace devscripts clang-tidy clang-format reuse shellcheck qemu-user lintian debootstrap systemd)

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

# What configuring requires: need, use, Debian package and Fedora package, with tabs between; several rows may name the same.
requirements() {
  sed -nE 's/^sentrel_require\(([a-z]+) +"([^"]+)" +([^ ]+) +([^ ]+) .*/\1\t\2\t\3\t\4/p' cmake/SentrelRequirements.cmake
}

# tell_packages NAME...: for systems whose packages cannot be installed from here.
tell_packages() {
  say "These packages are needed; without dpkg they have to be installed by hand"
  requirements | awk -F '\t' -v names="$*" '
    BEGIN { count = split(names, order, " "); for (i in order) wanted[order[i]] }
    $3 in wanted && !told[$3]++ { printf "  %-22s %-33s for %s\n", $3, "(Fedora: " $4 ")", $2 }
    $3 in wanted && !listed[$4]++ { line = line " " $4 }
    END {
      print "\nOn Fedora:\n  sudo dnf install" line
      print "\nBesides, by the names that Debian gives them:"
      for (i = 1; i <= count; i++) if (!(order[i] in told)) printf "  %s\n", order[i]
    }'
  fail "nothing was installed"
}

# install_packages NAME...: installs those that are missing. Only this goes through sudo.
install_packages() {
  local missing log=$root/build/install.log status=0
  local as_root=(env DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8)
  command -v dpkg-query >/dev/null || tell_packages "$@"
  mapfile -t missing < <(missing_packages "$@")
  if ((${#missing[@]} == 0)); then return; fi
  say "Installing packages (${#missing[@]}): ${missing[*]}"
  if ((EUID != 0)); then
    command -v sudo >/dev/null || fail "sudo is not there to install them; as root: apt-get install ${missing[*]}"
    as_root=(sudo "${as_root[@]}")
    "${as_root[@]}" true || fail "sudo does not let you install them; as root: apt-get install ${missing[*]}"
  fi
  mkdir -p build
  # A mirror that is silent is given up by apt itself; one that trickles, here. The mark tells what sudo refuses after all
  # from what apt-get could not do.
  # shellcheck disable=SC2016
  "${as_root[@]}" sh -c 'echo "$*"; exec "$@"' update timeout --kill-after=10 300 apt-get update -q -o Acquire::Retries=1 \
    >"$log" 2>&1 </dev/null || status=$?
  if ((status != 0)); then
    tail -n 20 "$log" >&2
    grep -q '^timeout .*apt-get update' "$log" || fail "sudo does not let you install them; as root: apt-get install ${missing[*]}"
    if ((status == 124)); then fail "apt-get update has not ended within 5 minutes; does the mirror answer?"; fi
    fail "apt-get update failed; all it printed is in build/install.log"
  fi
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

# Only until the models are in place. The npm that is there is good; without one, fetch-models unpacks Debian's.
npm_package() { if [[ ! -d build/models ]] && ! command -v npm >/dev/null; then echo nodejs; fi; }

# setup GROUP...: the packages of the groups, then the models for run, and the pictures for demo and test.
setup() {
  local group names=() models=no pictures=no
  for group in "$@"; do
    case $group in
      build) names+=("${build_packages[@]}") ;;
      run)
        mapfile -t -O "${#names[@]}" names < <(printf '%s\n' "${run_packages[@]}" && npm_package)
        models=yes
        ;;
      demo)
        names+=("${demo_packages[@]}")
        pictures=yes
        ;;
      demo-wayland) names+=("${demo_wayland_packages[@]}") ;;
      demo-day) names+=("${demo_day_packages[@]}") ;;
      demo-hands) names+=("${demo_day_packages[@]}" "${demo_hands_packages[@]}") ;;
      soak) names+=("${soak_packages[@]}") ;;
      test)
        names+=("${demo_packages[@]}" "${demo_wayland_packages[@]}" "${demo_day_packages[@]}" "${test_packages[@]}")
        pictures=yes
        ;;
      gnome-wayland) names+=("${desktop_packages[@]}" "${gnome_packages[@]}") ;;
      gnome-x11) names+=("${desktop_packages[@]}" "${gnome_packages[@]}" "${x11_desktop_packages[@]}") ;;
      xfce) names+=("${desktop_packages[@]}" "${xfce_packages[@]}") ;;
      kwin-x11) names+=("${desktop_packages[@]}" "${kwin_x11_packages[@]}") ;;
      plasma-wayland) names+=("${desktop_packages[@]}" "${plasma_packages[@]}") ;;
      sway) names+=("${desktop_packages[@]}" "${sway_packages[@]}") ;;
      wayfire) names+=("${desktop_packages[@]}" "${wayfire_packages[@]}") ;;
      sharing) names+=("${sharing_packages[@]}") ;;
      fuzz) names+=("${fuzz_packages[@]}") ;;
      package) names+=("${package_packages[@]}") ;;
      check) names+=("${check_packages[@]}") ;;
      *) fail "unknown group $group; groups are build, run, demo, demo-wayland, demo-day, demo-hands, soak, test, sharing, fuzz, package, check and ${desktops[*]}" ;;
    esac
  done
  install_packages "${names[@]}"
  if [[ $models == yes ]]; then scripts/fetch-models; fi
  if [[ $pictures == yes ]]; then scripts/fetch-test-pictures; fi
}

# configure PRESET: anew where a folder that an earlier version, another place or another tool has left cannot be used.
configure() {
  mkdir -p build
  if cmake --preset "$1" --log-level=WARNING >/dev/null 2>build/configure.log; then
    cat build/configure.log >&2
  else
    cmake --fresh --preset "$1" --log-level=WARNING >/dev/null
  fi
}

# build PRESET [TARGET...]: configures and builds; everything without targets. The presets demo, test and dev share one
# folder, and each only adds to what is there.
build() {
  local preset=$1
  shift
  say "Building ($preset)"
  configure "$preset"
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
