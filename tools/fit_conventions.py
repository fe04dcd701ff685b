#!/usr/bin/env python3
"""The fit conventions of `vorn fit` on a deposited X-PLOR restraint set.

    tools/fit_conventions.py VORN STRUCTURE RESTRAINTS [SET]

e.g. tools/fit_conventions.py build/release/vorn tests/data/structures/ubq_2mjb_m1.pdb
     tests/data/raw/2mjb_mr_rdc_section.mr 500

Runs `vorn fit --format json` for the couplings as VORN resolves them (atoms,
types, values with --fix-sign, error columns), then refits them here with
conventions that VORN does not offer as options: a C-H length of 1.117 A
beside the effective N-H one, methyl axes scaled by -1/3, one-sided
restraints as bounds (active set), other outlier rules; and compares each
side-chain coupling type with its prediction from the backbone tensor. The
design rows are computed here from the atoms (the structure in VORN's
white-space layout: ATOM serial name resname resnum x y z) and reproduce
VORN's own rows; the script checks that on VORN's defaults before anything
else. The figures are those of docs/fit-conventions.md. Standard library
only.
"""
import collections
import json
import math
import re
import subprocess
import sys

GAMMA = {"H": 26.7522128e7, "C": 6.728284e7, "N": -2.71261804e7}
DA_NH_SCALE = 21523.110491698444  # Da(NH) per unit of Aa, as vorn reports it
STANDARD = {"N-H": 1.02, "CA-HA": 1.09, "C-H": 1.09, "CA-C": 1.525, "C-N": 1.329,
            "C-HN": 2.04, "CA-CB": 1.53}
BACKBONE = ["N-H", "CA-HA", "CA-C", "C-N", "C-HN"]


def dmax(e1, e2, r):
    return -1e-7 * GAMMA[e1] * GAMMA[e2] * 1.054571817e-34 / (math.pi * (r * 1e-10) ** 3)


DMAX_NH = dmax("N", "H", 1.02)


def design(v, d):
    n = math.sqrt(sum(x * x for x in v))
    x, y, z = (c / n for c in v)
    return [d * (1.5 * z * z - 0.5), d * 0.5 * (x * x - y * y), d * 2 * x * y, d * 2 * x * z,
            d * 2 * y * z]


def least_squares(rows, values):
    """The five Saupe elements by the normal equations."""
    n = [[0.0] * 6 for _ in range(5)]
    for a, b in zip(rows, values):
        for i in range(5):
            for j in range(5):
                n[i][j] += a[i] * a[j]
            n[i][5] += a[i] * b
    for c in range(5):
        p = max(range(c, 5), key=lambda i: abs(n[i][c]))
        n[c], n[p] = n[p], n[c]
        for i in range(c + 1, 5):
            f = n[i][c] / n[c][c]
            for j in range(c, 6):
                n[i][j] -= f * n[c][j]
    s = [0.0] * 5
    for i in range(4, -1, -1):
        s[i] = (n[i][5] - sum(n[i][j] * s[j] for j in range(i + 1, 5))) / n[i][i]
    return s


def aa_and_rhombicity(s):
    m = [[-(s[0] - s[1]) / 2, s[2], s[3]], [s[2], -(s[0] + s[1]) / 2, s[4]], [s[3], s[4], s[0]]]
    p = math.sqrt((m[0][0] ** 2 + m[1][1] ** 2 + m[2][2] ** 2 +
                   2 * (m[0][1] ** 2 + m[0][2] ** 2 + m[1][2] ** 2)) / 6)
    det = (m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
           m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
           m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]))
    phi = math.acos(max(-1.0, min(1.0, det / (2 * p ** 3)))) / 3
    e = sorted((2 * p * math.cos(phi + k * 2 * math.pi / 3) for k in range(3)), key=lambda x: -abs(x))
    return e[0] / 2, 2 * (e[2] - e[1]) / (3 * e[0])


def quality(obs, calc, da, r):
    d2 = sum((o - c) ** 2 for o, c in zip(obs, calc))
    rmsd = math.sqrt(d2 / len(obs))
    return {"n": len(obs), "q": math.sqrt(d2 / sum(o * o for o in obs)),
            "q_da": rmsd / math.sqrt(2 * da * da * (4 + 3 * r * r) / 5)}


class Couplings:
    def __init__(self, vorn, structure, restraints, set_name):
        command = [vorn, "fit", "--format", "json", "--set", set_name, "--fix-sign",
                   "--methylene", "mean", "--one-sided", "keep", structure, restraints]
        self.couplings = json.loads(subprocess.run(command, check=True, capture_output=True,
                                                   text=True).stdout)["sets"][0]["couplings"]
        self.atoms = collections.defaultdict(dict)
        for line in open(structure):
            f = line.split()
            if f and f[0] == "ATOM":
                self.atoms[int(f[4])][f[2]] = tuple(map(float, f[5:8]))
        self.restraints = restraints

    def protons(self, residue, name):
        if not name.endswith("#"):
            return [name]
        p = name[:-1]
        return sorted(a for a in self.atoms[residue] if a.startswith(p) and a[len(p):].isdigit())

    def vector(self, r1, a1, r2, a2):
        return [self.atoms[r2][a2][k] - self.atoms[r1][a1][k] for k in range(3)]

    def rows(self, lengths=STANDARD, methylene="sum", methyl=1.0):
        """One row per coupling: design, value, type, constant of the statistics."""
        out = []
        for c in self.couplings:
            r1, a1, r2, a2, t = c["residue1"], c["atom1"], c["residue2"], c["atom2"], c["type"]
            if t == "methyl":
                d = dmax("C", "H", lengths["C-H"])
                row = [x * methyl for x in design(self.vector(r1, a1, r2, a2), d)]
            else:
                protons = self.protons(r2, a2)
                row = [0.0] * 5
                for p in protons:
                    d = dmax(a1[0], p[0], lengths.get(t, lengths["C-H"]))
                    row = [x + y for x, y in zip(row, design(self.vector(r1, a1, r2, p), d))]
                pairs = len(protons)
                if pairs == 2 and methylene == "sum":
                    d *= 2
                else:
                    row = [x / pairs for x in row]
            out.append({"design": row, "value": c["measured_hz"], "type": t, "dmax": d,
                        "one_sided": c["one_sided"], "line": c["line"],
                        "atoms": (r1, a1, r2, a2)})
        return out


def fit(rows):
    s = least_squares([r["design"] for r in rows], [r["value"] for r in rows])
    for r in rows:
        r["calc"] = sum(a * b for a, b in zip(r["design"], s))
    return s


def back_calculate(rows, s):
    for r in rows:
        r["calc"] = sum(a * b for a, b in zip(r["design"], s))


def outliers(rows, rule):
    """Indices of the rows beyond 3 sigma: of their type's rmsd ("type", as
    vorn), of the rmsd of all on the N-H scale ("all"), or whose squared
    residual on the N-H scale exceeds 2 % of the sum ("share")."""
    if rule == "type":
        sums = collections.defaultdict(lambda: [0.0, 0])
        for r in rows:
            sums[r["type"]][0] += (r["value"] - r["calc"]) ** 2
            sums[r["type"]][1] += 1
        return [i for i, r in enumerate(rows)
                if abs(r["value"] - r["calc"]) > 3 * math.sqrt(sums[r["type"]][0] / sums[r["type"]][1])]
    residuals = [(r["value"] - r["calc"]) * DMAX_NH / r["dmax"] for r in rows]
    if rule == "all":
        sigma = math.sqrt(sum(x * x for x in residuals) / len(residuals))
        return [i for i, x in enumerate(residuals) if abs(x) > 3 * sigma]
    total = sum(x * x for x in residuals)
    return [i for i, x in enumerate(residuals) if x * x > 0.02 * total]


def meets_bound(r):
    """A one-sided restraint bounds the magnitude from below, with its sign."""
    return r["calc"] * r["value"] > 0 and abs(r["calc"]) >= abs(r["value"])


def figures(rows, s):
    aa, rh = aa_and_rhombicity(s)
    scale = [DMAX_NH / r["dmax"] for r in rows]
    overall = quality([r["value"] * k for r, k in zip(rows, scale)],
                      [r["calc"] * k for r, k in zip(rows, scale)], DMAX_NH * aa, rh)
    nh = [r for r in rows if r["type"] == "N-H"]
    per_nh = quality([r["value"] for r in nh], [r["calc"] for r in nh], nh[0]["dmax"] * aa, rh)
    return overall, per_nh, DA_NH_SCALE * aa, rh


def run(couplings, one_sided="skip", outlier_rule="type", **conventions):
    rows = couplings.rows(**conventions)
    if one_sided == "skip":
        rows = [r for r in rows if not r["one_sided"]]
    if one_sided == "bound":  # a bound enters the fit while the fit violates it
        two_sided = [r for r in rows if not r["one_sided"]]
        bounds = [r for r in rows if r["one_sided"]]
        active = set()
        while True:
            rows = two_sided + [bounds[i] for i in sorted(active)]
            back_calculate(bounds, fit(rows))
            violated = active | {i for i, r in enumerate(bounds) if not meets_bound(r)}
            if violated == active:
                break
            active = violated
    s = fit(rows)
    if outlier_rule:
        out = set(outliers(rows, outlier_rule))
        rows = [r for i, r in enumerate(rows) if i not in out]
        s = fit(rows)
    return rows, s


def report(label, result):
    rows, s = result
    overall, nh, da, rh = figures(rows, s)
    print(f"| {label} | {overall['n']} | {100 * overall['q']:.1f} | {100 * overall['q_da']:.1f} | "
          f"{100 * nh['q']:.1f} | {100 * nh['q_da']:.1f} | {da:.2f} | {rh:.3f} |")


def slope(rows):
    return sum(r["value"] * r["calc"] for r in rows) / sum(r["calc"] ** 2 for r in rows)


def q_of(rows):
    return math.sqrt(sum((r["value"] - r["calc"]) ** 2 for r in rows) /
                     sum(r["value"] ** 2 for r in rows))


def main(vorn, structure, restraints, set_name="500"):
    c = Couplings(vorn, structure, restraints, set_name)

    # VORN's defaults, as a check of the rows computed here.
    done = subprocess.run([vorn, "fit", "--format", "json", "--set", set_name, "--fix-sign",
                           "--drop-outliers", structure, restraints], check=True,
                          capture_output=True, text=True)
    theirs = {x["line"]: x["calculated_hz"] for x in json.loads(done.stdout)["sets"][0]["couplings"]}
    rows, _ = run(c)
    worst = max(abs(r["calc"] - theirs[r["line"]]) for r in rows)
    assert len(rows) == len(theirs) and worst < 1e-9, f"rows differ from vorn's by {worst} Hz"

    effective = dict(STANDARD, **{"N-H": 1.041})
    effective_ch = dict(effective, **{"CA-HA": 1.117, "C-H": 1.117})
    print("| convention | n | Q % | Q(Da) % | N-H Q % | N-H Q(Da) % | Da(NH) Hz | R |")
    print("|---|---|---|---|---|---|---|---|")
    for name, before in (("before", {"methylene": "mean", "one_sided": "keep"}),
                         ("after", {"methylene": "sum", "one_sided": "skip"})):
        report(f"{name}", run(c, **before))
        report(f"{name}, N-H 1.041 A", run(c, **before, lengths=effective))
        report(f"{name}, N-H 1.041 A and C-H 1.117 A", run(c, **before, lengths=effective_ch))
        report(f"{name}, methyl axes x (-1/3)", run(c, **before, methyl=-1 / 3))
        bounds = dict(before, one_sided="bound")
        report(f"{name}, one-sided restraints as bounds", run(c, **bounds))
        for rule, text in ((None, "no outliers dropped"), ("all", "outliers: 3 sigma of all"),
                           ("share", "outliers: 2 % of the squared sum")):
            report(f"{name}, {text}", run(c, **before, outlier_rule=rule))

    # Each side-chain type against the tensor of the backbone couplings.
    backbone = [r for r in c.rows() if r["type"] in BACKBONE]
    s = fit(backbone)
    print("\n| type | methylene | two-sided n | slope | Q | one-sided n | slope | Q as values | "
          "bounds met |")
    print("|---|---|---|---|---|---|---|---|---|")
    for methylene in ("mean", "sum"):
        # The backbone types against their own tensor, once.
        rows = [r for r in c.rows(methylene=methylene)
                if methylene == "mean" or r["type"] not in BACKBONE]
        back_calculate(rows, s)
        for t in dict.fromkeys(r["type"] for r in rows):
            two = [r for r in rows if r["type"] == t and not r["one_sided"]]
            one = [r for r in rows if r["type"] == t and r["one_sided"]]
            print(f"| {t} | {methylene} | {len(two)} | "
                  f"{slope(two):.3f} | {q_of(two):.3f} | " if two else f"| {t} | {methylene} | 0 | | | ",
                  end="")
            print(f"{len(one)} | {slope(one):.3f} | {q_of(one):.3f} | "
                  f"{sum(map(meets_bound, one))}/{len(one)} |" if one else "0 | | | |")

    # The comments of the deposited file: val= is the mean of values=; are
    # two values the two protons of a methylene, or two measurements?
    predicted = {r["line"]: r for r in c.rows(methylene="mean")}
    back_calculate(predicted.values(), s)
    observed, expected = [], []
    lines = open(restraints).read().split("\n")
    assign = None
    for i, text in enumerate(lines):
        if text.lstrip().startswith("assign"):
            assign = i + 1
        m = re.match(r"!\s*\S+-ch2 val=\S+ values=(.*)", text.strip())
        if not m or i == 0 or not lines[i - 1].strip() or lines[i - 1].lstrip().startswith("!"):
            continue
        values = [float(x) for x in m.group(1).split()]
        line = assign
        r = predicted.get(line)
        if r is None or len(values) != 2 or r["type"] == "methyl":
            continue
        r1, a1, r2, a2 = r["atoms"]
        pair = [sum(a * b for a, b in zip(design(c.vector(r1, a1, r2, p), dmax("C", "H", 1.09)), s))
                for p in c.protons(r2, a2)]
        if len(pair) == 2:
            observed.append(abs(values[0] - values[1]))
            expected.append(abs(pair[0] - pair[1]))
    def median(x):
        return sorted(x)[len(x) // 2]

    print(f"\nmethylene restraints with two values: {len(observed)}; |difference| of the two values "
          f"median {median(observed):.2f} Hz, largest {max(observed):.2f} Hz; predicted difference "
          f"of the two protons median {median(expected):.2f} Hz")


if __name__ == "__main__":
    if len(sys.argv) not in (4, 5):
        sys.exit(__doc__)
    main(*sys.argv[1:])
