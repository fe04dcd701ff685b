#!/usr/bin/env bash
# Throughput of `vorn predict` on generated ubiquitin ensembles: conformers
# per second with default settings and JSON output, for 10, 100, 1000 and
# 10 000 models, surface and heavy-atom selection, 1 and 2 threads, and the
# peak resident memory (GNU time) of each run. All figures come from this
# one run of the script on this machine.
#
# usage: bench/ensemble_throughput.sh [BUILD_DIR] [MODEL COUNTS...]
#   BUILD_DIR defaults to build/release; the counts to 10 100 1000 10000.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build/release}
shift || true
counts=("$@")
[ ${#counts[@]} -gt 0 ] || counts=(10 100 1000 10000)
vorn=$build/vorn
generator=$build/tools/vorn-make-ensemble
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

printf "%8s %8s %8s %10s %12s %10s\n" models select threads seconds conformers/s peak_MB
for n in "${counts[@]}"; do
  "$generator" --models "$n" --seed 1 "$work/ensemble_$n.pdb"
  for select in surface heavy; do
    for threads in 1 2; do
      /usr/bin/time -f "%e %M" -o "$work/time" "$vorn" predict --select "$select" \
        --threads "$threads" --format json -o "$work/out.json" -q "$work/ensemble_$n.pdb"
      read -r seconds kb < "$work/time"
      rate=$(awk -v n="$n" -v s="$seconds" 'BEGIN { printf "%.0f", (s > 0 ? n / s : 0) }')
      printf "%8d %8s %8d %10.2f %12s %10.1f\n" "$n" "$select" "$threads" "$seconds" "$rate" \
        "$(awk -v k="$kb" 'BEGIN { print k / 1024 }')"
    done
  done
  rm -f "$work/ensemble_$n.pdb"
done
