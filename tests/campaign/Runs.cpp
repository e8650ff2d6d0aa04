#include "tests/campaign/Runs.h"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstring>
#include <thread>
#include <vector>

#include "simulator/Random.h"
#include "tests/campaign/World.h"

namespace ostrel::campaign {
namespace {

constexpr std::size_t kTextBytes = 12'000;
/// Real seconds that one seed may take, under a sanitizer on a loaded machine too.
constexpr unsigned kSeedSeconds = 120;
/// How often a seed is run twice to compare.
constexpr std::uint64_t kTwiceEvery = 16;
constexpr std::chrono::seconds kShrinkTime(15);

/// What a process that runs seeds shares with the one that started it.
struct Shared {
  std::atomic<std::uint64_t> next;  // seed to be run
  std::atomic<std::uint64_t> seeds, exchanges, faults, trace;
};
struct Report {
  std::atomic<std::uint64_t> seed;
  std::uint64_t exchanges;
  Invariant invariant;
  char text[kTextBytes];
};

Report* report = nullptr;

template <class Record>
Record* Share() {
  void* const memory = mmap(nullptr, sizeof(Record), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  return new (memory) Record{};
}

void OnSignal(int signal) {
  if (report->invariant == Invariant::None) {
    report->invariant = signal == SIGALRM ? Invariant::NoHang : Invariant::NoCrash;
    std::strncpy(report->text, signal == SIGALRM ? "no end in real time" : strsignal(signal), kTextBytes - 1);
  }
  _exit(3);
}

void CatchSignals() {
  static std::array<char, 65'536> stack;
  const stack_t other{.ss_sp = stack.data(), .ss_flags = 0, .ss_size = stack.size()};
  sigaltstack(&other, nullptr);
  struct sigaction action {};
  action.sa_handler = OnSignal;
  action.sa_flags = SA_ONSTACK;
  for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGALRM}) sigaction(signal, &action, nullptr);
}

std::uint64_t RunOne(std::uint64_t seed, const Order& order, Shared& shared) {
  alarm(kSeedSeconds);
  report->seed = seed;
  Switch(order.plant);
  Scenario scenario = MakeScenario(seed);
  LeaveOut(scenario, order.leftOut);
  const SeedResult result = RunWorld(scenario);
  report->exchanges += result.exchanges;
  shared.exchanges += result.exchanges;
  shared.faults += result.faults;
  return result.trace;
}

[[noreturn]] void Work(const Order& order, Shared& shared, Report& own) {
  using Clock = std::chrono::steady_clock;
  report = &own;
  CatchSignals();
  const auto end = Clock::now() + std::chrono::seconds(order.seconds);
  for (;;) {
    const std::uint64_t seed = shared.next++;
    if (seed >= order.first + order.count || (order.seconds != 0 && Clock::now() >= end)) break;
    const std::uint64_t trace = RunOne(seed, order, shared);
    if (seed % kTwiceEvery == 0 && trace != RunOne(seed, order, shared)) Violate(Invariant::SameTrace, "the second run did something else");
    shared.trace ^= sim::MixSeeds(seed, trace);
    ++shared.seeds;
  }
  std::exit(0);
}

struct Worker {
  pid_t process = 0;
  Report* report = nullptr;
};

Worker StartWorker(const Order& order, Shared& shared) {
  Worker worker{.process = 0, .report = Share<Report>()};
  std::fflush(nullptr);
  worker.process = fork();
  if (worker.process == 0) Work(order, shared, *worker.report);
  return worker;
}

/// Nothing when the worker came to its end.
std::optional<Finding> Collect(const Worker& worker, int status) {
  std::optional<Finding> finding;
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    const Invariant seen = worker.report->invariant;
    finding = Finding{.invariant = seen == Invariant::None ? Invariant::NoCrash : seen,
                      .seed = worker.report->seed,
                      .exchanges = worker.report->exchanges,
                      .what = seen == Invariant::None ? "the process ended (see above)" : worker.report->text};
  }
  munmap(worker.report, sizeof(Report));
  return finding;
}

void Add(Totals& totals, Shared* shared) {
  totals.seeds += shared->seeds;
  totals.exchanges += shared->exchanges;
  totals.faults += shared->faults;
  totals.trace ^= shared->trace;
  munmap(shared, sizeof(Shared));
}

}  // namespace

void Violate(Invariant invariant, const std::string& what) {
  const std::string text = what + "\n" + DescribeWorld();
  report->exchanges += WorldExchanges();
  std::strncpy(report->text, text.c_str(), kTextBytes - 1);
  report->invariant = invariant;
  _exit(3);
}

std::optional<Finding> RunUntilFound(const Order& order, Totals& totals) {
  auto* const shared = Share<Shared>();
  shared->next = order.first;
  const Worker worker = StartWorker(order, *shared);
  int status = 0;
  waitpid(worker.process, &status, 0);
  auto finding = Collect(worker, status);
  if (finding) ++totals.violations;
  Add(totals, shared);
  return finding;
}

void RunAll(const Order& order, Totals& totals, void (*tell)(const Finding&)) {
  auto* const shared = Share<Shared>();
  shared->next = order.first;
  std::vector<Worker> workers;
  for (unsigned i = 0; i < std::max(1U, std::thread::hardware_concurrency()); ++i) workers.push_back(StartWorker(order, *shared));
  while (!workers.empty()) {
    int status = 0;
    const pid_t ended = waitpid(-1, &status, 0);
    const auto worker = std::ranges::find(workers, ended, &Worker::process);
    if (worker == workers.end()) continue;
    const auto finding = Collect(*worker, status);
    workers.erase(worker);
    if (!finding) continue;
    ++shared->seeds;
    ++totals.violations;
    tell(*finding);
    workers.push_back(StartWorker(order, *shared));
  }
  Add(totals, shared);
}

// Halves first, then smaller pieces, each as long as what is left still breaks the same.
std::set<std::size_t> Shrink(const Finding& finding, Plant plant) {
  Order order{.first = finding.seed, .count = 1, .seconds = 0, .plant = plant, .leftOut = {}};
  const std::size_t parts = PartsOf(MakeScenario(finding.seed));
  const auto end = std::chrono::steady_clock::now() + kShrinkTime;
  const auto timeLeft = [&] { return std::chrono::steady_clock::now() < end; };
  for (std::size_t piece = std::max<std::size_t>(parts / 2, 1); piece > 0 && timeLeft(); piece /= 2) {
    for (std::size_t from = 0; from < parts && timeLeft(); from += piece) {
      std::set<std::size_t> before = order.leftOut;
      for (std::size_t i = from; i < std::min(parts, from + piece); ++i) order.leftOut.insert(i);
      if (order.leftOut == before) continue;
      Totals ignored;
      const auto again = RunUntilFound(order, ignored);
        if (!again || again->invariant != finding.invariant) order.leftOut = std::move(before);
    }
  }
  return order.leftOut;
}

}  // namespace ostrel::campaign
