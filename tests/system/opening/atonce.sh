#!/bin/sh
# Runs each test of a GoogleTest program in a process of its own, all at the same time: atonce.sh PROGRAM FILTER
set -eu
program=$1
filter=$2
output=$(mktemp -d)
trap 'rm -rf "$output"' EXIT
tests=$("$program" --gtest_filter="$filter" --gtest_list_tests |
  awk '/^[^ ].*\.$/ { suite = $1 } /^  / { print suite $1 }')
[ -n "$tests" ] || { echo "no test fits $filter"; exit 1; }
for test in $tests; do
  { "$program" --gtest_filter="$test" >"$output/log.$$.${test##*/}" 2>&1 || touch "$output/failed"; } &
done
wait
cat "$output"/log.*
[ ! -e "$output/failed" ]
