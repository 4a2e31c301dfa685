#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# rules.sh ADDRESS FOLDER: runs the cases that hold for any RDMA device on the one at ADDRESS, both ends on this machine,
# each case in a process of its own. A line for each case that fails or does not apply, progress, and a sum.
export NQ_RDMA_TEST_ADDRESS=$1
passed=0 failed=0 skipped=0
for program in verbs connection synchronous completion signals; do
    suite=''
    while read -r line; do
        case "$line" in
        *.) suite=$line ;;
        *)
            name=$suite$line
            if text=$(timeout 200 "$2/loopback_${program}_test" --gtest_filter="$name" 2>&1 </dev/null); then
                if grep -q SKIPPED <<<"$text"; then
                    skipped=$((skipped + 1))
                    echo "skipped $name: $(grep -A 1 ': Skipped$' <<<"$text" | tail -n 1)"
                else
                    passed=$((passed + 1))
                fi
                printf '%s, %d so far\n' "$name" $((passed + failed + skipped))
            else
                echo "failed $name (exit code $?)"
                failed=$((failed + 1))
                echo "$text"
            fi
            ;;
        esac
    done < <("$2/loopback_${program}_test" --gtest_list_tests | grep -v '^Running' | sed 's/^ *//; s/ *#.*//')
done
echo "$passed passed, $failed failed, $skipped skipped"
[ $failed = 0 ] && [ $passed -gt 0 ]
