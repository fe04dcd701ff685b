#!/usr/bin/python3
"""Checks a coil ensemble written by vorn-make-ensemble --coil, from the
coordinates of the PDB file alone.

  check_coil_ensemble.py counts FILE SEQUENCE MODELS
  check_coil_ensemble.py geometry FILE
  check_coil_ensemble.py clashes FILE SEQUENCE
  check_coil_ensemble.py basins FILE SEQUENCE TOLERANCE
  check_coil_ensemble.py proline FILE

Exits 1 with a message on the first failure. The expected values are written
here, not taken from the generator: residue atom counts of the protonation
documented in docs/coil.md, the Engh & Huber (1991) backbone geometry, the
hard-sphere contact limits and the coil basins of docs/coil.md.
"""
import gzip
import math
import sys

import numpy as np

# Atoms of a residue inside a chain (heavy, hydrogens): amide H on all but
# proline, Lys NH3+, Arg+, Asp- and Glu-, His with HD1 and HE2, Cys SH.
RESIDUE_ATOMS = {
    "A": (5, 5), "R": (11, 13), "N": (8, 6), "D": (8, 4), "C": (6, 5),
    "Q": (9, 8), "E": (9, 6), "G": (4, 3), "H": (10, 8), "I": (8, 11),
    "L": (8, 11), "K": (9, 13), "M": (8, 9), "F": (11, 9), "P": (7, 7),
    "S": (6, 5), "T": (7, 7), "W": (14, 10), "Y": (12, 9), "V": (7, 9),
}
RINGS = {"P": 1, "F": 1, "Y": 1, "H": 1, "W": 2}

# Engh & Huber (Acta Cryst. A47, 392-400, 1991).
BONDS = {("N", "CA"): 1.458, ("CA", "C"): 1.525, ("C", "O"): 1.231, ("CA", "CB"): 1.530}
PEPTIDE_BOND = 1.329
ANGLES = {("N", "CA", "C"): 111.2, ("CA", "C", "O"): 120.8, ("C", "CA", "CB"): 110.1}
ANGLE_CA_C_N = 116.2
ANGLE_C_N_CA = 121.7
ANGLE_N_CA_CB = 110.5
ANGLE_N_CA_CB_PROLINE = 103.0

# Closest allowed distances of heavy atoms more than three bonds apart.
LIMITS = {frozenset("C"): 3.0, frozenset("CN"): 2.8, frozenset("CO"): 2.7,
          frozenset("N"): 2.6, frozenset("NO"): 2.6, frozenset("O"): 2.6}

# Coil basins (weight, phi, psi, sd phi, sd psi) of each class, docs/coil.md.
BETA, PPII = (-120.0, 130.0, 20.0, 20.0), (-70.0, 145.0, 12.0, 15.0)
ALPHA_R, ALPHA_L = (-65.0, -40.0, 12.0, 15.0), (60.0, 40.0, 12.0, 15.0)
CLASSES = {
    "general": [(0.30,) + BETA, (0.30,) + PPII, (0.35,) + ALPHA_R, (0.05,) + ALPHA_L],
    "helix": [(0.25,) + BETA, (0.30,) + PPII, (0.42,) + ALPHA_R, (0.03,) + ALPHA_L],
    "branched": [(0.45,) + BETA, (0.25,) + PPII, (0.28,) + ALPHA_R, (0.02,) + ALPHA_L],
    "asx": [(0.25,) + BETA, (0.25,) + PPII, (0.38,) + ALPHA_R, (0.12,) + ALPHA_L],
    "preproline": [(0.40,) + BETA, (0.45,) + PPII, (0.12,) + ALPHA_R, (0.03,) + ALPHA_L],
    "proline": [(0.60, -65.0, 145.0, 8.0, 15.0), (0.40, -65.0, -35.0, 8.0, 15.0)],
    "glycine": [(0.26, 180.0, 180.0, 20.0, 20.0), (0.15, -75.0, 150.0, 15.0, 15.0),
                (0.15, 75.0, -150.0, 15.0, 15.0), (0.22, -65.0, -35.0, 12.0, 15.0),
                (0.22, 65.0, 35.0, 12.0, 15.0)],
}
# Regions of the map the basins are counted in: (phi range, psi range).
REGIONS = {
    "alphaL": [((0, 180), (-180, 180))],
    "alphaR": [((-180, 0), (-120, 50))],
    "beta": [((-180, -90), (50, 180)), ((-180, -90), (-180, -120))],
    "PPII": [((-90, 0), (50, 180)), ((-90, 0), (-180, -120))],
}


def fail(message):
    print("check_coil_ensemble: " + message)
    sys.exit(1)


def residue_class(code, following):
    if code == "G":
        return "glycine"
    if code == "P":
        return "proline"
    if following == "P":
        return "preproline"
    if code in "ALMEQKR":
        return "helix"
    if code in "VITFYW":
        return "branched"
    if code in "ND":
        return "asx"
    return "general"


def read_models(path):
    """Per model, a list of (name, residue number, element, xyz)."""
    opener = gzip.open if path.endswith(".gz") else open
    models, atoms = [], None
    with opener(path, "rt") as handle:
        for line in handle:
            if line.startswith("MODEL "):
                atoms = []
            elif line.startswith("ENDMDL"):
                models.append(atoms)
                atoms = None
            elif line.startswith("ATOM  "):
                atoms.append((line[12:16].strip(), int(line[22:26]), line[76:78].strip(),
                              np.array([float(line[30:38]), float(line[38:46]),
                                        float(line[46:54])])))
    return models


def backbone(model):
    """Per residue, a dict name -> xyz."""
    residues = {}
    for name, number, _, xyz in model:
        residues.setdefault(number, {})[name] = xyz
    return [residues[k] for k in sorted(residues)]


def angle(a, b, c):
    u, v = a - b, c - b
    return math.degrees(math.acos(np.dot(u, v) / (np.linalg.norm(u) * np.linalg.norm(v))))


def dihedral(a, b, c, d):
    b0, b1, b2 = a - b, c - b, d - c
    b1 = b1 / np.linalg.norm(b1)
    v, w = b0 - np.dot(b0, b1) * b1, b2 - np.dot(b2, b1) * b1
    return math.degrees(math.atan2(np.dot(np.cross(b1, v), w), np.dot(v, w)))


def check_counts(path, sequence, models_wanted):
    heavy = sum(RESIDUE_ATOMS[c][0] for c in sequence) + 1  # OXT
    hydrogens = sum(RESIDUE_ATOMS[c][1] for c in sequence) + 2  # NH3+ (NH2+ of Pro)
    models = read_models(path)
    if len(models) != models_wanted:
        fail(f"{len(models)} models, expected {models_wanted}")
    for k, model in enumerate(models):
        n_h = sum(1 for a in model if a[2] == "H")
        if len(model) - n_h != heavy or n_h != hydrogens:
            fail(f"model {k + 1}: {len(model) - n_h} heavy atoms and {n_h} hydrogens, "
                 f"expected {heavy} and {hydrogens}")
        numbers = sorted({a[1] for a in model})
        if numbers != list(range(1, len(sequence) + 1)):
            fail(f"model {k + 1}: residues are not numbered 1..{len(sequence)}")
        if sum(1 for a in model if a[0] == "OXT") != 1:
            fail(f"model {k + 1}: not one OXT")
        amide = sum(1 for a in model if a[0] == "H")
        expected_amide = sum(1 for c in sequence[1:] if c != "P")
        if amide != expected_amide:
            fail(f"model {k + 1}: {amide} amide H, expected {expected_amide}")
    print(f"{len(models)} models of {heavy} heavy atoms and {hydrogens} hydrogens")


def check_geometry(path):
    worst = {"bond": 0.0, "angle": 0.0, "omega": 0.0}
    for model in read_models(path):
        residues = backbone(model)
        for i, r in enumerate(residues):
            for (a, b), ideal in BONDS.items():
                if a in r and b in r:
                    worst["bond"] = max(worst["bond"], abs(np.linalg.norm(r[a] - r[b]) - ideal))
            for (a, b, c), ideal in ANGLES.items():
                if a in r and b in r and c in r:
                    worst["angle"] = max(worst["angle"], abs(angle(r[a], r[b], r[c]) - ideal))
            if "CB" in r:
                proline = "CD" in r and np.linalg.norm(r["CD"] - r["N"]) < 1.6
                ideal = ANGLE_N_CA_CB_PROLINE if proline else ANGLE_N_CA_CB
                worst["angle"] = max(worst["angle"], abs(angle(r["N"], r["CA"], r["CB"]) - ideal))
            if i + 1 < len(residues):
                s = residues[i + 1]
                worst["bond"] = max(worst["bond"],
                                    abs(np.linalg.norm(r["C"] - s["N"]) - PEPTIDE_BOND))
                worst["angle"] = max(worst["angle"],
                                     abs(angle(r["CA"], r["C"], s["N"]) - ANGLE_CA_C_N),
                                     abs(angle(r["C"], s["N"], s["CA"]) - ANGLE_C_N_CA))
                omega = dihedral(r["CA"], r["C"], s["N"], s["CA"])
                worst["omega"] = max(worst["omega"], 180.0 - abs(omega))
    # Coordinates rounded to 0.0005 A move a bond by up to 0.0009 A, an angle
    # by under 0.15 degree and a torsion by under 0.3 degree.
    if worst["bond"] > 0.002 or worst["angle"] > 0.15 or worst["omega"] > 0.3:
        fail(f"largest deviations from the ideal geometry: {worst}")
    print(f"largest deviations: {worst}")


def check_clashes(path, sequence):
    expected_bonds = sum(RESIDUE_ATOMS[c][0] for c in sequence) + sum(
        RINGS.get(c, 0) for c in sequence)  # a tree of heavy+1 atoms, plus ring closures
    closest = math.inf
    for k, model in enumerate(read_models(path)):
        heavy = [a for a in model if a[2] != "H"]
        xyz = np.array([a[3] for a in heavy])
        elements = [a[2] for a in heavy]
        d = np.linalg.norm(xyz[:, None, :] - xyz[None, :, :], axis=2)
        n = len(heavy)
        cutoff = np.array([[2.0 if "S" in (ea, eb) else 1.9 for eb in elements]
                           for ea in elements])
        bonded = (d < cutoff) & ~np.eye(n, dtype=bool)
        if bonded.sum() // 2 != expected_bonds:
            fail(f"model {k + 1}: {bonded.sum() // 2} bonds, expected {expected_bonds}")
        # Bond separations up to 3 by powers of the adjacency matrix.
        near = np.eye(n, dtype=bool)
        step = near.copy()
        for _ in range(3):
            step = (step.astype(int) @ bonded.astype(int)) > 0
            near |= step
        kind = ["C" if e in "CS" else e for e in elements]
        limit = np.array([[LIMITS[frozenset(a + b)] for b in kind] for a in kind])
        # Coordinates rounded to 0.0005 A shorten a distance by under 0.001 A.
        bad = (~near) & (d < limit - 0.001)
        if bad.any():
            i, j = np.argwhere(bad)[0]
            fail(f"model {k + 1}: {heavy[i][0]} {heavy[i][1]} and {heavy[j][0]} {heavy[j][1]} "
                 f"at {d[i, j]:.3f} A")
        closest = min(closest, float(np.min(np.where(near, np.inf, d - limit))))
    print(f"no clash; closest approach {closest:.3f} A above its limit")


def normal_cdf(x):
    return 0.5 * (1.0 + math.erf(x / math.sqrt(2.0)))


def wrapped_probability(centre, sd, low, high):
    """P(low <= wrap(centre + sd*z) < high) for a normal z, wrap into (-180, 180]."""
    total = 0.0
    for shift in (-360.0, 0.0, 360.0):
        total += normal_cdf((high + shift - centre) / sd) - normal_cdf((low + shift - centre) / sd)
    return total


def expected_regions(basins):
    result = {}
    for region, boxes in REGIONS.items():
        result[region] = sum(
            w * wrapped_probability(phi, sphi, *box[0]) * wrapped_probability(psi, spsi, *box[1])
            for (w, phi, psi, sphi, spsi) in basins for box in boxes)
    return result


def region_of(phi, psi):
    for region, boxes in REGIONS.items():
        for (p0, p1), (s0, s1) in boxes:
            if p0 <= phi < p1 and s0 <= psi < s1:
                return region
    return None


def check_basins(path, sequence, tolerance):
    counts, totals = {}, {}
    for model in read_models(path):
        residues = backbone(model)
        for i in range(1, len(residues) - 1):
            cls = residue_class(sequence[i], sequence[i + 1])
            phi = dihedral(residues[i - 1]["C"], residues[i]["N"], residues[i]["CA"],
                           residues[i]["C"])
            psi = dihedral(residues[i]["N"], residues[i]["CA"], residues[i]["C"],
                           residues[i + 1]["N"])
            region = region_of(phi, psi)
            counts.setdefault(cls, {}).setdefault(region, 0)
            counts[cls][region] += 1
            totals[cls] = totals.get(cls, 0) + 1
    failures = []
    for cls, total in sorted(totals.items()):
        expected = expected_regions(CLASSES[cls])
        for region, p in expected.items():
            observed = counts[cls].get(region, 0) / total
            sigma = math.sqrt(p * (1.0 - p) / total)
            print(f"{cls:10s} {region:6s} expected {p:.3f} observed {observed:.3f} "
                  f"(n {total}, sd {sigma:.3f})")
            if abs(observed - p) > tolerance + 4.0 * sigma:
                failures.append(f"{cls} {region}: observed {observed:.3f}, expected {p:.3f}")
    if failures:
        fail("; ".join(failures))
    print(f"every population within {tolerance} + 4 sd of the distribution")


def check_proline(path):
    phis = []
    for model in read_models(path):
        residues = backbone(model)
        for i in range(1, len(residues)):
            if "CD" in residues[i] and "CG" in residues[i] and "CB" in residues[i] \
                    and np.linalg.norm(residues[i]["CD"] - residues[i]["N"]) < 1.6:
                phis.append(dihedral(residues[i - 1]["C"], residues[i]["N"], residues[i]["CA"],
                                     residues[i]["C"]))
                if abs(np.linalg.norm(residues[i]["CD"] - residues[i]["N"]) - 1.473) > 0.002:
                    fail("a proline ring is not closed at 1.473 A")
    if not phis:
        fail("no proline")
    phis = np.array(phis)
    if np.any(np.abs(phis + 65.0) > 5.0 * 8.0) or abs(phis.mean() + 65.0) > 4.0 * 8.0 / math.sqrt(
            len(phis)) + 2.0:
        fail(f"proline phi: mean {phis.mean():.1f}, range {phis.min():.1f} to {phis.max():.1f}")
    print(f"{len(phis)} prolines, phi mean {phis.mean():.1f} sd {phis.std():.1f}")


def main(argv):
    if len(argv) < 3:
        fail(__doc__)
    command, path = argv[1], argv[2]
    if command == "counts":
        check_counts(path, argv[3], int(argv[4]))
    elif command == "geometry":
        check_geometry(path)
    elif command == "clashes":
        check_clashes(path, argv[3])
    elif command == "basins":
        check_basins(path, argv[3], float(argv[4]))
    elif command == "proline":
        check_proline(path)
    else:
        fail("unknown check " + command)


if __name__ == "__main__":
    main(sys.argv)
