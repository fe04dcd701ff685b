#!/usr/bin/env bash
# Installs the Debian packages that VORN's front ends build on, beyond the
# preinstalled toolchain (g++, CMake, Ninja, GoogleTest, Google Benchmark).
# Runs apt-get directly as root, through sudo otherwise; packages already
# present are left as they are.
set -euo pipefail

packages=(
  gemmi-dev          # structure reading (PDB, mmCIF), header-only
  tao-pegtl-dev      # mmCIF parser used by gemmi
  zlib1g-dev         # gzipped input
  libstb-dev         # gemmi selections and writers
  libcli11-dev       # modern command line
  nlohmann-json3-dev # JSON output
  libfmt-dev         # formatting of the modern output
  libplplot-dev      # correlation plots (SVG/PDF/PNG by extension)
  plplot-driver-cairo # PLplot's cairo driver: the .pdf and .png correlation plots
  pkg-config         # finds PLplot (plplot.pc); only recommended by libplplot-dev
  libxml2-utils      # xmllint: the plot test checks the SVG
  python3-dev        # headers of the Debian interpreter for the Python module
  pybind11-dev       # the Python module vorn
  python3-numpy      # arrays of the Python module (and CMake's FindPython NumPy)
  python3-pytest     # the Python module's tests
  python3-mdanalysis # atom groups and trajectories as Python input: tests and examples/mdanalysis_predict.py (optional: skipped without it)
  libopenmpi-dev     # vorn-mpi: the models of a file across processes
  openmpi-bin        # mpirun, to run vorn-mpi and its tests
  libgromacs-dev     # XTC and TRR trajectories (gromacs/fileio/trxio.h)
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then sudo_cmd=(sudo); fi
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
