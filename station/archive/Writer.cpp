#include "station/archive/Writer.h"

#include <chrono>
#include <iterator>
#include <utility>

#include "station/archive/Schema.h"

namespace ostrel::station {
namespace {

using namespace std::chrono_literals;

/// What comes within this time shares a commit.
constexpr auto kGather = 200ms;
constexpr auto kAgain = 1s;
constexpr std::size_t kMostInBatch = 2000;

}  // namespace

Writer::Writer(std::string where, ProblemSink problems, std::size_t mostWaiting)
    : where_(std::move(where)), problems_(std::move(problems)), mostWaiting_(mostWaiting), thread_(&Writer::Loop, this) {}

Writer::~Writer() {
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
  }
  changed_.notify_all();
  thread_.join();
}

void Writer::Add(WriteJob job) {
  const std::lock_guard lock(mutex_);
  if (waiting_.size() >= mostWaiting_) {
    waiting_.pop_front();
    ++state_.dropped;
    ++settled_;
  }
  waiting_.push_back(std::move(job));
  ++added_;
  changed_.notify_all();
}

bool Writer::Flush(std::uint32_t milliseconds) {
  std::unique_lock lock(mutex_);
  const std::uint64_t target = added_;
  return changed_.wait_for(lock, std::chrono::milliseconds(milliseconds), [&] { return settled_ >= target; });
}

WriterState Writer::State() const {
  const std::lock_guard lock(mutex_);
  WriterState state = state_;
  state.waiting = added_ - settled_;
  return state;
}

void Writer::TakeBatch(std::deque<WriteJob>& batch) {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return ending_ || !waiting_.empty(); });
  if (waiting_.size() < kMostInBatch && !ending_) changed_.wait_for(lock, kGather, [&] { return ending_; });
  const std::size_t count = std::min(waiting_.size(), kMostInBatch);
  std::move(waiting_.begin(), waiting_.begin() + static_cast<std::ptrdiff_t>(count), std::back_inserter(batch));
  waiting_.erase(waiting_.begin(), waiting_.begin() + static_cast<std::ptrdiff_t>(count));
}

void Writer::Loop() {
  for (;;) {
    std::deque<WriteJob> batch;
    TakeBatch(batch);
    while (!batch.empty() && !Keep(batch)) {
      Pause();
      const std::lock_guard lock(mutex_);
      if (ending_) return;
    }
    const std::lock_guard lock(mutex_);
    settled_ += batch.size();
    changed_.notify_all();
    if (ending_ && waiting_.empty()) return;
  }
}

bool Writer::Keep(const std::deque<WriteJob>& batch) {
  try {
    if (!database_) {
      database_ = OpenDatabase(where_);
      Migrate(*database_);
    }
    try {
      KeepTogether(batch);
    } catch (const DatabaseAway&) {
      throw;
    } catch (const DatabaseError&) {
      // One of them cannot be kept; the others are.
      KeepOneByOne(batch);
    }
    SetProblem("");
    return true;
  } catch (const DatabaseError& error) {
    SetProblem(error.what());
    database_.reset();
    return false;
  }
}

void Writer::KeepTogether(const std::deque<WriteJob>& batch) {
  Archive archive(*database_);
  Transaction transaction(*database_);
  for (const WriteJob& job : batch) job(archive);
  transaction.Commit();
  const std::lock_guard lock(mutex_);
  ++state_.commits;
}

void Writer::KeepOneByOne(const std::deque<WriteJob>& batch) {
  for (const WriteJob& job : batch) {
    try {
      KeepTogether({job});
    } catch (const DatabaseAway&) {
      throw;
    } catch (const DatabaseError& error) {
      problems_(std::string("not kept: ") + error.what());
      const std::lock_guard lock(mutex_);
      ++state_.dropped;
    }
  }
}

void Writer::SetProblem(const std::string& problem) {
  bool news = false;
  {
    const std::lock_guard lock(mutex_);
    news = state_.problem != problem;
    state_.problem = problem;
  }
  if (news) problems_(problem.empty() ? "the archive is back" : problem);
}

void Writer::Pause() {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, kAgain, [&] { return ending_; });
}

}  // namespace ostrel::station
