#!/usr/bin/python3
"""Predicted N-H couplings of a trajectory (or NMR ensemble) read by MDAnalysis:
the ensemble mean of each coupling with its standard error.

    PYTHONPATH=build/release/python /usr/bin/python3 examples/mdanalysis_predict.py \\
        [--frames START:STOP:STEP] [--atoms SELECTION] [--sampling T,P,S] [TOPOLOGY [TRAJECTORY ...]]

Without files it reads the ten models of PDB 1D3Z (ubiquitin) bundled with the
tests, each model a frame. The standard errors are those of block averaging,
so that correlated frames of a simulation do not look more precise than they
are; effective_samples says how many independent frames Da's series is worth.
Exits with status 77 (skipped) when MDAnalysis (Debian: python3-mdanalysis)
is not installed.
"""

import argparse
import pathlib
import sys
import warnings

try:
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")  # deprecation notices of MDAnalysis' own imports
        import MDAnalysis
except ImportError:
    print("MDAnalysis is not installed (Debian: python3-mdanalysis); nothing to do",
          file=sys.stderr)
    sys.exit(77)

import vorn

BUNDLED = pathlib.Path(__file__).resolve().parents[1] / "tests" / "data" / "raw" / "1D3Z_raw_10models.pdb"


def frame_slice(text):
    parts = text.split(":")
    if not 1 <= len(parts) <= 3:
        raise argparse.ArgumentTypeError(f"expected START:STOP[:STEP], got {text!r}")
    try:
        numbers = [int(p) if p else None for p in parts]
    except ValueError:
        raise argparse.ArgumentTypeError(f"expected whole numbers, got {text!r}") from None
    return slice(*numbers)


def sampling(text):
    try:
        steps = tuple(int(p) for p in text.split(","))
    except ValueError:
        steps = ()
    if len(steps) != 3:
        raise argparse.ArgumentTypeError(f"expected three whole numbers T,P,S, got {text!r}")
    return steps


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("files", nargs="*", help="topology, then trajectory files (MDAnalysis)")
    parser.add_argument("--frames", type=frame_slice, default=None,
                        help="frames to use, 0-based, as a Python slice START:STOP:STEP")
    parser.add_argument("--atoms", default="protein", help="MDAnalysis atom selection (protein)")
    parser.add_argument("--sampling", type=sampling, default=(9, 18, 18),
                        help="orientation steps theta,phi,psi (9,18,18)")
    args = parser.parse_args()
    files = args.files or [str(BUNDLED)]

    with warnings.catch_warnings():
        warnings.simplefilter("ignore")  # missing unit cell and similar notices
        universe = MDAnalysis.Universe(*files)
    atoms = universe.select_atoms(args.atoms)
    if len(atoms) == 0:
        sys.exit(f"no atoms match the selection {args.atoms!r}")
    try:
        ensemble = vorn.predict_ensemble(atoms, frames=args.frames, sampling=args.sampling)
    except ValueError as e:
        sys.exit(str(e))

    print(f"{' '.join(files)}: {ensemble.models} frames, {len(atoms)} atoms ({args.atoms})")
    print(f"Da(NH) = {ensemble.da_hz_mean:.3f} Hz, sd {ensemble.da_hz_sd:.3f}, "
          f"standard error {ensemble.da_hz_se:.3f} ({ensemble.effective_samples:.1f} effective "
          f"frames); R = {ensemble.rhombicity_mean:.3f} +/- {ensemble.rhombicity_se:.3f}")
    amides = [c for c in ensemble.couplings if c["type"] == "N-H"]
    print(f"{len(amides)} N-H couplings, Hz:")
    print(f"{'chain':<5} {'resid':>6} {'res':<4} {'mean':>9} {'se':>7} {'sd':>7}")
    for c in amides:
        print(f"{c['chain']:<5} {str(c['residue']) + c['icode']:>6} {c['resname']:<4} "
              f"{c['predicted_hz_mean']:9.3f} {c['predicted_hz_se']:7.3f} "
              f"{c['predicted_hz_sd']:7.3f}")


if __name__ == "__main__":
    main()
