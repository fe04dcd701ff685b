#!/usr/bin/env bash
# Wall time of single classic runs (`vorn -A<auto file> <pdb>`, the whole
# process) of one or more vorn binaries, measured alternately in one run of
# this script so that the ratios hold on a shared, noisy machine: each round
# runs every binary once, in turn forwards and backwards. The case is the
# pentamer with all atoms (protons kept, no surface step) sampled 36/72/72,
# on the wall and on the cylinder, with the default threads and with
# VORN_THREADS=1.
#
# usage: bench/classic_single_run.sh [-r ROUNDS] [-t "THREADS..."] VORN [VORN...]
#   -r  rounds (default 30)
#   -t  thread settings: "default" (VORN_THREADS unset) or counts
#       (default "default 1")
#
# For each case, thread setting and binary it prints the median time, the
# quartiles, and the median with quartiles of the per-round ratio to the
# first binary. Exit status 1 if two binaries print different bytes.
set -u
root=$(cd "$(dirname "$0")/.." && pwd)
rounds=30
thread_settings="default 1"
while getopts "r:t:" opt; do
  case $opt in
    r) rounds=$OPTARG ;;
    t) thread_settings=$OPTARG ;;
    *) sed -n '2,18p' "$0"; exit 2 ;;
  esac
done
shift $((OPTIND - 1))
binaries=("$@")
if [ ${#binaries[@]} -eq 0 ]; then
  sed -n '2,18p' "$0"
  exit 2
fi
for b in "${binaries[@]}"; do
  [ -x "$b" ] || { echo "not an executable: $b" >&2; exit 2; }
done

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp "$root/tests/data/structures/pln_1zll_pentamer_m1.pdb" "$work/pln.pdb"
fine="DIGIT_BETA: 36
DIGIT_ALPHA: 72
DIGIT_GAMMA: 72
SELECT_FLAG: 3
PROTON_FLAG: 1"
printf 'ANISOTROPIC_MEDIUM: 1\n%s\n' "$fine" > "$work/wall.auto"
printf 'ANISOTROPIC_MEDIUM: 2\n%s\n' "$fine" > "$work/cylinder.auto"

status=0
# The same bytes from every binary.
for c in wall cylinder; do
  for i in "${!binaries[@]}"; do
    (cd "$work" && "${binaries[$i]}" "-A$c.auto" pln.pdb > "out_$i" 2>&1)
    if [ "$i" -gt 0 ] && ! cmp -s "$work/out_0" "$work/out_$i"; then
      echo "$c: ${binaries[$i]} prints other bytes than ${binaries[0]}"
      status=1
    fi
  done
done

# median and quartiles of the numbers on standard input
quartiles() {
  sort -g | awk '{ v[NR] = $1 }
    END { printf "%s %s %s", v[int((NR + 3) / 4)], v[int((NR + 1) / 2)], v[int((3 * NR + 3) / 4)] }'
}

printf "%-9s %-8s %-40s %23s %23s\n" case threads binary "ms: q1 median q3" "ratio: q1 median q3"
for c in wall cylinder; do
  for t in $thread_settings; do
    for i in "${!binaries[@]}"; do : > "$work/times_$i"; done
    for ((r = 0; r < rounds; ++r)); do
      order=("${!binaries[@]}")
      if ((r % 2 == 1)); then
        order=()
        for ((i = ${#binaries[@]} - 1; i >= 0; --i)); do order+=("$i"); done
      fi
      for i in "${order[@]}"; do
        start=$EPOCHREALTIME
        if [ "$t" = default ]; then
          (cd "$work" && env -u VORN_THREADS "${binaries[$i]}" "-A$c.auto" pln.pdb > /dev/null 2>&1)
        else
          (cd "$work" && VORN_THREADS=$t "${binaries[$i]}" "-A$c.auto" pln.pdb > /dev/null 2>&1)
        fi
        end=$EPOCHREALTIME
        awk -v a="$start" -v b="$end" 'BEGIN { printf "%.3f\n", (b - a) * 1000 }' >> "$work/times_$i"
      done
    done
    for i in "${!binaries[@]}"; do
      name=${binaries[$i]}
      ((${#name} <= 40)) || name=...${name: -37}
      read -r q1 med q3 < <(quartiles < "$work/times_$i")
      read -r r1 rmed r3 < <(paste "$work/times_$i" "$work/times_0" |
        awk '{ printf "%.4f\n", $1 / $2 }' | quartiles)
      printf "%-9s %-8s %-40s %7.1f %7.1f %7.1f %7.3f %7.3f %7.3f\n" "$c" "$t" \
        "$name" "$q1" "$med" "$q3" "$r1" "$rmed" "$r3"
    done
  done
done
exit $status
