// Whoever looks: each value when it changes, each pass when it ends, each command when it passes, each line of the log.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <utility>

#include "Protocol/model/TagCatalogue.h"
#include "platform/text.h"
#include "tests/campaign/Plants.h"
#include "tests/campaign/Site.h"
#include "tests/campaign/Violation.h"
#include "tests/expectation/Expectation.h"

namespace ostrel::campaign {
namespace {

constexpr std::uint8_t kOpenChannel = 0x01;
constexpr std::uint8_t kWriteParameter = 0x03;
constexpr std::uint8_t kStartSearch = 0x28;
constexpr std::uint8_t kCorrectClock = 0x0D;

bool SameTime(const FILETIME& left, const FILETIME& right) {
  return left.dwLowDateTime == right.dwLowDateTime && left.dwHighDateTime == right.dwHighDateTime;
}

/// Tags that show something of the plug-in's own, or a command.
bool IsOwn(std::uint32_t number) {
  constexpr std::uint32_t kOwn[] = {kTagTimeCorrection,  kTagTimeSetup, kTagIndicationPeriod, 100, 102, 185,
                                    kTagConnectionState, kTagExchange};
  return std::ranges::find(kOwn, number) != std::end(kOwn);
}

/// An event that never was shows a bad quality of its own.
bool IsLog(std::uint32_t number) { return number >= kTagFirstLog && number <= kTagLastLog; }

/// Energies of the running and the last month.
bool IsMonth(std::uint32_t number) {
  return number >= 186 && number <= 209 && ((number - 186) % 6 == 2 || (number - 186) % 6 == 3);
}

double NumberOf(const VARIANT& value) {
  switch (value.vt) {
    case VT_R4:
      return double{value.fltVal};
    case VT_UI1:
      return value.bVal;
    case VT_I1:
      return static_cast<std::int8_t>(value.cVal);
    default:
      return value.boolVal;
  }
}

std::string TextOf(const VARIANT& value) {
  if (value.vt != VT_BSTR) return std::to_string(NumberOf(value));
  return value.bstrVal == nullptr ? "" : platform::OleToUtf8(value.bstrVal);
}

bool Near(double expected, double shown) { return std::fabs(expected - shown) <= std::fabs(expected) * 1e-6 + 1e-9; }

bool Shows(const VARIANT& value, const sim::Expected& expected) {
  if (const auto* const text = std::get_if<std::string>(&expected)) return value.vt == VT_BSTR && TextOf(value) == *text;
  return value.vt != VT_BSTR && Near(std::get<double>(expected), NumberOf(value));
}

std::string TextOf(const sim::Expected& expected) {
  const auto* const text = std::get_if<std::string>(&expected);
  return text != nullptr ? *text : std::to_string(std::get<double>(expected));
}

}  // namespace

// --- the plug-in's object

std::uint32_t STDMETHODCALLTYPE WatchedProtocol::LockPoll() {
  const std::int64_t wanted = Scheduler::Current()->Elapsed();
  const std::uint32_t result = CProtocol::LockPoll();
  if (OnPollThread()) site_.PassBegins(wanted);
  return result;
}

std::uint32_t STDMETHODCALLTYPE WatchedProtocol::UnlockPoll() {
  if (OnPollThread()) site_.PassEnds();
  return CProtocol::UnlockPoll();
}

std::uint32_t STDMETHODCALLTYPE WatchedProtocol::UnlockExchange() {
  if (Planted(Plant::UnlockForgotten, 300)) return 1;
  return CProtocol::UnlockExchange();
}

std::uint32_t STDMETHODCALLTYPE WatchedProtocol::TransmitAndRecieve(const std::uint8_t* request, std::uint32_t requestLength,
                                                                    std::uint8_t* answer, std::uint32_t* count,
                                                                    std::uint32_t offset) {
  if (offset == 0 && OnPollThread()) site_.CommandPasses({request, requestLength});
  if (Planted(Plant::PauseNotKept)) Channel.PreSendPause = 0;
  return CProtocol::TransmitAndRecieve(request, requestLength, answer, count, offset);
}

void STDMETHODCALLTYPE WatchedProtocol::RemoveDevice(std::int32_t index) {
  if (Planted(Plant::TagDestroyedTwice)) {
    for (CDeviceTag* const tag : Channel.Devices[static_cast<std::uint32_t>(index)].Tags) site_.TagEnds(tag);
  }
  CProtocol::RemoveDevice(index);
}

// --- passes

void Site::PassBegins(std::int64_t wanted) {
  const bool sameThread = std::exchange(passThread_, protocol_->ThreadId) == protocol_->ThreadId;
  if (sameThread && wanted - passWanted_ < plan_.pollPeriodSeconds * 1000LL) {
    Violate(Invariant::NotTooEarly, "a pass began " + std::to_string(wanted - passWanted_) + " ms after the one before");
  }
  passWanted_ = wanted;
  passBegan_ = Scheduler::Current()->Elapsed();
  awakeBegan_ = Scheduler::Current()->Awake();
  lineBegan_ = line_.Spent();
  exchangesBegan_ = line_.Exchanges();
  wholePass_ = protocol_->Running != 0;
  polled_.clear();
}

void Site::PassEnds() {
  const OwnWork own;
  for (const auto& tag : tags_) Look(*tag);
  if (wholePass_ && protocol_->Running != 0) CheckFresh();
  if (protocol_->Running == 0) passThread_ = 0;  // the next one need not wait for its time
  CheckRestorations();
  CheckShare();
}

// A pass in which nothing disturbs the line takes what its requests and those of the history clients take there, a little for
// each meter, and what the port still puts each off for because of earlier disturbances.
void Site::CheckShare() {
  const std::int64_t mostHeldUpMs = std::max<std::int64_t>(10'000, std::int64_t{plan_.retries} * host::kLongestHoldMs);
  const std::int64_t took = Scheduler::Current()->Awake() - awakeBegan_;
  const std::int64_t explained = line_.Spent() - lineBegan_;
  const std::int64_t bound = explained * 3 / 2 + (400 + mostHeldUpMs) * static_cast<std::int64_t>(devices_.size() + 1);
  if (took > bound && !line_.Disturbed(exchangesBegan_) && line_.NoisyUntil() < time_.True() - took) {
    Violate(Invariant::FairShare,
            "a pass took " + std::to_string(took) + " ms, of them " + std::to_string(explained) + " on the line");
  }
}

// A meter that was asked in this pass either showed each value of its tags in use, or shows none as good.
void Site::CheckFresh() {
  for (const auto& tag : tags_) {
    const bool asked = polled_.contains(static_cast<std::uint8_t>(plan_.meters[tag->meter].spec.address));
    if (!asked || plan_.meters[tag->meter].twin || IsOwn(tag->number) || tag->usedSince < 0 || tag->usedSince >= passBegan_)
      continue;
    if (tag->tag->Quality == kQualityGood && tag->decodedAt < passBegan_) {
      Violate(Invariant::NotStale, "tag " + std::to_string(tag->number) + " of meter " +
                                       std::to_string(plan_.meters[tag->meter].spec.address) +
                                       " is good and was not read in this pass");
    }
  }
}

void Site::CheckRestorations() {
  if (devices_.size() != protocol_->Channel.Devices.Size()) return;
  for (std::uint32_t i = 0; i < devices_.size(); ++i) {
    Device& device = devices_[i];
    const bool lost = protocol_->Channel.Devices[i].LinkState == kLinkLost;
    const std::uint32_t expected = device.lost && !lost ? 1 : 0;
    if (device.restored != expected && !logFailed_ && !plan_.meters[device.meter].twin) {
      Violate(Invariant::LogOnce, "meter " + std::to_string(plan_.meters[device.meter].spec.address) + " came back " +
                                      std::to_string(expected) + " times in this pass and the log says " +
                                      std::to_string(device.restored));
    }
    device.lost = lost;
    device.restored = 0;
  }
}

// --- values

void Site::TagsMayHaveChanged() {
  const OwnWork own;
  for (const auto& tag : tags_) {
    if (plan_.meters[tag->meter].spec.address % 256 == lastPolled_) Look(*tag);
  }
}

void Site::Look(WatchedTag& watched) {
  const CDeviceTag& tag = *watched.tag;
  if (watched.writing && LoadFlag(watched.tag->WritePending) == 0) WriteEnds(watched);
  if (tag.Quality == watched.quality && SameTime(tag.Timestamp, watched.timestamp)) return;
  watched.timestamp = tag.Timestamp;
  watched.quality = tag.Quality;
  Scheduler::Current()->Note(tag.Quality * 1000U + watched.number);
  if (tag.Quality != kQualityGood) return;
  watched.decodedAt = Scheduler::Current()->Elapsed();
  if (!IsOwn(watched.number)) CheckValue(watched);
}

// The last request that the poll thread sent to this meter is the one that brought the value, whatever copy was answered. The
// records of an event log are kept for the four tags that show one.
void Site::CheckValue(const WatchedTag& watched) {
  const MeterPlan& plan = plan_.meters[watched.meter];
  const Transaction* const last = line_.Last(protocol_->ThreadId, static_cast<std::uint8_t>(plan.spec.address));
  // A month is asked for as the catalogue has it when the meter's clock could not be read.
  const bool anyMonth =
      IsMonth(watched.number) && last != nullptr && last->request.size() > 2 && (last->request[2] & 0xFE) == 0x30;
  if (IsLog(watched.number) || anyMonth) return;
  std::string expectations;
  for (std::size_t i = last == nullptr ? 0 : last->moments.size(); i > 0; --i) {
    const auto expected = sim::ExpectedTag(last->moments[i - 1].View(), watched.number, plan.log);
    if (!expected && plan.twin) return;  // whatever another kind of meter makes of it
    if (!expected) continue;
    if (Shows(watched.tag->Value, *expected)) return;
    expectations += " " + TextOf(*expected);
  }
  if (expectations.empty() && plan.twin) return;
  Violate(Invariant::RightValue, "tag " + std::to_string(watched.number) + " of meter " + std::to_string(plan.spec.address) +
                                     " shows " + TextOf(watched.tag->Value) + " and the meter held" +
                                     (expectations.empty() ? " nothing" : expectations));
}

// --- writes

void Site::CommandPasses(std::span<const std::uint8_t> request) {
  lastPolled_ = request[0];
  polled_.insert(request[0]);
  if (request[1] != kWriteParameter || request[2] == kStartSearch) return;
  const OwnWork own;
  const Transaction* const last = line_.Last(protocol_->ThreadId, request[0]);
  if (last != nullptr && last->status == std::uint8_t{0}) confirmed_.insert(last->request);
  if (request[2] != kCorrectClock && confirmed_.contains(Bytes(request.begin(), request.end()))) {
    Violate(Invariant::WriteOnce, "a command that the meter has confirmed is sent again");
  }
  for (const auto& tag : tags_) {
    const bool own1 = tag->writing && plan_.meters[tag->meter].spec.address == request[0] && tag->tag->WriteParam == request[2];
    if (own1) ++tag->sent;
  }
}

// Confirmed and in the meter, or refused, or given up after all its tries.
void Site::WriteEnds(WatchedTag& watched) {
  watched.writing = false;
  const MeterPlan& plan = plan_.meters[watched.meter];
  if (watched.number == kTagExchange || plan.twin) return;
  const std::string what =
      "the write of tag " + std::to_string(watched.number) + " to meter " + std::to_string(plan.spec.address);
  if (watched.sent == 0) Violate(Invariant::WriteOnce, what + " ended before its command was sent");
  const Transaction* const last = line_.Last(protocol_->ThreadId, static_cast<std::uint8_t>(plan.spec.address));
  if (last == nullptr || last->spoiled || last->request.size() < 2 || last->request[1] != kWriteParameter || !last->status)
    return;
  constexpr std::uint8_t kBusy = 6;
  if (*last->status == kBusy && watched.sent < plan_.retries && protocol_->Channel.RetryCount == plan_.retries) {
    Violate(Invariant::WriteOnce, what + " ended after " + std::to_string(watched.sent) + " tries though the meter was busy");
  }
  const auto now = sim::ExpectedTag(MomentOf(watched.meter).View(), watched.number);
  const auto* const number = now && *last->status == 0 ? std::get_if<double>(&*now) : nullptr;
  const double shown = watched.number >= 219 && watched.number <= 222 ? watched.written : watched.written;
  if (number != nullptr && !IsOwn(watched.number) && !Near(*number, shown)) {
    Violate(Invariant::WriteOnce,
            what + " of " + std::to_string(watched.written) + " was confirmed and the meter has " + std::to_string(*number));
  }
}

// --- the log, and whatever else the host is called for

void Site::LogLine(std::string_view line) {
  HostIsCalled("the event log");
  const std::string text = platform::Cp1251ToUtf8(std::string(line));
  for (const char each : text) Scheduler::Current()->Note(static_cast<std::uint8_t>(each));
  // An opening of the access channel tells its own outcome, and the transaction that needed it another; a port that cannot be
  // opened fails one after another at once.
  const bool both =
      line_.Failed() || protocol_->Running == 0 || line_.Record().empty() || line_.Record().back().request[1] == kOpenChannel;
  if (text == lastLine_ && !both && text.find("COM-порта") == std::string::npos)
    Violate(Invariant::LogOnce, "the log says twice: " + text);
  lastLine_ = text;
  if (text.find("Восстановление связи") == std::string::npos) return;
  const std::size_t at = text.find("ПРИБОР:");
  const auto address =
      static_cast<std::uint32_t>(std::strtoul(text.c_str() + at + std::string_view("ПРИБОР:").size(), nullptr, 10));
  for (Device& device : devices_) {
    if (plan_.meters[device.meter].spec.address == address) ++device.restored;
  }
}

void Site::HostIsCalled(const char* what) {
  const Scheduler& scheduler = *Scheduler::Current();
  if (scheduler.Holds(&context_.TagLock) || scheduler.Holds(&protocol_->ProfileDataLock)) {
    Violate(Invariant::NoShortLock, std::string(what) + " while one of the plug-in's short locks is held");
  }
}

void Site::TagEnds(CDeviceTag* tag) {
  if (++ended_[tag] > 1) Violate(Invariant::TagOnce, "tag " + std::to_string(tag->TagNumber) + " is destroyed twice");
}

// --- the end

/// Every tag in use is good, and was read since the line is calm; or the first one that is not.
std::string Site::WhyNotWell() const {
  for (const auto& tag : tags_) {
    const MeterPlan& plan = plan_.meters[tag->meter];
    const bool refuses = plan.spec.busyEvery != 0 && plan_.retries == 1;
    const bool dark =
        !line_.Meters()[tag->meter]->View(time_.True()).model.HasPower(line_.Meters()[tag->meter]->View(time_.True()).now);
    // Who closes his channel after each answer has nothing to say twice, and a line that brought an answer twice is believed
    // only what it says twice.
    if (plan.twin || refuses || dark || plan.spec.closesAfterEach || tag->usedSince < 0 || IsOwn(tag->number) ||
        IsLog(tag->number))
      continue;
    if (tag->tag->Quality == kQualityGood) continue;
    return "tag " + std::to_string(tag->number) + " of meter " + std::to_string(plan.spec.address) + " has quality " +
           std::to_string(tag->tag->Quality);
  }
  return {};
}

/// More than any transaction takes, with its openings of the access channel, and the port's patience with noise.
std::int64_t Site::LongestExchangeMs() const {
  const std::int64_t once = 4LL * plan_.timeoutMs + 300 * 11'000 / plan_.baud + host::kNeverQuietMs + plan_.preSendPauseMs + 300;
  return 27 * once;
}

}  // namespace ostrel::campaign
