#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# kernel.sh FOLDER: unpacks Debian's kernel package, without installing it, into FOLDER/vmlinuz and FOLDER/initrd.gz. The
# initial ramdisk holds busybox, the few modules that a Soft-RoCE guest needs, and guest_init.
set -euo pipefail
here=$(dirname "$(readlink -f "$0")")
folder=$(realpath -m "$1")
# rdma_rxe looks crc32_generic up by name when a link is added, so that no dependency tells of it.
wanted="crc32_generic virtio_pci 9p 9pnet_virtio overlay virtio_net rdma_rxe rdma_ucm ib_uverbs"

newest() { apt-cache depends linux-image-amd64 2>/dev/null | awk '/Depends: linux-image/ { print $2; exit }'; }
package=$(newest)
[ -n "$package" ] || { apt-get -q update && package=$(newest); }
[ -n "$package" ] || { echo "apt knows no package linux-image-amd64" >&2; exit 1; }
[ "$(cat "$folder/package" 2>/dev/null)" != "$package" ] || [ "$folder/initrd.gz" -ot "$here/guest_init" ] || exit 0

rm -rf "$folder"
mkdir -p "$folder/kernel" "$folder/root"/{bin,proc,sys,dev,ro,rw,new,modules}
cd "$folder"
apt-get -q download "$package"
dpkg -x "$package"_*.deb kernel
release=$(ls kernel/lib/modules)
depmod -b kernel "$release"
cp "kernel/boot/vmlinuz-$release" vmlinuz
for module in $wanted; do
    modprobe -d kernel -S "$release" --show-depends "$module"
done | awk '$1 == "insmod" && !seen[$2]++ { print $2 }' >modules
while read -r module; do
    cp "$module" root/modules/
    basename "$module"
done <modules >root/modules/list
cp /bin/busybox root/bin/
for command in sh mount insmod mkdir echo cat switch_root; do ln -s busybox "root/bin/$command"; done
install -m 755 "$here/guest_init" root/init
(cd root && find . | cpio -o -H newc --quiet | gzip -1) >initrd.gz
rm -rf kernel ./*.deb
echo "$package" >package
