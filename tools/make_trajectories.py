#!/usr/bin/python3
"""Writes the test trajectories of tests/data/trajectories from the four
models of tests/data/structures/ubq_1d3z_models1-4.pdb with MDAnalysis
(its own PDB reader does not take the file's free-format records): a
little-endian DCD, and the same file with every 4-byte word byte-swapped
(markers, header words, coordinates; the title text kept) as a big-endian
DCD. Run from the repository root."""
import struct
import MDAnalysis as mda

src = "tests/data/structures/ubq_1d3z_models1-4.pdb"
out = "tests/data/trajectories/ubq_1d3z_models1-4"
# The file's records are free-format ("ATOM serial name residue number x y
# z"): the coordinates are the last three fields, read here.
models, current = [], None
for line in open(src):
    if line.startswith("MODEL"):
        current = []
    elif line.startswith(("ATOM", "HETATM")):
        current.append([float(v) for v in line.split()[-3:]])
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
