#include "tests/campaign/Runs.h"

#include <fmt/ranges.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstring>
#include <thread>

#include "tests/campaign/Site.h"
#include "tests/campaign/System.h"

namespace ostrel::campaign {
namespace {

using Clock = std::chrono::steady_clock;

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
  std::size_t invariant;
  char text[kTextBytes];
};
Report* report = nullptr;

template <class Record>
Record* Share() {
  void* const memory = mmap(nullptr, sizeof(Record), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  return new (memory) Record{};
}

/// Side by side in one scheduler.
std::vector<std::unique_ptr<Site>> sites;

std::string DescribeWorld() {
  std::string text;
  for (const auto& site : sites) {
    text += fmt::format("  the last exchanges of line {}:\n", site->number);
    for (const auto& [atMs, thread, request, received, faults] : site->line.record) {
      text += fmt::format("    {} ms, thread {}: {:02X} > {:02X}   {}\n", atMs, thread, fmt::join(request, " "),
                          fmt::join(received, " "), faults);
    }
  }
  return text;
}

std::uint64_t RunWorld(const Scenario& scenario, Shared& shared) {
  const std::size_t before = blocksInUse;
  std::uint64_t trace = 0;
  {
    Scheduler threads(sim::MixSeeds(scenario.seed, 12), scenario.startUtcMs, scenario.startTick);
    std::vector<Fibre*> hosts;
    for (std::uint32_t i = 0; i < scenario.channels.size(); ++i) sites.push_back(std::make_unique<Site>(scenario, i));
    for (const auto& site : sites) hosts.push_back(threads.Start("host", [&site] { site->Run(); }));
    for (Fibre* const each : hosts) threads.Join(each);
    if (threads.Alive() != 1) Violate("no leak", "{} threads are left", threads.Alive() - 1);
    for (const auto& site : sites) {
      report->exchanges += site->line.exchanges;
      shared.exchanges += site->line.exchanges;
      shared.faults += site->line.applied;
    }
    trace = threads.Trace();
    sites.clear();
  }
  sites.shrink_to_fit();
  ForgetSystem();
  // What is kept from the first world on is not counted.
  static bool warm = false;
  if (std::exchange(warm, true) && blocksInUse > before)
    Violate("no leak", "{} pieces of memory were not given back", blocksInUse - before);
  return trace;
}

void OnSignal(int signal) {
  const bool late = signal == SIGALRM;
  if (report->invariant == 0) {
    report->invariant = late ? Named<kInvariants>("no hang").row : Named<kInvariants>("no crash").row;
    std::strncpy(report->text, late ? "no end in real time" : strsignal(signal), kTextBytes - 1);
  }
  _exit(3);
}

void CatchSignals() {
  static char stack[65'536];
  const stack_t other{.ss_sp = stack, .ss_flags = 0, .ss_size = sizeof stack};
  sigaltstack(&other, nullptr);
  struct sigaction action {};
  action.sa_handler = OnSignal;
  action.sa_flags = SA_ONSTACK;
  for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGALRM}) sigaction(signal, &action, nullptr);
}

std::uint64_t RunOne(std::uint64_t seed, const Order& order, Shared& shared) {
  alarm(kSeedSeconds);
  report->seed = seed;
  activePlant = {.row = order.plant};
  Scenario scenario = MakeScenario(seed);
  LeaveOut(scenario, order.leftOut);
  return RunWorld(scenario, shared);
}

[[noreturn]] void Work(const Order& order, Shared& shared) {
  CatchSignals();
  const auto end = Clock::now() + std::chrono::seconds(order.seconds);
  for (;;) {
    const std::uint64_t seed = shared.next++;
    if (seed >= order.first + order.count || (order.seconds != 0 && Clock::now() >= end)) std::exit(0);
    const std::uint64_t trace = RunOne(seed, order, shared);
    if (seed % kTwiceEvery == 0 && trace != RunOne(seed, order, shared))
      Violate("same trace", "the second run did something else");
    shared.trace ^= sim::MixSeeds(seed, trace);
    ++shared.seeds;
  }
}

struct Worker {
  pid_t process;
  Report* report;
};

Worker StartWorker(const Order& order, Shared& shared) {
  auto* const own = Share<Report>();
  std::fflush(nullptr);
  const pid_t process = fork();
  if (process == 0) {
    report = own;
    Work(order, shared);
  }
  return {process, own};
}

/// Nothing when the worker came to its end.
std::optional<Finding> Collect(const Worker& worker, int status) {
  std::optional<Finding> finding;
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    const Report& said = *worker.report;
    const bool known = said.invariant != 0;
    finding = {known ? said.invariant : Named<kInvariants>("no crash").row, said.seed, said.exchanges,
               known ? said.text : "the process ended (see above)"};
  }
  munmap(worker.report, sizeof(Report));
  return finding;
}

/// Until `told` has enough.
void Run(const Order& order, std::size_t count, Totals& totals, const std::function<bool(const Finding&)>& told) {
  auto* const shared = Share<Shared>();
  shared->next = order.first;
  std::vector<Worker> workers;
  while (workers.size() < count) workers.push_back(StartWorker(order, *shared));
  while (!workers.empty()) {
    int status = 0;
    const auto worker = std::ranges::find(workers, waitpid(-1, &status, 0), &Worker::process);
    if (worker == workers.end()) continue;
    const auto finding = Collect(*worker, status);
    workers.erase(worker);
    if (!finding) continue;
    ++shared->seeds;
    ++totals.violations;
    if (!told(*finding)) workers.push_back(StartWorker(order, *shared));
  }
  totals.seeds += shared->seeds;
  totals.exchanges += shared->exchanges;
  totals.faults += shared->faults;
  totals.trace ^= shared->trace;
  munmap(shared, sizeof(Shared));
}

}  // namespace

void End(std::size_t invariant, const std::string& what) {
  const std::string text = what + "\n" + DescribeWorld();
  for (const auto& site : sites) report->exchanges += site->line.exchanges;
  std::strncpy(report->text, text.c_str(), kTextBytes - 1);
  report->invariant = invariant;
  _exit(3);
}

std::optional<Finding> RunUntilFound(const Order& order, Totals& totals) {
  std::optional<Finding> found;
  Run(order, 1, totals, [&found](const Finding& finding) { return (found = finding, true); });
  return found;
}

void RunAll(const Order& order, Totals& totals, void (*tell)(const Finding&)) {
  Run(order, std::max(1U, std::thread::hardware_concurrency()), totals,
      [tell](const Finding& finding) { return (tell(finding), false); });
}

// Halves first, then smaller pieces, each as long as what is left still breaks the same.
std::set<std::size_t> Shrink(const Finding& finding) {
  Order order{.first = finding.seed, .count = 1};
  const std::size_t parts = PartsOf(MakeScenario(finding.seed));
  const auto end = Clock::now() + kShrinkTime;
  for (std::size_t piece = std::max<std::size_t>(parts / 2, 1); piece > 0; piece /= 2) {
    for (std::size_t from = 0; from < parts && Clock::now() < end; from += piece) {
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
