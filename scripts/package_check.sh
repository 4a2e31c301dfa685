#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# package_check.sh SUITE FOLDER: puts the packages of the folder into a Debian that has nothing else, streams with them,
# upgrades them, and takes them away again.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
. scripts/common.sh
. scripts/debian_root.sh

# shellcheck disable=SC2016
# What runs inside the other Debian, as `sh -c`, in a network of an address of its own. As a user, for nothing needs root.
stream='set -e
export HOME="$(mktemp -d)"
export NQ_RDMA_LOOPBACK_DIR="$HOME/rdma"
. /etc/profile.d/nq-gev-rdma-tl.sh
[ "$GENICAM_GENTL64_PATH" = /usr/lib/gentl ]
nq-gev-camera --software-rdma --interface host0 >"$HOME/camera.log" &
camera=$!
for i in $(seq 100); do ! grep -q ^ready "$HOME/camera.log" || break; sleep 0.1; done
nq-gev info | grep /usr/lib/gentl/libnq_gev_rdma_tl.cti
nq-gev list
nq-gev --software-rdma grab --count 10 --verify
[ "$(nq-gev get Width)" = "Width = 640" ]
nq-gev-standard gentl-check --only "LB-*" /usr/lib/gentl/libnq_gev_rdma_tl.cti
nq-gev-standard printenv NQ_GEV_TL_STANDARD
kill $camera
wait $camera'

# The same packages with a later version.
later() {
    local file tree
    mkdir -p "$root/later"
    for file in "$root"/debs/*.deb; do
        tree=$(mktemp -d)
        dpkg-deb -R "$file" "$tree"
        sed -i -E "s/^Version: .*/&+later/;s/\(= ([^)]*)\)/(= \1+later)/g" "$tree/DEBIAN/control"
        dpkg-deb --root-owner-group -Znone -b "$tree" "$root/later" >/dev/null
        rm -r "$tree"
    done
}

# apt ARGUMENT...: apt-get in the other Debian.
apt() {
    DEBIAN_FRONTEND=noninteractive chroot "$root" apt-get -q -y --no-install-recommends -o Dpkg::Use-Pty=0 "$@" >>"$log" 2>&1 || {
        tail -n 40 "$log" >&2
        fail "apt-get $* failed; see $log"
    }
}

# streams: camera and consumer in a network of their own, inside the other Debian.
streams() {
    # shellcheck disable=SC2016
    unshare --net sh -c 'ip link set lo up
        ip link add host0 type veth peer name far0
        ip addr add 10.77.0.1/24 brd + dev host0
        ip link set host0 up
        ip link set far0 up
        exec chroot --userspec=65534:65534 --groups= "$1" sh -c "$2"' - "$root" "$stream" >>"$log" 2>&1 || {
        tail -n 40 "$log" >&2
        fail "the packages do not work; see $log"
    }
}

# check: with a layer over the system that goes with these namespaces.
check() {
    mount -t tmpfs tmpfs /mnt
    mkdir /mnt/upper /mnt/work /mnt/root
    mount -t overlay overlay -o "lowerdir=$root,upperdir=/mnt/upper,workdir=/mnt/work" /mnt/root
    root=/mnt/root
    mount -t proc proc $root/proc
    mount -t sysfs sysfs $root/sys
    mount --rbind /dev $root/dev
    mount -t tmpfs tmpfs $root/tmp
    chmod 1777 $root/tmp
    cp /etc/resolv.conf $root/etc/resolv.conf
    apt-config dump Acquire | awk '/^Acquire::(https?|Check)/' >$root/etc/apt/apt.conf.d/01machine
    mkdir $root/debs
    find "$folder" -maxdepth 1 -name '*.deb' ! -name '*-dbgsym_*' -exec cp -t $root/debs {} +
    local names left
    mapfile -t names < <(find $root/debs -name '*.deb' -printf '/debs/%f\n')
    echo "installing in a clean Debian $suite"
    apt update
    apt install "${names[@]}"
    streams
    echo "upgrading"
    sed -i 's/^#\(export NQ_GEV\)/\1/' $root/etc/profile.d/nq-gev-rdma-tl.sh
    later
    mapfile -t names < <(find $root/later -name '*.deb' -printf '/later/%f\n')
    apt install "${names[@]}"
    # shellcheck disable=SC2016
    chroot $root dpkg-query -W -f '${Version}\n' nq-gev-rdma-tl | grep -q '+later$' || fail "the upgrade is not there"
    grep -q '^export NQ_GEV_TL_STANDARD=1' $root/etc/profile.d/nq-gev-rdma-tl.sh || fail "the upgrade took the user's own line away"
    streams
    echo "removing and purging"
    rm -r $root/debs $root/later
    apt remove nq-gev-rdma-tl nq-gev-tools nq-gev-camera nq-gev-dev
    left=$(find $root/usr -xdev -iname '*nq[-_]gev*' -o -name gentl -o -iname 'GenTL.h')
    [ -z "$left" ] || fail "this stays after remove: $left"
    chroot $root dpkg --purge nq-gev-rdma-tl nq-gev-tools nq-gev-camera nq-gev-dev >>"$log" 2>&1
    left=$(find $root -xdev \( -iname '*nq[-_]gev*' -o -iname '*gentl*' -o -iname '*nq_rdma*' \) ! -path '*/var/cache/apt/*')
    [ -z "$left" ] || fail "this stays after purge: $left"
    chroot $root dpkg --audit >>"$log"
    ! chroot $root dpkg-query -W | grep -q nq-gev || fail "dpkg still knows a package"
    echo "nothing is left of them"
}

if [ "${1:-}" = --inside ]; then
    suite=$2 root=$3 folder=$4 log=$5
    check
    exit
fi
become_root "$@"
suite=$1 folder=$(readlink -f "$2")
root=${XDG_CACHE_HOME:-$HOME/.cache}/nq-gev-rdma-tl/$suite-clean
make_root "$suite" "$root" ca-certificates
log=$folder/check.log
: >"$log"
setpriv --pdeathsig KILL unshare --mount --pid --fork --kill-child "$0" --inside "$suite" "$root" "$folder" "$log"
