# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2034
# Shared by the commands of ./run: packages, the build, private networks.

build_packages="g++ cmake ninja-build pkg-config iproute2 libibverbs-dev librdmacm-dev libcli11-dev nlohmann-json3-dev
    libpng-dev libtiff-dev libjpeg62-turbo-dev libcpp-httplib-dev libfmt-dev libzip-dev zlib1g-dev"
test_packages="libgtest-dev libgmock-dev python3 tshark aravis-tools aravis-tools-cli libaravis-dev libxml2-dev libxml2-utils tcpdump lld git
    python3-pil python3-tifffile python3-jsonschema ffmpeg scdoc zsh fish xz-utils"
# The browser that opens the HTML report of gentl-check is big: CI has it; elsewhere its case is skipped where it is absent.
browser_packages="chromium chromium-driver python3-selenium"
[ -z "${CI:-}" ] || test_packages="$test_packages $browser_packages"
# What the examples want beyond these: OpenCV's core, and the pipelines of GStreamer.
example_packages="libopencv-core-dev gstreamer1.0-tools gstreamer1.0-plugins-base gstreamer1.0-plugins-good"
docs_packages="python3 mkdocs mkdocs-material linkchecker doxygen"
package_packages="build-essential debhelper lintian scdoc libaravis-dev libglib2.0-dev xz-utils"
lint_packages="clang clang-format-16 clang-tidy shellcheck"
# What makes a Debian in a folder.
root_packages="mmdebstrap debian-archive-keyring"

# The exit code of a command for which this machine's mirror has no Debian.
unavailable=69

fail() {
    echo "run: $*" >&2
    exit "${code:-1}"
}

# missing_packages PACKAGE...: those that are not installed.
missing_packages() {
    local package
    for package in "$@"; do
        dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || echo "$package"
    done
}

# without_sudo ARGUMENT...: a user for whom all of $packages are installed is root enough in a user namespace; where there
# is none, $one_host_will_do lets the user go on as they are. Returns 1 where neither will do.
without_sudo() {
    # shellcheck disable=SC2086
    [ -n "${packages:-}" ] && [ -z "$(missing_packages $packages)" ] || return 1
    if unshare --map-root-user --net true 2>/dev/null; then
        [ -z "${sudo_first:-}" ] || echo "run: no sudo: root in a user namespace will do" >&2
        exec unshare --map-root-user "$0" "$@"
    fi
    [ -n "${one_host_will_do:-}" ]
}

# Says that there is no way to become root, and what makes one.
fail_without_root() {
    local missing='' why="there is no sudo"
    ! command -v sudo >/dev/null || why="sudo refuses"
    # shellcheck disable=SC2086
    [ -z "${packages:-}" ] || missing=$(missing_packages $packages | paste -s -d ' ')
    if [ -n "$missing" ]; then
        fail "this needs root (network namespaces, packages), and $why; no root is needed once root has done this:" \
            "apt-get install $missing"
    elif [ -n "${packages:-}" ]; then
        fail "this needs root (network namespaces), and $why; no root is needed once users may make namespaces" \
            "(\`unshare --map-root-user --net true\` fails)"
    fi
    fail "this needs root (network namespaces, packages), and $why"
}

# Becomes root, and keeps the arguments of the calling script and what chooses its build: without sudo where that will
# do, after it with $sudo_first. What root makes in the checkout of a user who called sudo is that user's afterwards.
# Then locks the checkout.
become_root() {
    if [ "$(id -u)" != 0 ]; then
        if [ -z "${sudo_first:-}" ] && without_sudo "$@"; then
            lock_checkout "$@"
            return
        fi
        # Whom it does not let, it tells so.
        if command -v sudo >/dev/null && sudo env true; then
            local name settings=()
            for name in CI NQ_BUILD NQ_BUILD_ARGUMENTS NQ_TEST_JOBS ASAN_OPTIONS LSAN_OPTIONS; do
                [ -z "${!name+set}" ] || settings+=("$name=${!name}")
            done
            # Not by sudo itself, which needs a right of its own for that (SETENV).
            exec sudo env "${settings[@]}" "$0" "$@"
        fi
        if [ -z "${sudo_first:-}" ] || ! without_sudo "$@"; then
            fail_without_root
        fi
        lock_checkout "$@"
        return
    fi
    if [ "${SUDO_UID:-0}" != 0 ] && [ "$(stat -c %u .)" = "$SUDO_UID" ] && [ -z "${NQ_FOR_CALLER:-}" ]; then
        NQ_FOR_CALLER=1 exec scripts/for_caller.sh "$0" "$@"
    fi
    lock_checkout "$@"
}

# Keeps other runs out of this checkout until this one and all that it started have ended: they would delete each other's
# builds and results. A script that a run calls is part of that run.
lock_checkout() {
    local lock
    [ "${NQ_LOCKED:-}" != "$PWD" ] || return 0
    exec {lock}<>.run.lock
    flock --nonblock "$lock" ||
        fail "another run is at work in this checkout: $(cat .run.lock); wait for its end, or take another checkout"
    echo "./run $(basename "$0" .sh)${*:+ $*} (process $$)" >.run.lock
    export NQ_LOCKED=$PWD
}

# install PACKAGE...: installs what is missing with apt-get.
install() {
    local missing
    command -v apt-get >/dev/null ||
        fail "there is no apt-get here; install by hand: $*"
    mapfile -t missing < <(missing_packages "$@")
    [ ${#missing[@]} = 0 ] && return
    echo "installing ${missing[*]}"
    export DEBIAN_FRONTEND=noninteractive
    mkdir -p out
    { apt-get -q update && apt-get -q install -y --no-install-recommends "${missing[@]}"; } >out/apt.log 2>&1 ||
        fail "apt-get could not install ${missing[*]}; see out/apt.log"
}

# The version of LLVM that this Debian's clang is, for packages that have it in their name.
clang_version() {
    # A fresh system knows no package before the first update.
    apt-cache show clang >/dev/null 2>&1 || apt-get -q update >/dev/null
    apt-cache depends clang | sed -n 's/.*Depends: clang-\([0-9]*\)$/\1/p'
}

# What looks for barriers in the page of nq-gev view; where npm is absent or reaches nothing, the case that uses it says so.
fetch_axe() {
    [ -f out/axe/node_modules/axe-core/axe.min.js ] || ! command -v npm >/dev/null ||
        npm install --prefix out/axe --no-audit --no-fund --ignore-scripts axe-core@4.10.3 >out/axe.log 2>&1 ||
        echo "npm could not fetch axe-core; see out/axe.log"
}

need_namespaces() {
    unshare --net true 2>/dev/null || fail "no right to make network namespaces here (unshare --net failed)"
}

need_disk() {
    local free
    free=$(df --output=avail -k . | tail -n 1)
    [ "$free" -gt 2000000 ] || fail "less than 2 GB of disk free in $(pwd)"
    mkdir -p out 2>/dev/null || fail "cannot write to $(pwd)"
}

# The linker for builds of many programs, as an argument of build. lld of Debian 13 is none: a program that it linked
# with g++ ends with an abort where an exception passes a clean-up (nq-gev did, at a camera without a description).
fast_linker() {
    case "$(ld.lld --version 2>/dev/null)" in
    *' LLD 1'[4-8].*) echo -DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=lld ;;
    *) echo -DCMAKE_EXE_LINKER_FLAGS= ;;
    esac
}

# build FOLDER [CMAKE ARGUMENT...]: configures and builds (only $NQ_TARGETS if set), and shows the log when that fails.
build() {
    local folder=$1 log targets=${NQ_TARGETS:-all}
    shift
    log=$folder/build.log
    mkdir -p "$folder"
    echo "building in $folder"
    # When the compiler changes, CMake forgets the other settings too.
    if [[ " $*" == *CXX_COMPILER=clang* ]] && ! grep -qs '^CMAKE_CXX_COMPILER:.*clang' "$folder/CMakeCache.txt"; then
        rm -rf "$folder/CMakeCache.txt" "$folder/CMakeFiles"
    fi
    # CI treats warnings as errors; on a user's compiler, older or newer than ours, they stay warnings. Nobody goes through
    # CI's programs in a debugger: the lines of a backtrace are enough, and without the rest g++ is a quarter faster.
    cmake -S . -B "$folder" -G Ninja -DNQ_WARNINGS_AS_ERRORS="${CI:+ON}" \
        ${CI:+"-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O2 -g1 -DNDEBUG"} "$@" >"$log" 2>&1 || {
        tail -n 40 "$log" >&2
        fail "cmake failed; see $log"
    }
    if [ -t 1 ]; then
        # shellcheck disable=SC2086
        ninja -C "$folder" $targets | tee -a "$log" || fail "the build failed; see $log"
    else
        # shellcheck disable=SC2086
        ninja -C "$folder" $targets >>"$log" 2>&1 || {
            grep -A 20 -E 'FAILED|error:' "$log" | tail -n 60 >&2
            fail "the build failed; see $log"
        }
    fi
}
