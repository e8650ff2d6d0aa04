// The tag namespace, fixed at build time: 244 tags of current data with the request that reads each, and 228 history tags.
#pragma once

#include <array>
#include <cstdint>
#include <map>

namespace ostrel {

inline constexpr std::uint32_t kFirstDaId = 20000;
inline constexpr std::uint32_t kDaTagCount = 244;
inline constexpr std::uint32_t kLastDaId = kFirstDaId + kDaTagCount - 1;
inline constexpr std::uint32_t kFirstHdaId = 40000;
inline constexpr std::uint32_t kHdaTagCount = 228;
inline constexpr std::uint32_t kLastHdaId = kFirstHdaId + kHdaTagCount - 1;
inline constexpr std::uint32_t kFirstDescriptionId = 30000;

/// One current-data tag, ten numbers in the order in which the host gets them.
struct TagDescriptor {
  std::uint32_t DataType;        // VARIANT type
  std::uint32_t Code;            // request code
  std::uint32_t Param;           // selector within the request
  std::uint32_t SubParam;        // second selector
  std::uint32_t RequestLength;   // bytes with check; 0: no request
  std::uint32_t Access;          // 1 read, 3 read and write, 0 none
  std::uint32_t WriteLength;     // bytes of the write command with check; 0: none
  std::uint32_t WriteParam;      // parameter number of the write; for event logs the record's part
  std::uint32_t Aux;             // the host's
  std::uint32_t ExpectedLength;  // bytes of the answer with address and check; 0: any
};
static_assert(sizeof(TagDescriptor) == 40);

[[nodiscard]] const std::array<TagDescriptor, kDaTagCount>& TagDescriptors();
/// VARIANT types of the history tags.
[[nodiscard]] const std::array<std::uint32_t, kHdaTagCount>& HistoryDataTypes();

/// What a poll does with a tag, where that does not follow from its request alone.
enum class TagKind : std::uint8_t {
  Reading,           // its own request, whose answer serves every tag that asks the same
  PowerReading,      // the same, although its request fields are the zeros of a tag without a request
  TimeCorrection,    // command, shown as 0; carried out whatever the quality
  TimeSetup,         // command, shown as 0
  IndicationPeriod,  // command, shown as 0; carried out whatever the quality, also when it was served already
  ZeroCommand,       // command; its request fields are another tag's reading, so it answers itself with 0
  LogNumber,         // the plug-in's own state
  Exchange,          // the plug-in's own state: the switch of the meter
  FirstLogRecord,    // event log, never served from another tag's answer
  LogRecord,         // event log
  ConnectionState,   // any answer makes it; false when the meter is lost
  Limit,             // load control and limits: read one by one
};
[[nodiscard]] TagKind KindOf(std::uint32_t tagNumber);
[[nodiscard]] constexpr bool IsLog(TagKind kind) { return kind == TagKind::FirstLogRecord || kind == TagKind::LogRecord; }

enum HistoryClass : std::uint32_t {
  kHistoryDay = 0,
  kHistoryMonth = 1,
  kHistoryYear = 2,
  kHistoryProfile = 3,
  kHistoryAdditionalProfile = 4,
  kHistoryThirdProfile = 5,
  kHistoryCumulativeDay = 6,
  kHistoryCumulativeMonth = 7,
  kHistoryCumulativeYear = 8,
};

/// Class of every history tag id.
[[nodiscard]] std::map<std::uint32_t, std::uint32_t> MakeHistoryClassMap();

/// Whether a meter type has a tag. Ids below a branch's first count as the current-data tables have them.
[[nodiscard]] bool SupportsDaTag(std::uint32_t meterType, std::uint32_t id);
[[nodiscard]] bool SupportsHdaTag(std::uint32_t meterType, std::uint32_t id);

/// Tag numbers (id - 20000) that the acquisition treats by name.
enum TagNumber : std::uint32_t {
  kTagMeterConstant = 4,
  kTagVoltageCoefficient = 6,
  kTagCurrentCoefficient = 7,
  kTagTimeCorrection = 97,
  kTagTimeSetup = 98,
  kTagIndicationPeriod = 99,
  kTagTransitionInhibitCommand = 100,
  kTagLogNumber = 102,
  kTagFirstLog = 103,
  kTagLastLog = 182,
  kTagMeterType = 183,
  kTagIndicationRecoveryCommand = 185,
  kTagConnectionState = 210,
  kTagExchange = 211,
  kTagFirstLimit = 212,
  kTagLastLimit = 242,
};

}  // namespace ostrel
