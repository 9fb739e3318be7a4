#!/bin/bash
# Sets the project up as people do, each time on a Debian 12 that has nothing but its base system:
#
#   root      as root, in root's own folder, from a fresh clone; tells what that took
#   user      as a user with sudo and a umask of 077, without .git, in the locale C; then in the folder as it is after a
#             move, with blanks and letters beyond ASCII in its name, in a locale whose decimal sign is a comma; installs,
#             has another user try it, and takes it out again
#   packages  the packages are installed, used by a user without sudo, and removed
#
# usage: tests/setup/bare.sh [CASE…]     as root; all of them by default, which takes an hour on two cores
#
# The systems are made by debootstrap in a temporary folder, entered with chroot in name spaces of their own, and
# removed at the end. The base system and downloaded packages are kept in build/bare for the next time.
set -euo pipefail

fail() { echo "bare.sh: $*" >&2; exit 1; }
[ "$(id -u)" -eq 0 ] || fail "making a system takes root"
command -v debootstrap >/dev/null || fail "install debootstrap first"

cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/../.."
base=$PWD/build/bare/base downloads=$PWD/build/bare/downloads
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

nothing_left='! find /usr -name "*tavlox*" -o -name "*corvan*" | grep .'

# new_system NAME: a copy of the base system, made when it is first asked for.
new_system() {
  mkdir -p "$downloads"
  if [ ! -d "$base" ]; then
    debootstrap --variant=minbase --include=ca-certificates bookworm "$base.new" && mv "$base.new" "$base"
  fi
  cp -a "$base" "$work/$1"
  cp /etc/resolv.conf "$work/$1/etc/resolv.conf"
}

# inside NAME COMMAND…: what is mounted for it is gone when it ends, and so are processes it leaves behind.
inside() {
  local system=$work/$1
  shift
  # shellcheck disable=SC2016
  unshare --mount --pid --fork --kill-child bash -c '
    mount -t proc proc "$1/proc" && mount --rbind /dev "$1/dev" && mount --bind "$2" "$1/var/cache/apt/archives"
    exec chroot "$1" /usr/bin/env -i PATH=/usr/bin:/bin:/usr/sbin:/sbin HOME=/root CI="$3" "${@:4}"' \
    inside "$system" "$downloads" "${CI:-}" "$@"
}

# add_user NAME [sudo]
add_user() {
  inside "$1" useradd --create-home --shell /bin/bash ada
  [ "${2:-}" = sudo ] || return 0
  inside "$1" apt-get update -q
  inside "$1" env DEBIAN_FRONTEND=noninteractive apt-get install -yq --no-install-recommends sudo
  echo 'ada ALL=(ALL) NOPASSWD: ALL' >"$work/$1/etc/sudoers.d/ada"
}

# copy_sources FOLDER
copy_sources() {
  mkdir -p "$1"
  git ls-files -z | xargs -0 cp -P --parents -t "$1"
}

# as_ada NAME LOCALE FOLDER COMMAND…
as_ada() {
  # shellcheck disable=SC2016
  inside "$1" su -c 'umask 077; export LC_ALL="$1" HOME=/home/ada; cd "$2" && shift 2 && exec "$@"' -- ada ada "${@:2}"
}

# tell_cost NAME WHAT COMMAND…: minutes, and megabytes of the system that were not there before.
tell_cost() {
  local name=$1 what=$2 before
  before=$(du -sxm "$work/$name" | cut -f 1)
  SECONDS=0
  "${@:3}"
  echo "=== $what: $((SECONDS / 60)) min, $(($(du -sxm "$work/$name" | cut -f 1) - before)) MB," \
    "of them $(du -sxm "$work/$name/root/tavlox/build" | cut -f 1) MB in build ==="
}

try_root() {
  new_system root
  git clone -q . "$work/root/root/tavlox"
  tell_cost root "the first ./dev run" inside root /root/tavlox/dev run
  tell_cost root "./dev test behind it" inside root /root/tavlox/dev test
}

try_user() {
  local home="$work/user/home/ada" odd="my runs/Größe 試 (1)"
  new_system user
  add_user user sudo
  inside user env DEBIAN_FRONTEND=noninteractive apt-get install -yq --no-install-recommends locales
  inside user localedef -i de_DE -f UTF-8 de_DE.UTF-8
  copy_sources "$home/tavlox"
  inside user chown -R ada:ada /home/ada
  as_ada user C /home/ada/tavlox ./dev run
  as_ada user C /home/ada mkdir "my runs"
  as_ada user C /home/ada mv tavlox "$odd"
  as_ada user de_DE.UTF-8 "/home/ada/$odd" ./dev run
  as_ada user de_DE.UTF-8 "/home/ada/$odd" ./dev test
  as_ada user de_DE.UTF-8 "/home/ada/$odd" ./dev install
  inside user su -s /bin/bash nobody -c '/usr/local/bin/tavlox --version && python3 -c "import tavlox.io" && test -r /usr/local/share/man/man1/tavlox.1'
  as_ada user de_DE.UTF-8 "/home/ada/$odd" ./dev uninstall
  inside user test -d /usr/local/bin -a ! -e /usr/local/share/tavlox
  inside user bash -c "$nothing_left"
}

try_packages() {
  new_system packages
  add_user packages
  ./dev package "$work/packages/srv"
  cp examples/rc_filter/*.csv "$work/packages/home/ada"
  inside packages apt-get update -q
  inside packages bash -c 'DEBIAN_FRONTEND=noninteractive apt-get install -yq --no-install-recommends /srv/*.deb'
  inside packages chown -R ada:ada /home/ada
  as_ada packages C /home/ada tavlox record s.tavlox nominal.csv hot.csv
  as_ada packages C /home/ada tavlox info s.tavlox | grep -P '^NumRuns\t2$'
  if [ -d "$work/packages/usr/lib/python3/dist-packages/tavlox" ]; then
    as_ada packages C /home/ada python3 -c 'import tavlox.io; assert tavlox.io.File("s.tavlox").NumRuns == 2'
  fi
  inside packages bash -c 'dpkg --purge $(for package in /srv/*.deb; do dpkg-deb -f "$package" Package; done)'
  inside packages bash -c "$nothing_left"
}

[ $# -gt 0 ] || set -- root user packages
for name in "$@"; do
  echo "=== $name ==="
  "try_$name"
  rm -rf "${work:?}/$name"
done
echo "passed: $*"
