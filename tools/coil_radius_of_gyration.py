#!/usr/bin/python3
"""Mean radius of gyration of a multi-model PDB file (plain or .gz), beside
the Flory scaling law of chemically denatured proteins, Rg = 1.927 N^0.598 A
(Kohn et al., PNAS 101, 12491-12496, 2004), N the number of residues.

  coil_radius_of_gyration.py FILE

Rg of each model is taken over its heavy atoms with their masses (C 12.011,
N 14.007, O 15.999, S 32.06); the mean, the standard deviation over models
and the root mean square are printed.
"""
import gzip
import sys

import numpy as np

MASSES = {"C": 12.011, "N": 14.007, "O": 15.999, "S": 32.06}


def models(path):
    opener = gzip.open if path.endswith(".gz") else open
    xyz, mass, residues = [], [], set()
    with opener(path, "rt") as handle:
        for line in handle:
            if line.startswith("ATOM  ") and line[76:78].strip() in MASSES:
                xyz.append((float(line[30:38]), float(line[38:46]), float(line[46:54])))
                mass.append(MASSES[line[76:78].strip()])
                residues.add((line[21], line[22:27]))
            elif line.startswith("ENDMDL") and xyz:
                yield np.array(xyz), np.array(mass), len(residues)
                xyz, mass, residues = [], [], set()
    if xyz:
        yield np.array(xyz), np.array(mass), len(residues)


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    values, n = [], 0
    for xyz, mass, n in models(sys.argv[1]):
        centre = (mass[:, None] * xyz).sum(axis=0) / mass.sum()
        values.append(np.sqrt((mass * ((xyz - centre) ** 2).sum(axis=1)).sum() / mass.sum()))
    if not values:
        sys.exit("no models with heavy atoms in " + sys.argv[1])
    values = np.array(values)
    flory = 1.927 * n**0.598
    print(f"models {len(values)}, residues {n}")
    print(f"Rg mean {values.mean():.2f} A, sd {values.std():.2f} A, "
          f"rms {np.sqrt((values**2).mean()):.2f} A")
    print(f"Flory scaling 1.927 N^0.598 = {flory:.2f} A; mean / Flory = {values.mean() / flory:.3f}")


if __name__ == "__main__":
    main()
