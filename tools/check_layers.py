#!/usr/bin/env python3
"""Checks that includes run one way through the layers.

ground    src/core, include/vorn/{error,log}.hpp: nothing of the project
          beyond the ground itself; its two public headers may be used by
          every layer
engine    src/{molecule,couplings,simulation,tensor,fit,api} and the rest of
          include/vorn: the ground, the public headers and the engine
          subsystems below them (fit may use couplings; api uses all)
io        src/io (readers of the files people have, shared by the modern
          front ends): the public API and itself
app       src/app (the commands behind the modern front ends): the public
          API, src/io and itself
front     src/classic, src/modern, src/mpi, python: nothing includes them;
          front ends other than the classic one use only the public API and
          src/io

Prints one line per violation and exits 1 when there is any.
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else ".").resolve()
INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"]+)"', re.M)

GROUND_PUBLIC = {"vorn/error.hpp", "vorn/log.hpp"}
ENGINE = ["molecule", "couplings", "simulation", "tensor", "fit", "api"]
# Engine subsystems each may include, besides itself, the ground and vorn/.
ENGINE_DEPS = {
    "molecule": set(),
    "couplings": set(),
    "simulation": set(),
    "tensor": set(),
    "fit": {"couplings"},
    "api": set(ENGINE),
}
FRONT = ["classic", "modern", "mpi", "python"]


def project_part(header):
    """The layer part a quoted include names, or None for a file of the
    including folder itself or of a library outside the project."""
    first = header.split("/", 1)[0]
    if header in GROUND_PUBLIC:
        return "ground-public"
    if first == "vorn":
        return "public"
    if first == "core":
        return "ground"
    if first in ENGINE:
        return first
    if first in ("io", "app"):
        return first
    if first in FRONT:
        return "front:" + first
    return None


def layer_of(path):
    rel = path.relative_to(ROOT).as_posix()
    if rel.startswith("include/vorn/"):
        name = "vorn/" + rel[len("include/vorn/"):]
        return ("ground", None) if name in GROUND_PUBLIC else ("public", None)
    parts = rel.split("/")
    if parts[0] == "src" and len(parts) > 2:
        if parts[1] == "core":
            return ("ground", None)
        if parts[1] in ENGINE:
            return ("engine", parts[1])
        if parts[1] in ("io", "app"):
            return (parts[1], None)
        if parts[1] in FRONT:
            return ("front", parts[1])
    if parts[0] == "python":
        return ("front", "python")
    return (None, None)


def allowed(layer, sub, part):
    if part is None:
        return True
    if part == "ground-public":
        return True  # the ground's public headers are part of the API
    if layer == "ground":
        return part == "ground"
    if layer == "public":
        return part == "public"
    if layer == "engine":
        return part in ("ground", "public", sub) or part in ENGINE_DEPS[sub]
    if layer == "io":
        return part in ("public", "io")
    if layer == "app":
        return part in ("public", "io", "app")
    if layer == "front":
        if part == "front:" + sub or part in ("io", "app"):
            return True
        # The classic front end also raises the ground's classic errors; the
        # other front ends use the public API alone.
        return part == "public" or (sub == "classic" and part == "ground")
    return True


def main():
    violations = []
    files = [p for d in ("src", "include", "python") for p in (ROOT / d).rglob("*")
             if p.suffix in (".hpp", ".cpp", ".h") and p.is_file()]
    for path in sorted(files):
        layer, sub = layer_of(path)
        if layer is None:
            continue
        for header in INCLUDE.findall(path.read_text(errors="replace")):
            part = project_part(header)
            if not allowed(layer, sub, part):
                violations.append(f"{path.relative_to(ROOT)}: includes \"{header}\" "
                                  f"({layer}{'/' + sub if sub else ''} may not use {part})")
    for v in violations:
        print(v)
    if violations:
        print(f"{len(violations)} include(s) against the layers")
        return 1
    print(f"layers: {len(files)} files checked, includes run one way")
    return 0


if __name__ == "__main__":
    sys.exit(main())
