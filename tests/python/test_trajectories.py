"""Model sources of the Python module: atom groups (a small stand-in object
here, MDAnalysis where installed), a topology Structure with an array of
frames, and the ensemble summary, each against vorn.read_structure and the
`vorn` executable on the same models.

The tests without MDAnalysis run everywhere; those with it are skipped where
it is missing (pytest.importorskip).
"""

import json
import os
import pathlib
import subprocess
import warnings

import numpy as np
import pytest

import vorn
from vorn.mdanalysis import element_from_name, frame_indices

DATA = pathlib.Path(
    os.environ.get("VORN_TEST_DATA", pathlib.Path(__file__).resolve().parents[1] / "data"))
ENSEMBLE = DATA / "structures" / "ubq_1d3z_models1-4.pdb"  # the blank-separated layout
RAW_PDB = DATA / "raw" / "1D3Z_raw_10models.pdb"            # the PDB entry, fixed columns
DCD = DATA / "trajectories" / "ubq_1d3z_models1-4.dcd"
FAST = {"sampling": (4, 8, 8)}
FAST_ARGS = ["--sampling", "4,8,8"]

ENSEMBLE_KEYS = ("da_hz_mean", "da_hz_sd", "da_hz_se", "effective_samples", "rhombicity_mean",
                 "rhombicity_sd", "rhombicity_se")


def run_json(*args):
    binary = os.environ.get("VORN_BINARY")
    assert binary, "VORN_BINARY must name the vorn executable (CTest sets it)"
    done = subprocess.run([binary, "predict", *map(str, args), "--format", "json", "-q"],
                          capture_output=True, text=True, check=False)
    assert done.returncode == 0, done.stderr
    return json.loads(done.stdout)


def assert_same_tensor(a, b):
    for name in ("saupe", "eigenvalues", "eigenvectors", "euler_deg"):
        assert np.array_equal(getattr(a, name), getattr(b, name)), name
    assert a.da_hz == b.da_hz and a.rhombicity == b.rhombicity


def assert_tensor_is_json(tensor, expected):
    assert tensor.saupe.tolist() == expected["saupe"]
    assert tensor.euler_deg.tolist() == expected["euler_deg"]
    assert tensor.da_hz == expected["da_hz"]
    assert tensor.rhombicity == expected["rhombicity"]


def assert_ensemble_is_json(ensemble, expected):
    assert ensemble.models == expected["models"]
    for key in ENSEMBLE_KEYS:
        assert getattr(ensemble, key) == expected[key], key
    assert len(ensemble.couplings) == len(expected["couplings"])
    for mine, theirs in zip(ensemble.couplings, expected["couplings"]):
        assert mine == theirs


@pytest.fixture(scope="module")
def ensemble_models():
    return vorn.read_structure(ENSEMBLE)


# ---------------------------------------------------------------------------
# A stand-in for an MDAnalysis AtomGroup and its Universe: the attributes the
# module reads, nothing more.

class FakeTimestep:
    def __init__(self):
        self.frame = 0


class FakeTrajectory:
    def __init__(self, frames, owner):
        self.frames = frames
        self.owner = owner
        self.ts = FakeTimestep()
        self.visited = []

    def __len__(self):
        return len(self.frames)

    def __getitem__(self, k):
        self.ts.frame = k
        self.visited.append(k)
        self.owner.positions = self.frames[k]
        return self.ts


class FakeUniverse:
    def __init__(self, group, frames):
        self.atoms = group
        self.filename = "fake.pdb"
        group.universe = self
        self.trajectory = FakeTrajectory(frames, group)


class FakeGroup:
    """Atom tables of a Structure, with segids as the chain names."""

    def __init__(self, structure, positions=None):
        self.names = np.array(structure.names, dtype=object)
        self.resids = structure.residue_numbers
        self.resnames = np.array(structure.residue_names, dtype=object)
        self.segids = np.array(structure.chains, dtype=object)
        self.positions = structure.all_coordinates if positions is None else positions


def test_element_from_name_rule():
    assert element_from_name("CA") == "C"
    assert element_from_name("CA", "ALA") == "C"
    assert element_from_name("CA", "CA") == "CA"  # a calcium ion
    assert element_from_name("ZN", "ZN") == "ZN"
    assert element_from_name("1HB") == "H"
    assert element_from_name(" HB2 ") == "H"
    assert element_from_name("OP1") == "O"
    assert element_from_name("c1'") == "C"
    for bad in ("", "12", "'"):
        with pytest.raises(ValueError, match="no element"):
            element_from_name(bad)


def test_frame_indices():
    assert list(frame_indices(None, 3)) == [0, 1, 2]
    assert list(frame_indices(slice(1, None, 2), 5)) == [1, 3]
    assert list(frame_indices(range(2), 5)) == [0, 1]
    assert frame_indices([4, -1, 0], 5) == [4, 4, 0]
    assert frame_indices(np.int64(2), 5) == [2]
    with pytest.raises(ValueError, match="frame 5 is not in a trajectory of 5 frames"):
        frame_indices([5], 5)
    with pytest.raises(ValueError, match="no frame selected"):
        frame_indices(slice(3, 1), 5)
    with pytest.raises(TypeError, match="frames"):
        frame_indices([1.5], 5)


def test_atom_group_without_trajectory_is_one_model(ensemble_models):
    structure = ensemble_models[0]
    group = FakeGroup(structure)
    [built] = list(vorn.models(group))
    # The elements told from the names are those the file reader gives.
    assert built.elements == structure.elements
    assert built.names == structure.names and built.chains == structure.chains
    assert np.array_equal(built.coordinates, structure.coordinates)
    assert built.model == 1 and built.file == "FakeGroup" and built.format == ""
    tensor = vorn.predict(group, **FAST)
    assert isinstance(tensor, vorn.Tensor)
    assert_same_tensor(tensor, vorn.predict(structure, **FAST))
    assert vorn.predict_couplings(group, tensor) == vorn.predict_couplings(structure, tensor)
    with pytest.raises(ValueError, match="no trajectory"):
        vorn.predict(group, frames=[0], **FAST)


def test_elements_attribute_first_then_names(ensemble_models):
    structure = ensemble_models[0]
    group = FakeGroup(structure)
    given = ["c"] * len(structure)
    given[0] = ""  # blank: told from the name (N)
    group.elements = np.array(given, dtype=object)
    group.chainIDs = np.array(["B"] * len(structure), dtype=object)  # before segids
    [built] = list(vorn.models(group))
    assert built.elements[0] == "N"
    assert set(built.elements[1:]) == {"C"}
    assert set(built.chains) == {"B"}


def test_group_without_chains_is_not_an_atom_group(ensemble_models):
    group = FakeGroup(ensemble_models[0])
    del group.segids
    with pytest.raises(TypeError, match="expected a Structure"):
        vorn.predict(group, **FAST)
    with pytest.raises(TypeError, match="atom group"):
        vorn.models(group)


def test_trajectory_frames_are_models(ensemble_models):
    group = FakeGroup(ensemble_models[0])
    universe = FakeUniverse(group, [m.all_coordinates for m in ensemble_models])
    universe.trajectory[2]  # the frame the caller is on
    tensors = vorn.predict(universe, **FAST)
    expected = vorn.predict(ensemble_models, **FAST)
    assert len(tensors) == 4
    for mine, theirs in zip(tensors, expected):
        assert_same_tensor(mine, theirs)
    assert universe.trajectory.ts.frame == 2

    # Frames 1 and 3 (0-based) are models 2 and 4.
    chosen = list(vorn.models(universe, frames=slice(1, None, 2)))
    assert [s.model for s in chosen] == [2, 4]
    assert [s.file for s in chosen] == ["fake.pdb"] * 2
    tensors = vorn.predict(universe.atoms, frames=[1, 3], **FAST)
    assert_same_tensor(tensors[0], expected[1])
    assert_same_tensor(tensors[1], expected[3])
    assert universe.trajectory.ts.frame == 2

    # Couplings: one tensor for every frame, or one per frame.
    per_frame = vorn.predict_couplings(universe, expected)
    assert per_frame == [vorn.predict_couplings(m, t) for m, t in zip(ensemble_models, expected)]
    same = vorn.predict_couplings(universe, expected[0], frames=[0, 1])
    assert same == [vorn.predict_couplings(m, expected[0]) for m in ensemble_models[:2]]
    with pytest.raises(ValueError, match="2 tensors for more models"):
        vorn.predict_couplings(universe, expected[:2])
    with pytest.raises(ValueError, match="3 tensors for 2 models"):
        vorn.predict_couplings(universe, expected[:3], frames=[0, 1])


def test_topology_with_coordinate_frames(ensemble_models):
    topology = ensemble_models[0]
    frames = np.stack([m.all_coordinates for m in ensemble_models])
    assert frames.shape == (4, len(topology), 3)
    expected = vorn.predict(ensemble_models, **FAST)
    tensors = vorn.predict(topology, coordinates=frames, **FAST)
    for mine, theirs in zip(tensors, expected):
        assert_same_tensor(mine, theirs)
    # One frame: one tensor; strided views are fine.
    assert_same_tensor(vorn.predict(topology, coordinates=frames[3], **FAST), expected[3])
    transposed = np.asfortranarray(frames)
    assert_same_tensor(vorn.predict(topology, coordinates=transposed, frames=[2], **FAST)[0],
                       expected[2])
    assert [s.model for s in vorn.models(topology, coordinates=frames, frames=[-1])] == [4]
    # The same three-decimal coordinates in single precision: the same bits.
    single = vorn.predict(topology, coordinates=frames.astype(np.float32), **FAST)
    for mine, theirs in zip(single, expected):
        assert_same_tensor(mine, theirs)


def test_topology_with_coordinates_errors(ensemble_models):
    topology = ensemble_models[0]
    n = len(topology)
    with pytest.raises(ValueError, match=f"1230 atoms per frame, and the structure has {n}"):
        vorn.predict(topology, coordinates=np.zeros((2, n - 1, 3)))
    with pytest.raises(ValueError, match="shape"):
        vorn.predict(topology, coordinates=np.zeros((2, n, 2)))
    with pytest.raises(ValueError, match="shape"):
        vorn.predict(topology, coordinates=np.zeros(n * 3))
    with pytest.raises(TypeError, match="dtype int64"):
        vorn.predict(topology, coordinates=np.zeros((n, 3), dtype=np.int64))
    with pytest.raises(ValueError, match="one frame"):
        vorn.predict(topology, coordinates=np.zeros((n, 3)), frames=[0])
    with pytest.raises(TypeError, match="topology Structure"):
        vorn.predict(np.zeros((n, 3)), coordinates=np.zeros((n, 3)))
    bad = topology.all_coordinates
    bad[7, 1] = np.nan
    with pytest.raises(ValueError, match="atom 7 has a coordinate that is not a finite number"):
        vorn.predict(topology, coordinates=bad)
    with pytest.raises(ValueError, match=f"1230 atoms, and the structure has {n}"):
        topology.with_coordinates(np.zeros((n - 1, 3)))
    with pytest.raises(ValueError, match="frames selects frames"):
        vorn.predict(topology, frames=[0])


def test_from_atoms_tables_and_single_precision():
    names = ["N", "CA", "C"]
    coordinates = np.array([[1.0005, 12.3456789, -0.0004], [1.5, 0.0, 0.0], [2.0, 1.0, 0.0]],
                           dtype=np.float32)
    s = vorn.Structure.from_atoms(names, ["n", "c", "c"], ["ALA"] * 3, [5, 5, 5], ["A"] * 3,
                                  coordinates, insertion_codes=["", "", ""], select="all",
                                  model=7, file="three atoms")
    # float32(1.0005) is 1.00049996...: "1.000"; 12.3456789 -> "12.346";
    # -0.0004 -> "-0.000", read back as -0.0.
    first = s.all_coordinates[0]
    assert first[0] == 1.0 and first[1] == 12.346 and first[2] == 0.0
    assert np.signbit(first[2])
    assert s.elements == ["N", "C", "C"] and s.model == 7 and s.file == "three atoms"
    assert s.select == "all" and s.coordinates.shape == (3, 3)
    # float64 coordinates are taken as they are.
    exact = vorn.Structure.from_atoms(names, ["N", "C", "C"], ["ALA"] * 3, [5, 5, 5], [""] * 3,
                                      coordinates.astype(np.float64))
    assert exact.all_coordinates[0, 1] == float(np.float32(12.3456789))
    with pytest.raises(ValueError, match="elements: 2 entries for 3 atoms"):
        vorn.Structure.from_atoms(names, ["N", "C"], ["ALA"] * 3, [5] * 3, [""] * 3, coordinates)
    with pytest.raises(ValueError, match="longer than one character"):
        vorn.Structure.from_atoms(names, ["N"] * 3, ["ALA"] * 3, [5] * 3, [""] * 3, coordinates,
                                  insertion_codes=["", "AB", ""])
    with pytest.raises(ValueError, match="select must be"):
        vorn.Structure.from_atoms(names, ["N"] * 3, ["ALA"] * 3, [5] * 3, [""] * 3, coordinates,
                                  select="backbone")


def test_ensemble_equals_the_command_line(ensemble_models):
    expected = run_json(*FAST_ARGS, ENSEMBLE)
    ensemble = vorn.predict_ensemble(ENSEMBLE, **FAST)
    assert_ensemble_is_json(ensemble, expected["ensemble"])
    assert ensemble.model_numbers == [1, 2, 3, 4]
    for tensor, model in zip(ensemble.tensors, expected["models"]):
        assert_tensor_is_json(tensor, model["tensor"])
    assert ensemble.converged is None and ensemble.tolerance_hz is None
    # The same models as a list, as a trajectory and as frames of a topology.
    assert_ensemble_is_json(vorn.predict_ensemble(ensemble_models, **FAST), expected["ensemble"])
    universe = FakeUniverse(FakeGroup(ensemble_models[0]),
                            [m.all_coordinates for m in ensemble_models])
    assert_ensemble_is_json(vorn.predict_ensemble(universe, **FAST), expected["ensemble"])
    frames = np.stack([m.all_coordinates for m in ensemble_models])
    assert_ensemble_is_json(vorn.predict_ensemble(ensemble_models[0], coordinates=frames, **FAST),
                            expected["ensemble"])
    # Fewer than 32 models never converge.
    short = vorn.predict_ensemble(ensemble_models, until_converged=1000.0, **FAST)
    assert short.converged is False and short.models == 4 and short.tolerance_hz == 1000.0

    subset = run_json(*FAST_ARGS, "--models", "2,4", ENSEMBLE)
    assert_ensemble_is_json(vorn.predict_ensemble(universe, frames=[1, 3], **FAST),
                            subset["ensemble"])


def test_until_converged_stops_at_the_first_converged_model(ensemble_models):
    topology = ensemble_models[0]
    frames = np.stack([m.all_coordinates for m in ensemble_models] * 10)  # 40 frames
    quick = {"sampling": (2, 4, 4), "select": "heavy"}
    loose = vorn.predict_ensemble(topology, coordinates=frames, until_converged=1000, **quick)
    assert loose.converged is True and loose.models == 32
    assert loose.model_numbers == list(range(1, 33)) and len(loose.tensors) == 32
    tight = vorn.predict_ensemble(topology, coordinates=frames, until_converged=1e-12, **quick)
    assert tight.converged is False and tight.models == 40
    # The accumulator agrees model by model: converged first at 32.
    accumulator = vorn.EnsembleAccumulator()
    for k in range(32):
        assert not accumulator.converged(1000)
        accumulator.add(topology.with_coordinates(frames[k]), tight.tensors[k])
    assert accumulator.converged(1000) and accumulator.models == 32
    with pytest.raises(ValueError, match="positive"):
        accumulator.converged(0.0)
    for bad in (0, -1.0, float("nan"), "1"):
        with pytest.raises(ValueError, match="until_converged"):
            vorn.predict_ensemble(ensemble_models, until_converged=bad, **quick)


def test_ensemble_input_errors():
    with pytest.raises(TypeError, match="couplings need the atoms"):
        vorn.predict_ensemble([np.zeros((3, 3))])
    with pytest.raises(TypeError, match="expected a file name"):
        vorn.predict_ensemble(42)
    with pytest.raises(ValueError, match="no model"):
        vorn.predict_ensemble([])


# ---------------------------------------------------------------------------
# MDAnalysis itself

@pytest.fixture(scope="module")
def mda():
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")
        return pytest.importorskip("MDAnalysis")


def universe(mda, *files):
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")  # missing box and similar notices
        return mda.Universe(*map(str, files))


def test_mdanalysis_pdb_models_equal_the_command_line(mda):
    u = universe(mda, RAW_PDB)
    assert len(u.trajectory) == 10
    expected = run_json(*FAST_ARGS, "--models", "1-3", RAW_PDB)
    tensors = vorn.predict(u, frames=slice(0, 3), **FAST)
    assert len(tensors) == 3
    for tensor, model in zip(tensors, expected["models"]):
        assert_tensor_is_json(tensor, model["tensor"])
    # Atoms, elements and chains as the file reader gives them.
    [first] = vorn.models(u, frames=[0])
    [read] = vorn.read_structure(RAW_PDB, models=1)
    for table in ("names", "elements", "residue_names", "chains", "insertion_codes"):
        assert getattr(first, table) == getattr(read, table), table
    assert np.array_equal(first.residue_numbers, read.residue_numbers)
    assert np.array_equal(first.all_coordinates, read.all_coordinates)
    assert u.trajectory.ts.frame == 0

    couplings = vorn.predict_couplings(u, tensors, frames=slice(0, 3))
    for mine, model in zip(couplings, expected["models"]):
        assert [c["predicted_hz"] for c in mine] == [c["predicted_hz"] for c in model["couplings"]]

    ensemble = vorn.predict_ensemble(u.select_atoms("protein"), frames=range(3), **FAST)
    assert_ensemble_is_json(ensemble, expected["ensemble"])


def test_mdanalysis_dcd_frames_equal_the_command_line(mda):
    # The trajectory reader of the command line takes float32 frames at
    # 0.001 A; so does the module: the same bits.
    u = universe(mda, RAW_PDB, DCD)
    assert len(u.trajectory) == 4
    expected = run_json(*FAST_ARGS, RAW_PDB, DCD)
    ensemble = vorn.predict_ensemble(u, **FAST)
    assert_ensemble_is_json(ensemble, expected["ensemble"])
    for tensor, model in zip(ensemble.tensors, expected["models"]):
        assert_tensor_is_json(tensor, model["tensor"])
    assert ensemble.model_numbers == [m["model"] for m in expected["models"]]
