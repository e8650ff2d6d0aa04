// The campaign: what whole channels do on lines that do everything that a line, a meter, a clock and a host's threads can do.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>

#include "tests/campaign/Runs.h"
#include "tests/campaign/Scenario.h"

namespace ostrel::campaign {
namespace {

constexpr int kMadeSmaller = 2;

struct Arguments {
  Order order{.first = 1, .count = 200, .seconds = 0, .plant = Plant::None, .leftOut = {}};
  std::string plant;
  std::optional<std::uint64_t> replay;
  bool listPlants = false;
};

int Usage() {
  std::fputs("usage: campaign [--seeds N] [--first SEED] [--minutes M] [--plant NAME|all] [--list-plants] [--replay SEED]\n", stderr);
  return 2;
}

bool Read(int count, char** texts, Arguments& arguments) {
  for (int i = 1; i < count; ++i) {
    const std::string key = texts[i];
    if (key == "--list-plants") {
      arguments.listPlants = true;
      continue;
    }
    if (++i == count) return false;
    const std::uint64_t number = std::strtoull(texts[i], nullptr, 10);
    if (key == "--seeds") arguments.order.count = number;
    else if (key == "--first") arguments.order.first = number;
    else if (key == "--minutes") arguments.order.seconds = static_cast<std::int64_t>(number) * 60;
    else if (key == "--plant") arguments.plant = texts[i];
    else if (key == "--replay") arguments.replay = number;
    else return false;
  }
  if (arguments.order.seconds != 0) arguments.order.count = ~std::uint64_t{0} / 2;
  return true;
}

void Tell(const Finding& finding) {
  std::printf("seed %llu: %s: %s", static_cast<unsigned long long>(finding.seed), NameOf(finding.invariant).data(), finding.what.c_str());
  std::fflush(stdout);
}

/// The first ones only: it takes its time.
void TellSmaller(const Finding& finding) {
  static int told = 0;
  Tell(finding);
  if (++told > kMadeSmaller) return;
  Scenario scenario = MakeScenario(finding.seed);
  LeaveOut(scenario, Shrink(finding, Plant::None));
  std::printf("  this much is enough for it:\n%s", Describe(scenario).c_str());
  std::fflush(stdout);
}

bool SeekPlant(const PlantRow& row, Order order) {
  Totals totals;
  order.plant = row.plant;
  const auto found = RunUntilFound(order, totals);
  const std::string name(row.name);
  if (!found) {
    std::printf("%-24s not found in %llu seeds, %llu exchanges\n", name.c_str(), static_cast<unsigned long long>(totals.seeds),
                static_cast<unsigned long long>(totals.exchanges));
    return false;
  }
  std::printf("%-24s seed %4llu, %8llu exchanges, %s: %s\n", name.c_str(), static_cast<unsigned long long>(found->seed),
              static_cast<unsigned long long>(found->exchanges), NameOf(found->invariant).data(),
              found->what.substr(0, found->what.find('\n')).c_str());
  std::fflush(stdout);
  return true;
}

int SeekPlants(const Arguments& arguments) {
  bool all = true;
  for (const PlantRow& row : AllPlants()) {
    if (arguments.plant == "all" || arguments.plant == row.name) all = SeekPlant(row, arguments.order) && all;
  }
  return all ? 0 : 1;
}

int ListPlants() {
  for (const PlantRow& row : AllPlants()) std::printf("%-24s %s\n", std::string(row.name).c_str(), std::string(row.meaning).c_str());
  return 0;
}

int Run(const Order& order) {
  const auto began = std::chrono::steady_clock::now();
  Totals totals;
  RunAll(order, totals, TellSmaller);
  const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - began).count();
  std::printf("trace %016llx\n", static_cast<unsigned long long>(totals.trace));
  std::printf("campaign: %llu seeds, %llu exchanges, %llu faults, %llu violations, %.1f s\n", static_cast<unsigned long long>(totals.seeds),
              static_cast<unsigned long long>(totals.exchanges), static_cast<unsigned long long>(totals.faults),
              static_cast<unsigned long long>(totals.violations), static_cast<double>(took) / 1000);
  return totals.violations == 0 ? 0 : 1;
}

}  // namespace
}  // namespace ostrel::campaign

int main(int count, char** texts) {
  using namespace ostrel::campaign;
  // The zone whose changes of the clock the scenarios begin at.
  setenv("TZ", "Europe/Berlin", 1);
  Arguments arguments;
  if (!Read(count, texts, arguments)) return Usage();
  if (arguments.listPlants) return ListPlants();
  if (!arguments.plant.empty() && arguments.plant != "all" && !FindPlant(arguments.plant)) return Usage();
  if (!arguments.plant.empty()) return SeekPlants(arguments);
  if (arguments.replay) arguments.order = {.first = *arguments.replay, .count = 1, .seconds = 0, .plant = Plant::None, .leftOut = {}};
  return Run(arguments.order);
}
