// The campaign: what whole channels do on lines that do everything that a line, a meter, a clock and a host's threads can do.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdlib>

#include "tests/campaign/Campaign.h"
#include "tests/campaign/Runs.h"

namespace ostrel::campaign {
namespace {

/// The first ones are made smaller too, which takes its time.
constexpr int kMadeSmaller = 2;

void Tell(const Finding& finding) {
  static int told = 0;
  fmt::print("seed {}: {}: {}", finding.seed, kInvariants[finding.invariant].name, finding.what);
  if (++told <= kMadeSmaller) {
    Scenario scenario = MakeScenario(finding.seed);
    LeaveOut(scenario, Shrink(finding));
    fmt::print("  this much is enough for it:\n{}", Describe(scenario));
  }
  std::fflush(stdout);
}

bool SeekPlant(const Row& plant, Order order) {
  Totals totals;
  order.plant = static_cast<std::size_t>(&plant - kPlants);
  const auto found = RunUntilFound(order, totals);
  if (found) {
    fmt::print("{:<24} seed {:>4}, {:>8} exchanges, {}: {}\n", plant.name, found->seed, found->exchanges,
               kInvariants[found->invariant].name, found->what.substr(0, found->what.find('\n')));
  } else {
    fmt::print("{:<24} not found in {} seeds, {} exchanges\n", plant.name, totals.seeds, totals.exchanges);
  }
  std::fflush(stdout);
  return found.has_value();
}

int SeekPlants(const std::string& name, const Order& order) {
  const auto missed = std::count_if(std::begin(kPlants) + 1, std::end(kPlants), [&](const Row& row) {
    return (name == "all" || name == row.name) && !SeekPlant(row, order);
  });
  return missed == 0 ? 0 : 1;
}

int Run(const Order& order) {
  const auto began = std::chrono::steady_clock::now();
  Totals totals;
  RunAll(order, totals, Tell);
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - began;
  fmt::print("trace {:016x}\n", totals.trace);
  fmt::print("campaign: {} seeds, {} exchanges, {} faults, {} violations, {:.1f} s\n", totals.seeds, totals.exchanges,
             totals.faults, totals.violations, took.count());
  return totals.violations == 0 ? 0 : 1;
}

}  // namespace
}  // namespace ostrel::campaign

int main(int count, char** texts) {
  using namespace ostrel::campaign;
  // The zone whose changes of the clock the scenarios begin at.
  setenv("TZ", "Europe/Berlin", 1);
  Order order;
  std::string plant;
  std::set<std::string> plants{"all"};
  for (const Row& row : std::span(kPlants).subspan(1)) plants.emplace(row.name);
  CLI::App app("campaign");
  app.add_option("--seeds", order.count, "how many");
  app.add_option("--first", order.first, "from this one on");
  app.add_option_function<std::int64_t>(
      "--minutes",
      [&](std::int64_t minutes) {
        order.seconds = minutes * 60;
        order.count = ~std::uint64_t{0} / 2;
      },
      "how long, whatever --seeds says");
  app.add_option("--plant", plant, "a defect to be found, or all")->check(CLI::IsMember(plants));
  app.add_option_function<std::uint64_t>(
      "--replay", [&](std::uint64_t seed) { order = {.first = seed, .count = 1}; }, "one seed");
  bool list = false;
  app.add_flag("--list-plants", list, "the defects, and what each does");
  CLI11_PARSE(app, count, texts);
  if (!plant.empty()) return SeekPlants(plant, order);
  if (!list) return Run(order);
  for (const Row& row : std::span(kPlants).subspan(1)) fmt::print("{:<24} {}\n", row.name, row.meaning);
  return 0;
}
