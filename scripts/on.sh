#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# on.sh SUITE COMMAND [ARGUMENT...]: ./run COMMAND --on SUITE, on another Debian. The system comes through this machine's
# own apt sources and stays in the user's cache. The checkout is copied to build-SUITE-COMMAND/, without .git, and the
# command works there, without any network.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
. scripts/common.sh
. scripts/debian_root.sh

# inside ROOT COPY COMMAND...: in namespaces of its own, makes ROOT the root, with the copy in it, and runs the command.
inside() {
    local root=$1 copy=$2
    shift 2
    mkdir -p "$root/checkout"
    mount --bind "$root" "$root"
    mount -t proc proc "$root/proc"
    mount -t sysfs sysfs "$root/sys"
    mount --rbind /dev "$root/dev"
    mount -t tmpfs tmpfs "$root/dev/shm"
    mount -t tmpfs tmpfs "$root/tmp"
    mount --bind "$copy" "$root/checkout"
    cd "$root"
    # Not chroot, in which nobody could make a user namespace.
    pivot_root . mnt
    cd /checkout
    umount -l /mnt
    ip link set lo up
    env -i NQ_INSIDE=1 PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root TERM="${TERM:-dumb}" ${CI:+CI="$CI"} ./run "$@"
}

if [ "${1:-}" = --inside ]; then
    shift
    inside "$@"
    exit
fi
become_root "$@"
suite=$1 command=$2
shift 2
need_disk
need_namespaces
case $command in
demo) packages=$build_packages ;;
test) packages="$build_packages $test_packages" ;;
examples) packages="$build_packages $test_packages $example_packages" ;;
docs) packages="iproute2 $docs_packages $browser_packages" ;;
package) packages="$build_packages $package_packages" ;;
esac
root=${XDG_CACHE_HOME:-$HOME/.cache}/nq-gev-rdma-tl/$suite-$command
# shellcheck disable=SC2086
make_root "$suite" "$root" $packages
copy=$PWD/build-$suite-$command
mkdir -p "$copy"
find "$copy" -mindepth 1 -maxdepth 1 ! -name 'build*' -exec rm -rf {} +
if [ "$command" = package ]; then
    # What is packaged is the source that is handed out.
    scripts/source.sh out/package
    tar -x --strip-components=1 -C "$copy" -f out/package/nq-gev-rdma-tl-*.tar.xz
else
    tar -c --exclude=./.git --exclude='./build*' --exclude=./out --exclude=./.run.lock . | tar -x -C "$copy"
fi
status=0
# All mounts go with the namespaces, however the command ends.
setpriv --pdeathsig KILL unshare --net --mount --pid --fork --kill-child \
    "$0" --inside "$root" "$copy" "$command" "$@" || status=$?
if [ "$command" = package ] && [ $status = 0 ]; then
    rm -rf "out/package/$suite"
    cp -r "$copy/out/package" "out/package/$suite"
    # Inside it was packed anew, without git: the same files in other bytes.
    cp out/package/nq-gev-rdma-tl-*.tar.xz "out/package/$suite/"
    scripts/package_check.sh "$suite" "out/package/$suite"
fi
echo "what Debian $suite calls /checkout is $copy"
exit $status
