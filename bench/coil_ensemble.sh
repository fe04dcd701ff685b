#!/usr/bin/env bash
# Time of `vorn-make-ensemble --coil` for alpha-synuclein (140 residues):
# wall and user seconds and peak resident memory (GNU time) for 1000
# conformers written plain and gzip-compressed, then the ensemble's mean
# radius of gyration beside the Flory scaling of denatured chains
# (tools/coil_radius_of_gyration.py). All figures come from this one run.
#
# usage: bench/coil_ensemble.sh [BUILD_DIR] [MODELS]
#   BUILD_DIR defaults to build/release, MODELS to 1000.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build/release}
models=${2:-1000}
generator=$build/tools/vorn-make-ensemble
# Human alpha-synuclein (UniProt P37840).
sequence=MDVFKKGLSKAKEGVVAAAEKTKQGVAEAAGKTKEGVLYVGSKTKEGVVHGVATVAEKTKEQVTNVGGAVVTGVTAVAQKTVEGAGSIAAATGFVKKDQLGKNEEGAPQEGILEDMPVDPDNEAYEMPSEEGYQDYEPEA
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

printf "%8s %8s %10s %10s %10s %10s\n" models output wall_s user_s peak_MB size_MB
for output in coil.pdb coil.pdb.gz; do
  /usr/bin/time -f "%e %U %M" -o "$work/time" \
    "$generator" --coil "$sequence" --models "$models" --seed 1 "$work/$output"
  read -r wall user kb < "$work/time"
  size=$(stat -c %s "$work/$output")
  printf "%8d %8s %10.2f %10.2f %10.1f %10.1f\n" "$models" "${output#coil.}" "$wall" "$user" \
    "$(awk -v k="$kb" 'BEGIN { print k / 1024 }')" "$(awk -v b="$size" 'BEGIN { print b / 1048576 }')"
done
/usr/bin/python3 "$root/tools/coil_radius_of_gyration.py" "$work/coil.pdb.gz"
