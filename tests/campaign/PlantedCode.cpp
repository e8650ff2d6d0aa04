// Functions of the product with a defect around them. The linker brings calls of those named here to this file, and gives the
// true ones back under another name; CMake reads the names from the AROUND lines. Whoever renames one of them hears it from
// the linker.
#include "Protocol/acquisition/TagMarking.h"
#include "Protocol/acquisition/TagWriter.h"
#include "Protocol/history/ProfileRecordRead.h"
#include "Protocol/history/ProfileSearch.h"
#include "Protocol/history/ProfileTimes.h"
#include "Protocol/link/ExchangeEngine.h"
#include "Protocol/link/Frame.h"
#include "Protocol/link/LinkState.h"
#include "Protocol/link/Port.h"
#include "Protocol/meter/MeterInfo.h"
#include "Protocol/meter/MeterRequest.h"
#include "Protocol/meter/Meters.h"
#include "Protocol/model/DeviceEntry.h"
#include "host/ports/FrameSplit.h"
#include "host/ports/OwedAnswers.h"
#include "host/ports/PortLine.h"
#include "platform/clock.h"
#include "platform/local_time.h"
#include "tests/campaign/Line.h"

#define AROUND(result, name, symbol, ...)                       \
  result True##name(__VA_ARGS__) __asm__("__real_" #symbol);    \
  result Planted##name(__VA_ARGS__) __asm__("__wrap_" #symbol); \
  result Planted##name(__VA_ARGS__)

namespace ostrel::campaign {

// clang-format off
AROUND(bool, Purge, _ZN6ostrel4host8PortLine5PurgeEv, host::PortLine* self) {
  return Planted("no-dropping") || TruePurge(self);
}

AROUND(bool, Came, _ZN6ostrel4host11OwedAnswers4CameESt4spanIKhLm18446744073709551615EEj, host::OwedAnswers* self,
       std::span<const std::uint8_t> frame, std::uint32_t tick) {
  return Planted("no-owed-account") || TrueCame(self, frame, tick);
}

AROUND(std::vector<std::vector<std::uint8_t>>, SplitFrames, _ZN6ostrel4host11SplitFramesESt4spanIKhLm18446744073709551615EE,
       std::span<const std::uint8_t> bytes) {
  auto frames = TrueSplitFrames(bytes);
  for (auto& frame : frames) {
    if (!Planted("no-address-filter")) break;
    frame[0] = askedAddress;
    AppendCrc(frame.data(), static_cast<std::int32_t>(frame.size()));
  }
  return frames;
}

AROUND(AnswerCheck, Validate, _ZN6ostrel14ValidateAnswerEPKhjjj, const std::uint8_t* answer, std::uint32_t received,
       std::uint32_t address, std::uint32_t expected) {
  const AnswerCheck check = TrueValidate(answer, received, address, Planted("length-unchecked") ? 0 : expected);
  if (check == kAnswerIncomplete && received == expected && Planted("check-unchecked")) return kAnswerValid;
  return check;
}

AROUND(ExchangeOutcome, RunExchange, _ZN6ostrel11RunExchangeERNS_4LineEjSt4spanIKhLm18446744073709551615EEPhRKNS_14ExchangePolicyE,
       ostrel::Line& line, std::uint32_t device, std::span<const std::uint8_t> request, std::uint8_t* answer, const ExchangePolicy& policy) {
  ExchangePolicy changed = policy;
  if (Planted("busy-is-success")) changed.onBusy = OnBusy::Validate;
  return TrueRunExchange(line, device, request, answer, changed);
}

AROUND(bool, ReadRecord, _ZN6ostrel17ReadProfileRecordERNS_6MetersERKNS_8MeterRefERKNS_11RecordQueryERSt5arrayINS_13ProfileRecordELm4EE,
       Meters& meters, const MeterRef& meter, const RecordQuery& query, PowerRecords& records) {
  if (!Planted("record-off-by-one")) return TrueReadRecord(meters, meter, query, records);
  const RecordQuery next{.row = query.row, .address = static_cast<std::uint16_t>(query.address + kProfileRecordBytes),
                         .time = query.time, .period = query.period, .coefficients = query.coefficients};
  return TrueReadRecord(meters, meter, next, records);
}

AROUND(HourSearch, FindHour, _ZN6ostrel14FindHourHeaderERNS_6MetersERKNS_8MeterRefERKNS_9HourQueryERt, Meters& meters,
       const MeterRef& meter, const HourQuery& query, std::uint16_t& header) {
  if (header != 0 && Planted("header-kept", 3)) return HourSearch::Found;
  return TrueFindHour(meters, meter, query, header);
}

AROUND(bool, AskMeter, _ZN6ostrel8AskMeterERNS_6MetersERKNS_8MeterRefESt4spanIKhLm18446744073709551615EES5_IhLm18446744073709551615EE,
       Meters& meters, const MeterRef& meter, std::span<const std::uint8_t> body, std::span<std::uint8_t> answer) {
  constexpr std::uint8_t kStartSearch = 0x28;
  const bool starts = body[0] == 3 && body[1] == kStartSearch;
  return (starts && Planted("search-not-begun", 4)) || TrueAskMeter(meters, meter, body, answer);
}

AROUND(std::uint32_t, ReadInfoOnce, _ZN6ostrel12ReadInfoOnceERNS_6MetersEj, Meters& meters, std::uint32_t device) {
  DeviceEntry* const entry = meters.Device(device);
  if (entry == nullptr || LoadFlag(entry->InfoRead) != 0 || LoadFlag(entry->ExchangeOn) == 0) return TrueReadInfoOnce(meters, device);
  const bool unread = Planted("factors-unread");
  const bool looksFirst = Planted("factors-reset");
  if (!unread && !looksFirst) return TrueReadInfoOnce(meters, device);
  // Whoever else reads them has the time to come in between, and to decode with neutral ones.
  if (looksFirst) {
    platform::Sleep(450);
    if (DeviceEntry* const known = meters.Device(device)) known->VoltageFactor = known->CurrentFactor = 1;
    platform::Sleep(450);
  }
  if (looksFirst && ReadDeviceInfo(meters, device) == 0) return 0;
  if (DeviceEntry* const known = meters.Device(device)) StoreFlag(known->InfoRead, 1);
  return 1;
}

AROUND(TimeOutcome, MoveOn, _ZN6ostrel6MoveOnER8FILETIMENS_8TimeSpanE, FILETIME& time, TimeSpan span) {
  const TimeOutcome outcome = TrueMoveOn(time, span);
  SYSTEMTIME fields{};
  const bool midnight = platform::FileTimeToFields(time, fields) && fields.wHour == 0 && fields.wMinute == 0;
  return midnight && Planted("day-seam") ? TrueMoveOn(time, span) : outcome;
}

AROUND(void, MarkLost, _ZN6ostrel8MarkLostERNS_11DeviceEntryE, DeviceEntry& entry) {
  if (Planted("quality-kept")) return;
  if (Planted("loss-holds-up")) platform::Sleep(15'000);
  TrueMarkLost(entry);
  if (Planted("info-kept")) StoreFlag(entry.InfoRead, 1);
}

AROUND(std::uint32_t, WriteTag, _ZN6ostrel8WriteTagERNS_6MetersERNS_10CDeviceTagEj, Meters& meters, CDeviceTag& tag,
       std::uint32_t device) {
  if (Planted("flag-cleared-early", 2)) {
    StoreFlag(tag.WritePending, 0);
    return 1;
  }
  const std::uint16_t retries = meters.Channel.RetryCount;
  if (Planted("write-lost")) meters.Channel.RetryCount = 1;
  const std::uint32_t result = TrueWriteTag(meters, tag, device);
  if (Planted("write-lost")) meters.Channel.RetryCount = retries;
  if (Planted("write-twice")) TrueWriteTag(meters, tag, device);
  return result;
}

AROUND(void, ReportEvent, _ZN6ostrel11ReportEventERNS_4LineEjj, ostrel::Line& line, std::uint32_t code, std::uint32_t meter) {
  if (code == kEventLinkRestored && Planted("log-forgotten")) return;
  const bool underLock = line.HostContext != nullptr && Planted("call-under-short-lock", 5);
  if (underLock) line.HostContext->TagLock.Enter();
  TrueReportEvent(line, code, meter);
  if (underLock) line.HostContext->TagLock.Leave();
  if (Planted("log-twice", 3)) TrueReportEvent(line, code, meter);
}

AROUND(void, ClosePort, _ZN6ostrel9ClosePortERNS_4LineE, ostrel::Line& line) {
  if (Planted("port-not-given-back", 2)) line.Channel.PortObject = nullptr;
  TrueClosePort(line);
}

AROUND(std::optional<std::int64_t>, SecondsFromLocal, _ZN6ostrel8platform16SecondsFromLocalERKNS0_11LocalFieldsE,
       const platform::LocalFields& fields) {
  const auto seconds = TrueSecondsFromLocal(fields);
  const bool summer = fields.month > 3 && fields.month < 11;
  return seconds && summer && Planted("daylight-off-by-one") ? std::optional(*seconds + 3600) : seconds;
}
// clang-format on

}  // namespace ostrel::campaign
