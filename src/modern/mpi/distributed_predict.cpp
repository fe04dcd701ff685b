#include "modern/mpi/distributed_predict.hpp"

#include <mpi.h>
#include <sched.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fstream>
#include <functional>
#include <optional>
#include <stdexcept>
#include <thread>
#include <vector>

#include "modern/cli.hpp"
#include "modern/mpi/model_message.hpp"
#include "modern/predict_pictures.hpp"
#include "modern/predict_report.hpp"

namespace vorn::mpi {
namespace {

using app::EnsembleAccumulator;
using app::ModelPrediction;
using app::PredictSettings;

// Message tags. From the other processes to the first, per file: one
// kModel message per model of their share in file order, then kEnd (the
// share is done, or the process was stopped) or kError (a failure in place
// of the next model of the share). From the first to the others: kStop
// (end the current file now) and, after each file, kDecision (0: go on; else
// the exit status).
constexpr int kModel = 1;
constexpr int kEnd = 2;
constexpr int kError = 3;
constexpr int kStop = 4;
constexpr int kDecision = 5;

// Open MPI's blocking calls spin on a core while they wait; the waits here
// poll with growing pauses instead (up to 2 ms, short beside a prediction),
// so that the prediction threads of the process keep the cores.
class Backoff {
 public:
  void pause() {
    std::this_thread::sleep_for(delay_);
    delay_ = std::min(delay_ * 2, std::chrono::microseconds(2000));
  }

 private:
  std::chrono::microseconds delay_{20};
};

void wait(MPI_Request& request) {
  Backoff backoff;
  for (;;) {
    int done = 0;
    MPI_Test(&request, &done, MPI_STATUS_IGNORE);
    if (done != 0) return;
    backoff.pause();
  }
}

struct Message {
  int tag = 0;
  std::string bytes;
};

// The next message from `source` (with `tag`, or any).
Message receive(int source, int tag = MPI_ANY_TAG) {
  MPI_Status status;
  Backoff backoff;
  for (;;) {
    int found = 0;
    MPI_Iprobe(source, tag, MPI_COMM_WORLD, &found, &status);
    if (found != 0) break;
    backoff.pause();
  }
  int count = 0;
  MPI_Get_count(&status, MPI_CHAR, &count);
  Message m{status.MPI_TAG, std::string(static_cast<std::size_t>(count), '\0')};
  MPI_Recv(m.bytes.data(), count, MPI_CHAR, source, status.MPI_TAG, MPI_COMM_WORLD,
           MPI_STATUS_IGNORE);
  return m;
}

int byte_count(const std::string& bytes) {
  if (bytes.size() > static_cast<std::size_t>(INT_MAX)) {
    throw std::length_error("a message of " + std::to_string(bytes.size()) +
                            " bytes is beyond what MPI sends at once");
  }
  return static_cast<int>(bytes.size());
}

// Sends and waits until the receiver has started to take the message, so
// that no more than one message per sender waits at the receiver.
void send_synchronous(const std::string& bytes, int destination, int tag) {
  MPI_Request request;
  MPI_Issend(bytes.data(), byte_count(bytes), MPI_CHAR, destination, tag, MPI_COMM_WORLD, &request);
  wait(request);
}

// Starts a send whose request the caller completes.
MPI_Request send_later(const std::string& bytes, int destination, int tag) {
  MPI_Request request;
  MPI_Isend(bytes.data(), byte_count(bytes), MPI_CHAR, destination, tag, MPI_COMM_WORLD, &request);
  return request;
}

// How a process predicts: the threads as `vorn predict` uses them, from
// --threads or the cores of this process.
struct Plan {
  int threads;
  PredictionContext context;
  int workers;
  int per_prediction;

  explicit Plan(const PredictSettings& s)
      : threads(s.threads > 0 ? s.threads : available_cores()),
        context(s.sampling, threads),
        workers(app::plan_threads(context, threads).workers),
        per_prediction(app::plan_threads(context, threads).per_prediction) {}
};

// A failure that another process met in place of one of its models.
class RemoteFailure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The first process's side of one file: the models of the other processes
// in file order, and the end of their shares.
class Gather {
 public:
  using Writer = std::function<void(const ModelPrediction&, const std::string&)>;

  Gather(const std::string& file, const ProcessGroup& group, Writer write)
      : file_(file), size_(group.size), finished_(group.size, false), write_(std::move(write)) {}

  long next() const { return next_; }

  // This process's own model at `position`: first the others' models before
  // it. Throws RemoteFailure when one of them failed in their place.
  void own(long position, const ModelPrediction& m, const std::string& text) {
    if (!others_until(position)) {
      throw RemoteFailure(file_ + ": process " + std::to_string(position % size_) +
                          " found fewer models than process 0 (is the file the same for every "
                          "process?)");
    }
    write_(m, text);
    next_ = position + 1;
  }

  // Writes the others' models before `position`; false when a process's share
  // ended first (the file has fewer models). Throws RemoteFailure.
  bool others_until(long position) {
    while (next_ < position) {
      if (!take(next_)) return false;
      ++next_;
    }
    return true;
  }

  // After this process's share ended: the others' models that follow, up to
  // the first position no process has.
  void others_to_end() {
    while (next_ % size_ != 0 && take(next_)) ++next_;
  }

  // The last message of the processes whose share ended after the last model.
  void collect_ends() {
    for (int r = 1; r < size_; ++r) {
      if (finished_[r]) continue;
      const Message m = receive(r);
      if (m.tag == kModel) {
        throw RemoteFailure(file_ + ": process " + std::to_string(r) +
                            " found more models than process 0 (is the file the same for every "
                            "process?)");
      }
      // A failure past the last model (a process that could not read a file
      // it had no model of) leaves the output complete.
      finished_[r] = true;
    }
  }

  // Tells the processes still predicting to stop and takes their messages
  // up to the last one; the stop requests are added to `pending`.
  void stop_others(std::vector<MPI_Request>& pending) {
    static const std::string kNothing;
    for (int r = 1; r < size_; ++r) {
      if (!finished_[r]) pending.push_back(send_later(kNothing, r, kStop));
    }
    for (int r = 1; r < size_; ++r) {
      while (!finished_[r]) {
        const int tag = receive(r).tag;
        finished_[r] = tag == kEnd || tag == kError;
      }
    }
  }

 private:
  // The message of `position` from its process: true for a model (written),
  // false when the process's share ended before it.
  bool take(long position) {
    const int r = static_cast<int>(position % size_);
    Message m = receive(r);
    switch (m.tag) {
      case kModel: {
        ModelMessage model;
        try {
          model = decode_model(m.bytes);
        } catch (const MessageError& e) {
          throw RemoteFailure(file_ + ": process " + std::to_string(r) + ": " + e.what());
        }
        write_(model.prediction, model.text);
        return true;
      }
      case kEnd:
        finished_[r] = true;
        return false;
      case kError:
        finished_[r] = true;
        throw RemoteFailure(m.bytes);
      default:
        throw RemoteFailure(file_ + ": unexpected message (tag " + std::to_string(m.tag) +
                            ") from process " + std::to_string(r));
    }
  }

  std::string file_;
  int size_;
  std::vector<bool> finished_;  // the process's last message of the file was received
  Writer write_;
  long next_ = 0;  // position of the next model to write
};

// Sends the status to every other process after the file; the requests are
// added to `pending`.
void decide(int status, const ProcessGroup& group, std::vector<MPI_Request>& pending,
            std::vector<std::string>& buffers) {
  buffers.assign(1, std::string(reinterpret_cast<const char*>(&status), sizeof status));
  for (int r = 1; r < group.size; ++r) pending.push_back(send_later(buffers.front(), r, kDecision));
}

void complete(std::vector<MPI_Request>& pending) {
  for (MPI_Request& request : pending) wait(request);
  pending.clear();
}

void report_failure(const std::string& program, const std::string& message) {
  std::fprintf(stderr, "%s: %s\n", program.c_str(), message.c_str());
  std::fflush(stderr);
}

// The first process: predicts its share and writes the document.
int run_first(const PredictSettings& s, const Plan& plan, const ProcessGroup& group,
              const std::string& program) {
  PredictSettings share = s;
  share.read.stride = group.size;
  share.read.offset = 0;
  modern::PredictReport report(s, s.files.size() > 1);
  modern::PredictPictures pictures(s, s.files.size());
  modern::Output out(s.output_file, !report.keeps_partial_output());
  std::vector<MPI_Request> pending;
  std::vector<std::string> buffers;

  for (std::size_t f = 0; f < s.files.size(); ++f) {
    const std::string& file = s.files[f];
    EnsembleAccumulator ensemble;
    bool begun = false;
    long own_models = 0;
    bool gathering = false;  // in the exchange with the others, not in this process's stream
    const auto write = [&](const ModelPrediction& m, const std::string& text) {
      out.write(report.separator());
      out.write(text);
      ensemble.add(m);
      pictures.add(m);
    };
    Gather gather(file, group, write);
    std::optional<std::string> failure;
    try {
      if (f == 0) out.write(report.begin_all());
      app::predict_stream(
          file, share, plan.context, plan.workers, plan.per_prediction,
          [&](const std::string& format) {
            out.write(report.begin_file(file, format));
            begun = true;
          },
          [&](const ModelPrediction& m) { return report.model(m, file); },
          [&](const ModelPrediction& m, const std::string& text) {
            gathering = true;
            gather.own(own_models * group.size, m, text);
            gathering = false;
            ++own_models;
          });
      gathering = true;
      gather.others_to_end();
      gather.collect_ends();
    } catch (const RemoteFailure& e) {
      failure = e.what();
    } catch (const std::exception& e) {
      failure = e.what();
      // A failure of this process's own stream takes the place of its next
      // model: the others' models before that come first, and so does a
      // failure of theirs there.
      if (begun && !gathering) {
        try {
          gather.others_until(own_models * group.size);
        } catch (const std::exception& earlier) {
          failure = earlier.what();
        }
      }
    }
    try {
      if (failure) {
        // Close the document so that what was written stays valid, then fail.
        if (begun && report.keeps_partial_output()) {
          out.write(report.end_file_with_error(*failure, ensemble.models()));
          out.write(report.end_all());
          out.finish();
        }
      } else {
        out.write(report.end_file(ensemble));
        pictures.end_file(f, file);
        if (f + 1 == s.files.size()) {
          out.write(report.end_all());
          out.finish();
        }
      }
    } catch (const std::exception& e) {
      failure = e.what();
    }
    if (failure) {
      report_failure(program, *failure);
      gather.stop_others(pending);
      decide(1, group, pending, buffers);
      complete(pending);
      return 1;
    }
    decide(0, group, pending, buffers);
    complete(pending);
  }
  return 0;
}

// Thrown on another process when the first asks it to stop.
struct Stopped {};

// The status the first process decides after a file; stop requests that
// arrive first are taken and dropped.
int await_decision() {
  for (;;) {
    const Message m = receive(0);
    if (m.tag != kDecision) continue;
    int status = 1;
    if (m.bytes.size() == sizeof status) std::memcpy(&status, m.bytes.data(), sizeof status);
    return status;
  }
}

// Another process: predicts its share and sends each model as it is done.
int run_other(const PredictSettings& s, const Plan& plan, const ProcessGroup& group) {
  PredictSettings share = s;
  share.read.stride = group.size;
  share.read.offset = group.rank;
  const modern::PredictReport report(s, s.files.size() > 1);
  for (const std::string& file : s.files) {
    long sent = 0;
    try {
      app::predict_stream(
          file, share, plan.context, plan.workers, plan.per_prediction, {},
          [&](const ModelPrediction& m) { return report.model(m, file); },
          [&](const ModelPrediction& m, const std::string& text) {
            int stop = 0;
            MPI_Iprobe(0, kStop, MPI_COMM_WORLD, &stop, MPI_STATUS_IGNORE);
            if (stop != 0) {
              receive(0, kStop);
              throw Stopped{};
            }
            send_synchronous(encode_model(m, text), 0, kModel);
            ++sent;
          });
      send_synchronous({}, 0, kEnd);
    } catch (const Stopped&) {
      send_synchronous({}, 0, kEnd);
    } catch (const std::exception& e) {
      // predict_stream ends a stream that handed out no model with this
      // failure; for a share of the models it means the share is empty (the
      // file has fewer models than processes), which is no failure.
      const std::string message = e.what();
      const bool empty_share = sent == 0 && message == file + ": no model selected";
      send_synchronous(empty_share ? std::string() : message, 0, empty_share ? kEnd : kError);
    }
    const int status = await_decision();
    if (status != 0) return status;
  }
  return 0;
}

}  // namespace

int available_cores() {
  cpu_set_t set;
  CPU_ZERO(&set);
  if (sched_getaffinity(0, sizeof set, &set) == 0 && CPU_COUNT(&set) > 0) return CPU_COUNT(&set);
  return std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
}

int worst_status(int status) {
  int worst = status;
  MPI_Request request;
  MPI_Iallreduce(&status, &worst, 1, MPI_INT, MPI_MAX, MPI_COMM_WORLD, &request);
  wait(request);
  return worst;
}

int predict_across_processes(const PredictSettings& settings, const ProcessGroup& group,
                             const std::string& program) {
  // Every input must open before anything is written (the first process
  // checks, as `vorn predict` does, and that a PQR file fits the
  // structures; the others read it as their stream starts); the plan is the
  // same on every process.
  PredictSettings s = settings;
  std::optional<Plan> plan;
  int status = 0;
  try {
    plan.emplace(s);
    if (group.rank == 0) {
      for (const std::string& file : s.files) {
        std::ifstream probe(file, std::ios::binary);
        if (!probe) throw io::InputError(file + ": cannot open: " + std::strerror(errno));
      }
      app::prepare_charges(s, s.files);
      modern::PredictPictures(s, s.files.size());  // picture files of no format fail here
    }
  } catch (const std::exception& e) {
    report_failure(program, group.rank == 0
                                ? e.what()
                                : "process " + std::to_string(group.rank) + ": " + e.what());
    status = 1;
  }
  if (worst_status(status) != 0) return 1;
  if (group.rank == 0) return run_first(s, *plan, group, program);
  return run_other(s, *plan, group);
}

}  // namespace vorn::mpi
