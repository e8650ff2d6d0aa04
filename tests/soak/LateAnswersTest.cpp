// Answers carry no number: one that comes too late must never pass for the answer to the next request. The plug-in on the
// host's own port with a simulated line, all on the virtual clock.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "Protocol/acquisition/DeviceCycle.h"
#include "Protocol/model/TagCatalogue.h"
#include "host/ports/SimulatedStream.h"
#include "host/server/HostServices.h"
#include "simulator/Expectation.h"
#include "tests/support/TestChannel.h"

namespace ostrel::test {
namespace {

constexpr std::uint32_t kTimeoutMs = 500;

/// Every answer comes after some thinking, and every tenth one 80 ms after its request was given up.
std::vector<sim::Fault> LateAnswers() {
  return {{.kind = sim::FaultKind::Late, .every = 1, .ms = 30},
          {.kind = sim::FaultKind::Late, .every = 10, .ms = kTimeoutMs + 80}};
}

sim::Meter MakeMeter() {
  sim::MeterSpec spec;
  std::string error;
  EXPECT_TRUE(sim::ParseMeterSpec("1:1:at=2026-11-20T10:30:00", spec, error)) << error;
  return sim::Meter(spec, 1);
}

struct LateLine {
  LateLine(std::vector<sim::Fault> faults, std::uint32_t lateGuardMs)
      : line(std::make_shared<sim::Line>(std::vector<sim::Meter>{MakeMeter()},
                                         sim::FaultPlan{.seed = 1, .faults = std::move(faults)}, sim::Pace{9600})) {
    services.AddPort("COM3", {.open = [this](std::string&) { return std::make_unique<host::SimulatedStream>(line); },
                              .line = {.lateGuardMs = lateGuardMs, .echo = false},
                              .observer = [this](auto, auto) { ++requests; }});
    channel.Context().ObjectProvider = services.MakeContext().ObjectProvider;
    meter = channel.AddMeter(1, 1);
    for (std::uint32_t number = 9; number < 94; ++number) channel.AddTag(meter, number);
    channel.Protocol().Running = 1;
  }
  ~LateLine() { channel.Protocol().Running = 0; }

  /// Tags that carry a good value other than their own.
  int WrongValues(sim::Meter& model) {
    int wrong = 0;
    for (const CDeviceTag* tag : channel.Entry(meter).Tags) {
      const auto expected = sim::ExpectedTag(model.View(0), tag->TagNumber);
      if (!expected || tag->Quality != kQualityGood || tag->Updated == 0) continue;
      ++seen;
      const double number = std::get<double>(*expected);
      if (std::fabs(number - double{tag->Value.fltVal}) > std::fabs(number) * 1e-6 + 1e-9) ++wrong;
    }
    return wrong;
  }

  host::HostServices services{{}};
  std::shared_ptr<sim::Line> line;
  int requests = 0;
  int seen = 0;
  TestChannel channel{{.retries = 3, .portTimeoutMs = kTimeoutMs}};
  std::uint32_t meter = 0;
};

int WrongValuesOverAThousandRequests(LateLine& late) {
  sim::Meter model = MakeMeter();
  int wrong = 0;
  while (late.requests < 1000) {
    RunDeviceCycle(late.channel.Protocol(), late.meter);
    wrong += late.WrongValues(model);
  }
  EXPECT_GT(late.seen, 500);
  return wrong;
}

TEST(LateAnswers, NeverPassForAnother) {
  LateLine late(LateAnswers(), 100);
  EXPECT_EQ(0, WrongValuesOverAThousandRequests(late));
}

TEST(LateAnswers, WouldPassForAnotherWithoutTheGuard) {
  LateLine late(LateAnswers(), 0);
  EXPECT_NE(0, WrongValuesOverAThousandRequests(late)) << "the test above shows nothing";
}

TEST(LateAnswers, NorDoSpoiledOnes) {
  LateLine late({{.kind = sim::FaultKind::LostByte, .chance = 0.03},
                 {.kind = sim::FaultKind::FlippedBit, .chance = 0.03},
                 {.kind = sim::FaultKind::CutAnswer, .chance = 0.03},
                 {.kind = sim::FaultKind::Noise, .chance = 0.03, .bytes = 5},
                 {.kind = sim::FaultKind::Silence, .chance = 0.03}},
                100);
  EXPECT_EQ(0, WrongValuesOverAThousandRequests(late));
}

}  // namespace
}  // namespace ostrel::test
