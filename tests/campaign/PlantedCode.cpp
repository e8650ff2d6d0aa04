// Functions of the product with a defect around them. The linker brings calls of those named here to this file, and gives the
// true ones back under another name; CMake reads the names from the AROUND lines. Whoever renames one of them hears it from
// the linker.
#include "Protocol/acquisition/DeviceCycle.h"
#include "Protocol/acquisition/TagMarking.h"
#include "Protocol/acquisition/TagWriter.h"
#include "Protocol/history/ArchiveRequest.h"
#include "Protocol/history/ProfileRecordRead.h"
#include "Protocol/history/ProfileSearch.h"
#include "Protocol/history/ProfileTimes.h"
#include "Protocol/link/ExchangeEngine.h"
#include "Protocol/link/Frame.h"
#include "Protocol/link/LinkState.h"
#include "Protocol/link/Port.h"
#include "Protocol/model/DeviceEntry.h"
#include "Protocol/object/CProtocol.h"
#include "host/ports/PortLine.h"
#include "platform/clock.h"
#include "platform/local_time.h"
#include "tests/campaign/Plants.h"

#define AROUND(result, name, symbol, ...)                           \
  result True##name(__VA_ARGS__) __asm__("__real_" #symbol);        \
  result Planted##name(__VA_ARGS__) __asm__("__wrap_" #symbol);     \
  result Planted##name(__VA_ARGS__)

namespace ostrel::campaign {

// clang-format off
AROUND(bool, Purge, _ZN6ostrel4host8PortLine5PurgeEv, host::PortLine* self) {
  return Planted(Plant::NoDropping) || TruePurge(self);
}

AROUND(AnswerCheck, Validate, _ZN6ostrel14ValidateAnswerEPKhjjj, const std::uint8_t* answer, std::uint32_t received,
       std::uint32_t address, std::uint32_t expected) {
  const AnswerCheck check = TrueValidate(answer, received, address, Planted(Plant::LengthUnchecked) ? 0 : expected);
  if (check == kAnswerIncomplete && received == expected && Planted(Plant::CheckUnchecked)) return kAnswerValid;
  return check;
}

AROUND(ExchangeOutcome, RunExchange, _ZN6ostrel11RunExchangeERNS_9CProtocolEjSt4spanIKhLm18446744073709551615EEPhRKNS_14ExchangePolicyE,
       CProtocol& protocol, std::uint32_t device, std::span<const std::uint8_t> request, std::uint8_t* answer, const ExchangePolicy& policy) {
  ExchangePolicy changed = policy;
  if (Planted(Plant::BusyIsSuccess)) changed.onBusy = OnBusy::Validate;
  return TrueRunExchange(protocol, device, request, answer, changed);
}

AROUND(bool, ReadRecord, _ZN6ostrel17ReadProfileRecordERNS_9CProtocolERKNS_8MeterRefERKNS_11RecordQueryERSt5arrayINS_13ProfileRecordELm4EE,
       CProtocol& protocol, const MeterRef& meter, const RecordQuery& query, PowerRecords& records) {
  if (!Planted(Plant::RecordOffByOne)) return TrueReadRecord(protocol, meter, query, records);
  const RecordQuery next{.row = query.row, .address = static_cast<std::uint16_t>(query.address + kProfileRecordBytes),
                         .time = query.time, .period = query.period, .coefficients = query.coefficients};
  return TrueReadRecord(protocol, meter, next, records);
}

AROUND(HourSearch, FindHour, _ZN6ostrel14FindHourHeaderERNS_9CProtocolERKNS_8MeterRefERKNS_9HourQueryERt, CProtocol& protocol,
       const MeterRef& meter, const HourQuery& query, std::uint16_t& header) {
  if (header != 0 && Planted(Plant::HeaderKept, 3)) return HourSearch::Found;
  return TrueFindHour(protocol, meter, query, header);
}

AROUND(bool, AskMeter, _ZN6ostrel8AskMeterERNS_9CProtocolERKNS_8MeterRefESt4spanIKhLm18446744073709551615EES5_IhLm18446744073709551615EE,
       CProtocol& protocol, const MeterRef& meter, std::span<const std::uint8_t> body, std::span<std::uint8_t> answer) {
  constexpr std::uint8_t kStartSearch = 0x28;
  const bool starts = body[0] == 3 && body[1] == kStartSearch;
  return (starts && Planted(Plant::SearchNotBegun, 4)) || TrueAskMeter(protocol, meter, body, answer);
}

AROUND(std::uint32_t, ReadDeviceInfo, _ZN6ostrel14ReadDeviceInfoERNS_9CProtocolEj, CProtocol& protocol, std::uint32_t device) {
  return Planted(Plant::FactorsUnread) ? 1 : TrueReadDeviceInfo(protocol, device);
}

AROUND(TimeOutcome, MoveOn, _ZN6ostrel6MoveOnER8FILETIMENS_8TimeSpanE, FILETIME& time, TimeSpan span) {
  const TimeOutcome outcome = TrueMoveOn(time, span);
  SYSTEMTIME fields{};
  const bool midnight = platform::FileTimeToFields(time, fields) && fields.wHour == 0 && fields.wMinute == 0;
  return midnight && Planted(Plant::DaySeam) ? TrueMoveOn(time, span) : outcome;
}

AROUND(void, MarkLost, _ZN6ostrel8MarkLostERNS_11DeviceEntryE, DeviceEntry& entry) {
  if (Planted(Plant::QualityKept)) return;
  if (Planted(Plant::LossHoldsUp)) platform::Sleep(15'000);
  TrueMarkLost(entry);
  if (Planted(Plant::InfoKept)) StoreFlag(entry.InfoRead, 1);
}

AROUND(std::uint32_t, WriteTag, _ZN6ostrel8WriteTagERNS_9CProtocolERNS_10CDeviceTagEj, CProtocol& protocol, CDeviceTag& tag,
       std::uint32_t device) {
  if (Planted(Plant::FlagClearedEarly, 2)) {
    StoreFlag(tag.WritePending, 0);
    return 1;
  }
  const std::uint16_t retries = protocol.Channel.RetryCount;
  if (Planted(Plant::WriteLost)) protocol.Channel.RetryCount = 1;
  const std::uint32_t result = TrueWriteTag(protocol, tag, device);
  if (Planted(Plant::WriteLost)) protocol.Channel.RetryCount = retries;
  if (Planted(Plant::WriteTwice)) TrueWriteTag(protocol, tag, device);
  return result;
}

AROUND(void, ReportEvent, _ZN6ostrel11ReportEventERNS_9CProtocolEjj, CProtocol& protocol, std::uint32_t code, std::uint32_t meter) {
  if (code == kEventLinkRestored && Planted(Plant::LogForgotten)) return;
  const bool underLock = Planted(Plant::CallUnderShortLock, 5);
  if (underLock) protocol.ProfileDataLock.Enter();
  TrueReportEvent(protocol, code, meter);
  if (underLock) protocol.ProfileDataLock.Leave();
  if (Planted(Plant::LogTwice, 3)) TrueReportEvent(protocol, code, meter);
}

AROUND(void, ClosePort, _ZN6ostrel9ClosePortERNS_9CProtocolE, CProtocol& protocol) {
  if (Planted(Plant::PortNotGivenBack, 2)) protocol.Channel.PortObject = nullptr;
  TrueClosePort(protocol);
}

AROUND(std::optional<std::int64_t>, SecondsFromLocal, _ZN6ostrel8platform16SecondsFromLocalERKNS0_11LocalFieldsE,
       const platform::LocalFields& fields) {
  const auto seconds = TrueSecondsFromLocal(fields);
  const bool summer = fields.month > 3 && fields.month < 11;
  return seconds && summer && Planted(Plant::DaylightOffByOne) ? std::optional(*seconds + 3600) : seconds;
}
// clang-format on

}  // namespace ostrel::campaign
