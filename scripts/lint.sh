#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# ./run lint: formatting, shell scripts, no fixed names in /tmp, names of the constants of tests, every file through both
# compilers with warnings as errors, clang-tidy on everything that is not a test (which gives the warnings of clang++ too).
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
. scripts/common.sh
become_root "$@"
llvm=$(clang_version)
# shellcheck disable=SC2086
install $build_packages $test_packages $lint_packages "libclang-$llvm-dev"
need_disk

echo "clang-format"
git ls-files '*.h' '*.cpp' '*.c' | xargs clang-format-16 --dry-run -Werror || fail "run clang-format-16 -i on the files above"
echo "shellcheck"
git ls-files run .ci/run tools/nq-gev-standard.in '*.sh' | xargs shellcheck -x
echo "names in /tmp"
scripts/check_tmp.sh || fail "use mktemp for the names above"
echo "names of the constants of tests"
python3 scripts/check_constants.py || fail "call the constants above kName"

# configure FOLDER CXX CC [ARGUMENT...]: gives compile_commands.json, without a build.
configure() {
    local folder=$1 cxx=$2 cc=$3
    shift 3
    cmake -S . -B "$folder" -G Ninja -DNQ_WARNINGS_AS_ERRORS=ON -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_COMPILER="$cxx" \
        -DCMAKE_C_COMPILER="$cc" -DCMAKE_UNITY_BUILD=OFF "$@" >"out/$folder.log" 2>&1 || fail "cmake failed; see out/$folder.log"
}
configure build-lint-clang clang++ clang
echo "warnings of the compilers"
# In CI g++ makes the ordinary build, and clang++ that of ./run asan, with warnings as errors. What only clang++ of an
# ordinary build sees is left for here. On its own, lint takes each file through both.
tidied=(src/ camera/ loopback/ tools/)
built=("${tidied[@]}")
if [ -n "${CI:-}" ]; then
    built+=(tests/ bench/)
else
    configure build-lint-gcc g++ gcc -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON
    python3 scripts/check_syntax.py build-lint-gcc || fail "g++ found something"
fi
ninja -C build-lint-clang test_headers tool_headers >out/headers.log 2>&1 || fail "clang++ found something; see out/headers.log"
python3 scripts/check_syntax.py build-lint-clang "${built[@]}" || fail "clang++ found something"

echo "clang-tidy"
clang++ -std=c++17 -O1 -fPIC -shared -fno-rtti -isystem "/usr/lib/llvm-$llvm/include" scripts/tidy/own_code.cpp \
    -o build-lint-clang/own_code.so || fail "clang++ cannot build the check own_code"
tidy=(clang-tidy -p build-lint-clang --quiet --warnings-as-errors='*'
    --load="$PWD/build-lint-clang/own_code.so" --checks=nq-own-code)
# In CI the analyzer leaves a function after 50000 states instead of 225000.
[ -z "${CI:-}" ] || tidy+=(--extra-arg={-Xclang,-analyzer-config,-Xclang,max-nodes=50000})
git ls-files "${tidied[@]/%/*.cpp}" | xargs -P "$(nproc)" -n 4 "${tidy[@]}" >out/clang-tidy.log 2>/dev/null || {
    grep -E '(warning|error):' out/clang-tidy.log | sort -u | head -n 60 >&2
    fail "clang-tidy found something; see out/clang-tidy.log"
}
echo "lint is clean"
