# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#
# A bare Debian for what must be tried where nobody has worked before. It is made by debootstrap from the mirror that this
# machine's apt is set up for, kept for a week as an archive, and unpacked anew for each run. Sourced, never run.
#
# The command that sources this runs in three roles, each of which starts the next:
#   as the caller: collects what is handed into the system (bare_prepare, bare_start);
#   as root: locks, looks for space, makes the namespaces, and at the end removes all but the archives (bare_guard);
#   in the namespaces: makes the system and calls the command's function on_bare_system (bare_enter). Whatever is mounted and
#   started there ends with it. The network is the machine's.
# The last one has: $release, $place (the folder that is kept), $system (the root), and the functions from `in_system` on.

. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

release=
place=
system=
log=
given=
namespaces= # the process that holds them
shown=      # the one that passes on and logs what is printed
made=no     # whether the system stands
no_system=69 # exit status: no bare system can be made here, nothing was tried
mirror_limit=300

# Not a failure of what is tried: the bare system itself cannot be made.
cannot() {
  printf '%s: %s\n' "${0##*/}" "$*" >&2
  exit "$no_system"
}

knows_release() { [[ " bookworm trixie " == *" $1 "* ]]; }

bare_release() {
  release=$1
  place=$root/build/bare-system/$release
  system=$place/system
  log=$place/${0##*/}.log
}

# bare_prepare RELEASE: what root is needed for can be done, and there is a folder $given for what is handed in.
bare_prepare() {
  bare_release "$1"
  if ((EUID != 0)); then
    command -v sudo >/dev/null || cannot "needs root for mounts and namespaces of its own, and there is no sudo: run it as root"
    sudo true || cannot "needs root for mounts and namespaces of its own, and sudo refuses: run it as root"
  fi
  [[ -x /usr/sbin/debootstrap ]] || (install_packages debootstrap) || cannot "debootstrap cannot be installed here"
  umask 022 # also of what is handed in: a newcomer's
  mkdir -p build/bare-system # the caller's, not root's
  given=$(mktemp -d "${TMPDIR:-/tmp}/sentrel-given.XXXXXX")
  trap 'rm -rf "$given"' EXIT
}

# bare_start MEBIBYTES ARGUMENT...: on_bare_system ARGUMENT... on the bare release, where there is so much space at least.
bare_start() {
  local as_root=()
  collect_settings
  if ((EUID != 0)); then as_root=(sudo); fi
  exec "${as_root[@]}" "$root/scripts/${0##*/}" --bare-guard "$given" "$release" "$@"
}

# bare_role ARGUMENT...: does nothing for the arguments of a person; for those of the other roles, plays the role and ends.
bare_role() {
  case ${1:-} in
    --bare-guard) bare_guard "${@:2}" ;;
    --bare-enter) bare_enter "${@:2}" ;;
    *) return 0 ;;
  esac
  exit
}

# HEAD alone, whatever the clone is: shallow, with a detached HEAD, a worktree, or somebody else's.
collect_clone() {
  command -v git >/dev/null || cannot "git is missing"
  printf '[include]\n\tpath = ~/.gitconfig\n[safe]\n\tdirectory = *\n' >"$given/gitconfig"
  local changed
  changed=$(GIT_CONFIG_GLOBAL=$given/gitconfig git status --porcelain | wc -l) || cannot "this is not a clone of the repository"
  {
    git init -q "$given/clone"
    GIT_CONFIG_GLOBAL=$given/gitconfig git -C "$given/clone" fetch -q --depth 1 "$root" HEAD
    git -C "$given/clone" -c advice.detachedHead=false checkout -q FETCH_HEAD
  } || cannot "HEAD cannot be cloned"
  say "HEAD is $(git -C "$given/clone" log -1 --format='%h (%s)')"
  if ((changed > 0)); then
    echo "  $changed changed or new files are not committed: HEAD is tried, without them"
  fi
}

# How the caller reaches the package registries: variables for proxies and certificates, and npm's settings.
collect_settings() {
  local rc name names
  for rc in "${npm_config_globalconfig:-/usr/etc/npmrc}" /usr/local/etc/npmrc /etc/npmrc "${npm_config_userconfig:-$HOME/.npmrc}"; do
    if [[ -r $rc ]]; then grep -vE '^[[:space:]]*(prefix|cache|nodedir|init-module)[[:space:]]*=' "$rc" || true; fi
  done >"$given/npmrc"
  names='^(https?_proxy|no_proxy|all_proxy|NODE_EXTRA_CA_CERTS|SSL_CERT_(FILE|DIR)|CURL_CA_BUNDLE|npm_config_.*)$'
  while IFS= read -r -d '' name; do
    if [[ ! ${name%%=*} =~ _(globalconfig|userconfig|prefix|cache)$ ]] &&
      grep -qiE "$names" <<<"${name%%=*}" || grep -qF "\${${name%%=*}}" "$given/npmrc"; then
      printf '%s\0' "$name"
    fi
  done < <(env -0) >"$given/environment"
}

# bare_guard GIVEN RELEASE MEBIBYTES ARGUMENT...
bare_guard() {
  umask 022
  given=$1
  bare_release "$2"
  local needed=$3 free status=0
  shift 3
  trap bare_clear EXIT
  trap 'exit 129' HUP
  trap 'exit 130' INT
  trap 'exit 143' TERM
  mkdir -p "$place"
  exec 9>>"$place/lock"
  flock --nonblock 9 || {
    place= # what is there is another run's
    cannot "another run uses the bare $release of this folder; start this one when that has ended"
  }
  # Only out here, where nothing is mounted in it. It is there when an earlier run was killed.
  rm -rf --one-file-system "$system"*
  free=$((10#$(df --output=avail --block-size=1M "$place" | tail -n 1 | tr -d ' ')))
  ((free >= needed)) || cannot "needs $needed MiB on the disk of build/, where $free MiB are free"
  unshare --mount --pid --ipc --uts --fork --kill-child --mount-proc true ||
    cannot "namespaces or mounts are not permitted here"

  : >"$log"
  exec > >(exec 9>&- && exec tee --ignore-interrupts --append "$log") 2>&1
  shown=$!
  if ! { : <&0; } 2>/dev/null; then exec </dev/null; fi
  # In the background, because only then a signal reaches this shell at once; and it does not outlive this shell.
  setpriv --pdeathsig=KILL unshare --mount --pid --ipc --uts --fork --kill-child \
    "$root/scripts/${0##*/}" --bare-enter "$given" "$release" "$@" <&0 &
  namespaces=$!
  wait "$namespaces" || status=$?
  exit "$status"
}

# Lets nothing of the run stay but the archives, the log and what was kept on purpose.
bare_clear() {
  local status=$?
  trap '' HUP INT TERM
  if [[ -n $namespaces ]]; then kill -KILL "$namespaces" 2>/dev/null || true; fi
  if [[ -n $shown ]]; then
    if ((status != 0)); then echo "all that happened is in ${log#"$root/"}"; fi
    exec >/dev/null 2>&1
    wait "$shown" || true # it ends when nothing in the namespaces is left
  fi
  rm -rf "$given"
  if [[ -n $place ]]; then rm -rf --one-file-system "$system"* "$place/base.tar.part"; fi
  exit "$status"
}

# bare_enter GIVEN RELEASE ARGUMENT...
bare_enter() {
  exec 9>&- # the guard's lock
  given=$1
  bare_release "$2"
  shift 2
  trap 'code=$?; if ((code != 0 && code != no_system)); then if [[ $made == no ]]; then exit "$no_system"; else exit 1; fi; fi' EXIT
  exec 3>>"$log"
  make_bare_system
  made=yes
  on_bare_system "$@"
}

# limited WHAT COMMAND...: the command within the time that a mirror has; what it prints goes to the log.
limited() {
  local what=$1 status=0
  shift
  timeout --kill-after=10 "$mirror_limit" "$@" >&3 2>&1 </dev/null || status=$?
  if ((status == 124 || status == 137)); then
    cannot "$what has not ended within $mirror_limit seconds; does the mirror answer?"
  elif ((status != 0)); then
    tail -n 15 "$log" >"$given/tail"
    cat "$given/tail"
    cannot "$what failed"
  fi
}

# Prints "SUITE URI COMPONENT" lines for the release. apt that knows another release of Debian is asked for that one's mirrors,
# which have this one as well.
bare_sources() {
  local known own
  known=$(apt-get indextargets --format "\$(CODENAME) \$(REPO_URI) \$(COMPONENT)" 'Created-By: Packages' 'Origin: Debian' |
    awk '$3 == "main"' | sort -u)
  own=$(awk -v wanted="$release" '$1 !~ /-/ { if ($1 == wanted || own == "") own = $1 } END { print own }' <<<"$known")
  awk -v own="$own" -v wanted="$release" '
    own != "" && ($1 == own || $1 == own "-updates" || $1 == own "-security") { sub("^" own, wanted, $1); print }' <<<"$known"
}

make_bare_system() {
  local sources mirror proxy script base=$place/base.tar name
  sources=$(bare_sources)
  if [[ -z $sources ]]; then
    limited "apt-get update on this machine" apt-get update -q
    sources=$(bare_sources)
  fi
  mirror=$(awk -v wanted="$release" '$1 == wanted { print $2; exit }' <<<"$sources")
  [[ -n $mirror ]] || cannot "this machine's apt knows no mirror of Debian"
  proxy=$(apt-config shell p Acquire::http::Proxy | sed "s/^p='\(.*\)'$/\1/")
  if [[ -n $proxy && $proxy != DIRECT ]]; then export http_proxy=$proxy; fi
  PATH=$PATH:/usr/sbin:/sbin

  mkdir -p "$place/archives" "$system"
  # A mount of its own: the disk of build/ may be mounted without devices, or without set-user-id programs, which sudo is.
  mount --bind "$system" "$system"
  mount -o remount,bind,suid,dev,exec "$system"
  if [[ -z $(find "$base" -mtime -7 2>/dev/null) ]]; then
    say "Making a bare Debian ($release)"
    script=/usr/share/debootstrap/scripts/$release
    if [[ ! -e $script ]]; then script=/usr/share/debootstrap/scripts/sid; fi
    limited debootstrap debootstrap --variant=minbase --include=ca-certificates "$release" "$system" "$mirror" "$script"
    rm -rf "$system"/var/cache/apt/archives/*.deb
    tar --directory="$system" --create --file="$base.part" .
    mv "$base.part" "$base"
  else
    say "Unpacking the bare Debian ($release) of $(date --reference="$base" +%F)"
    tar --directory="$system" --extract --file="$base"
  fi
  mount_bare_system
  hand_in_machine "$sources"
}

# How this machine reaches its mirrors.
hand_in_machine() {
  local name file
  awk '{ print "deb", $2, $1, $3 }' <<<"$1" >"$system/etc/apt/sources.list"
  apt-config dump | grep -E '^Acquire::(https?|Check-[A-Za-z-]+|Retries)\b' >"$system/etc/apt/apt.conf.d/00machine" || true
  for name in auth.conf auth.conf.d keyrings; do
    if [[ -e /etc/apt/$name ]]; then cp -a "/etc/apt/$name" "$system/etc/apt/"; fi
  done
  for name in resolv.conf hosts; do
    if [[ -e /etc/$name ]]; then cp --remove-destination --dereference "/etc/$name" "$system/etc/"; fi
  done
  echo "127.0.1.1 bare-$release" >>"$system/etc/hosts"
  echo "bare-$release" >"$system/etc/hostname"
  if [[ -d /usr/local/share/ca-certificates ]]; then
    cp -r /usr/local/share/ca-certificates "$system/usr/local/share/"
    in_system update-ca-certificates >&3 2>&1
  fi
  # Certificates that are named in a setting and lie elsewhere.
  grep -ahoE "/[^\"'= ;]+\.(crt|pem|cer)\b" "$given/environment" "$given/npmrc" "$system/etc/apt/apt.conf.d/00machine" | sort -u |
    while read -r file; do
      if [[ -f $file && ! -e $system$file ]]; then cp --parents --dereference "$file" "$system/"; fi
    done
  printf '#!/bin/sh\nexit 101\n' >"$system/usr/sbin/policy-rc.d" # no service is started by its installation
  chmod 755 "$system/usr/sbin/policy-rc.d"
}

mount_bare_system() {
  local name
  hostname "bare-$release"
  mount --bind "$place/archives" "$system/var/cache/apt/archives"
  mount -t proc proc "$system/proc"
  mount --bind "$system/proc/sys" "$system/proc/sys"
  mount -o remount,bind,ro "$system/proc/sys"
  mount -t sysfs -o ro,nosuid,nodev,noexec sysfs "$system/sys"
  mount -t tmpfs -o mode=755 dev "$system/dev"
  for name in null zero full random urandom tty; do
    touch "$system/dev/$name"
    mount --bind "/dev/$name" "$system/dev/$name"
  done
  mkdir "$system/dev/shm" "$system/dev/pts"
  mount -t tmpfs -o mode=1777,nosuid,nodev shm "$system/dev/shm"
  mount -t devpts -o newinstance,ptmxmode=666,mode=620,gid=5 devpts "$system/dev/pts"
  mount -t tmpfs -o mode=1777,nosuid,nodev tmp "$system/tmp"
  ln -s pts/ptmx "$system/dev/ptmx"
  ln -s /proc/self/fd "$system/dev/fd"
  for name in 0:stdin 1:stdout 2:stderr; do ln -s "/proc/self/fd/${name%:*}" "$system/dev/${name#*:}"; done
}

# --- for on_bare_system

# As root.
in_system() {
  local within=()
  if [[ $1 == --limited ]]; then
    within=(limited "$2")
    shift 2
  fi
  "${within[@]}" chroot "$system" env -i PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
    LANG=C.UTF-8 DEBIAN_FRONTEND=noninteractive "$@"
}

# What it prints goes to the log.
system_apt() { in_system --limited "apt-get $1" apt-get -q -y --no-install-recommends -o Dpkg::Use-Pty=0 "$@"; }

add_person() {
  in_system useradd --create-home --shell /bin/bash person
  install -m 600 "$given/npmrc" "$system/home/person/.npmrc"
  in_system chown person: /home/person/.npmrc
}

# person SECONDS COMMAND...: as a user who is logged in, with the settings of the caller for proxies, certificates and npm.
person() {
  local settings seconds=$1
  shift
  mapfile -d '' -t settings <"$given/environment"
  timeout --kill-after=30 "$seconds" chroot "$system" setpriv --reuid=person --regid=person --init-groups setsid --wait \
    env -i PATH=/usr/local/bin:/usr/bin:/bin:/usr/local/games:/usr/games LANG=C.UTF-8 \
    HOME=/home/person USER=person LOGNAME=person SHELL=/bin/bash "${settings[@]}" "$@" 3>&-
}

# A person who may use sudo, and a clone of HEAD in that person's home.
add_newcomer() {
  system_apt update
  system_apt install git sudo
  add_person
  echo 'person ALL=(ALL:ALL) NOPASSWD: ALL' >"$system/etc/sudoers.d/person"
  chmod 440 "$system/etc/sudoers.d/person"
  cp -a "$given/clone" "$system/home/person/sentrel"
  in_system chown -R person: /home/person/sentrel
}

# in_clone SECONDS COMMAND...
in_clone() { person "$1" env --chdir=/home/person/sentrel "${@:2}"; }
