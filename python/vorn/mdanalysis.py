"""Structures from atom groups: MDAnalysis or anything shaped like them.

An atom group is any object with the per-atom attributes ``positions``
((n, 3) coordinates), ``names``, ``resids``, ``resnames`` and ``chainIDs`` or
``segids``; an object with an ``atoms`` attribute that is one (an MDAnalysis
``Universe``) stands for it. Nothing here imports MDAnalysis: the objects are
read through those attributes alone.

The tables of a Structure come from them as follows:

- element: ``elements`` where the group has it and the atom's entry is not
  blank, else from the atom name (:func:`element_from_name`);
- chain: ``chainIDs`` where the group has them (the PDB chain column), else
  ``segids``;
- insertion code: ``icodes`` where the group has them, else none;
- residue number ``resids``, residue name ``resnames``, atom name ``names``.

Every atom of the group is taken, in its order: the water and HETATM rules
of the file readers do not apply (select the atoms with MDAnalysis first,
e.g. ``u.select_atoms("protein")``).

Coordinates: MDAnalysis keeps them in single precision (float32); those are
taken at 0.001 A, as `vorn predict` takes the frames of a trajectory (written
with three decimals and read back), so that a PDB file read by MDAnalysis and
by vorn.read_structure gives the same numbers to the bit. float64
coordinates are taken as they are.
"""

import operator

import numpy

from ._vorn import Structure

__all__ = ["element_from_name", "frame_indices", "is_atom_group", "structures_from_atom_group",
           "structures_from_coordinates"]

# Two-letter elements that a one-atom residue of the same name stands for
# (ions: the PDB names the residue and the atom alike, "ZN"/"ZN").
_ION_ELEMENTS = frozenset(
    ["NA", "MG", "CL", "CA", "ZN", "FE", "MN", "CU", "CO", "NI", "CD", "BR", "LI", "SR", "BA",
     "CS", "RB", "HG", "PT", "AU", "AG"])

_TABLES = ("positions", "names", "resids", "resnames")


def element_from_name(name, residue_name=""):
    """The element of an atom told from its name: the first letter after any
    leading digits ("CA" -> "C", "1HB" -> "H", "OP1" -> "O"), except that an
    atom named like its residue and like a two-letter ion ("ZN" in "ZN", "CA"
    in "CA") is that ion. Raises ValueError for a name without a letter."""
    text = str(name).strip().upper()
    if text in _ION_ELEMENTS and text == str(residue_name).strip().upper():
        return text
    letters = text.lstrip("0123456789")
    if not letters or not letters[0].isalpha():
        raise ValueError(f"atom name {name!r}: no element can be told from it "
                         "(give the group an 'elements' attribute)")
    return letters[0]


def _attribute(obj, name):
    # MDAnalysis raises NoDataError, an AttributeError, for an attribute the
    # topology lacks; getattr's default covers it.
    return getattr(obj, name, None)


def _has_tables(obj):
    return (all(_attribute(obj, n) is not None for n in _TABLES)
            and (_attribute(obj, "chainIDs") is not None or _attribute(obj, "segids") is not None))


def is_atom_group(obj):
    """The atom group of `obj` (itself, or its ``atoms``), or None when it is
    not shaped like one."""
    if isinstance(obj, (Structure, numpy.ndarray, list, tuple, str, bytes)):
        return None
    if _has_tables(obj):
        return obj
    atoms = _attribute(obj, "atoms")
    if atoms is not None and _has_tables(atoms):
        return atoms
    return None


def frame_indices(frames, count):
    """The 0-based frame indices that `frames` selects of `count` frames: None
    (all), a slice or range, one index, or a sequence of indices (negative
    ones count from the end, as in Python). Raises TypeError or ValueError."""
    if frames is None:
        indices = range(count)
    elif isinstance(frames, slice):
        indices = range(count)[frames]
    else:
        if isinstance(frames, (int, numpy.integer)):
            frames = [frames]
        try:
            wanted = [operator.index(f) for f in frames]
        except TypeError:
            raise TypeError("frames: expected None, a slice, a range or frame indices (int), got "
                            f"{type(frames).__name__}") from None
        for f in wanted:
            if not -count <= f < count:
                raise ValueError(f"frames: frame {f} is not in a trajectory of {count} frames")
        indices = [f % count for f in wanted]
    if len(indices) == 0:
        raise ValueError(f"frames: no frame selected of {count}")
    return indices


def _strings(values, what, count):
    out = [str(v) for v in values]
    if len(out) != count:
        raise ValueError(f"{what}: {len(out)} entries for {count} atoms")
    return out


def _tables(group):
    names = [str(n) for n in group.names]
    count = len(names)
    resnames = _strings(group.resnames, "resnames", count)
    resids = [operator.index(r) for r in group.resids]
    if len(resids) != count:
        raise ValueError(f"resids: {len(resids)} entries for {count} atoms")
    chains = _attribute(group, "chainIDs")
    if chains is None:
        chains = group.segids
    chains = _strings(chains, "chains", count)
    given = _attribute(group, "elements")
    given = [""] * count if given is None else _strings(given, "elements", count)
    elements = [g.strip().upper() or element_from_name(n, r)
                for g, n, r in zip(given, names, resnames)]
    icodes = _attribute(group, "icodes")
    icodes = None if icodes is None else [c.strip() for c in _strings(icodes, "icodes", count)]
    return {"names": names, "elements": elements, "residue_names": resnames,
            "residue_numbers": resids, "chains": chains, "insertion_codes": icodes}


def _positions(group):
    positions = numpy.asarray(group.positions)
    if positions.dtype not in (numpy.float32, numpy.float64):
        positions = positions.astype(numpy.float64)
    return positions


def _file_name(group):
    universe = _attribute(group, "universe")
    for owner in (universe, _attribute(universe, "trajectory")):
        name = _attribute(owner, "filename")
        if isinstance(name, str) and name:
            return name
    return type(group).__name__


def structures_from_atom_group(group, frames=None, select="surface", keep_hydrogens=False):
    """(structures, single): an iterator of Structures, one per selected frame
    of the group's trajectory (``group.universe.trajectory``; model k + 1 for
    frame k), or, for a group without a trajectory, its one model (then
    single is True). The trajectory is left at the frame it was on."""
    tables = _tables(group)
    file = _file_name(group)
    trajectory = _attribute(_attribute(group, "universe"), "trajectory")
    if trajectory is None or not hasattr(trajectory, "__len__"):
        if frames is not None:
            raise ValueError("frames: the atom group has no trajectory (no universe.trajectory)")
        only = Structure.from_atoms(coordinates=_positions(group), select=select,
                                    keep_hydrogens=keep_hydrogens, model=1, file=file, **tables)
        return iter([only]), True
    indices = frame_indices(frames, len(trajectory))
    return _frames(group, trajectory, indices, tables, select, keep_hydrogens, file), False


def _frames(group, trajectory, indices, tables, select, keep_hydrogens, file):
    now = _attribute(_attribute(trajectory, "ts"), "frame")
    topology = None
    try:
        for k in indices:
            trajectory[k]
            if topology is None:
                topology = Structure.from_atoms(coordinates=_positions(group), select=select,
                                                keep_hydrogens=keep_hydrogens, model=k + 1,
                                                file=file, **tables)
                yield topology
            else:
                yield topology.with_coordinates(_positions(group), model=k + 1)
    finally:
        if now is not None:
            trajectory[now]


def structures_from_coordinates(topology, coordinates, frames=None):
    """(structures, single): the topology Structure at the coordinates of an
    array of shape (n_atoms, 3) (one model, single) or (n_frames, n_atoms, 3)
    (model k + 1 for slice k, selected by `frames`); n_atoms is the
    Structure's atom count (len(structure), hydrogens included)."""
    if not isinstance(topology, Structure):
        raise TypeError("coordinates= needs a topology Structure (vorn.read_structure), got "
                        f"{type(topology).__name__}")
    array = coordinates if isinstance(coordinates, numpy.ndarray) else numpy.asarray(coordinates)
    if array.dtype not in (numpy.float32, numpy.float64):
        raise TypeError(f"coordinates: expected a float64 (or float32) array, got dtype "
                        f"{array.dtype}")
    if array.ndim not in (2, 3) or array.shape[-1] != 3:
        raise ValueError("coordinates: expected an array of shape (n_atoms, 3) or (n_frames, "
                         f"n_atoms, 3), got shape {array.shape}")
    if array.shape[-2] != len(topology):
        raise ValueError(f"coordinates: {array.shape[-2]} atoms per frame, and the structure has "
                         f"{len(topology)} (every atom read, hydrogens included)")
    if array.ndim == 2:
        if frames is not None:
            raise ValueError("frames: an array of shape (n_atoms, 3) is one frame")
        return iter([topology.with_coordinates(array)]), True
    indices = frame_indices(frames, array.shape[0])
    return (topology.with_coordinates(array[k], model=k + 1) for k in indices), False
