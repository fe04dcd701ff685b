"""Tests of the Python module `vorn` against the `vorn` executable.

Run by CTest (test python_tests) with PYTHONPATH pointing at the built
package, VORN_BINARY at the executable and VORN_TEST_DATA at tests/data.
The command line prints every float with enough digits to round-trip, so
the module's numbers must equal the ones json.loads reads back exactly.
"""

import json
import math
import os
import pathlib
import pydoc
import subprocess
import threading
import time

import numpy as np
import pytest

import vorn

DATA = pathlib.Path(
    os.environ.get("VORN_TEST_DATA", pathlib.Path(__file__).resolve().parents[1] / "data"))
CIF = DATA / "raw" / "1d3z.cif"
PDB = DATA / "structures" / "ubq_1d3z_m1.pdb"
DC = DATA / "couplings" / "ubq_2mjb_t500_bicelleA.dc"
XPLOR = DATA / "raw" / "2mjb_mr_rdc_section.mr"
XRAY = DATA / "raw" / "1UBQ_raw.pdb"


@pytest.fixture(scope="session")
def binary():
    path = os.environ.get("VORN_BINARY")
    assert path, "VORN_BINARY must name the vorn executable (CTest sets it)"
    assert os.access(path, os.X_OK), f"{path} is not an executable"
    return path


def run_json(binary, *args):
    done = subprocess.run([binary, *map(str, args), "--format", "json", "-q"],
                          capture_output=True, text=True, check=False)
    assert done.returncode == 0, done.stderr
    return json.loads(done.stdout)


@pytest.fixture(scope="session")
def ubq_models():
    return vorn.read_structure(CIF)


def assert_tensor_equal(tensor, expected):
    """Every element exactly equal to the command line's JSON tensor."""
    assert tensor.saupe.tolist() == expected["saupe"]
    assert tensor.eigenvalues.tolist() == expected["eigenvalues"]
    assert tensor.eigenvectors.tolist() == expected["eigenvectors"]
    assert tensor.da_hz == expected["da_hz"]
    assert tensor.rhombicity == expected["rhombicity"]
    assert tensor.euler_deg.tolist() == expected["euler_deg"]


def assert_same_tensor(a, b):
    for name in ("saupe", "eigenvalues", "eigenvectors", "euler_deg"):
        assert np.array_equal(getattr(a, name), getattr(b, name)), name
    assert a.da_hz == b.da_hz and a.rhombicity == b.rhombicity


COUPLING_KEYS = ("chain", "residue", "icode", "resname", "type", "atom1", "atom2",
                 "predicted_hz", "dmax_hz", "built_hydrogen")

# Command-line options and the same settings as keyword arguments.
PREDICT_CASES = [
    (CIF, [], {}, {}),
    (PDB, [], {}, {}),
    (PDB, ["--select", "heavy", "--medium", "phage", "--concentration", "0.02",
           "--sampling", "6,12,12", "--grid-spacing", "0.7"],
     {"select": "heavy"},
     {"medium": "phage", "concentration": 0.02, "sampling": (6, 12, 12), "grid_spacing": 0.7}),
    (CIF, ["--models", "2,5", "--keep-hydrogens", "--medium", "bicelle+phage",
           "--atom-radius", "2.0", "--obstacle-dimension", "25", "--order-parameter", "0.6",
           "--exclude", "/*/A/72-76"],
     {"models": [2, 5], "keep_hydrogens": True, "exclude": "/*/A/72-76"},
     {"medium": "bicelle+phage", "atom_radius": 2.0, "obstacle_dimension": 25.0,
      "order_parameter": 0.6}),
]


# Hydrogens placed from the heavy atoms of an X-ray structure: for the
# couplings alone, or in the steric model too (select all).
PREDICT_CASES += [
    (XRAY, ["--add-hydrogens", "--select", "all"], {"select": "all"}, {"add_hydrogens": True}),
    (XRAY, ["--select", "all"], {"select": "all"}, {}),
]


@pytest.mark.parametrize("path,options,read_kwargs,predict_kwargs", PREDICT_CASES,
                         ids=["cif", "pdb", "pdb-heavy-phage", "cif-models-options",
                              "xray-add-hydrogens", "xray"])
def test_predict_matches_command_line(binary, path, options, read_kwargs, predict_kwargs):
    doc = run_json(binary, "predict", *options, path)
    structures = vorn.read_structure(path, **read_kwargs)
    tensors = vorn.predict(structures, **predict_kwargs)
    assert [m["model"] for m in doc["models"]] == [s.model for s in structures]
    assert len(tensors) == len(structures)
    for structure, tensor, expected in zip(structures, tensors, doc["models"]):
        assert expected["atoms_read"] == len(structure) == len(structure.names)
        added = predict_kwargs.get("add_hydrogens", False)
        if not added:
            assert expected["atoms_used"] == structure.coordinates.shape[0]
        assert_tensor_equal(tensor, expected["tensor"])
        couplings = vorn.predict_couplings(structure, tensor, add_hydrogens=added)
        assert len(couplings) == len(expected["couplings"]) > 0
        for mine, theirs in zip(couplings, expected["couplings"]):
            assert {k: mine[k] for k in COUPLING_KEYS} == {k: theirs[k] for k in COUPLING_KEYS}
        assert structure.predict_couplings(tensor, add_hydrogens=added) == couplings


def test_single_structure_and_coordinates_give_the_same_tensor(ubq_models):
    listed = vorn.predict(ubq_models)
    assert len(listed) == 10
    for structure, tensor in zip(ubq_models, listed):
        assert isinstance(tensor, vorn.Tensor)
        assert_same_tensor(vorn.predict(structure), tensor)
        # The steric coordinates as an array, surface rule for the radius.
        assert_same_tensor(vorn.predict(structure.coordinates), tensor)


def test_model_stack_equals_per_model_predictions(ubq_models):
    stack = np.stack([m.all_coordinates for m in ubq_models])
    assert stack.shape == (10, 1231, 3) and stack.dtype == np.float64
    tensors = vorn.predict(stack, select="all", sampling=(6, 12, 12))
    assert isinstance(tensors, list) and len(tensors) == 10
    singles = [vorn.predict(stack[k], select="all", sampling=(6, 12, 12)) for k in range(10)]
    for a, b in zip(tensors, singles):
        assert_same_tensor(a, b)
    # The same as a list of arrays, and the models differ from each other.
    for a, b in zip(vorn.predict(list(stack), select="all", sampling=(6, 12, 12)), tensors):
        assert_same_tensor(a, b)
    assert len({t.da_hz for t in tensors}) > 1


def test_array_strides_do_not_matter(ubq_models):
    coords = ubq_models[0].coordinates
    expected = vorn.predict(coords)
    fortran = np.asfortranarray(coords)
    assert not fortran.flags.c_contiguous
    assert_same_tensor(vorn.predict(fortran), expected)
    spaced = np.zeros((coords.shape[0], 6))
    spaced[:, ::2] = coords
    view = spaced[:, ::2]
    assert not view.flags.c_contiguous
    assert_same_tensor(vorn.predict(view), expected)
    assert_same_tensor(vorn.predict(coords.T.copy().T), expected)


def test_structure_tables(ubq_models):
    s = ubq_models[0]
    n = len(s)
    assert s.all_coordinates.shape == (n, 3)
    for table in (s.names, s.elements, s.residue_names, s.chains, s.insertion_codes):
        assert len(table) == n
    assert s.residue_numbers.shape == (n,) and s.residue_numbers.dtype.kind == "i"
    assert s.names[:4] == ["N", "CA", "C", "O"]
    assert s.residue_names[0] == "MET" and s.residue_numbers[0] == 1
    assert set(s.chains) == {"A"} and set(s.insertion_codes) == {""}
    assert "H" in s.elements  # hydrogens are read for the couplings
    assert s.select == "surface" and s.keep_hydrogens is False
    heavy = vorn.read_structure(CIF, models=1, select="heavy")[0]
    assert heavy.coordinates.shape[0] == sum(e != "H" for e in heavy.elements)
    every = vorn.read_structure(CIF, models="1", select="all")[0]
    assert np.array_equal(every.coordinates, every.all_coordinates)
    assert [m.model for m in vorn.read_structure(CIF, models="1,3-5")] == [1, 3, 4, 5]
    assert [m.model for m in vorn.read_structure(os.fspath(CIF).encode(), models=(7,))] == [7]


def test_gro_file_alone_is_one_model():
    """A .gro file read as a structure: one model, its own coordinates
    (nm with three decimals, times ten)."""
    gro = DATA / "trajectories" / "ubq_1d3z_m1.gro"
    [model] = vorn.read_structure(gro, select="all")
    assert model.format == "GRO" and model.model == 1
    lines = gro.read_text().splitlines()
    count = int(lines[1])
    expected = np.array([[float(line[20 + 8 * k:28 + 8 * k]) * 10 for k in range(3)]
                         for line in lines[2:2 + count]])
    assert model.names == [line[10:15].strip() for line in lines[2:2 + count]]
    assert np.abs(model.all_coordinates - expected).max() < 1e-9


def test_fit_of_trajectory_frames_is_the_fit_of_the_models():
    """vorn.fit on TRR frames with a .gro topology: the same tensors as on
    the PDB models the frames were written from (vorn fit TOPOLOGY
    TRAJECTORY COUPLINGS)."""
    models = DATA / "structures" / "ubq_1d3z_models1-4.pdb"
    trajectories = DATA / "trajectories"
    topology = trajectories / "ubq_1d3z_m1.gro"
    trr = trajectories / "ubq_1d3z_models1-4.trr"
    [ensemble] = vorn.fit(topology, DC, trajectory=trr, mode="ensemble")
    [expected] = vorn.fit(models, DC, mode="ensemble")
    assert ensemble.models == [1, 2, 3, 4] and ensemble.n == expected.n
    assert ensemble.tensor.saupe.tolist() == expected.tensor.saupe.tolist()
    per_model = vorn.fit(topology, DC, trajectory=trr, frames="2:3", mode="per-model")
    expected = vorn.fit(models, DC, models="2,3", mode="per-model")
    assert [r.models for r in per_model] == [[2], [3]]
    for got, want in zip(per_model, expected):
        assert got.tensor.saupe.tolist() == want.tensor.saupe.tolist()
    with pytest.raises(ValueError, match="frames needs a trajectory"):
        vorn.fit(models, DC, frames="1:2")


def test_trajectory_frames_are_models():
    """TRR frames through a .gro topology: the PDB models' atoms and
    coordinates (float32 nm taken at the PDB's 0.001 A)."""
    models = vorn.read_structure(DATA / "structures" / "ubq_1d3z_models1-4.pdb")
    trajectories = DATA / "trajectories"
    frames = vorn.read_structure(trajectories / "ubq_1d3z_m1.gro",
                                 trajectory=trajectories / "ubq_1d3z_models1-4.trr")
    assert [f.model for f in frames] == [1, 2, 3, 4]
    assert {f.format for f in frames} == {"TRR"}
    for model, frame in zip(models, frames):
        assert frame.names == model.names
        assert np.array_equal(frame.all_coordinates, model.all_coordinates)
    chosen = vorn.read_structure(trajectories / "ubq_1d3z_m1.gro",
                                 trajectory=trajectories / "ubq_1d3z_models1-4.xtc",
                                 frames="2:4:2")
    assert [f.model for f in chosen] == [2, 4]
    # XTC keeps 0.001 nm: within 0.005 A of the models.
    assert np.abs(chosen[1].all_coordinates - models[3].all_coordinates).max() <= 0.0051
    with pytest.raises(ValueError, match="frames needs a trajectory"):
        vorn.read_structure(CIF, frames="1:2")
    with pytest.raises(ValueError, match="invalid frame range"):
        vorn.read_structure(trajectories / "ubq_1d3z_m1.gro",
                            trajectory=trajectories / "ubq_1d3z_models1-4.xtc", frames="3:1")


def test_reselection_of_a_structure(ubq_models):
    heavy = vorn.read_structure(CIF, models=1, select="heavy")[0]
    assert_same_tensor(vorn.predict(ubq_models[0], select="heavy"), vorn.predict(heavy))
    assert_same_tensor(vorn.predict(heavy, select="surface"), vorn.predict(ubq_models[0]))


def test_tensor_from_saupe_elements(ubq_models):
    t = vorn.predict(ubq_models[0])
    again = vorn.Tensor(t.saupe)
    assert_same_tensor(again, t)
    assert t.saupe_matrix.shape == (3, 3)
    assert math.isclose(np.trace(t.saupe_matrix), 0.0, abs_tol=1e-15)
    assert "da_hz" in repr(t)
    with pytest.raises(ValueError, match="finite"):
        vorn.Tensor([float("nan"), 0, 0, 0, 0])


@pytest.mark.parametrize("shape", [(12,), (12, 2), (12, 3, 1), (2, 12, 4)])
def test_wrong_shapes_raise_value_error(shape):
    with pytest.raises(ValueError, match=r"shape"):
        vorn.predict(np.ones(shape))


@pytest.mark.parametrize("dtype", [np.int64, np.int32, np.float32, object, np.complex128])
def test_wrong_dtypes_raise_type_error(dtype):
    coords = np.arange(36).reshape(12, 3).astype(dtype)
    with pytest.raises(TypeError, match="float64"):
        vorn.predict(coords)
    with pytest.raises(TypeError, match="float64"):
        vorn.predict(coords.reshape(2, 6, 3))


def test_other_inputs_raise_type_error(ubq_models):
    with pytest.raises(TypeError, match="Structure"):
        vorn.predict([[0.0, 0.0, 0.0]])
    with pytest.raises(TypeError, match="Structure"):
        vorn.predict("1d3z.cif")
    with pytest.raises(TypeError, match="item 1"):
        vorn.predict([ubq_models[0], 3])


def test_bad_values_raise_value_error(ubq_models):
    s = ubq_models[0]
    with pytest.raises(ValueError, match="medium"):
        vorn.predict(s, medium="membrane")
    with pytest.raises(ValueError, match="sampling"):
        vorn.predict(s, sampling=(9, 18))
    with pytest.raises(ValueError):
        vorn.predict(s, sampling=(0, 18, 18))
    with pytest.raises(ValueError):
        vorn.predict(s, concentration=-0.05)
    with pytest.raises(ValueError, match="threads"):
        vorn.predict(s, threads=0)
    with pytest.raises(ValueError, match="finite"):
        vorn.predict(np.array([[0.0, 0.0, math.inf], [1.0, 2.0, 3.0]]))
    stack = np.zeros((4, 5, 3))
    stack[:, :, 0] = np.arange(5.0)
    stack[3, 2, 1] = math.nan
    with pytest.raises(ValueError, match=r"coordinates\[3\].*finite"):
        vorn.predict(stack)
    with pytest.raises(ValueError, match="select"):
        vorn.read_structure(CIF, select="backbone")
    with pytest.raises(ValueError, match="no model 11"):
        vorn.read_structure(CIF, models=11)
    with pytest.raises(ValueError, match="mode"):
        vorn.fit(CIF, DC, mode="average")


PDB_2MJB = DATA / "structures" / "ubq_2mjb_m1.pdb"
PQR = DATA / "structures" / "ubq_1ubq_ph6.pqr"
XRAY = DATA / "structures" / "ubq_1ubq_xray.pdb"
DNA = DATA / "structures" / "dna_1lcd_duplex_m1.pdb"
FAST = ["--sampling", "4,8,8"]


@pytest.mark.parametrize("options,kwargs", [
    (["--medium", "pf1"], {"medium": "pf1"}),
    (["--medium", "pf1", "--ph", "6", "--ionic-strength", "0.05", "--temperature", "310",
      "--potential", "nonlinear", "--obstacle-radius", "30"],
     {"medium": "pf1", "ph": 6.0, "ionic_strength": 0.05, "temperature": 310.0,
      "potential": "nonlinear", "obstacle_radius": 30.0}),
    (["--medium", "bicelle", "--charge-density", "0.1"],
     {"medium": "bicelle", "charge_density": 0.1}),
], ids=["pf1", "pf1-options", "charged-bicelle"])
def test_charged_prediction_matches_command_line(binary, options, kwargs):
    doc = run_json(binary, "predict", *options, *FAST, PDB_2MJB)
    [structure] = vorn.read_structure(PDB_2MJB)
    tensor = vorn.predict(structure, sampling=(4, 8, 8), **kwargs)
    assert isinstance(tensor, vorn.ChargedTensor) and isinstance(tensor, vorn.Tensor)
    expected = doc["models"][0]
    assert_tensor_equal(tensor, expected["tensor"])
    assert tensor.net_charge == expected["net_charge"]
    assert tensor.charged_groups == expected["charged_groups"] == 26
    assert "net_charge" in repr(tensor)


def test_charges_from_a_pqr_file(binary):
    doc = run_json(binary, "predict", "--medium", "pf1", "--charges", PQR, *FAST, XRAY)
    [structure] = vorn.read_structure(XRAY)
    tensor = vorn.predict(structure, medium="pf1", charges=PQR, sampling=(4, 8, 8))
    assert_tensor_equal(tensor, doc["models"][0]["tensor"])
    assert tensor.net_charge == doc["models"][0]["net_charge"]
    with pytest.raises(ValueError, match=r"ubq_1ubq_ph6\.pqr:\d+: .*not in the structure"):
        vorn.predict(vorn.read_structure(DNA)[0], medium="pf1", charges=PQR, sampling=(4, 8, 8))
    with pytest.raises(FileNotFoundError):
        vorn.predict(structure, medium="pf1", charges=PQR.with_name("missing.pqr"))


def test_uncharged_media_stay_steric(ubq_models):
    s = ubq_models[0]
    steric = vorn.predict(s, medium="phage", sampling=(4, 8, 8))
    assert type(steric) is vorn.Tensor
    zero = vorn.predict(s, medium="phage", charge_density=0.0, sampling=(4, 8, 8))
    assert type(zero) is vorn.Tensor
    assert_same_tensor(zero, steric)
    with pytest.warns(UserWarning, match="no effect with an uncharged obstacle"):
        warned = vorn.predict(s, medium="phage", charges=PQR, sampling=(4, 8, 8))
    assert_same_tensor(warned, steric)


def test_bad_charge_values_raise_value_error(ubq_models):
    s = ubq_models[0]
    for kwargs, message in [
        ({"medium": "pf1", "ph": 15.0}, r"^ph: must be 0 to 14 \(got 15\)"),
        ({"medium": "pf1", "ionic_strength": -0.1}, r"^ionic_strength: must be a positive"),
        ({"medium": "pf1", "ionic_strength": 0.0}, r"^ionic_strength"),
        ({"medium": "pf1", "temperature": 400.0}, r"^temperature: must be 273.15 to 373.15 K"),
        ({"medium": "pf1", "obstacle_radius": 0.0}, r"^obstacle_radius: must be a positive"),
        ({"medium": "pf1", "charge_density": math.nan}, r"^charge_density: must be a finite"),
        ({"medium": "pf1", "potential": "cubic"}, r"potential must be 'linear' or 'nonlinear'"),
        ({"medium": "bicelle+phage", "charge_density": -0.2},
         r"^charge_density: a charged obstacle needs medium bicelle, phage or pf1"),
        ({"medium": "bicelle", "obstacle_radius": 30.0},
         r"^obstacle_radius: applies to the cylinder"),
        ({"medium": "pf1", "obstacle_radius": 30.0, "obstacle_dimension": 30.0},
         r"^obstacle_radius: is the cylinder's obstacle_dimension"),
    ]:
        with pytest.raises(ValueError, match=message):
            vorn.predict(s, **kwargs)
    with pytest.raises(ValueError, match="ph: must be 0 to 14"):
        vorn.fit(CIF, DC, predict=True, medium="pf1", ph=15.0)
    # Coordinates alone carry no residues to titrate.
    with pytest.raises(ValueError, match="charged medium needs Structures"):
        vorn.predict(s.coordinates, medium="pf1")


def test_fit_with_a_charged_prediction(binary):
    pf1_dc = DATA / "couplings" / "ubq_2mjb_t502_pf1.dc"
    options = ["--predict", "--medium", "pf1", "--sampling", "4,8,8"]
    doc = run_json(binary, "fit", *options, PDB, pf1_dc)
    [result] = vorn.fit(PDB, pf1_dc, predict=True, medium="pf1", sampling=(4, 8, 8))
    expected = doc["sets"][0]["prediction"]
    assert result.prediction["charges"] == expected["charges"]
    assert result.prediction["charges"][0]["model"] == 1
    assert result.prediction["r"] == expected["r"]
    assert_tensor_equal(result.prediction["tensor"], {
        k: expected["tensor"][k] for k in
        ("saupe", "eigenvalues", "eigenvectors", "da_hz", "rhombicity", "euler_deg")})
    plain = vorn.fit(PDB, pf1_dc, predict=True, medium="phage", sampling=(4, 8, 8))[0]
    assert "charges" not in plain.prediction


def test_missing_and_unreadable_files(tmp_path):
    missing = tmp_path / "missing.pdb"
    with pytest.raises(FileNotFoundError, match="missing.pdb"):
        vorn.read_structure(missing)
    with pytest.raises(FileNotFoundError):
        vorn.read_couplings(tmp_path / "missing.dc")
    with pytest.raises(FileNotFoundError):
        vorn.fit(missing, DC)
    with pytest.raises(FileNotFoundError):
        vorn.fit(CIF, tmp_path / "missing.dc")
    with pytest.raises(OSError):
        vorn.read_structure(tmp_path)  # a directory


def test_bad_coupling_file_names_file_and_line(tmp_path):
    bad = tmp_path / "bad.dc"
    bad.write_text("2 8.17 0\n3 -8.27 0\n4 ten 0\n")
    with pytest.raises(ValueError, match=r"bad\.dc:3: "):
        vorn.read_couplings(bad)
    with pytest.raises(ValueError, match=r"bad\.dc:3: "):
        vorn.fit(CIF, bad)
    sets = vorn.read_couplings(bad, lenient=True)
    assert len(sets[0]) == 2 and sets[0].skipped_lines == 1


def test_read_couplings():
    [dc] = vorn.read_couplings(DC)
    assert dc.name == "" and dc.format == "classic" and len(dc) == 305
    first = dc.couplings[0]
    assert (first["residue1"], first["atom1"], first["residue2"], first["atom2"]) == (2, "N", 2, "H")
    assert first["value_hz"] == 8.17 and math.isnan(first["error_hz"]) and first["line"] == 1
    assert dc.value_hz.shape == (305,) and dc.value_hz[1] == -8.271
    assert np.isnan(dc.error_hz).all()
    sets = vorn.read_couplings(XPLOR)
    assert [s.name for s in sets] == ["500", "501", "503", "502"]
    assert all(s.format == "xplor" for s in sets)
    [only] = vorn.read_couplings(XPLOR, set="501")
    assert only.name == "501" and len(only) == len(sets[1])
    assert only.couplings[0]["error_hz"] == 0.0
    with pytest.raises(ValueError, match="no coupling set"):
        vorn.read_couplings(XPLOR, set="999")


def test_read_couplings_exchange_formats():
    nef = DATA / "formats" / "2l9r_docr_rdc_excerpt.nef.gz"
    sets = vorn.read_couplings(nef)
    assert [s.name for s in sets] == ["peg_gel-1", "peg_gel-2"]
    assert all(s.format == "nef" for s in sets)
    first = sets[0].couplings[0]
    assert (first["residue1"], first["atom1"], first["residue2"], first["atom2"]) == (11, "H", 11, "N")
    assert first["value_hz"] == 3.745 and first["error_hz"] == 4.0
    [only] = vorn.read_couplings(nef, set="nef_rdc_restraint_list_peg_gel-2")
    assert only.name == "peg_gel-2" and len(only) == len(sets[1])
    [star] = vorn.read_couplings(DATA / "formats" / "2kw5_mr_rdc_excerpt.str.gz", format="nmrstar")
    assert star.name == "CNS/XPLOR_dipolar_coupling_5" and star.format == "nmrstar"
    [pipe] = vorn.read_couplings(DATA / "formats" / "ubq_2mjb_t500_nh.tab")
    # Written from the classic N-H file, one row per coupling of it.
    nh = DATA / "couplings" / "ubq_2mjb_t500_bicelleA_nh.dc"
    assert pipe.format == "pipe" and len(pipe) == sum(1 for line in open(nh) if line.strip())
    with pytest.raises(ValueError, match="'nef', 'nmrstar' or 'pipe'"):
        vorn.read_couplings(nef, format="xml")


def assert_fit_equal(result, expected):
    t = expected["tensor"]
    assert_tensor_equal(result.tensor, t)
    assert result.tensor.da == t["aa"] and result.tensor.dr == t["ar"]
    assert result.set == expected["set"] and result.models == expected["models"]
    assert result.n == expected["n"] and result.unresolved == expected["unresolved"]
    assert result.built_hydrogens == expected["built_hydrogens"]
    assert result.unplaced_hydrogens == expected["unplaced_hydrogens"]
    assert result.one_sided_skipped == expected["one_sided_skipped"]
    assert result.condition_number == expected["condition_number"]
    assert result.ill_conditioned == expected["ill_conditioned"]
    assert result.weighted == expected["weighted"]
    assert result.quality == expected["quality"]
    assert result.sign_check == expected["sign_check"]
    assert result.signs_inverted == expected["signs_inverted"]
    assert len(result.outliers) == len(expected["outliers"])
    for mine, theirs in zip(result.outliers, expected["outliers"]):
        assert {k: mine[k] for k in theirs} == theirs
    c = result.couplings
    rows = expected["couplings"]
    assert c["measured_hz"].tolist() == [r["measured_hz"] for r in rows]
    assert result.measured.tolist() == c["measured_hz"].tolist()
    assert c["calculated_hz"].tolist() == [r["calculated_hz"] for r in rows]
    assert result.calculated.tolist() == c["calculated_hz"].tolist()
    assert c["residual_hz"].tolist() == [r["residual_hz"] for r in rows]
    assert c["dmax_hz"].tolist() == [r["dmax_hz"] for r in rows]
    assert c["distance"].tolist() == [r["distance"] for r in rows]
    assert c["type"] == [r["type"] for r in rows]
    assert c["residue1"].tolist() == [r["residue1"] for r in rows]
    assert c["atom2"] == [r["atom2"] for r in rows]
    assert c["line"].tolist() == [r["line"] for r in rows]
    assert [None if math.isnan(e) else e for e in c["error_hz"]] == [r["error_hz"] for r in rows]
    if expected["errors"] is None:
        assert result.errors is None
    else:
        e = expected["errors"]
        assert result.errors["method"] == e["method"]
        assert result.errors["samples"] == e["samples"] and result.errors["seed"] == e["seed"]
        assert result.errors["da_hz_sd"] == e["da_hz_sd"]
        assert result.errors["rhombicity_sd"] == e["rhombicity_sd"]
        assert result.errors["euler_deg_sd"].tolist() == e["euler_deg_sd"]
        assert c["calculated_sd_hz"].tolist() == [r["calculated_sd_hz"] for r in rows]
    if expected["prediction"] is None:
        assert result.prediction is None
    else:
        p = expected["prediction"]
        assert_tensor_equal(result.prediction["tensor"], p["tensor"])
        for key in ("r", "q", "slope", "axis_angle_deg"):
            assert result.prediction[key] == p[key], key
        assert result.prediction["predicted_hz"].tolist() == [r["predicted_hz"] for r in rows]
        assert c["predicted_hz"].tolist() == [r["predicted_hz"] for r in rows]


FIT_CASES = [
    ([], {}),
    (["--errors", "montecarlo", "--samples", "100", "--seed", "3"],
     {"errors": "montecarlo", "samples": 100, "seed": 3}),
    (["--per-model", "--models", "1-3", "--predict", "--fix-sign", "--errors", "bootstrap",
      "--samples", "20", "--sampling", "6,12,12"],
     {"mode": "per-model", "models": "1-3", "predict": True, "fix_sign": True,
      "errors": "bootstrap", "samples": 20, "sampling": (6, 12, 12)}),
    (["--ensemble", "--unweighted", "--drop-outliers", "--types", "N-H,CA-C,C-N",
      "--predict", "--medium", "phage"],
     {"mode": "ensemble", "unweighted": True, "drop_outliers": True,
      "types": ["N-H", "CA-C", "C-N"], "predict": True, "medium": "phage"}),
]


FIT_CASES += [
    (["--add-hydrogens", "--predict", "--select", "all", "--sampling", "6,12,12"],
     {"add_hydrogens": True, "predict": True, "select": "all", "sampling": (6, 12, 12)}),
]


@pytest.mark.parametrize("options,kwargs", FIT_CASES,
                         ids=["default", "montecarlo", "per-model-predict", "ensemble-types",
                              "xray-add-hydrogens"])
def test_fit_matches_command_line(binary, options, kwargs):
    structure = XRAY if kwargs.get("add_hydrogens") else CIF
    doc = run_json(binary, "fit", *options, structure, DC)
    results = vorn.fit(structure, DC, **kwargs)
    assert len(results) == len(doc["sets"]) > 0
    for result, expected in zip(results, doc["sets"]):
        assert isinstance(result, vorn.FitResult)
        assert result.structure_format == doc["input"]["structure_format"]
        assert result.couplings_format == doc["input"]["couplings_format"]
        assert_fit_equal(result, expected)
    if "errors" in kwargs:
        assert all(r.errors is not None for r in results)


def test_hydrogens_of_an_xray_structure():
    xray = vorn.read_structure(XRAY, select="all")[0]
    assert not any(e == "H" for e in xray.elements)
    tensor = vorn.predict(xray, sampling=(6, 12, 12))
    # Placed for the couplings without being asked: the alpha protons too.
    couplings = vorn.predict_couplings(xray, tensor)
    alpha = [c for c in couplings if c["type"] == "CA-HA"]
    assert len(alpha) == 76 + 6 and all(c["built_hydrogen"] for c in alpha)
    # In the steric model only when asked for, and only with select="all"
    # (or keep_hydrogens): 630 hydrogens on its 602 atoms.
    assert vorn.predict(xray, sampling=(6, 12, 12), add_hydrogens=True).saupe.tolist() != \
        tensor.saupe.tolist()
    surface = vorn.read_structure(XRAY)[0]
    assert vorn.predict(surface, sampling=(6, 12, 12), add_hydrogens=True).saupe.tolist() == \
        vorn.predict(surface, sampling=(6, 12, 12)).saupe.tolist()
    with pytest.raises(ValueError, match="add_hydrogens needs Structures"):
        vorn.predict(xray.all_coordinates, add_hydrogens=True)
    # vorn.fit: the alpha-proton couplings are found only with add_hydrogens.
    with pytest.raises(ValueError, match="--add-hydrogens"):
        vorn.fit(XRAY, DC)
    assert "CA-HA" not in vorn.fit(XRAY, DC, lenient=True)[0].quality["per_type"]
    fitted = vorn.fit(XRAY, DC, add_hydrogens=True)[0]
    assert fitted.quality["per_type"]["CA-HA"]["n"] == 62
    assert fitted.built_hydrogens == 630 and fitted.unplaced_hydrogens == 0
@pytest.mark.parametrize("options,kwargs", [
    ([], {}),
    (["--methylene", "mean", "--one-sided", "keep"], {"methylene": "mean", "one_sided": "keep"}),
    (["--bond-lengths", "effective"], {"bond_lengths": "effective"}),
], ids=["defaults", "mean-keep", "effective"])
def test_fit_conventions_match_command_line(binary, options, kwargs):
    common = ["--set", "500", "--fix-sign", "--drop-outliers"]
    doc = run_json(binary, "fit", *common, *options, PDB_2MJB, XPLOR)
    [result] = vorn.fit(PDB_2MJB, XPLOR, set="500", fix_sign=True, drop_outliers=True, **kwargs)
    [expected] = doc["sets"]
    assert_fit_equal(result, expected)
    assert result.one_sided_skipped == (0 if kwargs.get("one_sided") == "keep" else 91)


def test_fit_convention_names_are_checked():
    for name, value in (("bond_lengths", "equilibrium"), ("methylene", "average"),
                        ("one_sided", "bound")):
        with pytest.raises(ValueError, match=name):
            vorn.fit(CIF, DC, **{name: value})


def test_fit_montecarlo_spread_is_reproducible():
    a = vorn.fit(CIF, DC, errors="montecarlo", samples=100, seed=3)[0]
    b = vorn.fit(CIF, DC, errors="montecarlo", samples=100, seed=3)[0]
    c = vorn.fit(CIF, DC, errors="montecarlo", samples=100, seed=4)[0]
    assert a.errors["da_hz_sd"] == b.errors["da_hz_sd"] > 0
    assert a.errors["da_hz_sd"] != c.errors["da_hz_sd"]


def test_gil_is_released_during_prediction(ubq_models):
    """A Python thread keeps counting while a long prediction runs."""
    stack = np.concatenate([np.stack([m.all_coordinates for m in ubq_models])] * 20)
    assert stack.shape == (200, 1231, 3)

    counter = [0]
    stamps = []  # (time, count) every 1000 increments
    stop = threading.Event()

    def count():
        n = 0
        while not stop.is_set():
            n += 1
            if n % 1000 == 0:
                counter[0] = n
                stamps.append(time.perf_counter())

    def progress_during(work):
        """Counter stamps in the middle 80 % of the call, and its duration."""
        stamps.clear()
        t0 = time.perf_counter()
        work()
        t1 = time.perf_counter()
        margin = 0.1 * (t1 - t0)
        inside = sum(t0 + margin < s < t1 - margin for s in stamps)
        return inside, t1 - t0

    worker = threading.Thread(target=count, daemon=True)
    worker.start()
    try:
        while counter[0] == 0:
            time.sleep(0.001)
        # Control: a call that holds the GIL throughout (a builtin sum over a
        # range runs in C without dropping it) lets the counter make no
        # progress; the measurement can tell the two apart.
        held, held_time = progress_during(lambda: sum(range(40_000_000)))
        inside, duration = progress_during(lambda: vorn.predict(stack, sampling=(18, 36, 36)))
    finally:
        stop.set()
        worker.join()
    print(f"\nGIL control (builtin sum, GIL held): {held_time:.3f} s, "
          f"{held * 1000} increments in the middle 80 %")
    print(f"vorn.predict, 200 models: {duration:.3f} s, {inside * 1000} increments "
          f"in the middle 80 % ({inside * 1000 / (0.8 * duration):.0f} per second)")
    assert held_time > 0.1 and held == 0
    assert duration > 0.3, "the prediction was too short to tell"
    assert inside >= 100, f"the counter advanced by only {inside * 1000} during the call"


def test_calls_from_several_threads_agree_with_sequential_ones():
    """Reading (with the surface selection) and predicting from four Python
    threads at once gives what one thread gives."""
    def work():
        models = vorn.read_structure(CIF, models="1-3")
        return [t.saupe.tolist() for t in vorn.predict(models, threads=1)]

    expected = work()
    results = [None] * 4
    errors = []

    def run(k):
        try:
            results[k] = work()
        except Exception as e:  # reported below
            errors.append(e)

    threads = [threading.Thread(target=run, args=(k,)) for k in range(4)]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    assert not errors
    assert results == [expected] * 4


def test_help_reads_well():
    text = pydoc.render_doc(vorn, renderer=pydoc.plaintext)
    for name in vorn.__all__:
        obj = getattr(vorn, name)
        assert obj.__doc__ and len(obj.__doc__.strip()) > 40, name
        assert name in text
        assert obj.__module__ == "vorn", name
    # Signatures name the package's classes, not the extension module.
    assert "[vorn.Structure]" in vorn.read_structure.__doc__
    assert "_vorn" not in vorn.fit.__doc__
    assert vorn.__version__.count(".") == 2


# Local alignment windows against `vorn predict --window`.
@pytest.mark.parametrize("medium", ["bicelle", "pf1"])
def test_predict_windows_matches_command_line(binary, medium):
    doc = run_json(binary, "predict", "--window", "7", "--medium", medium,
                   "--sampling", "5,9,9", PDB)
    [structure] = vorn.read_structure(PDB)
    result = vorn.predict_windows(structure, 7, medium=medium, sampling=(5, 9, 9))
    expected = doc["models"][0]
    assert result["model"] == expected["model"]
    assert_tensor_equal(result["tensor"], expected["tensor"])
    assert len(result["windows"]) == len(expected["windows"]) == 76
    for mine, theirs in zip(result["windows"], expected["windows"]):
        for key in ("chain", "residue", "icode", "resname", "first_residue", "last_residue",
                    "atoms_used"):
            assert mine[key] == theirs[key], key
        assert mine["tensor"].saupe.tolist() == theirs["saupe"]
        assert mine["tensor"].da_hz == theirs["da_hz"]
    assert len(result["couplings"]) == len(expected["couplings"]) > 0
    for mine, theirs in zip(result["couplings"], expected["couplings"]):
        assert {k: mine[k] for k in COUPLING_KEYS} == {k: theirs[k] for k in COUPLING_KEYS}


def test_predict_windows_of_a_whole_chain_are_the_molecule(ubq_models):
    # A window longer than twice the chain holds every residue.
    result = vorn.predict_windows(ubq_models[0], 153, sampling=(5, 9, 9))
    whole = vorn.predict(ubq_models[0], sampling=(5, 9, 9))
    assert_same_tensor(result["tensor"], whole)
    for w in result["windows"]:
        assert np.array_equal(w["tensor"].saupe, whole.saupe)
    many = vorn.predict_windows(ubq_models[:2], 5, sampling=(5, 9, 9))
    assert [m["model"] for m in many] == [ubq_models[0].model, ubq_models[1].model]


@pytest.mark.parametrize("window", [4, 1, 0, -3])
def test_predict_windows_refuses_bad_windows(ubq_models, window):
    with pytest.raises(ValueError, match="odd number of residues"):
        vorn.predict_windows(ubq_models[0], window)


def test_predict_windows_needs_structures():
    with pytest.raises(TypeError, match="windows need residues"):
        vorn.predict_windows(np.zeros((5, 3)), 5)
