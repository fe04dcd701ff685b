#!/usr/bin/env bash
# Times whole vorn runs with the fast simulation against the direct one
# (VORN_SIMULATION=direct), in one invocation, and checks that both print the
# same bytes.
#
# usage: tools/time_runs.sh [-b VORN] [-t "THREADS..."] [-r REPEATS] [CASE...]
#   -b  the vorn binary (default build/release/vorn)
#   -t  thread counts for the fast runs (default "1 2"; set through VORN_THREADS)
#   -r  runs per fast timing, the fastest counts (default 3); the direct
#       form runs once
#   CASE  any of: example all-wall all-phage all-combined surface-wall
#         surface-phage surface-combined (default: all of them; the
#         pentamer cases sample 36/72/72 orientations and their direct runs
#         take minutes)
#
# For each case and thread count it prints the wall time of the fast run,
# of the direct run, and their ratio. Exit status 1 if any pair of outputs
# differs.
set -u

root=$(cd "$(dirname "$0")/.." && pwd)
vorn=$root/build/release/vorn
threads="1 2"
repeats=3
while getopts "b:t:r:" opt; do
  case $opt in
    b) vorn=$OPTARG ;;
    t) threads=$OPTARG ;;
    r) repeats=$OPTARG ;;
    *) sed -n '2,20p' "$0"; exit 2 ;;
  esac
done
shift $((OPTIND - 1))
cases=("$@")
if [ ${#cases[@]} -eq 0 ]; then
  cases=(example all-wall all-phage all-combined surface-wall surface-phage surface-combined)
fi
if [ ! -x "$vorn" ]; then
  echo "no vorn binary at $vorn (build it first, or pass -b)" >&2
  exit 2
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

pentamer=$root/tests/data/structures/pln_1zll_pentamer_m1.pdb
fine="DIGIT_BETA: 36
DIGIT_ALPHA: 72
DIGIT_GAMMA: 72
PROTON_FLAG: 1"

# The arguments of a case, one per line, with its auto file written to $work.
case_args() {
  local name=$1 medium select
  case $name in
    example)
      printf '%s\n' "-A$root/examples/bicelle.auto" "-D$root/examples/ubq_2mjb_t500_bicelleA.dc" \
        "$root/examples/ubq_1d3z_m1.pdb"
      return 0 ;;
    all-*) select="SELECT_FLAG: 3" ;;
    surface-*) select="SELECT_FLAG: 0" ;;
    *) return 1 ;;
  esac
  case $name in
    *-wall) medium="ANISOTROPIC_MEDIUM: 1" ;;
    *-phage) medium="ANISOTROPIC_MEDIUM: 2" ;;
    *-combined) medium="ANISOTROPIC_MEDIUM: 1
BICELLE_PHAGE: 1" ;;
    *) return 1 ;;
  esac
  printf '%s\n%s\n%s\n' "$medium" "$fine" "$select" > "$work/$name.auto"
  printf '%s\n' "-A$work/$name.auto" "$pentamer"
}

now() { date +%s%N; }

# Seconds of one run; its standard output goes to $2.
timed_run() {
  local out=$1 start end
  shift
  start=$(now)
  "$@" > "$out" 2> /dev/null < /dev/null
  end=$(now)
  awk -v a="$start" -v b="$end" 'BEGIN { printf "%.4f", (b - a) / 1e9 }'
}

status=0
printf '%-18s %7s %10s %10s %9s  %s\n' case threads fast_s direct_s ratio output
for name in "${cases[@]}"; do
  if ! mapfile -t args < <(case_args "$name"); then
    echo "unknown case: $name" >&2
    status=1
    continue
  fi
  direct=$(VORN_SIMULATION=direct timed_run "$work/direct.out" "$vorn" "${args[@]}")
  for t in $threads; do
    best=
    for ((r = 0; r < repeats; r++)); do
      s=$(VORN_THREADS=$t timed_run "$work/fast.out" "$vorn" "${args[@]}")
      if [ -z "$best" ] || awk -v a="$s" -v b="$best" 'BEGIN { exit !(a < b) }'; then best=$s; fi
    done
    same=identical
    if ! cmp -s "$work/fast.out" "$work/direct.out"; then
      same=DIFFERENT
      status=1
    fi
    ratio=$(awk -v d="$direct" -v f="$best" 'BEGIN { printf "%.1f", (f > 0 ? d / f : 0) }')
    printf '%-18s %7s %10s %10s %9s  %s\n' "$name" "$t" "$best" "$direct" "$ratio" "$same"
  done
done
exit $status
