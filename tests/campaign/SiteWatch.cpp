// Whoever looks: each value when it changes, each pass when it ends, each command when it passes, each line of the log.
#include <algorithm>
#include <cstdlib>

#include "Protocol/history/HistoryTime.h"
#include "Protocol/model/TagCatalogue.h"
#include "platform/text.h"
#include "tests/campaign/Site.h"
#include "tests/campaign/System.h"
#include "tests/expectation/Expectation.h"

namespace ostrel::campaign {
namespace {

constexpr std::uint8_t kOpenChannel = 0x01;
constexpr std::uint8_t kWriteParameter = 0x03;
constexpr std::uint8_t kStartSearch = 0x28;
constexpr std::uint8_t kCorrectClock = 0x0D;
constexpr std::string_view kRestored = "Восстановление связи";
constexpr std::string_view kMeter = "ПРИБОР:";

/// Tags that show something of the plug-in's own, or a command.
bool IsOwn(TagKind kind) {
  return kind != TagKind::Reading && kind != TagKind::PowerReading && kind != TagKind::Limit && !IsLog(kind);
}

/// Energies of the running and the last month.
bool IsMonth(std::uint32_t number) {
  return number >= 186 && number <= 209 && ((number - 186) % 6 == 2 || (number - 186) % 6 == 3);
}

sim::Expected ShownBy(const VARIANT& value) {
  switch (value.vt) {
    case VT_BSTR:
      return value.bstrVal == nullptr ? "" : platform::OleToUtf8(value.bstrVal);
    case VT_R4:
      return double{value.fltVal};
    case VT_UI1:
      return static_cast<double>(value.bVal);
    case VT_I1:
      return static_cast<double>(static_cast<std::int8_t>(value.cVal));
    default:
      return static_cast<double>(value.boolVal);
  }
}

bool Same(const sim::Expected& expected, const sim::Expected& shown) {
  const double* const left = std::get_if<double>(&expected);
  const double* const right = std::get_if<double>(&shown);
  return left != nullptr && right != nullptr ? Near(*left, *right) : expected == shown;
}

std::string TextOf(const sim::Expected& value) {
  return std::visit([](const auto& each) { return fmt::format("{}", each); }, value);
}

}  // namespace

// --- the plug-in's object

std::uint32_t STDMETHODCALLTYPE WatchedProtocol::LockPoll() {
  const std::int64_t wanted = scheduler->Elapsed();
  const std::uint32_t result = CProtocol::LockPoll();
  if (OnPollThread()) site_.PassBegins(wanted);
  return result;
}

std::uint32_t STDMETHODCALLTYPE WatchedProtocol::UnlockPoll() {
  if (OnPollThread()) site_.PassEnds();
  return CProtocol::UnlockPoll();
}

std::uint32_t STDMETHODCALLTYPE WatchedProtocol::UnlockExchange() {
  return Planted("unlock-forgotten", 300) ? 1 : CProtocol::UnlockExchange();
}

std::uint32_t STDMETHODCALLTYPE WatchedProtocol::TransmitAndRecieve(const std::uint8_t* request, std::uint32_t requestLength,
                                                                    std::uint8_t* answer, std::uint32_t* count,
                                                                    std::uint32_t offset) {
  if (offset == 0) site_.wantedCode = request[1];
  if (offset == 0 && OnPollThread()) site_.CommandPasses({request, requestLength});
  if (Planted("pause-not-kept")) Channel.PreSendPause = 0;
  return CProtocol::TransmitAndRecieve(request, requestLength, answer, count, offset);
}

void STDMETHODCALLTYPE WatchedProtocol::RemoveDevice(std::int32_t index) {
  if (Planted("tag-destroyed-twice")) {
    for (CDeviceTag* const tag : Channel.Devices[static_cast<std::uint32_t>(index)].Tags) site_.TagEnds(tag);
  }
  CProtocol::RemoveDevice(index);
}

// --- passes

void Site::PassBegins(std::int64_t wanted) {
  const std::int64_t since = wanted - pass.wanted;
  if (pass.thread == protocol->ThreadId && since < plan.known.pollPeriodSeconds * 1000LL)
    Violate("not too early", "a pass began {} ms after the one before", since);
  pass = {.thread = protocol->ThreadId,
          .wanted = wanted,
          .began = scheduler->Elapsed(),
          .awake = scheduler->Awake(),
          .spent = line.spentMs,
          .exchanges = line.exchanges,
          .whole = protocol->Running != 0,
          .retries = protocol->Channel.RetryCount,
          .polled = {}};
}

void Site::PassEnds() {
  const OwnWork own;
  for (WatchedTag* const tag : tags) Look(*tag);
  if (pass.whole && protocol->Running != 0) CheckFresh();
  if (protocol->Running == 0) pass.thread = 0;  // the next one need not wait for its time
  CheckRestorations();
  CheckShare();
}

// A pass in which nothing disturbs the line takes what its requests and those of the history clients take there, a little for
// each meter, and, for a while after a disturbance or where two speak at once, what the port puts each off for.
void Site::CheckShare() const {
  const bool troubled = line.troubledUntil > scheduler->Awake() || std::ranges::any_of(plan.meters, &MeterPlan::twin);
  const std::int64_t holds = std::max<std::int64_t>(10'000, plan.known.retries * (3300 + 5LL * plan.known.timeoutMs));
  const std::int64_t mostHeldUpMs = troubled ? holds : 0;
  const std::int64_t took = scheduler->Awake() - pass.awake;
  const std::int64_t explained = line.spentMs - pass.spent;
  const std::int64_t bound = explained * 5 / 2 + (1000 + mostHeldUpMs) * static_cast<std::int64_t>(devices.size() + 1);
  if (took > bound && !line.Disturbed(pass.exchanges) && line.noisyUntil < scheduler->TrueUtcMs() - took)
    Violate("fair share", "a pass took {} ms, of them {} on the line", took, explained);
}

// A meter that was asked in this pass either showed each value of its tags in use, or shows none as good.
void Site::CheckFresh() const {
  for (const WatchedTag* const tag : tags) {
    const bool asked = pass.polled.contains(static_cast<std::uint8_t>(AddressOf(*tag)));
    if (!asked || plan.meters[tag->meter].twin || IsOwn(tag->kind) || tag->usedSince < 0 || tag->usedSince >= pass.began)
      continue;
    if (tag->Quality == kQualityGood && tag->decodedAt < pass.began)
      Violate("not stale", "tag {} of meter {} is good and was not read in this pass", tag->TagNumber, AddressOf(*tag));
  }
}

void Site::CheckRestorations() {
  if (devices.size() != protocol->Channel.Devices.Size()) return;
  const bool logIsWhole = std::exchange(drillsSeen, drillsFired) == drillsFired;
  for (std::uint32_t i = 0; i < devices.size(); ++i) {
    Device& device = devices[i];
    const bool lost = protocol->Channel.Devices[i].LinkState == kLinkLost;
    const std::uint32_t expected = device.lost && !lost ? 1 : 0;
    const MeterPlan& meter = plan.meters[device.meter];
    if (device.restored != expected && logIsWhole && !meter.twin)
      Violate("log once", "meter {} came back {} times in this pass and the log says {}", meter.spec.address, expected,
              device.restored);
    device = {.meter = device.meter, .lost = lost};
  }
}

// --- values

void Site::TagsMayHaveChanged() {
  const OwnWork own;
  for (WatchedTag* const tag : tags) {
    if (AddressOf(*tag) % 256 == lastPolled) Look(*tag);
  }
}

void Site::Look(WatchedTag& tag) {
  if (tag.writing && LoadFlag(tag.WritePending) == 0) WriteEnds(tag);
  if (tag.Quality == tag.shownQuality && Ticks(tag.Timestamp) == tag.shownAt) return;
  tag.shownAt = Ticks(tag.Timestamp);
  tag.shownQuality = tag.Quality;
  scheduler->Note(tag.Quality * 1000U + tag.TagNumber);
  if (tag.Quality != kQualityGood) return;
  tag.decodedAt = scheduler->Elapsed();
  if (!IsOwn(tag.kind)) CheckValue(tag);
}

// The last request that the poll thread sent to this meter is the one that brought the value, whatever copy was answered.
void Site::CheckValue(const WatchedTag& tag) {
  const MeterPlan& meter = plan.meters[tag.meter];
  const Transaction* const last = line.Last(protocol->ThreadId, meter.spec.address);
  // A month is asked for as the catalogue has it when the meter's clock could not be read.
  const bool anyMonth =
      IsMonth(tag.TagNumber) && last != nullptr && last->request.size() > 2 && (last->request[2] & 0xFE) == 0x30;
  if (anyMonth || (IsLog(tag.kind) && meter.known.eventLog == 0)) return;  // nobody asks a log without a number
  std::string held;
  for (std::size_t i = last == nullptr ? 0 : last->moments.size(); i > 0; --i) {
    const auto expected = sim::ExpectedTag(last->moments[i - 1].View(), tag.TagNumber, meter.known.eventLog);
    if (!expected && meter.twin) return;  // whatever another kind of meter makes of it
    if (!expected) continue;
    if (Same(*expected, ShownBy(tag.Value))) return;
    held += " " + TextOf(*expected);
  }
  // Two meters of one address: which of them gave the factors, and which the reading, nobody can tell.
  const auto shared = [last](const Moment& each) { return each.meter != last->moments[0].meter; };
  if ((held.empty() && meter.twin) || (last != nullptr && std::ranges::any_of(last->moments, shared))) return;
  Violate("right value", "tag {} of meter {} shows {} and the meter held{}", tag.TagNumber, meter.spec.address,
          TextOf(ShownBy(tag.Value)), held.empty() ? " nothing" : held);
}

// --- writes

void Site::CommandPasses(std::span<const std::uint8_t> request) {
  const OwnWork own;
  lastPolled = request[0];
  pass.polled.insert(request[0]);
  if (request[1] != kWriteParameter || request[2] == kStartSearch) return;
  const Transaction* const last = line.Last(protocol->ThreadId, request[0]);
  if (last != nullptr && last->status == std::uint8_t{0}) confirmed.insert(last->request);
  if (request[2] != kCorrectClock && confirmed.contains(Bytes(request.begin(), request.end())))
    Violate("write once", "a command that the meter has confirmed is sent again");
  for (WatchedTag* const tag : tags) {
    if (tag->writing && AddressOf(*tag) == request[0] && tag->WriteParam == request[2]) ++tag->sent;
  }
}

// Confirmed and in the meter, or refused, or given up after all its tries.
void Site::WriteEnds(WatchedTag& tag) {
  tag.writing = false;
  const MeterPlan& meter = plan.meters[tag.meter];
  if (tag.kind == TagKind::Exchange || meter.twin) return;
  const std::string what = fmt::format("the write of tag {} to meter {}", tag.TagNumber, meter.spec.address);
  if (tag.sent == 0) Violate("write once", "{} ended before its command was sent", what);
  const bool allTries = tag.sent >= pass.retries || !pass.whole || protocol->Running == 0;
  const bool unheard = wantedCode == kWriteParameter && !line.record.empty() && line.record.back().received.empty();
  if (unheard && !allTries && drillsSeen == drillsFired)
    Violate("write once", "{} ended after {} tries though nobody answered", what, tag.sent);
  const Transaction* const last = line.Last(protocol->ThreadId, meter.spec.address);
  if (last == nullptr || last->spoiled || last->request.size() < 2 || last->request[1] != kWriteParameter || !last->status)
    return;
  const bool busy = *last->status == static_cast<std::uint8_t>(sim::Status::Busy);
  if (busy && !allTries) Violate("write once", "{} ended after {} tries though the meter was busy", what, tag.sent);
  const auto now = sim::ExpectedTag(MomentOf(*line.meters[tag.meter]).View(), tag.TagNumber);
  const auto* const held = now && *last->status == 0 ? std::get_if<double>(&*now) : nullptr;
  if (held != nullptr && !IsOwn(tag.kind) && !Near(*held, tag.written))
    Violate("write once", "{} of {} was confirmed and the meter has {}", what, tag.written, *held);
}

// --- the log, and whatever else the host is called for

void Site::LogLine(std::string_view bytes) {
  HostIsCalled("the event log");
  const std::string text = platform::Cp1251ToUtf8(std::string(bytes));
  for (const char each : text) scheduler->Note(static_cast<std::uint8_t>(each));
  // An opening of the access channel tells its own outcome, also when the line was too noisy to send it, and the transaction
  // that needed it another; a port that cannot be opened fails one after another at once.
  const bool both = line.failed || protocol->Running == 0 || wantedCode == kOpenChannel;
  if (text == lastLine && !both && text.find("COM-порта") == std::string::npos)
    Violate("log once", "the log says twice: {}", text);
  lastLine = text;
  if (text.find(kRestored) == std::string::npos) return;
  const auto address = std::strtoul(text.c_str() + text.find(kMeter) + kMeter.size(), nullptr, 10);
  for (Device& device : devices) device.restored += plan.meters[device.meter].spec.address == address ? 1 : 0;
}

void Site::HostIsCalled(const char* what) const {
  if (scheduler->Holds(&context.TagLock) || scheduler->Holds(&protocol->ProfileDataLock))
    Violate("no short lock", "{} while one of the plug-in's short locks is held", what);
}

void Site::TagEnds(CDeviceTag* tag) {
  if (alive.erase(tag) == 0) Violate("tag once", "a tag is destroyed twice");
}

// --- the end

/// Every tag in use is good, and was read since the line is calm; or the first one that is not.
std::string Site::WhyNotWell() const {
  for (const WatchedTag* const tag : tags) {
    const MeterPlan& meter = plan.meters[tag->meter];
    const bool refuses = meter.spec.busyEvery != 0 && plan.known.retries == 1;
    const sim::MeterView view = line.meters[tag->meter]->View(scheduler->TrueUtcMs());
    const bool excused = meter.twin || refuses || !view.model.HasPower(view.now);
    if (excused || tag->usedSince < 0 || IsOwn(tag->kind) || IsLog(tag->kind) || tag->Quality == kQualityGood) continue;
    return fmt::format("tag {} of meter {} has quality {}", tag->TagNumber, meter.spec.address, tag->Quality);
  }
  return {};
}

}  // namespace ostrel::campaign
