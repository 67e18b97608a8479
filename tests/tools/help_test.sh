#!/usr/bin/env bash
# Every subcommand has help with an example; usage errors exit 2, the overview lists them all.
source "$(dirname "$0")/lib.sh" "$1"

commands=(enc dec dgst sign verify export import wrap unwrap container genkey rand algs errstr)
for c in "${commands[@]}"; do
  for flag in -h --help; do
    expect_status "quiv $c $flag" 0 quiv "$c" "$flag"
    grep -q "^usage: quiv $c" .out && pass "$c $flag: usage line" || fail "$c $flag: no usage line"
    grep -q "^example" .out && pass "$c $flag: an example" || fail "$c $flag: no example"
  done
  grep -q "^  $c " <(quiv help) && pass "the overview lists $c" || fail "the overview misses $c"
  expect_status "quiv $c with an unknown option" 2 quiv "$c" -no-such-option
  grep -q "Try 'quiv $c -h'" .err && pass "$c: the usage error points at the help" || fail "$c: no hint"
done
expect_eq "help COMMAND is COMMAND -h" "$(quiv enc -h)" "$(quiv help enc)"
expect_status "quiv alone is a usage error" 2 quiv
expect_status "an unknown command" 2 quiv frobnicate
expect_status "a missing option value" 2 quiv enc -pass
expect_status "an option given twice" 2 quiv enc -pass pass:a -pass pass:b
finish
