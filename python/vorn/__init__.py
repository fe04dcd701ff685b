"""VORN: steric alignment tensors and residual dipolar couplings.

The same engine as the `vorn` command line, from Python:

    import vorn

    models = vorn.read_structure("1d3z.cif.gz")        # one Structure per model
    tensor = vorn.predict(models[0])                    # the steric prediction
    print(tensor.da_hz, tensor.rhombicity, tensor.euler_deg[0])
    couplings = vorn.predict_couplings(models[0], tensor)

    tensors = vorn.predict(models)                      # every model
    tensors = vorn.predict(coordinates)                 # (n, 3) or (m, n, 3) float64
    charged = vorn.predict(models[0], medium="pf1")     # charged phage: a ChargedTensor
    print(charged.da_hz, charged.net_charge)
    local = vorn.predict_windows(models[0], 15)         # local alignment windows
    print(local["windows"][0]["tensor"].da_hz, local["couplings"][0]["predicted_hz"])

    import MDAnalysis                                   # trajectories (optional)
    u = MDAnalysis.Universe("topology.pdb", "trajectory.xtc")
    tensors = vorn.predict(u.select_atoms("protein"), frames=slice(0, None, 10))
    ensemble = vorn.predict_ensemble(u.select_atoms("protein"))
    print(ensemble.da_hz_mean, ensemble.da_hz_se)       # block-averaging error
    tensors = vorn.predict(models[0], coordinates=frames)   # (m, n, 3) array

    sets = vorn.read_couplings("ubq.dc")                # measured couplings
    [result] = vorn.fit("1d3z.cif.gz", "ubq.dc", errors="montecarlo")
    print(result.tensor.da_hz, result.quality["q"])

Results are those of `vorn predict` and `vorn fit` for the same input and
settings, bit for bit. Long computations release the GIL, so other Python
threads run meanwhile. Errors of the input (a bad file line, an option out
of range) raise ValueError with the engine's message; a missing or
unreadable file raises OSError (FileNotFoundError where it does not exist);
an array of the wrong dtype raises TypeError.
"""

from ._vorn import (
    ChargedTensor,
    CouplingSet,
    EnsembleAccumulator,
    FitResult,
    Structure,
    Tensor,
    __version__,
    fit,
    predict_windows,
    read_couplings,
    read_structure,
)
from .models import EnsemblePrediction, models, predict, predict_couplings, predict_ensemble

__all__ = [
    "ChargedTensor",
    "CouplingSet",
    "EnsembleAccumulator",
    "EnsemblePrediction",
    "FitResult",
    "Structure",
    "Tensor",
    "fit",
    "models",
    "predict",
    "predict_couplings",
    "predict_ensemble",
    "predict_windows",
    "read_couplings",
    "read_structure",
]

# The Python-level parts present themselves as members of the package, as
# the compiled ones do.
for _member in (EnsemblePrediction, models, predict, predict_couplings, predict_ensemble):
    _member.__module__ = "vorn"
del _member
