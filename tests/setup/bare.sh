#!/bin/bash
# Sets the project up as people do, each time on a Debian 12 that has nothing but its base system:
#
#   root      as root, in root's own folder
#   user      as a user with sudo and a umask of 077, in a folder with blanks and letters beyond ASCII in its name,
#             without .git, in the locale C; then once more after the folder was moved
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
    mount -t proc proc "$1/proc" && mount --bind /dev "$1/dev" && mount --bind "$2" "$1/var/cache/apt/archives"
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

# as_ada NAME FOLDER COMMAND…
as_ada() {
  # shellcheck disable=SC2016
  inside "$1" su ada -c 'umask 077; export LC_ALL=C HOME=/home/ada; cd "$1" && shift && exec "$@"' ada "${@:2}"
}

try_root() {
  new_system root
  git clone -q . "$work/root/root/tavlox"
  inside root /root/tavlox/dev run
  inside root /root/tavlox/dev test
}

try_user() {
  local home="$work/user/home/ada"
  new_system user
  add_user user sudo
  copy_sources "$home/my runs/Größe 試 (1)"
  inside user chown -R ada:ada /home/ada
  as_ada user "/home/ada/my runs/Größe 試 (1)" ./dev run
  as_ada user "/home/ada/my runs/Größe 試 (1)" ./dev test
  mv "$home/my runs/Größe 試 (1)" "$home/moved"
  as_ada user /home/ada/moved ./dev run
}

try_packages() {
  new_system packages
  add_user packages
  ./dev package "$work/packages/srv"
  cp examples/rc_filter/*.csv "$work/packages/home/ada"
  inside packages apt-get update -q
  inside packages bash -c 'DEBIAN_FRONTEND=noninteractive apt-get install -yq --no-install-recommends /srv/*.deb'
  inside packages chown -R ada:ada /home/ada
  as_ada packages /home/ada tavlox record s.tavlox nominal.csv hot.csv
  as_ada packages /home/ada tavlox info s.tavlox | grep -P '^NumRuns\t2$'
  if [ -d "$work/packages/usr/lib/python3/dist-packages/tavlox" ]; then
    as_ada packages /home/ada python3 -c 'import tavlox.io; assert tavlox.io.File("s.tavlox").NumRuns == 2'
  fi
  inside packages bash -c 'dpkg --purge $(for package in /srv/*.deb; do dpkg-deb -f "$package" Package; done)'
  inside packages bash -c '! find /usr -name "*tavlox*" -o -name "*corvan*" | grep .'
}

[ $# -gt 0 ] || set -- root user packages
for name in "$@"; do
  echo "=== $name ==="
  "try_$name"
  rm -rf "${work:?}/$name"
done
echo "passed: $*"
