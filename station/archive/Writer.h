// The one writer of the archive: a thread that takes jobs in their order and keeps many of them with each commit. While the
// database is away or its disk is full the jobs wait; only when too many wait are the oldest that may be dropped given up,
// and counted.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "station/archive/Archive.h"

namespace ostrel::station {

/// Runs inside a transaction, and again when that had to be given up: it does nothing but write.
using WriteJob = std::function<void(Archive&)>;
/// A line for the journal.
using ProblemSink = std::function<void(const std::string&)>;

struct WriterState {
  std::size_t waiting = 0;
  std::uint64_t dropped = 0;
  std::uint64_t commits = 0;
  std::string problem;  // why nothing is kept right now; empty when all is well
};

class Writer {
 public:
  /// Jobs that may wait in memory; a job is what one pass of a channel brought.
  static constexpr std::size_t kMostWaiting = 100'000;

  Writer(std::string where, ProblemSink problems, std::size_t mostWaiting = kMostWaiting);
  ~Writer();
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;

  void Add(WriteJob job);
  /// Waits until everything added before is kept; false when it is not by then.
  bool Flush(std::uint32_t milliseconds);
  [[nodiscard]] WriterState State() const;

 private:
  void Loop();
  void TakeBatch(std::deque<WriteJob>& batch);
  [[nodiscard]] bool Keep(const std::deque<WriteJob>& batch);
  void KeepOneByOne(const std::deque<WriteJob>& batch);
  void KeepTogether(const std::deque<WriteJob>& batch);
  void SetProblem(const std::string& problem);
  void Pause();

  std::string where_;
  ProblemSink problems_;
  std::size_t mostWaiting_;
  std::unique_ptr<Database> database_;  // the thread's own
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<WriteJob> waiting_;
  std::uint64_t added_ = 0;
  std::uint64_t settled_ = 0;
  WriterState state_;
  bool ending_ = false;
  std::thread thread_;
};

}  // namespace ostrel::station
