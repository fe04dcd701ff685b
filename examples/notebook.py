"""The Python module vorn on the bundled ubiquitin data, step by step.

From the repository root, after building (cmake --preset release &&
cmake --build --preset release):

    PYTHONPATH=build/release/python /usr/bin/python3 examples/notebook.py [plot.png]

Reads the ten models of PDB 1D3Z, predicts the steric alignment tensor of
each in a bicelle medium, fits a tensor to the measured couplings of PDB
2MJB (tensor 500) and compares the three: prints Da, R and Q, and with
matplotlib installed plots measured against back-calculated (fit) and
predicted (steric model) couplings into plot.png (default:
ubq_couplings.png in the current folder).
"""

import pathlib
import sys

import numpy as np

import vorn

HERE = pathlib.Path(__file__).resolve().parent
STRUCTURE = HERE / "1d3z.cif.gz"
COUPLINGS = HERE / "ubq_2mjb_t500_bicelleA.dc"


def predict_models():
    models = vorn.read_structure(STRUCTURE)
    first = models[0]
    print(f"{STRUCTURE.name}: {len(models)} models; model {first.model} has {len(first)} atoms, "
          f"{first.coordinates.shape[0]} of them in the steric model ({first.select})")

    # One call for all models: the orientation tables are built once.
    tensors = vorn.predict(models)
    print("\nsteric prediction, bicelle 0.05 g/ml")
    print("  model  Da(NH)/Hz      R   Euler (alpha, beta, gamma)/deg")
    for model, t in zip(models, tensors):
        alpha, beta, gamma = t.euler_deg[0]
        print(f"  {model.model:5d}  {t.da_hz:9.3f}  {t.rhombicity:6.3f}   "
              f"({alpha:7.2f}, {beta:6.2f}, {gamma:7.2f})")
    da = np.array([t.da_hz for t in tensors])
    rh = np.array([t.rhombicity for t in tensors])
    print(f"  mean   {da.mean():9.3f}  {rh.mean():6.3f}   (sd {da.std(ddof=1):.3f} Hz, "
          f"{rh.std(ddof=1):.3f})")

    couplings = vorn.predict_couplings(first, tensors[0])
    nh = [c for c in couplings if c["type"] == "N-H"]
    print(f"\nmodel {first.model}: {len(couplings)} backbone couplings predicted, "
          f"{len(nh)} of them N-H; the first three:")
    for c in nh[:3]:
        print(f"  {c['resname']} {c['residue']:3d} {c['type']:5s} {c['predicted_hz']:8.3f} Hz")


def fit_couplings():
    [measured] = vorn.read_couplings(COUPLINGS)
    print(f"\n{COUPLINGS.name}: {len(measured)} measured couplings ({measured.format} layout)")

    # The fit of model 1 with Monte Carlo error bars, and the steric
    # prediction of the same model beside it.
    [fit] = vorn.fit(STRUCTURE, COUPLINGS, errors="montecarlo", samples=200, seed=1,
                     predict=True)
    t, q, e = fit.tensor, fit.quality, fit.errors
    print(f"fit to model {fit.models[0]}: Da(NH) = {t.da_hz:.3f} +/- {e['da_hz_sd']:.3f} Hz, "
          f"R = {t.rhombicity:.4f} +/- {e['rhombicity_sd']:.4f}, Q = {q['q']:.4f}, "
          f"r = {q['r']:.4f}, rmsd = {q['rmsd_hz']:.3f} Hz (N-H scale)")
    for kind, per in q["per_type"].items():
        print(f"  {kind:6s} n = {per['n']:3d}  Q = {per['q']:.4f}  rmsd = {per['rmsd_hz']:.3f} Hz")
    p = fit.prediction
    print(f"steric prediction: Da(NH) = {p['tensor'].da_hz:.3f} Hz, R = "
          f"{p['tensor'].rhombicity:.4f}; against the data Q = {p['q']:.3f}, r = {p['r']:.3f}, "
          f"slope = {p['slope']:.3f}; z axis {p['axis_angle_deg']:.1f} deg from the fitted one")
    if fit.outliers:
        print(f"{len(fit.outliers)} coupling(s) beyond 3 sigma")
    return fit


def plot(fit, path):
    try:
        import matplotlib

        matplotlib.use("Agg")
        import matplotlib.pyplot as plt
    except ImportError:
        print("\nmatplotlib is not installed: no plot (apt-get install python3-matplotlib)")
        return
    c = fit.couplings
    types = c["type"]
    fig, axes = plt.subplots(1, 2, figsize=(10, 4.8), constrained_layout=True)
    panels = [(c["calculated_hz"], f"back-calculated, fit (Q = {fit.quality['q']:.3f})"),
              (c["predicted_hz"], f"predicted, steric model (Q = {fit.prediction['q']:.3f})")]
    for ax, (values, title) in zip(axes, panels):
        for kind in dict.fromkeys(types):
            keep = np.array([t == kind for t in types])
            ax.scatter(c["measured_hz"][keep], values[keep], s=10, label=kind)
        low = min(c["measured_hz"].min(), values.min())
        high = max(c["measured_hz"].max(), values.max())
        ax.plot([low, high], [low, high], color="grey", linewidth=0.8)
        ax.set_xlabel("measured coupling (Hz)")
        ax.set_ylabel("calculated coupling (Hz)")
        ax.set_title(title)
        ax.legend(fontsize="small")
    fig.suptitle("ubiquitin (1D3Z model 1), bicelle couplings of 2MJB")
    fig.savefig(path, dpi=120)
    print(f"\nplot written to {path}")


def main(argv):
    predict_models()
    fit = fit_couplings()
    plot(fit, argv[1] if len(argv) > 1 else "ubq_couplings.png")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
