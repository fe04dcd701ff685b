#!/usr/bin/env bash
# Throughput of local alignment windows (`vorn predict --window 15`) over a
# generated 140-residue disordered chain (the sequence of human
# alpha-synuclein) beside plain steric prediction of a generated ubiquitin
# ensemble, default medium and selection, JSON output, 1 and 2 threads, in
# one run of this script: conformers per second, window predictions per
# second, and the ratio of windowed coil conformers to ubiquitin models per
# second at each thread count, by wall time and by CPU time.
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

# run NAME COUNT WINDOWS THREADS command...: one timed run, its row printed;
# sets the globals rate (per wall second) and cpu_rate (per CPU second, user
# + system: the figure that a machine shared with other work disturbs least).
run() {
  local name=$1 count=$2 windows=$3 threads=$4
  shift 4
  /usr/bin/time -f "%e %U %S" -o "$work/time" "$@"
  local wall user sys
  read -r wall user sys < "$work/time"
  local cpu
  cpu=$(awk -v u="$user" -v s="$sys" 'BEGIN { printf "%.2f", u + s }')
  rate=$(awk -v n="$count" -v s="$wall" 'BEGIN { printf "%.1f", (s > 0 ? n / s : 0) }')
  cpu_rate=$(awk -v n="$count" -v s="$cpu" 'BEGIN { printf "%.1f", (s > 0 ? n / s : 0) }')
  local window_rate=-
  [ "$windows" -gt 0 ] &&
    window_rate=$(awk -v n="$windows" -v s="$wall" 'BEGIN { printf "%.1f", (s > 0 ? n / s : 0) }')
  printf "%-22s %7d %7d %8.2f %8.2f %12s %12s %14s\n" "$name" "$count" "$threads" "$wall" "$cpu" \
    "$rate" "$window_rate" "$cpu_rate"
}
printf "%-22s %7s %7s %8s %8s %12s %12s %14s\n" run models threads wall_s cpu_s conformers/s \
  windows/s per_cpu_second
for threads in 1 2; do
  run "ubiquitin plain" "$n_ubq" 0 "$threads" "$vorn" predict --threads "$threads" --format json \
    -o "$work/ubq.json" -q "$work/ubiquitin.pdb"
  r_ubq=$rate c_ubq=$cpu_rate
  run "coil --window $window" "$n_coil" "$((n_coil * residues))" "$threads" "$vorn" predict \
    --window "$window" --threads "$threads" --format json -o "$work/coil.json" -q "$coil"
  r_coil=$rate c_coil=$cpu_rate
  awk -v c="$r_coil" -v u="$r_ubq" -v cc="$c_coil" -v cu="$c_ubq" -v t="$threads" \
    'BEGIN { printf "ratio windowed coil / plain ubiquitin at %d threads: %.4f (1/%.1f) by wall time, %.4f (1/%.1f) by CPU time; target 1/20\n",
             t, (u > 0 ? c / u : 0), (c > 0 ? u / c : 0), (cu > 0 ? cc / cu : 0), (cc > 0 ? cu / cc : 0) }'
done
