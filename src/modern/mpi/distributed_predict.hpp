// `vorn predict` across the processes of an MPI job.
//
// The selected models of each file are dealt round-robin by their position
// p among them: process r predicts those with p % size == r, with its own
// threads, reading (parsing) only its share. The first process writes the
// document: it takes model p from process p % size (its own from its local
// stream, the others' as messages sent as each model is done) in file order,
// with the same report pieces and the same ensemble accumulation as
// `vorn predict`, so the output is the same bytes for any number of
// processes and threads. Each other process has at most one model in
// flight: its send completes when the first process receives it.
//
// A failure (a model that cannot be read or predicted) takes that model's
// place: when the first process reaches it, it closes the document as
// `vorn predict` does, prints one line on standard error, stops the other
// processes and every process returns 1.
#pragma once

#include <string>

#include "app/predict_command.hpp"

namespace vorn::mpi {

// This process within MPI_COMM_WORLD.
struct ProcessGroup {
  int rank = 0;
  int size = 1;
};

// The cores this process may run on (its CPU affinity: what mpirun or
// srun granted it), at least 1.
int available_cores();

// Runs `vorn predict` with the settings on every process of the group; MPI
// is initialised with at least MPI_THREAD_FUNNELED (the calls are made on the
// calling thread only). Returns the exit status, the same on every process:
// 0, or 1 after a failure that the first process reported on standard error
// prefixed with `program`.
int predict_across_processes(const app::PredictSettings& settings, const ProcessGroup& group,
                             const std::string& program);

// The highest of the processes' `status`, on every process; waits without
// spinning on a core until every process of MPI_COMM_WORLD calls it.
int worst_status(int status);

}  // namespace vorn::mpi
