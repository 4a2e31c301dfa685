#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# ./run package [--on SUITE]: Debian packages of what is committed, in out/package/ (out/package/SUITE/ with --on), built
# without a network out of the source that is handed out, which lies beside them. lintian has nothing to say, and in a
# Debian of nothing else they are installed, stream from the virtual camera, are upgraded, removed and purged.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
. scripts/common.sh
become_root "$@"
[ $# = 0 ] || fail "what is $1?"
need_disk
need_namespaces
# shellcheck disable=SC2086
install $build_packages $package_packages
out=$PWD/out/package
rm -rf "$out"
scripts/source.sh "$out"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
tar -x -C "$work" -f "$out"/nq-gev-rdma-tl-*.tar.xz
echo "building the packages without a network"
(cd "$work"/nq-gev-rdma-tl-*/ && unshare --net dpkg-buildpackage -us -uc -b) >"$out/build.log" 2>&1 || {
    tail -n 40 "$out/build.log" >&2
    fail "dpkg-buildpackage failed; see $out/build.log"
}
mv "$work"/*.deb "$work"/*.changes "$work"/*.buildinfo "$out"
echo "lintian"
lintian --allow-root --fail-on error,warning "$out"/*.changes || fail "lintian found something"
# Inside another Debian there is no network for a further one: on.sh goes on from there.
[ -n "${NQ_INSIDE:-}" ] || scripts/package_check.sh "$(. /etc/os-release && echo "$VERSION_CODENAME")" "$out"
ls "$out"/*.deb
