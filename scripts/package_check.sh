#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# package_check.sh SUITE FOLDER: puts the packages of the folder into a Debian that has nothing else, streams with them, as a
# job of a CI does too, upgrades them, starts that Debian with systemd for the camera as a service, and takes them away again.
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
for i in $(seq 100); do ! grep -qs ^ready "$HOME/camera.log" || break; sleep 0.1; done
nq-gev info | grep /usr/lib/gentl/libnq_gev_rdma_tl.cti
nq-gev list
nq-gev --software-rdma grab --count 10 --verify
[ "$(nq-gev get Width)" = "Width = 640" ]
nq-gev-standard gentl-check --only "LB-*" /usr/lib/gentl/libnq_gev_rdma_tl.cti
nq-gev-standard printenv NQ_GEV_TL_STANDARD
kill $camera
wait $camera'

# shellcheck disable=SC2016
# What docs/testing.md says of a job in a CI, which is root in its container.
job='set -e
. /etc/profile.d/nq-gev-rdma-tl.sh
cd "$(mktemp -d)"
cp /usr/share/doc/nq-gev-camera/examples/with_camera.sh .
./with_camera.sh nq-gev grab --count 100 --verify'

# shellcheck disable=SC2016
# What runs as the only service of the other Debian beside those of systemd's own: the camera by its unit, its name after a
# restart, software RDMA with the lines of README.Debian, and the services at an upgrade and at a removal.
service='set -e
export GENICAM_GENTL64_PATH=/usr/lib/gentl HOME="$(mktemp -d)"
generator=/usr/lib/systemd/user-environment-generators/60-nq-gev-rdma-tl
[ "$(GENICAM_GENTL64_PATH=/opt/a $generator)" = "GENICAM_GENTL64_PATH=\"/opt/a:/usr/lib/gentl\"" ]
[ "$(GENICAM_GENTL64_PATH= $generator)" = "GENICAM_GENTL64_PATH=\"/usr/lib/gentl\"" ]
unit=nq-gev-camera@host0.service
somebody() { setpriv --reuid=somebody --regid=somebody --clear-groups "$@"; }
process() { systemctl show --property MainPID --value $unit; }
listed() {
    for i in $(seq 100); do ! nq-gev list --timeout 200 | grep NQ-GEV-Camera || return 0; done
    systemctl status $unit
    return 1
}
systemctl start $unit
listed
nq-gev set DeviceUserID=kept
systemctl restart $unit
listed
nq-gev get DeviceUserID | grep -x "DeviceUserID = .kept."
useradd somebody
mkdir /etc/systemd/system/$unit.d
sed -n "/^  \[Service\]/,/^$/s/^  //p" /usr/share/doc/nq-gev-camera/README.Debian |
    sed s/NAME/somebody/ >/etc/systemd/system/$unit.d/override.conf
grep -x User=somebody /etc/systemd/system/$unit.d/override.conf
systemctl daemon-reload
systemctl restart $unit
listed
somebody nq-gev --software-rdma grab --wait 10 --count 10 --verify
systemctl enable $unit
before=$(process)
dpkg --install /later/nq-gev-camera_*.deb
listed
[ "$(process)" != "$before" ]
dpkg --remove nq-gev-camera
! systemctl --quiet is-active $unit
rm -r /etc/systemd/system/$unit.d
ls /etc/systemd/system/multi-user.target.wants/$unit /var/lib/nq-gev-camera/host0.json'

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

# serves: systemd as the first process of the other Debian, in namespaces of its own in which it can change nothing of this
# machine. It ends with the exit code of the service above.
serves() {
    local groups status=0
    groups=$(findmnt -n -t cgroup2 -o TARGET | head -n 1)
    if ! { [ -n "$groups" ] && mkdir "$groups/nq-package-$$"; } 2>>"$log"; then
        echo "the systemd unit is not tried: no right to make a control group here"
        return
    fi
    echo "as a service"
    apt install systemd iproute2
    printf '%s\n' "$service" >"$root/service.sh"
    printf '%s\n' '[Unit]' SuccessAction=exit FailureAction=exit '[Service]' Type=oneshot \
        'StandardOutput=append:/service.txt' 'StandardError=append:/service.txt' 'ExecStart=/bin/sh -x /service.sh' \
        >"$root/etc/systemd/system/package-check.service"
    : >"$root/service.txt"
    # shellcheck disable=SC2016
    timeout -k 10 300 sh -c 'echo $$ >"$2/cgroup.procs"
        exec unshare --net --mount --pid --ipc --uts --cgroup --fork --kill-child sh -c "$3" - "$1"' - \
        "$root" "$groups/nq-package-$$" 'set -e
        ip link set lo up
        ip link add host0 type veth peer name far0
        ip addr add 10.77.0.1/24 brd + dev host0
        ip link set host0 up
        ip link set far0 up
        mount --rbind "$1" "$1"
        mount --make-rprivate "$1"
        cd "$1"
        mount -t proc proc proc
        mount --bind proc/sys proc/sys
        mount -o remount,bind,ro proc/sys
        mount -t sysfs -o ro sysfs sys
        mount -t cgroup2 cgroup2 sys/fs/cgroup
        mount -t tmpfs tmpfs dev
        for device in null zero full random urandom; do
            touch dev/$device
            mount --bind /dev/$device dev/$device
        done
        ln -s /proc/self/fd dev/fd
        mkdir dev/shm
        for folder in run tmp dev/shm; do mount -t tmpfs -o mode=1777 tmpfs $folder; done
        chmod 755 run
        pivot_root . mnt
        umount -l mnt
        exec env -i container=nq PATH=/usr/sbin:/usr/bin:/sbin:/bin \
            /lib/systemd/systemd --unit=package-check.service --show-status=no --log-target=null' >>"$log" 2>&1 || status=$?
    cat "$root/service.txt" >>"$log"
    find "$groups/nq-package-$$" -depth -type d -exec rmdir {} + 2>>"$log" || true
    rm "$root/service.sh" "$root/service.txt" "$root/etc/systemd/system/package-check.service"
    [ $status = 0 ] || {
        tail -n 40 "$log" >&2
        fail "the service does not work; see $log"
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
    echo "as a job in a CI"
    apt install iproute2
    chroot $root env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/tmp sh -c "$job" >>"$log" 2>&1 || {
        tail -n 40 "$log" >&2
        fail "a test beside a camera does not work; see $log"
    }
    echo "upgrading"
    sed -i 's/^#\(export NQ_GEV\)/\1/' $root/etc/profile.d/nq-gev-rdma-tl.sh
    later
    mapfile -t names < <(find $root/later -name '*.deb' -printf '/later/%f\n')
    apt install "${names[@]}"
    # shellcheck disable=SC2016
    chroot $root dpkg-query -W -f '${Version}\n' nq-gev-rdma-tl | grep -q '+later$' || fail "the upgrade is not there"
    grep -q '^export NQ_GEV_TL_STANDARD=1' $root/etc/profile.d/nq-gev-rdma-tl.sh || fail "the upgrade took the user's own line away"
    streams
    serves
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
