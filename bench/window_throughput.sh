#!/usr/bin/env bash
# Throughput of local alignment windows (`vorn predict --window 15`) over a
# generated 140-residue disordered chain (the sequence of human
# alpha-synuclein) beside plain steric prediction of a generated ubiquitin
# ensemble, default medium and selection, JSON output, 1 and 2 threads, in
# one run of this script: conformers per second, window predictions per
# second, and the ratio of windowed coil conformers to ubiquitin models per
# second at each thread count.
#
# usage: bench/window_throughput.sh [BUILD_DIR] [UBIQUITIN_MODELS] [COIL_MODELS]
#   BUILD_DIR defaults to build/release, the counts to 1000 and 100.
#   COIL_ENSEMBLE=FILE uses that ensemble of the chain instead of generating
#   one with vorn-make-ensemble --coil.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build/release}
n_ubq=${2:-1000}
n_coil=${3:-100}
window=15
sequence=MDVFKKGLSKAKEGVVAAAEKTKQGVAEAAGKTKEGVLYVGSKTKEGVVHGVATVAEKTKEQVTNVGGAVVTGVTAVAQKTVEGAGSIAAATGFVKKDQLGKNEEGAPQEGILEDMPVDPDNEAYEMPSEEGYQDYEPEA
vorn=$build/vorn
generator=$build/tools/vorn-make-ensemble
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$generator" --models "$n_ubq" --seed 1 "$work/ubiquitin.pdb"
if [ -n "${COIL_ENSEMBLE:-}" ]; then
  coil=$COIL_ENSEMBLE
else
  coil=$work/coil.pdb
  "$generator" --coil "$sequence" --models "$n_coil" --seed 1 "$coil"
fi
# The conformers actually in the coil file, and the residues of its chain.
n_coil=$(grep -c '^ENDMDL' "$coil" || true)
[ "$n_coil" -gt 0 ] || n_coil=1
residues=${#sequence}

seconds_of() {  # command... -> wall seconds
  local start
  start=$(date +%s.%N)
  "$@"
  awk -v a="$start" -v b="$(date +%s.%N)" 'BEGIN { printf "%.3f", b - a }'
}
rate() {  # count seconds -> per second
  awk -v n="$1" -v s="$2" 'BEGIN { printf "%.1f", (s > 0 ? n / s : 0) }'
}
printf "%-24s %8s %8s %10s %12s %12s\n" run models threads seconds conformers/s windows/s
for threads in 1 2; do
  s_ubq=$(seconds_of "$vorn" predict --threads "$threads" --format json -o "$work/ubq.json" -q \
    "$work/ubiquitin.pdb")
  r_ubq=$(rate "$n_ubq" "$s_ubq")
  printf "%-24s %8d %8d %10.2f %12s %12s\n" "ubiquitin plain" "$n_ubq" "$threads" "$s_ubq" \
    "$r_ubq" -
  s_coil=$(seconds_of "$vorn" predict --window "$window" --threads "$threads" --format json \
    -o "$work/coil.json" -q "$coil")
  r_coil=$(rate "$n_coil" "$s_coil")
  r_windows=$(rate "$((n_coil * residues))" "$s_coil")
  printf "%-24s %8d %8d %10.2f %12s %12s\n" "coil --window $window" "$n_coil" "$threads" \
    "$s_coil" "$r_coil" "$r_windows"
  awk -v c="$r_coil" -v u="$r_ubq" -v t="$threads" \
    'BEGIN { printf "ratio windowed coil / plain ubiquitin at %d threads: %.4f (1/%.1f; target 1/20)\n",
             t, (u > 0 ? c / u : 0), (c > 0 ? u / c : 0) }'
done
