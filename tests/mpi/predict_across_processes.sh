#!/usr/bin/env bash
# vorn-mpi predict against vorn predict, under mpirun with 1, 2 and 3
# processes and 1 and 2 threads each: the output must be the same bytes.
#
#   predict_across_processes.sh identical|error|cli VORN_MPI VORN MPIRUN PYTHON3 DATA_DIR
#
# identical: JSON, CSV and text of an mmCIF entry, of a 40-model PDB file
#   made here, of both files at once, of model selections with fewer models
#   than processes, of DCD and XTC trajectories with frame selections, of a
#   charged medium (the models' charges), of local windows (--window, also
#   charged), with --output, and the pictures (--plot-axes, --tensor-script); vorn-mpi fit
#   against vorn fit.
# error: a file with a malformed record in one model (met by the first
#   process, or by another one): a non-zero status within the time limit,
#   the message with file and line on standard error, and the output of
#   vorn predict (JSON closed with its "error" member); a missing file; a
#   PQR file that does not fit the structure.
# cli: --help, --version, misuse, the refusal of --until-converged and the
#   warning about charges without a charged medium, each printed once.
set -u

mode=$1
vorn_mpi=$2
vorn=$3
mpirun=$4
python=$5
data=$6

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
checks=0

fail() {
  echo "FAIL: $*"
  failures=$((failures + 1))
}
pass() {
  echo "ok: $*"
  checks=$((checks + 1))
}

# mpirun with the flags that let root run it and more processes than cores;
# no run may take more than a minute.
run_mpi() {
  local np=$1
  shift
  timeout 60 "$mpirun" --allow-run-as-root --oversubscribe -np "$np" "$vorn_mpi" "$@" < /dev/null
}

# A PDB file of 40 models: the 10 models of the entry four times over,
# numbered 1 to 40.
make_40_models() {
  local out=$1 rep
  grep -E '^(HEADER|TITLE)' "$data/1D3Z_raw_10models.pdb" > "$out"
  for rep in 0 1 2 3; do
    grep -E '^(MODEL|ATOM|HETATM|TER|ENDMDL)' "$data/1D3Z_raw_10models.pdb" |
      awk -v add=$((rep * 10)) '/^MODEL/ { printf "MODEL     %4d\n", $2 + add; next } { print }'
  done >> "$out"
  echo "END" >> "$out"
}

# compare NAME NP THREADS ARGS...: vorn-mpi's output and status against
# vorn's (expected in $work/expected.out, status 0).
compare_run() {
  local name=$1 np=$2 threads=$3
  shift 3
  local status=0
  run_mpi "$np" predict --threads "$threads" "$@" > "$work/got.out" 2> "$work/got.err" ||
    status=$?
  if [ "$status" -ne 0 ]; then
    fail "$name -np $np --threads $threads: status $status"
    sed 's/^/  stderr: /' "$work/got.err"
  elif ! cmp "$work/expected.out" "$work/got.out"; then
    fail "$name -np $np --threads $threads: output differs from vorn predict"
  else
    pass "$name -np $np --threads $threads: same bytes ($(wc -c < "$work/got.out") bytes)"
  fi
}

identical() {
  local pdb40=$work/ubq40.pdb cif=$data/1d3z.cif format file np threads
  make_40_models "$pdb40"
  local models
  models=$(grep -c '^MODEL' "$pdb40")
  [ "$models" -eq 40 ] || fail "the 40-model file has $models models"

  for file in "$cif" "$pdb40"; do
    for format in json csv text; do
      "$vorn" predict --format "$format" --threads 2 "$file" > "$work/expected.out" ||
        fail "vorn predict $format $file: status $?"
      for np in 1 2 3; do
        for threads in 1 2; do
          compare_run "$format $(basename "$file")" "$np" "$threads" --format "$format" "$file"
        done
      done
    done
  done

  # Several files: one document, the files in order.
  for format in json csv text; do
    "$vorn" predict --format "$format" "$pdb40" "$cif" > "$work/expected.out" ||
      fail "vorn predict $format (two files): status $?"
    compare_run "$format two files" 3 1 --format "$format" "$pdb40" "$cif"
  done

  # Fewer selected models than processes: some processes have no share.
  for selection in 4 2,9 1-3; do
    "$vorn" predict --format json --models "$selection" "$cif" > "$work/expected.out" ||
      fail "vorn predict --models $selection: status $?"
    compare_run "json --models $selection" 3 1 --format json --models "$selection" "$cif"
  done

  # A trajectory: each process reads its share of the frames (DCD read by
  # VORN, XTC through the GROMACS library, with a .gro topology).
  local top=$data/../structures/ubq_1d3z_models1-4.pdb
  local dcd=$data/../trajectories/ubq_1d3z_models1-4.dcd
  local gro=$data/../trajectories/ubq_1d3z_m1.gro
  local xtc=$data/../trajectories/ubq_1d3z_models1-4.xtc
  for pair in "$top $dcd" "$gro $xtc"; do
    read -r topology trajectory <<< "$pair"
    for frames in 1: 2:4:2; do
      "$vorn" predict --format json --frames "$frames" "$topology" "$trajectory" \
        > "$work/expected.out" || fail "vorn predict $trajectory --frames $frames: status $?"
      for np in 1 2 3; do
        compare_run "json $(basename "$trajectory") --frames $frames" "$np" 1 --format json \
          --frames "$frames" "$topology" "$trajectory"
      done
    done
  done

  # A charged medium: each model's charges travel with it.
  for format in json text; do
    "$vorn" predict --format "$format" --medium pf1 --sampling 4,8,8 "$cif" \
      > "$work/expected.out" || fail "vorn predict --medium pf1 $format: status $?"
    for np in 2 3; do
      compare_run "$format pf1" "$np" 1 --format "$format" --medium pf1 --sampling 4,8,8 "$cif"
    done
  done

  # Local windows: each model's windowed couplings and window tensors.
  for format in json text; do
    "$vorn" predict --format "$format" --window 7 --sampling 4,8,8 "$pdb40" \
      > "$work/expected.out" || fail "vorn predict --window 7 $format: status $?"
    for np in 1 2 3; do
      compare_run "$format --window 7" "$np" 1 --format "$format" --window 7 --sampling 4,8,8 \
        "$pdb40"
    done
  done
  "$vorn" predict --format json --window 5 --medium pf1 --sampling 4,8,8 --threads 2 "$cif" \
    > "$work/expected.out" || fail "vorn predict --window 5 --medium pf1: status $?"
  compare_run "json --window 5 pf1" 3 2 --format json --window 5 --medium pf1 --sampling 4,8,8 \
    "$cif"

  # fit runs on the first process alone: the same report as vorn fit.
  local couplings=$data/../couplings/ubq_2mjb_t500_bicelleA.dc
  "$vorn" fit --ensemble --format json "$cif" "$couplings" > "$work/expected.out" ||
    fail "vorn fit: status $?"
  if run_mpi 2 fit --ensemble --format json "$cif" "$couplings" > "$work/got.out" &&
    cmp "$work/expected.out" "$work/got.out"; then
    pass "fit --ensemble -np 2: same bytes"
  else
    fail "fit --ensemble -np 2: status or output differs from vorn fit"
  fi

  # --output: the file written by the first process.
  "$vorn" predict --format json -o "$work/vorn.json" "$data/1D3Z_raw_10models.pdb" ||
    fail "vorn predict -o: status $?"
  if run_mpi 2 predict --format json --threads 1 -o "$work/mpi.json" \
    "$data/1D3Z_raw_10models.pdb" > "$work/got.out"; then
    if cmp "$work/vorn.json" "$work/mpi.json" && [ ! -s "$work/got.out" ]; then
      pass "--output: same bytes, nothing on standard output"
    else
      fail "--output differs from vorn predict's"
    fi
  else
    fail "--output: status $?"
  fi

  # The pictures: written by the first process, the same bytes as vorn's.
  "$vorn" predict -q --format json -o "$work/vorn.json" --plot-axes "$work/vorn.svg" \
    --tensor-script "$work/vorn.pml" "$data/1D3Z_raw_10models.pdb" ||
    fail "vorn predict --plot-axes --tensor-script: status $?"
  if run_mpi 3 predict --threads 1 --format json -o "$work/mpi.json" --plot-axes \
    "$work/mpi.svg" --tensor-script "$work/mpi.pml" "$data/1D3Z_raw_10models.pdb"; then
    if cmp "$work/vorn.svg" "$work/mpi.svg" && cmp "$work/vorn.pml" "$work/mpi.pml"; then
      pass "--plot-axes, --tensor-script: same bytes"
    else
      fail "--plot-axes or --tensor-script differs from vorn predict's"
    fi
  else
    fail "--plot-axes, --tensor-script: status $?"
  fi
}

# bad_model MODEL: the 10-model entry with a coordinate field of MODEL
# garbled; prints the file's line of it.
bad_model() {
  local model=$1 out=$2
  awk -v m="$model" '/^MODEL/ { n = $2 } n == m && /^ATOM/ && ++k == 10 {
      $0 = substr($0, 1, 30) "  x.yyy " substr($0, 39) } { print }' \
    "$data/1D3Z_raw_10models.pdb" > "$out"
  grep -n 'x\.yyy' "$out" | cut -d: -f1
}

error() {
  local model line bad format status expected_status
  # -np 3: model 7 (position 6) is the first process's, model 5 (position
  # 4) the second's, model 9 (position 8) the third's.
  for model in 7 5 9; do
    bad=$work/bad$model.pdb
    line=$(bad_model "$model" "$bad")
    for format in json csv; do
      expected_status=0
      "$vorn" predict --format "$format" "$bad" > "$work/expected.out" 2> "$work/expected.err" ||
        expected_status=$?
      [ "$expected_status" -eq 1 ] || fail "vorn predict on $bad: status $expected_status"
      status=0
      run_mpi 3 predict --format "$format" --threads 2 "$bad" > "$work/got.out" \
        2> "$work/got.err" || status=$?
      local name="model $model garbled, $format, -np 3"
      if [ "$status" -eq 0 ] || [ "$status" -eq 124 ] || [ "$status" -eq 137 ]; then
        fail "$name: status $status (0: no failure; 124/137: timed out)"
      else
        pass "$name: status $status"
      fi
      if grep -q "^vorn-mpi: $bad:$line: .*(model $model)\$" "$work/got.err"; then
        pass "$name: standard error names the file, line $line and model $model"
      else
        fail "$name: no message with $bad:$line on standard error"
        sed 's/^/  stderr: /' "$work/got.err"
      fi
      local messages
      messages=$(grep -c '^vorn-mpi:' "$work/got.err")
      [ "$messages" -eq 1 ] || fail "$name: $messages messages instead of one"
      if cmp "$work/expected.out" "$work/got.out"; then
        pass "$name: output the same bytes as vorn predict's"
      else
        fail "$name: output differs from vorn predict's"
      fi
      if [ "$format" = json ]; then
        if "$python" -c '
import json, sys
doc = json.load(open(sys.argv[1]))
models = [m["model"] for m in doc["models"]]
assert models == list(range(1, int(sys.argv[2]))), models
assert doc["error"]["models_written"] == len(models), doc["error"]
assert sys.argv[3] in doc["error"]["message"], doc["error"]
' "$work/got.out" "$model" "$bad:$line:"; then
          pass "$name: valid JSON, models 1 to $((model - 1)), closed with its error member"
        else
          fail "$name: not the expected JSON"
        fi
      fi
    done
  done

  # A missing file: status 1 before any output, on every process.
  for files in "$work/missing.pdb" "$data/1d3z.cif $work/missing.pdb"; do
    status=0
    # shellcheck disable=SC2086
    run_mpi 3 predict --format json $files > "$work/got.out" 2> "$work/got.err" || status=$?
    if [ "$status" -eq 1 ] && [ ! -s "$work/got.out" ] &&
      [ "$(grep -c "^vorn-mpi: $work/missing.pdb: cannot open" "$work/got.err")" -eq 1 ]; then
      pass "missing file ($files): status 1, no output, one message"
    else
      fail "missing file ($files): status $status"
      sed 's/^/  stderr: /' "$work/got.err"
    fi
  done

  # A PQR file that does not fit the structure: status 1 before any output.
  local pqr=$data/../structures/ubq_1ubq_ph6.pqr dna=$data/../structures/dna_1lcd_duplex_m1.pdb
  status=0
  run_mpi 3 predict --format json --medium pf1 --charges "$pqr" "$dna" > "$work/got.out" \
    2> "$work/got.err" || status=$?
  if [ "$status" -eq 1 ] && [ ! -s "$work/got.out" ] &&
    [ "$(grep -c "^vorn-mpi: $pqr:[0-9]*: .*(model 1 of $dna)\$" "$work/got.err")" -eq 1 ] &&
    [ "$(grep -c '^vorn-mpi:' "$work/got.err")" -eq 1 ]; then
    pass "PQR file not fitting the structure: status 1, no output, one message"
  else
    fail "PQR file not fitting the structure: status $status"
    sed 's/^/  stderr: /' "$work/got.err"
  fi
}

cli() {
  local status
  # Charges without a charged medium: one warning, the steric output.
  "$vorn" predict --format json --sampling 4,8,8 --models 1 "$data/1d3z.cif" \
    > "$work/expected.out" 2> /dev/null
  status=0
  run_mpi 3 predict --format json --ph 6 --sampling 4,8,8 --models 1 "$data/1d3z.cif" \
    > "$work/got.out" 2> "$work/got.err" || status=$?
  if [ "$status" -eq 0 ] && cmp -s "$work/expected.out" "$work/got.out" &&
    [ "$(grep -c "^vorn-mpi: warning: the molecule's charges have no effect" "$work/got.err")" -eq 1 ]; then
    pass "--ph without a charged medium: one warning, the steric output"
  else
    fail "--ph without a charged medium: status $status"
    sed 's/^/  stderr: /' "$work/got.err"
  fi
  run_mpi 3 --version > "$work/got.out" 2> "$work/got.err"
  status=$?
  if [ "$status" -eq 0 ] && [ "$(cat "$work/got.out")" = "vorn-mpi $("$vorn" --version | cut -d' ' -f2)" ]; then
    pass "--version: once, status 0"
  else
    fail "--version: status $status, output '$(cat "$work/got.out")'"
  fi
  run_mpi 2 --help > "$work/got.out" 2> "$work/got.err"
  status=$?
  if [ "$status" -eq 0 ] && [ "$(grep -c '^Usage: vorn-mpi' "$work/got.out")" -eq 1 ] &&
    grep -q 'predict' "$work/got.out"; then
    pass "--help: once, status 0"
  else
    fail "--help: status $status"
  fi
  run_mpi 2 predict --help > "$work/got.out" 2> "$work/got.err"
  status=$?
  if [ "$status" -eq 0 ] && [ "$(grep -c -- '--threads' "$work/got.out")" -eq 1 ]; then
    pass "predict --help: once, status 0"
  else
    fail "predict --help: status $status"
  fi
  # --until-converged needs the models in order: refused, once, before any output.
  status=0
  run_mpi 3 predict --until-converged 0.5 "$data/1d3z.cif" > "$work/got.out" 2> "$work/got.err" ||
    status=$?
  if [ "$status" -eq 2 ] && [ ! -s "$work/got.out" ] &&
    [ "$(grep -c '^vorn-mpi: --until-converged is not supported across processes; use vorn$' "$work/got.err")" -eq 1 ]; then
    pass "--until-converged: refused once, status 2, no output"
  else
    fail "--until-converged: status $status"
    sed 's/^/  stderr: /' "$work/got.err"
  fi
  for args in "predict --format yaml $data/1d3z.cif" "predict" "frobnicate" ""; do
    status=0
    # shellcheck disable=SC2086
    run_mpi 3 $args > "$work/got.out" 2> "$work/got.err" || status=$?
    if [ "$status" -eq 2 ] && [ ! -s "$work/got.out" ] &&
      [ "$(grep -c 'Run with --help for more information' "$work/got.err")" -eq 1 ]; then
      pass "misuse '$args': status 2, printed once"
    else
      fail "misuse '$args': status $status"
      sed 's/^/  stderr: /' "$work/got.err"
    fi
  done
}

case "$mode" in
  identical) identical ;;
  error) error ;;
  cli) cli ;;
  *)
    echo "unknown case $mode" >&2
    exit 2
    ;;
esac
echo "$checks checks passed, $failures failed"
[ "$failures" -eq 0 ] && [ "$checks" -gt 0 ]
