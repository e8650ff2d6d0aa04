// A simulated meter: what it answers, the settings it is made of, and the physics behind its registers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "simulator/MeterTypes.h"
#include "simulator/Model.h"
#include "tests/support/SimulatedLine.h"
#include "tests/support/TableFile.h"
#include "tests/support/TimeZone.h"

namespace ostrel::test {
namespace {

constexpr std::int64_t kNoon = 1795348800000;  // 2026-11-22 12:00:00 UTC, a Sunday

/// A meter to talk to in hex, without its address and checks.
class OneMeter {
 public:
  explicit OneMeter(std::string_view spec) : meter_(Spec(spec), 1) {}

  /// The answer in hex between address and check, both of which are tested; empty for silence.
  std::string Ask(std::string_view request) {
    const auto address = static_cast<std::uint8_t>(meter_.Spec().address);
    Bytes body = Hex(request);
    body.insert(body.begin(), address);
    const Bytes answer = meter_.Answer(WithCheck(body), now_);
    if (answer.empty()) return {};
    EXPECT_EQ(answer.at(0), address);
    EXPECT_EQ(answer, WithCheck(Bytes(answer.begin(), answer.end() - 2)));
    return ToHex(std::span(answer).subspan(1, answer.size() - 3));
  }
  void Open() { EXPECT_EQ(Ask("01 30 30 30 30 30 30"), "00"); }

  /// A turn of a dialogue, as the table has them.
  void Say(const std::string& turn) {
    const std::size_t sign = turn.find(" = ");
    if (turn == "open") return Open();
    if (sign == std::string::npos) {
      now_ += std::stoll(turn);
      return;
    }
    EXPECT_THAT(Ask(turn.substr(0, sign)), testing::MatchesRegex(turn.substr(sign + 3))) << turn;
  }

 private:
  sim::Meter meter_;
  std::int64_t now_ = kNoon;
};

TEST(Meter, AnswersAsInTheDialogues) {
  for (const TableRow& row : ReadTable("simulator/dialogues.tsv", 3)) {
    SCOPED_TRACE(row[1]);
    const TimeZone zone(row[0]);
    OneMeter one(row[1]);
    for (std::size_t start = 0, end; start < row[2].size(); start = end + 2) {
      end = std::min(row[2].find("; ", start), row[2].size());
      one.Say(row[2].substr(start, end - start));
    }
  }
}

TEST(Meter, OnlyAnswersFramesOfItsOwnWithARightCheck) {
  sim::Meter meter(Spec("1:1"), 1);
  EXPECT_EQ(meter.Answer(Frame("01 00"), kNoon), Frame("01 00"));
  for (const Bytes& request : {Hex("01 00 01 20"), Frame("02 00"), Frame("00 00"), Hex("01 00"), Bytes()}) {
    EXPECT_TRUE(meter.Answer(request, kNoon).empty()) << ToHex(request);
  }
}

TEST(Meter, ShowsTheNewestEventsFirst) {
  OneMeter one("1:8:at=2026-11-22T10:00:00");
  one.Open();
  std::string before = "26 11 22 10 00 00";
  for (std::uint8_t record = 0; record < 20; ++record) {
    const Bytes stamps = Hex(one.Ask("09 01 " + ToHex(Bytes{record})));
    for (const std::size_t at : {7U, 0U}) {  // end and beginning: seconds, minutes, hours, weekday, day, month, year
      const Bytes sortable = {stamps[at + 6], stamps[at + 5], stamps[at + 4], stamps[at + 2], stamps[at + 1], stamps[at]};
      EXPECT_LT(ToHex(sortable), before) << int{record};
      before = ToHex(sortable);
    }
  }
  EXPECT_NE(one.Ask("09 01 00"), one.Ask("09 02 00"));
}

TEST(Meter, ReadsItsMemoryRoundTheRing) {
  OneMeter ring("1:1:installed=2026-01-01T00:00:00:at=2026-04-25T00:10:00");
  ring.Open();
  EXPECT_EQ(ring.Ask("06 03 FF F8 10"), ring.Ask("06 03 FF F8 08") + " " + ring.Ask("06 03 00 00 08"));
  OneMeter small("1:3:installed=2026-01-01T00:00:00:at=2026-02-26T22:10:00");
  small.Open();
  EXPECT_EQ(small.Ask("06 03 80 00 08"), small.Ask("06 03 00 00 08"));
  EXPECT_NE(small.Ask("06 03 00 00 08"), "FF FF FF FF FF FF FF FF");
}

TEST(MeterSettings, MistakesNameTheKey) {
  for (const TableRow& row : ReadTable("simulator/settings_mistakes.tsv", 2)) {
    sim::MeterSpec spec;
    std::string error;
    EXPECT_FALSE(ParseMeterSpec(row[0], spec, error)) << row[0];
    EXPECT_EQ(error.substr(0, row[1].size()), row[1]) << row[0];
  }
}

TEST(MeterSettings, ConstantsChooseAVariantThatHasThem) {
  using Row = std::tuple<std::string_view, std::uint32_t, std::uint32_t, std::string_view>;  // settings, constant, scale, name
  const Row rows[] = {{"1:0:constant=25000", 25000, 1, "СЭТ-4ТМ.02/СЭТ-1М.01"},
                      {"1:1:constant=1250", 1250, 2, "СЭТ-4ТМ.03"},
                      {"1:8:constant=6250", 6250, 1, "СЭТ-4ТМ.03М"},
                      {"1:11:constant=250", 250, 20, "ПСЧ-4ТМ.05МК"},
                      {"1:12:constant=500", 500, 10, "СЭБ-1ТМ.02М"}};
  for (const Row& row : rows) {
    const sim::MeterVariant made = sim::DescribeVariant(*Spec(std::get<0>(row)).variant);
    EXPECT_EQ(row, Row(std::get<0>(row), made.constant, made.powerScale, made.name));
  }
}

/// Registers against power summed second by second: half an hour around noon that exports for six minutes.
TEST(Model, EnergyIsTheIntegralOfPower) {
  constexpr sim::MeterTime kFrom = 1795352400;  // 2026-11-22 13:00:00
  for (const char* spec : {"1:1", "2:8:constant=6250", "3:12", "4:11:constant=250"}) {
    SCOPED_TRACE(spec);
    const sim::Model model(Spec(spec), 3);
    double sums[3] = {};  // import, export, inductive
    for (sim::MeterTime time = kFrom; time < kFrom + 1800; ++time) {
      const double active = model.Power(sim::PowerKind::Active, 0, time);
      sums[active < 0 ? 1 : 0] += std::abs(active);
      sums[2] += model.Power(sim::PowerKind::Reactive, 0, time);
    }
    const double pulsesPerWattSecond = 2.0 * model.Variant().constant / 3.6e6;
    const sim::Energies counted = model.Energy().Between(0, kFrom, kFrom + 1800);
    for (std::size_t kind = 0; kind < 3; ++kind) {
      EXPECT_NEAR(counted[kind], sums[kind] * pulsesPerWattSecond, 3 + sums[0] * pulsesPerWattSecond * 0.001) << kind;
    }
    EXPECT_EQ(counted[3], 0U);
    EXPECT_EQ(sums[1] == 0, model.Type().singlePhase);
  }
}

}  // namespace
}  // namespace ostrel::test
