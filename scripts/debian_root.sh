# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2154
# Systems to try things in, made with what this machine's own apt reaches. For scripts that have read common.sh.

# The mirror that this machine has its own Debian from.
own_mirror() {
    # shellcheck disable=SC1091,SC2016
    apt-get indextargets --format '$(REPO_URI) $(RELEASE) $(COMPONENT)' 'Created-By: Packages' |
        awk -v release="$(. /etc/os-release && echo "${VERSION_CODENAME:-}")" \
            '$2 == release && $3 == "main" { print $1; exit }'
}

# make_root SUITE FOLDER PACKAGE...: a Debian with these packages. One that is there and was made with them is kept.
make_root() {
    local suite=$1 root=$2 mirror settings
    shift 2
    [ "$(cat "$root/packages" 2>/dev/null)" != "$*" ] || return 0
    # shellcheck disable=SC2086
    install $root_packages
    mirror=$(own_mirror)
    [ -n "$mirror" ] ||
        code=$unavailable fail "no Debian $suite: the apt sources of this machine name no mirror of its own Debian"
    /usr/lib/apt/apt-helper download-file "${mirror%/}/dists/$suite/InRelease" out/InRelease >out/root.log 2>&1 ||
        code=$unavailable fail "no Debian $suite: $mirror has none; see out/root.log"
    echo "making a Debian $suite in $root from $mirror"
    mkdir -p "$(dirname "$root")"
    rm -rf --one-file-system "$root" "$root.new"
    settings=$(mktemp)
    apt-config dump Acquire | awk '/^Acquire::(https?|Check)/' >"$settings"
    # No file waits for the disk: what a crash of the machine spoils is made anew once its folder is deleted.
    mmdebstrap --mode=root --variant=minbase --components=main --aptopt="$settings" --dpkgopt=force-unsafe-io \
        --include="$(tr -s ' ' , <<<"$*")" \
        "$suite" "$root.new" "$mirror" >out/root.log 2>&1 || {
        rm -rf --one-file-system "$root.new" "$settings"
        fail "no Debian $suite: $mirror did not give it; see out/root.log"
    }
    rm "$settings"
    echo "$*" >"$root.new/packages"
    mv "$root.new" "$root"
}
