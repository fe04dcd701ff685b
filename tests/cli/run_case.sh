#!/usr/bin/env bash
# Runs one end-to-end case of the vorn binary.
#
# usage: run_case.sh VORN CASE_DIR REPO_ROOT
#
# A case folder holds:
#   args             the command-line arguments, one per line (optional)
#   stdin            what is typed at the prompts (optional; else empty input)
#   files            lines "<name> <path relative to the repository root>":
#                    inputs copied into the scratch directory under <name>
#   expected.stdout, expected.stderr, expected.status
#   anything else    copied into the scratch directory as it is
#   expected.files   lines "<name> <expected file in the case folder>": files
#                    the run must leave in the scratch directory (optional)
set -u
vorn=$1
case_dir=$2
root=$3

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

for f in "$case_dir"/*; do
  base=$(basename "$f")
  case "$base" in
    args|stdin|files|expected.*) ;;
    *) cp -r "$f" "$scratch/" ;;
  esac
done
if [ -f "$case_dir/files" ]; then
  while read -r name path; do
    [ -n "$name" ] || continue
    cp "$root/$path" "$scratch/$name"
  done < "$case_dir/files"
fi

args=()
if [ -f "$case_dir/args" ]; then
  while IFS= read -r line || [ -n "$line" ]; do
    args+=("$line")
  done < "$case_dir/args"
fi

input=/dev/null
[ -f "$case_dir/stdin" ] && input="$case_dir/stdin"

(cd "$scratch" && "$vorn" "${args[@]}" < "$input" > "$scratch/.stdout" 2> "$scratch/.stderr")
status=$?

fail=0
if ! cmp -s "$scratch/.stdout" "$case_dir/expected.stdout"; then
  echo "standard output differs:"
  diff -u "$case_dir/expected.stdout" "$scratch/.stdout" | head -n 60
  fail=1
fi
if ! cmp -s "$scratch/.stderr" "$case_dir/expected.stderr"; then
  echo "standard error differs:"
  diff -u "$case_dir/expected.stderr" "$scratch/.stderr" | head -n 60
  fail=1
fi
expected_status=$(tr -d '[:space:]' < "$case_dir/expected.status")
if [ "$status" != "$expected_status" ]; then
  echo "exit status $status, expected $expected_status"
  fail=1
fi
if [ -f "$case_dir/expected.files" ]; then
  while read -r name expected; do
    [ -n "$name" ] || continue
    if [ ! -f "$scratch/$name" ]; then
      echo "file $name was not created"
      fail=1
    elif ! cmp -s "$scratch/$name" "$case_dir/$expected"; then
      echo "file $name differs:"
      diff -u "$case_dir/$expected" "$scratch/$name" | head -n 30
      fail=1
    fi
  done < "$case_dir/expected.files"
fi
exit $fail
