// vorn-mpi: the modern commands of vorn across the processes of an MPI job.
// `vorn-mpi predict` shares the models of each file among the processes and
// writes the same bytes as `vorn predict`; `vorn-mpi fit` runs on the first
// process alone (the others wait).
#include <mpi.h>

#include <cstdio>

#include "modern/cli.hpp"
#include "modern/mpi/distributed_predict.hpp"

int main(int argc, char** argv) {
  int provided = 0;
  MPI_Init_thread(&argc, &argv, MPI_THREAD_FUNNELED, &provided);
  vorn::mpi::ProcessGroup group;
  MPI_Comm_rank(MPI_COMM_WORLD, &group.rank);
  MPI_Comm_size(MPI_COMM_WORLD, &group.size);

  const std::string program = "vorn-mpi";
  vorn::modern::FrontEnd front;
  front.program = program;
  front.description =
      "VORN across the processes of an MPI job: the models of each file are shared among the "
      "processes (each with its own threads); the output is that of vorn, byte for byte.\n"
      "Run as: mpirun -np N vorn-mpi predict [options] FILE, or srun -n N vorn-mpi ...";
  // Help, version and misuse are printed once, by the first process.
  front.print_messages = group.rank == 0;
  vorn::modern::CommandRunners runners;
  runners.predict = [&](vorn::app::PredictSettings& settings) {
    // Stopping at convergence needs the models in order as they are
    // predicted, which the shared stream does not give; every process
    // refuses it alike.
    if (settings.until_converged > 0.0) {
      if (group.rank == 0)
        std::fprintf(stderr, "%s: --until-converged is not supported across processes; use vorn\n",
                     program.c_str());
      return 2;
    }
    return vorn::mpi::predict_across_processes(settings, group, program);
  };
  runners.fit = [&](const vorn::app::FitSettings& settings) {
    return group.rank == 0 ? vorn::modern::run_fit_command(settings) : 0;
  };
  const int status = vorn::modern::run_cli(argc, argv, runners, front);
  std::fflush(stdout);
  // Every process ends with the same status (a failure of the first
  // process's fit included), after all of them are done.
  const int common = vorn::mpi::worst_status(status);
  MPI_Finalize();
  return common;
}
