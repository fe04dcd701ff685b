#!/usr/bin/python3
"""Writes the test trajectories of tests/data/trajectories from the four
models of tests/data/structures/ubq_1d3z_models1-4.pdb with MDAnalysis
(its own PDB reader does not take the file's free-format records): a
little-endian DCD, and the same file with every 4-byte word byte-swapped
(markers, header words, coordinates; the title text kept) as a big-endian
DCD; an XTC and a TRR of the same frames, with a box of 100 x 110 x 120 A
(MDAnalysis converts A to nm), and the first model as a GROMACS .gro
topology (atom names, residue names and numbers; nm). Run from the
repository root."""
import struct
import MDAnalysis as mda

src = "tests/data/structures/ubq_1d3z_models1-4.pdb"
out = "tests/data/trajectories/ubq_1d3z_models1-4"
# The file's records are free-format ("ATOM serial name residue number x y
# z"): the coordinates are the last three fields, read here.
models, current = [], None
names, residues = [], []  # of the first model: atom names, (number, name)
for line in open(src):
    if line.startswith("MODEL"):
        current = []
    elif line.startswith(("ATOM", "HETATM")):
        current.append([float(v) for v in line.split()[-3:]])
        if not models:
            fields = line.split()
            names.append(fields[2])
            residues.append((int(fields[4]), fields[3]))
    elif line.startswith("ENDMDL"):
        models.append(current)
u = mda.Universe.empty(len(models[0]), trajectory=True)
with mda.Writer(out + ".dcd", u.atoms.n_atoms) as w:
    for xyz in models:
        u.atoms.positions = xyz
        w.write(u.atoms)

data = open(out + ".dcd", "rb").read()
swapped = bytearray()
at = 0
while at < len(data):
    (n,) = struct.unpack_from("<i", data, at)
    body = data[at + 4 : at + 4 + n]
    swapped += struct.pack(">i", n)
    if at == 0:  # "CORD" and 20 control words
        swapped += body[:4] + b"".join(
            struct.pack(">i", v) for v in struct.unpack_from("<20i", body, 4))
    elif at == 92:  # title: a count and its lines
        swapped += struct.pack(">i", struct.unpack_from("<i", body)[0]) + body[4:]
    elif n == 48:  # unit cell: six doubles
        swapped += struct.pack(">6d", *struct.unpack("<6d", body))
    else:  # atom count, coordinates: 4-byte words
        swapped += struct.pack(">%di" % (n // 4), *struct.unpack("<%di" % (n // 4), body))
    swapped += struct.pack(">i", n)
    at += 8 + n
open(out + "_be.dcd", "wb").write(bytes(swapped))

# XTC (MDAnalysis' default precision, 1000: coordinates rounded to 0.001 nm)
# and TRR (single precision), with a box.
u.dimensions = [100.0, 110.0, 120.0, 90.0, 90.0, 90.0]
for extension in (".xtc", ".trr"):
    with mda.Writer(out + extension, u.atoms.n_atoms) as w:
        for xyz in models:
            u.atoms.positions = xyz
            u.dimensions = [100.0, 110.0, 120.0, 90.0, 90.0, 90.0]
            w.write(u.atoms)

# The first model as a .gro topology.
numbers = []
for r in residues:
    if not numbers or numbers[-1] != r:
        numbers.append(r)
index = {r: i for i, r in enumerate(numbers)}
top = mda.Universe.empty(len(names), n_residues=len(numbers),
                         atom_resindex=[index[r] for r in residues], trajectory=True)
top.add_TopologyAttr("names", names)
top.add_TopologyAttr("resids", [r[0] for r in numbers])
top.add_TopologyAttr("resnames", [r[1] for r in numbers])
top.atoms.positions = models[0]
top.dimensions = [100.0, 110.0, 120.0, 90.0, 90.0, 90.0]
top.atoms.write(out.replace("models1-4", "m1") + ".gro")
