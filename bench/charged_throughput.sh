#!/usr/bin/env bash
# Throughput of `vorn predict --medium pf1` (charged cylinder, electrostatic
# weights) beside the steric predictions (the default bicelle wall and the
# uncharged phage cylinder) on the same generated ubiquitin ensemble, JSON
# output, default selection, 1 and 2 threads, in one run of this script:
# conformers per second and the ratios charged / steric at each thread count.
#
# usage: bench/charged_throughput.sh [BUILD_DIR] [MODELS]
#   BUILD_DIR defaults to build/release, MODELS to 1000.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build/release}
n=${2:-1000}
vorn=$build/vorn
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$build/tools/vorn-make-ensemble" --models "$n" --seed 1 "$work/ensemble.pdb"

rate() {  # seconds of one run -> conformers per second
  awk -v n="$n" -v s="$1" 'BEGIN { printf "%.0f", (s > 0 ? n / s : 0) }'
}
printf "%8s %10s %8s %10s %12s\n" models medium threads seconds conformers/s
for threads in 1 2; do
  declare -A rates=()
  for medium in bicelle phage pf1; do
    start=$(date +%s.%N)
    "$vorn" predict --medium "$medium" --threads "$threads" --format json -o "$work/out.json" \
      -q "$work/ensemble.pdb"
    seconds=$(awk -v a="$start" -v b="$(date +%s.%N)" 'BEGIN { printf "%.2f", b - a }')
    rates[$medium]=$(rate "$seconds")
    printf "%8d %10s %8d %10.2f %12s\n" "$n" "$medium" "$threads" "$seconds" "${rates[$medium]}"
  done
  awk -v c="${rates[pf1]}" -v b="${rates[bicelle]}" -v p="${rates[phage]}" -v t="$threads" \
    'BEGIN { printf "ratio pf1/bicelle at %d threads: %.3f, pf1/phage: %.3f\n", t,
             (b > 0 ? c / b : 0), (p > 0 ? c / p : 0) }'
done
