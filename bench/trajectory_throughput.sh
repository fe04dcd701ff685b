#!/usr/bin/env bash
# Throughput of `vorn predict TOPOLOGY TRAJECTORY` on a generated ubiquitin
# ensemble written as DCD and XTC (MDAnalysis, at bench time) beside the same
# models read from the PDB file: frames per second with default settings and
# JSON output, for the atom selections all (the whole molecule), surface and
# heavy, 1 and 2 threads, and the ratio of each trajectory's rate to the PDB
# file's. All figures come from this one run of the script on this machine.
#
# usage: bench/trajectory_throughput.sh [BUILD_DIR] [FRAMES]
#   BUILD_DIR defaults to build/release, FRAMES to 1000.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build/release}
n=${2:-1000}
vorn=$build/vorn
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$build/tools/vorn-make-ensemble" --models "$n" --seed 1 "$work/ensemble.pdb"
# The models as trajectories, in the PDB file's atom order.
/usr/bin/python3 - "$work" 2> /dev/null <<'PY'
import sys
import MDAnalysis as mda
work = sys.argv[1]
u = mda.Universe(work + "/ensemble.pdb")
for extension in (".dcd", ".xtc"):
    with mda.Writer(work + "/ensemble" + extension, u.atoms.n_atoms) as w:
        for _ in u.trajectory:
            w.write(u.atoms)
PY

printf "%8s %8s %8s %8s %10s %10s %10s\n" frames source select threads seconds frames/s vs_pdb
for select in all surface heavy; do
  for threads in 1 2; do
    pdb_rate=0
    for source in pdb dcd xtc; do
      args=("$work/ensemble.pdb")
      [ "$source" = pdb ] || args+=("$work/ensemble.$source")
      start=$(date +%s.%N)
      "$vorn" predict --select "$select" --threads "$threads" --format json \
        -o "$work/out_$source.json" -q "${args[@]}"
      seconds=$(awk -v a="$start" -v b="$(date +%s.%N)" 'BEGIN { printf "%.2f", b - a }')
      rate=$(awk -v n="$n" -v s="$seconds" 'BEGIN { printf "%.1f", (s > 0 ? n / s : 0) }')
      [ "$source" = pdb ] && pdb_rate=$rate
      ratio=$(awk -v r="$rate" -v p="$pdb_rate" 'BEGIN { printf "%.3f", (p > 0 ? r / p : 0) }')
      printf "%8d %8s %8s %8d %10.2f %10s %10s\n" "$n" "$source" "$select" "$threads" \
        "$seconds" "$rate" "$ratio"
    done
  done
done
