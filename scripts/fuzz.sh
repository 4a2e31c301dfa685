#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# ./run fuzz SECONDS [TARGET...]: feeds each target of tests/fuzz/ for that long, two at a time, starting from its corpus,
# and prints what came of it. Exit code 1 when something was found or a target did not run. The crash files, the logs and
# the inputs that reached something new stay in out/fuzz/.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
. scripts/common.sh
become_root "$@"
seconds=${1:-}
[[ $seconds =~ ^[1-9][0-9]*$ ]] || fail "usage: ./run fuzz SECONDS [TARGET...]"
shift
folder=build-fuzz
targets=("$@")
if [ ${#targets[@]} = 0 ]; then
    for source in tests/fuzz/*_fuzz.cpp; do
        targets+=("$(basename "$source" _fuzz.cpp)")
    done
fi
for target in "${targets[@]}"; do
    [ -f "tests/fuzz/${target}_fuzz.cpp" ] || fail "there is no target $target in tests/fuzz/"
done
need_disk
# shellcheck disable=SC2086
install $build_packages clang "libclang-rt-$(clang_version)-dev" lld
NQ_TARGETS=$(printf '%s_fuzz ' "${targets[@]}")
build "$folder" -DNQ_FUZZ=ON -DNQ_SANITIZE=address,undefined,fuzzer-no-link -DCMAKE_BUILD_TYPE=Debug \
    -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ "-DCMAKE_CXX_FLAGS_DEBUG=-g1 -O1" \
    "$(fast_linker)"
mkdir -p out/fuzz
rm -f out/fuzz/*.log out/fuzz/*.seconds out/fuzz/*-{crash,leak,timeout,oom}-*

# fuzz TARGET: one run, its output in out/fuzz/TARGET.log.
fuzz() {
    local started=$SECONDS
    mkdir -p "out/fuzz/$1"
    # The first folder takes what is new.
    "$folder/tests/fuzz/$1_fuzz" -max_total_time="$seconds" -max_len=4096 -timeout=20 -rss_limit_mb=4096 \
        -print_final_stats=1 -artifact_prefix="out/fuzz/$1-" "out/fuzz/$1" "tests/fuzz/corpus/$1" \
        >"out/fuzz/$1.log" 2>&1 || true
    echo $((SECONDS - started)) >"out/fuzz/$1.seconds"
}

echo "fuzzing ${#targets[@]} targets for $seconds s each, two at a time"
for target in "${targets[@]}"; do
    while [ "$(jobs -rp | wc -l)" -ge 2 ]; do
        if [ -t 1 ]; then
            printf '\r%d of %d targets done, %d s' "$(find out/fuzz -name '*.seconds' | wc -l)" "${#targets[@]}" "$SECONDS"
        fi
        sleep 1
    done
    [ -t 1 ] || echo "$target ..."
    fuzz "$target" &
done
wait
[ ! -t 1 ] || printf '\r\033[K'
python3 scripts/fuzz_table.py "${targets[@]}"
