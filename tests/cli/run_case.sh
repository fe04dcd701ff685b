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
#   expected.stderr_contains, expected.stdout_contains
#                    instead of expected.stderr / expected.stdout: lines that
#                    must each appear in that stream (for texts such as
#                    command-line library messages whose wording is not ours)
#   expected.files_absent
#                    names of files the run must not leave behind
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
# compare_stream <captured> <name>: exact, or line by line containment.
compare_stream() {
  local got=$1 name=$2
  if [ -f "$case_dir/expected.$name" ]; then
    if ! cmp -s "$got" "$case_dir/expected.$name"; then
      echo "$name differs:"
      diff -u "$case_dir/expected.$name" "$got" | head -n 60
      fail=1
    fi
  elif [ -f "$case_dir/expected.${name}_contains" ]; then
    while IFS= read -r want || [ -n "$want" ]; do
      [ -n "$want" ] || continue
      if ! grep -qF -- "$want" "$got"; then
        echo "$name lacks: $want"
        echo "--- $name was:"; head -n 30 "$got"
        fail=1
      fi
    done < "$case_dir/expected.${name}_contains"
  else
    echo "case has neither expected.$name nor expected.${name}_contains"
    fail=1
  fi
}
compare_stream "$scratch/.stdout" stdout
compare_stream "$scratch/.stderr" stderr
if [ -f "$case_dir/expected.files_absent" ]; then
  while read -r name; do
    [ -n "$name" ] || continue
    if [ -e "$scratch/$name" ]; then
      echo "file $name was left behind"
      fail=1
    fi
  done < "$case_dir/expected.files_absent"
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
