#!/usr/bin/env bash
# The layer check must fail on a tree that breaks each rule and pass on one
# that keeps them.
set -u
checker=$1
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
make_tree() {
  rm -rf "$tmp/tree" && mkdir -p "$tmp/tree/src/core" "$tmp/tree/src/molecule" \
    "$tmp/tree/src/fit" "$tmp/tree/src/classic" "$tmp/tree/src/modern" "$tmp/tree/include/vorn"
  echo '#include <vector>' > "$tmp/tree/src/core/fatal.hpp"
  echo '#include "vorn/error.hpp"' > "$tmp/tree/include/vorn/log.hpp"
  echo '#include "core/fatal.hpp"' > "$tmp/tree/src/molecule/nsc.cpp"
  echo '#include "couplings/classic_types.hpp"' > "$tmp/tree/src/fit/compare.cpp"
  echo '#include "classic/io.hpp"' > "$tmp/tree/src/classic/run.cpp"
  echo '#include "vorn/predict.hpp"' > "$tmp/tree/src/modern/predict.cpp"
}
fail=0
expect() {  # expect <status> <what>
  python3 "$checker" "$tmp/tree" > "$tmp/out" 2>&1
  local got=$?
  if [ "$got" -ne "$1" ]; then
    echo "FAIL: $2 (status $got, expected $1)"; cat "$tmp/out"; fail=1
  else
    echo "ok: $2"
  fi
}
make_tree; expect 0 "a tree that keeps the rules"
make_tree; echo '#include "molecule/nsc.hpp"' >> "$tmp/tree/src/core/fatal.hpp"
expect 1 "the ground includes the engine"
make_tree; echo '#include "classic/io.hpp"' >> "$tmp/tree/src/molecule/nsc.cpp"
expect 1 "an engine file includes a front-end header"
make_tree; echo '#include "fit/compare.hpp"' >> "$tmp/tree/src/molecule/nsc.cpp"
expect 1 "an engine subsystem includes one above it"
make_tree; echo '#include "simulation/grid.hpp"' >> "$tmp/tree/src/modern/predict.cpp"
expect 1 "the modern front end uses an engine internal"
make_tree; echo '#include "modern/cli.hpp"' >> "$tmp/tree/src/classic/run.cpp"
expect 1 "a front end includes another"
make_tree; mkdir -p "$tmp/tree/src/io"; echo '#include "vorn/structure.hpp"' > "$tmp/tree/src/io/reader.cpp"
echo '#include "io/reader.hpp"' >> "$tmp/tree/src/modern/predict.cpp"
expect 0 "the modern front end uses the shared readers"
make_tree; mkdir -p "$tmp/tree/src/io"; echo '#include "simulation/grid.hpp"' > "$tmp/tree/src/io/reader.cpp"
expect 1 "a shared reader uses an engine internal"
make_tree; mkdir -p "$tmp/tree/src/io"; echo '#include "modern/cli.hpp"' > "$tmp/tree/src/io/reader.cpp"
expect 1 "a shared reader includes a front end"
make_tree; echo '#include "classic/io.hpp"' >> "$tmp/tree/include/vorn/log.hpp"
expect 1 "a public header includes a front end"
exit $fail
