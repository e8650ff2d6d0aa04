// Every tag of every meter type, from the meter's model through a real pseudo-terminal and the plug-in to a host's output.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "Protocol/model/TagCatalogue.h"
#include "tests/end_to_end/Programs.h"
#include "tests/expectation/Expectation.h"
#include "tests/support/SimulatedLine.h"

namespace ostrel::test {
namespace {

constexpr std::uint8_t kEventLog = 1;

std::string SimulatedMeter(std::uint32_t type) { return MeterText(20 + type, type, "at=2026-11-20T10:30:00"); }

void Compare(const sim::Expected& expected, const nlohmann::json& shown) {
  if (const auto* text = std::get_if<std::string>(&expected)) {
    EXPECT_EQ(*text, shown);
    return;
  }
  const double number = std::get<double>(expected);
  const double value = shown.is_boolean() ? shown.get<bool>() : shown.is_number() ? shown.get<double>() : NAN;
  // A float has 24 bits, and is printed with as many digits as it needs.
  EXPECT_NEAR(number, value, std::fabs(number) * 1e-6 + 1e-9);
}

/// How many tags were compared.
int CompareMeter(std::uint32_t type, const HostRun& run) {
  sim::Meter meter(Spec(SimulatedMeter(type)), 1);
  int compared = 0;
  for (std::uint32_t number = 0; number < kDaTagCount; ++number) {
    const auto expected = sim::ExpectedTag(meter.View(0), number, kEventLog);
    if (!expected) continue;
    ++compared;
    SCOPED_TRACE("type " + std::to_string(type) + " tag " + std::to_string(number));
    const auto shown = run.tags.find({"type-" + std::to_string(type), static_cast<int>(kFirstDaId + number)});
    if (shown == run.tags.end()) {
      ADD_FAILURE() << "not shown";
      continue;
    }
    EXPECT_EQ(192, shown->second.quality);
    Compare(*expected, shown->second.value);
  }
  return compared;
}

/// Commands, the log number, the exchange switch and reserved entries are not read from the meter.
constexpr std::uint32_t kNotRead[] = {53, 60, 67, 74, 97, 98, 99, 100, 101, 102, 185, 211};

int TagsReadFromTheMeter(std::uint32_t type) {
  int count = 0;
  for (std::uint32_t number = 0; number < kDaTagCount; ++number) {
    const bool read = std::find(std::begin(kNotRead), std::end(kNotRead), number) == std::end(kNotRead);
    if (read && SupportsDaTag(type, kFirstDaId + number)) ++count;
  }
  return count;
}

/// Both lines side by side: most of the time they are waited for.
TEST(EveryTag, ShowsTheMetersModelAlsoFromAnswersInPiecesOfOneByte) {
  Bench benches[2];
  std::unique_ptr<Background> hosts[2];
  std::vector<std::string> meters;
  std::string tables;
  for (const std::uint32_t type : kMeterTypes) {
    meters.push_back(SimulatedMeter(type));
    tables += MeterTable("type-" + std::to_string(type), 20 + type, type,
                         "level1_password = \"000000\"\nevent_log = " + std::to_string(kEventLog));
  }
  for (const bool pieces : {false, true}) {
    benches[pieces].StartMeters(meters, pieces ? "[[fault]]\nkind = \"pieces\"\nbytes = 1\nms = 1\n" : "");
    benches[pieces].Configure("poll_period_s = 1", tables);
    hosts[pieces] = benches[pieces].StartHost({"run", "--passes", "1", "--json"});
  }
  for (const auto& host : hosts) {
    EXPECT_EQ(0, host->Wait(240)) << host->Errors();
    const HostRun run = Bench::Read(0, host->Output(), {});
    for (const std::uint32_t type : kMeterTypes) EXPECT_EQ(TagsReadFromTheMeter(type), CompareMeter(type, run)) << type;
    EXPECT_TRUE(run.log.empty()) << run.log.front();
  }
}

}  // namespace
}  // namespace ostrel::test
