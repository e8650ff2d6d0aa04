#include "host/session/PassPlan.h"

#include <algorithm>
#include <array>
#include <map>
#include <set>

#include "Protocol/link/PortSettings.h"
#include "Protocol/model/TagCatalogue.h"
#include "host/session/TagQuestion.h"

namespace ostrel::host {
namespace {

constexpr const char* kClock = "clock";
/// Of an event log's newest record, which is read anew for each of its tags.
constexpr std::uint32_t kTagsOfRecord = 4;
constexpr std::uint32_t kClockRequest = 5;
constexpr std::uint32_t kClockAnswer = 11;
/// The plug-in's own pauses: before a meter's clock is read, behind each meter, and before each pass.
constexpr double kBeforeClockS = 0.2;
constexpr double kBehindMeterS = 0.01;
constexpr double kBeforePassS = 0.01;

struct PauseRow {
  std::uint32_t baud;
  std::uint32_t ms;
};

// The plug-in's pause before each meter, which is also the port's least quiet behind an answer.
constexpr PauseRow kPauses[] = {{300, 300}, {600, 160}, {1200, 40}, {2400, 20}, {4800, 10}};
constexpr std::uint32_t kUsualPauseMs = 5;
/// Quiet that ends an answer, by what the transport keeps back.
constexpr std::uint32_t kSerialQuietMs = 20;
constexpr std::uint32_t kTcpQuietMs = 50;

std::uint32_t PauseMs(std::uint32_t baud) {
  const auto* const row =
      std::find_if(std::begin(kPauses), std::end(kPauses), [baud](const PauseRow& each) { return each.baud == baud; });
  return row == std::end(kPauses) ? kUsualPauseMs : row->ms;
}

class Planner {
 public:
  Planner(const ChannelConfig& config, std::uint32_t turnaroundMs) : config_(config) {
    const bool tcp = config.device.starts_with("tcp:");
    const std::uint32_t transportMs = config.device == "simulated" ? 0 : tcp ? kTcpQuietMs : kSerialQuietMs;
    const double bitsPerByte = config.parity == "none" ? 10 : 11;
    byteS_ = bitsPerByte / config.baud;
    const double quietS = std::max({PauseMs(config.baud) / 1000.0, transportMs / 1000.0, 2 * byteS_});
    requestS_ = config.preSendPauseMs / 1000.0 + turnaroundMs / 1000.0 + quietS;
  }

  MeterPlan Plan(const Meter& meter) {
    families_.clear();
    asked_.clear();
    for (const std::size_t tag : meter.selected) {
      const std::uint32_t number = meter.tags[tag].definition.id - kFirstDaId;
      const bool log = number >= kTagFirstLog && number <= kTagLastLog;
      if (!log || meter.config.eventLog != 0) AddTag(meter.tags[tag].definition);
    }
    AddRequest(kClock, kClockRequest, kClockAnswer);
    MeterPlan plan{.meter = meter.config.name, .address = meter.config.address, .cost = {}, .families = {}};
    for (const auto& [family, cost] : families_) {
      Add(plan.cost, cost);
      plan.families.push_back({family, cost});
    }
    plan.cost.seconds += PauseMs(config_.baud) / 1000.0 + kBeforeClockS + kBehindMeterS;
    std::stable_sort(plan.families.begin(), plan.families.end(),
                     [](const FamilyCost& left, const FamilyCost& right) { return left.cost.seconds > right.cost.seconds; });
    return plan;
  }

  static void Add(Cost& sum, const Cost& cost) {
    sum.requests += cost.requests;
    sum.sentBytes += cost.sentBytes;
    sum.receivedBytes += cost.receivedBytes;
    sum.seconds += cost.seconds;
  }

 private:
  void AddTag(const TagDefinition& tag) {
    const TagQuestion question = QuestionOf(tag);
    if (question.requestBytes == 0) return;
    const std::uint32_t number = tag.id - kFirstDaId;
    const bool own = !question.shares || (number >= kTagFirstLog && number < kTagFirstLog + kTagsOfRecord);
    const std::array<std::uint32_t, 5> key = {tag.descriptor[kColumnCode], tag.descriptor[kColumnParam],
                                              tag.descriptor[kColumnSubParam], tag.descriptor[kColumnRequestLength],
                                              own ? tag.id : 0};
    if (!asked_.insert(key).second) return;
    if (question.needsClock) AddRequest(question.family, kClockRequest, kClockAnswer);
    AddRequest(question.family, static_cast<std::uint32_t>(question.requestBytes),
               static_cast<std::uint32_t>(question.answerBytes));
  }

  void AddRequest(const char* family, std::uint32_t sent, std::uint32_t received) {
    Add(families_[family],
        {.requests = 1, .sentBytes = sent, .receivedBytes = received, .seconds = requestS_ + byteS_ * (sent + received)});
  }

  const ChannelConfig& config_;
  double byteS_ = 0;
  double requestS_ = 0;
  std::map<std::string, Cost> families_;
  std::set<std::array<std::uint32_t, 5>> asked_;
};

}  // namespace

PassPlan PlanPass(Channel& channel, std::uint32_t turnaroundMs) {
  Planner planner(channel.Config(), turnaroundMs);
  PassPlan plan;
  for (const Meter& meter : channel.Meters()) {
    if (!meter.config.exchange || meter.selected.empty()) continue;
    plan.meters.push_back(planner.Plan(meter));
    Planner::Add(plan.cost, plan.meters.back().cost);
  }
  plan.cost.seconds += kBeforePassS;
  return plan;
}

}  // namespace ostrel::host
