"""vorn.predict, vorn.predict_couplings and vorn.predict_ensemble over every
kind of model source: Structures and arrays (handed to the compiled module
as they are), atom groups with their trajectories (MDAnalysis), a topology
Structure with an array of frames, and iterators of Structures.
"""

import collections.abc
import math
import os

from . import _vorn
from .mdanalysis import is_atom_group, structures_from_atom_group, structures_from_coordinates

__all__ = ["EnsemblePrediction", "models", "predict", "predict_couplings", "predict_ensemble"]

# Models predicted per call of the compiled predict: the orientation tables
# are built once per call, and the models of a long trajectory are not all
# held at once.
_CHUNK = 16


def _source(obj, coordinates, frames, select, keep_hydrogens=False):
    """(iterator of Structures, single) for the sources this layer expands,
    None for what the compiled module takes as it is."""
    if coordinates is not None:
        return structures_from_coordinates(obj, coordinates, frames)
    group = is_atom_group(obj)
    if group is not None:
        return structures_from_atom_group(group, frames, select or "surface", keep_hydrogens)
    if frames is not None:
        raise ValueError("frames selects frames of an atom group's trajectory or of "
                         f"coordinates=; it does not apply to {type(obj).__name__}")
    if isinstance(obj, collections.abc.Iterator):
        return obj, False
    return None


def models(source, *, coordinates=None, frames=None, select="surface", keep_hydrogens=False):
    """The Structures of a model source, one per model, as an iterator.

    source        an atom group (any object with positions, names, resids,
                  resnames and chainIDs or segids, such as an MDAnalysis
                  AtomGroup; a Universe through its atoms): one model per
                  frame of its trajectory; or a topology Structure with
                  `coordinates`
    coordinates   float64 (or float32) array of shape (n_atoms, 3) or
                  (n_frames, n_atoms, 3): the topology's atoms (all of them,
                  len(structure)) at each frame
    frames        None (all), a slice, a range or 0-based frame indices;
                  frame k is model k + 1
    select, keep_hydrogens  the steric model, as in read_structure (atom
                  groups only; a topology Structure keeps its own)

    Element, chain and coordinate rules: help(vorn.mdanalysis).
    """
    found = _source(source, coordinates, frames, select, keep_hydrogens)
    if found is None:
        raise TypeError("models: expected an atom group (MDAnalysis AtomGroup or Universe) or a "
                        f"Structure with coordinates=, got {type(source).__name__}")
    return found[0]


def _chunks(structures):
    chunk = []
    for s in structures:
        chunk.append(s)
        if len(chunk) == _CHUNK:
            yield chunk
            chunk = []
    if chunk:
        yield chunk


def predict(structure_or_coordinates, *args, coordinates=None, frames=None, **kwargs):
    tensors = []
    found = _source(structure_or_coordinates, coordinates, frames, kwargs.get("select"))
    if found is None:
        return _vorn.predict(structure_or_coordinates, *args, **kwargs)
    structures, single = found
    for chunk in _chunks(structures):
        tensors.extend(_vorn.predict(chunk, *args, **kwargs))
    return tensors[0] if single else tensors


predict.__doc__ = _vorn.predict.__doc__ + """
Trajectories
    An atom group (an MDAnalysis AtomGroup, or a Universe through its atoms;
    any object with positions, names, resids, resnames and chainIDs or
    segids) gives one model per frame of its trajectory and a list of
    Tensors; a topology Structure with coordinates= (float64 or float32,
    shape (n_atoms, 3): one Tensor, or (n_frames, n_atoms, 3): a list) gives
    the Structure at those coordinates. frames= selects frames: a slice, a
    range or 0-based indices. An iterator of Structures gives a list. See
    vorn.models and help(vorn.mdanalysis) for the rules.
"""


def predict_couplings(structure, tensor, add_hydrogens=False, *, coordinates=None, frames=None):
    found = _source(structure, coordinates, frames, None)
    if found is None:
        return _vorn.predict_couplings(structure, tensor, add_hydrogens)
    structures, single = found
    if single:
        return _vorn.predict_couplings(next(structures), tensor, add_hydrogens)
    one = isinstance(tensor, _vorn.Tensor)
    tensors = [tensor] if one else list(tensor)
    result = []
    for k, s in enumerate(structures):
        if not one and k >= len(tensors):
            raise ValueError(f"tensor: {len(tensors)} tensors for more models")
        result.append(_vorn.predict_couplings(s, tensors[0 if one else k], add_hydrogens))
    if not one and len(result) != len(tensors):
        raise ValueError(f"tensor: {len(tensors)} tensors for {len(result)} models")
    return result


predict_couplings.__doc__ = _vorn.predict_couplings.__doc__ + """
With a source of several models (an atom group's trajectory, coordinates= of
shape (n_frames, n_atoms, 3), frames= as in vorn.predict): a list with the
couplings of each model, `tensor` being one Tensor for every model or one
Tensor per model (as vorn.predict returns them).
"""


class EnsemblePrediction:
    """The prediction of every model of an ensemble or trajectory with the
    ensemble summary of `vorn predict` (its JSON "ensemble"):

    models              number of models predicted
    model_numbers       their numbers (file numbering, or frame + 1)
    tensors             one Tensor per model
    da_hz_mean, da_hz_sd, da_hz_se, effective_samples
    rhombicity_mean, rhombicity_sd, rhombicity_se
    couplings           one dict per coupling: chain, residue, icode,
                        resname, type, atom1, atom2, models,
                        predicted_hz_mean, predicted_hz_sd, predicted_hz_se
    converged, tolerance_hz   with until_converged, else None

    The _se values are standard errors of the means by block averaging
    (correlated frames count for less); effective_samples = var/se^2 of Da.
    """

    def __init__(self, summary, model_numbers, tensors, converged, tolerance_hz):
        self.models = summary["models"]
        self.model_numbers = model_numbers
        self.tensors = tensors
        for key in ("da_hz_mean", "da_hz_sd", "da_hz_se", "effective_samples", "rhombicity_mean",
                    "rhombicity_sd", "rhombicity_se", "couplings"):
            setattr(self, key, summary[key])
        self.converged = converged
        self.tolerance_hz = tolerance_hz

    def __repr__(self):
        return (f"<vorn.EnsemblePrediction: {self.models} models, Da(NH) = {self.da_hz_mean:.3f} "
                f"+/- {self.da_hz_se:.3f} Hz (se), {len(self.couplings)} couplings>")


def predict_ensemble(source, *args, coordinates=None, frames=None, until_converged=None,
                     **kwargs):
    """Predict every model of an ensemble and summarise them as `vorn predict`
    does: an EnsemblePrediction.

    source    a file name (every model of it, read as read_structure reads
              it), a list of Structures, an iterator of Structures, an atom
              group with its trajectory (MDAnalysis), or a topology Structure
              with coordinates= of shape (n_frames, n_atoms, 3)
    frames    frames of a trajectory or of coordinates=, as in vorn.predict
    until_converged   None, or a tolerance in Hz: stop once the block-
              averaging standard errors of Da and of every coupling's mean
              are below it, from 32 models on (`vorn predict
              --until-converged`)
    other arguments   those of vorn.predict (medium, sampling, select,
              add_hydrogens, ...)

    The values equal those of `vorn predict --format json` for the same
    models and settings, to the bit.
    """
    if until_converged is not None:
        if not (isinstance(until_converged, (int, float)) and until_converged > 0
                and math.isfinite(until_converged)):
            raise ValueError("until_converged must be a positive number of Hz (or None)")
    if isinstance(source, (str, bytes, os.PathLike)):
        source = _vorn.read_structure(source, select=kwargs.get("select") or "surface")
    found = _source(source, coordinates, frames, kwargs.get("select"))
    if found is not None:
        structures = found[0]
    elif isinstance(source, _vorn.Structure):
        structures = iter([source])
    elif isinstance(source, (list, tuple)):
        for k, item in enumerate(source):
            if not isinstance(item, _vorn.Structure):
                raise TypeError(f"item {k}: expected a Structure (the couplings need the atoms), "
                                f"got {type(item).__name__}")
        structures = iter(source)
    else:
        raise TypeError("expected a file name, Structures, an atom group or a Structure with "
                        f"coordinates=, got {type(source).__name__}")
    add_hydrogens = bool(kwargs.get("add_hydrogens", False))
    accumulator = _vorn.EnsembleAccumulator()
    numbers, tensors = [], []
    converged = None
    for chunk in _chunks(structures):
        for structure, tensor in zip(chunk, _vorn.predict(chunk, *args, **kwargs)):
            accumulator.add(structure, tensor, add_hydrogens)
            numbers.append(structure.model)
            tensors.append(tensor)
            if until_converged is not None and accumulator.converged(until_converged):
                converged = True
                break
        if converged:
            break
    if hasattr(structures, "close"):
        structures.close()  # a trajectory back at its frame now, not when collected
    if accumulator.models == 0:
        raise ValueError("no model to predict")
    if until_converged is not None and not converged:
        converged = False
    return EnsemblePrediction(accumulator.summary(), numbers, tensors, converged,
                              until_converged)
