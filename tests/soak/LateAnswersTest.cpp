// Answers carry no number: one that comes too late must never pass for the answer to another request. The plug-in on the
// host's own port with a simulated line, all on the virtual clock; meters whose values change from one moment to the next.
#include <gtest/gtest.h>

#include <cstdlib>
#include <set>

#include "Protocol/acquisition/DeviceCycle.h"
#include "Protocol/model/SharedFlag.h"
#include "host/ports/FrameCheck.h"
#include "host/ports/SimulatedStream.h"
#include "host/server/HostServices.h"
#include "simulator/Line.h"
#include "tests/support/SimulatedChannel.h"

namespace ostrel::test {
namespace {

using sim::FaultKind;

constexpr std::uint32_t kTimeoutMs = 500;
constexpr std::uint32_t kLimitPower = 219;

/// What the meters would have answered to each request that was sent, every time that it was sent.
struct Witness {
  std::vector<sim::Meter> meters;
  std::map<Bytes, std::set<Bytes>> answers;
  Bytes gathered;
  int requests = 0;
  int silences = 0;
  int wrong = 0;

  void Sent(const Bytes& request) {
    gathered.clear();
    for (sim::Meter& meter : meters) answers[request].insert(meter.Answer(request, platform::UtcMilliseconds()));
  }
  void Read(const Bytes& request, const Bytes& piece) {
    if (gathered.empty()) ++requests;
    gathered.insert(gathered.end(), piece.begin(), piece.end());
    if (gathered.size() < 4 || !host::HasRightCheck(gathered) || answers[request].contains(gathered)) return;
    if (gathered.size() == 4 ? IsCommand(request) : MayAnswer(request)) ++wrong;
  }
  /// A status says nothing of a reading, and what does not fit the request by its length is not taken by the plug-in.
  static bool IsCommand(const Bytes& request) { return request[1] <= 3; }
  bool MayAnswer(const Bytes& request) {
    return std::ranges::any_of(answers[request], [&](const Bytes& own) { return own.size() == gathered.size(); });
  }
};

class WitnessedStream final : public host::ByteStream {
 public:
  WitnessedStream(std::shared_ptr<sim::Line> line, Witness& witness) : stream_(std::move(line)), witness_(witness) {}
  bool SetMode(const host::LineMode&) override { return true; }
  std::size_t Receive(std::uint8_t* buffer, std::size_t size, std::uint32_t waitMs) override {
    const std::size_t n = stream_.Receive(buffer, size, waitMs);
    if (n == 0 && waitMs == kTimeoutMs) ++witness_.silences;
    return n;
  }
  bool Send(const std::uint8_t* bytes, std::size_t size) override {
    witness_.Sent(Bytes(bytes, bytes + size));
    return stream_.Send(bytes, size);
  }
  bool Failed() const override { return stream_.Failed(); }
  std::uint32_t OwnGapMs() const override { return 0; }

 private:
  host::SimulatedStream stream_;
  Witness& witness_;
};

std::vector<sim::Meter> MakeMeters(const std::string& more) {
  return {sim::Meter(Spec("1:1" + more), 1), sim::Meter(Spec("2:1" + more), 1)};
}

struct Drill {
  const char* name;
  bool inOrder;
  std::vector<sim::Fault> faults;
  int goodOfHundred = 0;      // tags that carry a good value in the end, at the least
  std::uint32_t driftTo = 0;  // ms: the first fault's lateness goes up and down to here
  const char* meters = "";
};

struct TroubledLine {
  explicit TroubledLine(const Drill& drill, std::uint32_t lateGuardMs = 100, std::uint32_t tags = 94)
      : witness{.meters = MakeMeters(drill.meters), .answers = {}},
        line(std::make_shared<sim::Line>(MakeMeters(drill.meters),
                                         sim::FaultPlan{.seed = 1, .inOrder = drill.inOrder, .faults = drill.faults},
                                         sim::Pace{9600})) {
    const auto open = [this](std::string&) { return std::make_unique<WitnessedStream>(line, witness); };
    services.AddPort("COM3", {.open = open,
                              .line = {.lateGuardMs = lateGuardMs, .echo = false},
                              .observer =
                                  [this](auto request, auto answer) {
                                    witness.Read(Bytes(request.begin(), request.end()), Bytes(answer.begin(), answer.end()));
                                  },
                              .late = [this](auto address, auto ms) { told.emplace_back(address, ms); }});
    channel.Context().ObjectProvider = services.MakeContext().ObjectProvider;
    for (const std::uint32_t address : {1U, 2U}) {
      const std::uint32_t meter = channel.AddMeter(address, 1);
      limits.push_back(channel.AddTag(meter, kLimitPower));
      for (std::uint32_t number = tags > 94 ? 0 : 9; number < tags; ++number) channel.AddTag(meter, number);
    }
    channel.Protocol().Running = 1;
  }
  ~TroubledLine() { channel.Protocol().Running = 0; }

  /// ms that the turn took.
  std::int64_t Turn(std::uint32_t meter) {
    const std::int64_t before = channel.Clock().Elapsed();
    RunDeviceCycle(channel.Protocol(), meter);
    return channel.Clock().Elapsed() - before;
  }
  void Poll(int requests, std::uint32_t driftTo = 0) {
    for (int pass = 0; witness.requests < requests; ++pass) {
      if (driftTo != 0) line->Faults().front().ms = driftTo * static_cast<std::uint32_t>(std::abs(pass % 20 - 10)) / 10;
      for (const std::uint32_t meter : {0U, 1U}) {
        Write(meter, pass % 1000);
        Turn(meter);
      }
    }
  }
  /// Each command is another, so that the answer to one says nothing of the next.
  void Write(std::uint32_t meter, int watts) {
    const platform::CriticalSectionGuard guard(channel.Context().TagLock);
    limits[meter]->WriteValue.vt = VT_R4;
    limits[meter]->WriteValue.fltVal = static_cast<float>(1 + watts);
    StoreFlag(limits[meter]->WritePending, 1);
  }
  int GoodOfHundred() {
    std::size_t good = 0;
    std::size_t all = 0;
    for (const std::uint32_t meter : {0U, 1U}) {
      for (const CDeviceTag* tag : channel.Entry(meter).Tags) {
        ++all;
        if (tag->Quality == kQualityGood) ++good;
      }
    }
    return static_cast<int>(100 * good / all);
  }

  host::HostServices services{{}};
  Witness witness;
  std::shared_ptr<sim::Line> line;
  std::vector<std::pair<std::uint32_t, std::uint32_t>> told;
  std::vector<CDeviceTag*> limits;
  SimulatedChannel channel{{.retries = 3, .portTimeoutMs = kTimeoutMs}};
};

sim::Fault Late(std::uint32_t ms, double chance = 0, std::uint32_t spread = 0, std::uint32_t address = 0) {
  return {.kind = FaultKind::Late, .chance = chance, .ms = ms, .spread = spread, .address = address};
}
sim::Fault Loss(double chance) { return {.kind = FaultKind::Silence, .chance = chance}; }
sim::Fault Double(double chance, std::uint32_t ms) { return {.kind = FaultKind::Doubled, .chance = chance, .ms = ms}; }

const std::vector<Drill>& Drills() {
  static const std::vector<Drill> drills = {
      {"650, all", true, {Late(650)}, 90},
      {"800, all", true, {Late(800)}, 90},
      {"800, one in five", true, {Late(800, 0.2)}, 90},
      {"800, one in five, overtaken", false, {Late(800, 0.2)}, 90},
      {"1100, one in twenty", true, {Late(1100, 0.05)}, 90},
      {"1100, one in twenty, overtaken", false, {Late(1100, 0.05)}, 90},
      {"1600, all", true, {Late(1600)}},
      {"2500, all", true, {Late(2500)}},
      {"30 to 2500", true, {Late(30, 0, 2470)}},
      {"30 to 2500, overtaken", false, {Late(30, 0, 2470)}},
      {"30 to 2500, one in five", true, {Late(30, 0.2, 2470)}, 90},
      {"30 to 2500, one in five, overtaken", false, {Late(30, 0.2, 2470)}, 90},
      {"rare", true, {Late(2400, 0.005), Loss(0.05)}, 90},
      {"rare, overtaken", false, {Late(2400, 0.005), Loss(0.05)}, 90},
      {"rare, overtaken, losses are rare too", false, {Late(2400, 0.01), Loss(0.01)}, 90},
      {"drifting", true, {Late(0)}, 0, 2500},
      {"drifting, one in five", true, {Late(0, 0.2)}, 90, 2500},
      {"drifting, one in five, overtaken", false, {Late(0, 0.2), Loss(0.02)}, 90, 2500},
      {"doubled", true, {Double(0.1, 0)}, 90},
      {"doubled a little later", false, {Double(0.1, 40), Late(30)}, 90},
      {"doubled and late", true, {Double(0.05, 0), Late(30, 0.2, 2470), Loss(0.02)}, 90},
      {"doubled and late, overtaken", false, {Double(0.05, 60), Late(30, 0.2, 2470), Loss(0.02)}, 90},
      {"spoiled",
       false,
       {{.kind = FaultKind::LostByte, .chance = 0.03},
        {.kind = FaultKind::FlippedBit, .chance = 0.03},
        {.kind = FaultKind::CutAnswer, .chance = 0.03},
        {.kind = FaultKind::Noise, .chance = 0.03, .bytes = 5},
        Loss(0.03)},
       90},
  };
  return drills;
}

TEST(LateAnswers, NeverPassForAnother) {
  for (Drill drill : Drills()) {
    for (const char* meters : {"", ":at=2026-11-20T10:30:00:refuse=23"}) {
      SCOPED_TRACE(std::string(drill.name) + meters);
      drill.meters = meters;
      TroubledLine troubled(drill);
      troubled.Poll(10'000, drill.driftTo);
      EXPECT_EQ(0, troubled.witness.wrong);
      EXPECT_LE(drill.goodOfHundred, troubled.GoodOfHundred());
    }
  }
}

TEST(LateAnswers, WouldPassForAnotherWithoutTheGuard) {
  TroubledLine troubled({"800, one in five", true, {Late(800, 0.2)}}, 0);
  troubled.Poll(1000);
  EXPECT_NE(0, troubled.witness.wrong) << "the test above shows nothing";
}

// Each run tells once, and once more where it got much worse: by what a single copy showed, and to the next hundred.
TEST(LateAnswers, AreToldOncePerMeterAndChange) {
  TroubledLine troubled({"650, then 1600", true, {Late(650)}});
  troubled.Poll(300);
  const std::vector<std::pair<std::uint32_t, std::uint32_t>> first = {{1, 700}, {2, 700}};
  EXPECT_EQ(first, troubled.told);
  troubled.told.clear();
  troubled.line->Faults().front().ms = 1600;
  troubled.Poll(900);
  const std::vector<std::pair<std::uint32_t, std::uint32_t>> second = {{1, 1700}, {2, 1700}};
  EXPECT_EQ(second, troubled.told);
}

TEST(LateAnswers, HoldUpNoMeterThatIsOnTime) {
  std::int64_t took[2] = {};
  for (const bool late : {false, true}) {
    std::vector<sim::Fault> faults = {Late(30)};
    if (late) faults.push_back(Late(800, 0.5, 1500, 1));
    TroubledLine troubled({"", false, faults});
    for (int pass = 0; pass < 50; ++pass) {
      static_cast<void>(troubled.Turn(0));
      took[late] += troubled.Turn(1);
    }
  }
  EXPECT_LE(took[true] * 10, took[false] * 11);
}

// All tags of a meter: answers of many lengths, of which the powers move while energies, texts and limits stand still. The
// time-outs themselves are not counted.
TEST(LateAnswers, LossesAloneCostLittle) {
  for (const char* meters : {"", ":at=2026-11-20T10:30:00"}) {
    SCOPED_TRACE(meters);
    std::int64_t took[2] = {};
    for (const bool lossy : {false, true}) {
      std::vector<sim::Fault> faults = {Late(30)};
      if (lossy) faults.push_back(Loss(0.05));
      TroubledLine troubled({"", true, faults, 0, 0, meters}, 100, 244);
      for (int pass = 0; pass < 100; ++pass) took[lossy] += troubled.Turn(0);
      if (lossy) took[lossy] -= troubled.witness.silences * std::int64_t{kTimeoutMs};
      EXPECT_TRUE(troubled.told.empty());
    }
    EXPECT_LE(took[true] * 10, took[false] * 25);
  }
}

}  // namespace
}  // namespace ostrel::test
