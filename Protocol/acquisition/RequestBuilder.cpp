#include "Protocol/acquisition/RequestBuilder.h"

#include "Protocol/link/Frame.h"
#include "Protocol/model/CDeviceTag.h"
#include "Protocol/model/TagSet.h"

namespace ostrel {
namespace {

constexpr std::uint32_t kShortestRequest = 4;
constexpr std::uint8_t kMonthArchive = 0x30;

/// What stands between the address and the check, as far as the request is long.
struct Body {
  std::uint8_t code = 0;
  std::uint8_t param = 0;
  std::uint8_t subParam = 0;
  std::uint8_t selector = 0;
};

/// All four kinds of energy come in one answer; the tag's own parameter tells tariffs apart for people only.
void Energy(const CDeviceTag&, const RequestSubject&, Body& body) { body.param = 0x00; }

/// The catalogue keeps quantity, kind and phase apart; the request packs them into one byte.
void Instantaneous(const CDeviceTag& tag, const RequestSubject&, Body& body) {
  const std::uint32_t packed = (tag.Code & 0x0F) * 16 + (tag.Param & 3) * 4 + (tag.SubParam & 3);
  body = {.code = 0x08, .param = 0x11, .subParam = static_cast<std::uint8_t>(packed)};
}

void EventLog(const CDeviceTag&, const RequestSubject& subject, Body& body) { body.param = subject.log; }

void Month(const CDeviceTag&, const RequestSubject& subject, Body& body) {
  if (subject.month) body.param = *subject.month;
}

void Limit(const CDeviceTag& tag, const RequestSubject&, Body& body) { LimitSelector(tag.TagNumber, body.selector); }

/// Tags whose request is not just what the catalogue says.
struct RequestRow {
  TagSet tags{};
  void (*adjust)(const CDeviceTag&, const RequestSubject&, Body&) = nullptr;
  std::optional<WhichMonth> month{};
};

constexpr RequestRow kRequests[] = {
    {.tags = {{{9, 44}}}, .adjust = Energy},
    {.tags = {{{49, 93}}}, .adjust = Instantaneous},
    {.tags = {{{kTagFirstLog, kTagLastLog}}}, .adjust = EventLog},
    {.tags = {{{188, 188}, {194, 194}, {200, 200}, {206, 206}}}, .adjust = Month, .month = WhichMonth::Current},
    {.tags = {{{189, 189}, {195, 195}, {201, 201}, {207, 207}}}, .adjust = Month, .month = WhichMonth::Previous},
    {.tags = {{{kTagFirstLimit, kTagLastLimit}}}, .adjust = Limit},
};
static_assert(EachTagOnce(kRequests));

/// The selector grows by one from tag to tag of a run.
struct SelectorRow {
  TagRun tags;
  std::uint8_t first;
};

constexpr SelectorRow kSelectors[] = {
    {{212, 212}, 0x00},                      // LoadControl
    {{213, 213}, 0x00},                      // StartEstimatedInterval
    {{214, 217}, 0x01},                      // LimitEnergyT1 to T4
    {{218, 218}, 0x00},                      // LimitEnergySum
    {{219, 222}, 0x00},                      // LimitPower: week day, Saturday, Sunday, holiday
    {{223, 226}, 0x01}, {{227, 227}, 0x00},  // A+ Limit Tariff 1 to 4, Sum
    {{228, 231}, 0x11}, {{232, 232}, 0x10},  // A-
    {{233, 236}, 0x21}, {{237, 237}, 0x20},  // R+
    {{238, 241}, 0x31}, {{242, 242}, 0x30},  // R-
};

bool IsRequested(const CDeviceTag& tag) {
  return tag.RequestLength >= kShortestRequest && tag.RequestLength <= RequestFrame{}.bytes.size();
}

Body MakeBody(const CDeviceTag& tag, const RequestSubject& subject) {
  Body body{.code = static_cast<std::uint8_t>(tag.Code),
            .param = static_cast<std::uint8_t>(tag.Param),
            .subParam = static_cast<std::uint8_t>(tag.SubParam)};
  const RequestRow* const row = FindRow<kRequests>(tag.TagNumber);
  if (row != nullptr) row->adjust(tag, subject, body);
  return body;
}

}  // namespace

std::optional<WhichMonth> MonthAsked(const CDeviceTag& tag) {
  const RequestRow* const row = FindRow<kRequests>(tag.TagNumber);
  return row != nullptr && IsRequested(tag) ? row->month : std::nullopt;
}

std::uint8_t MonthSelector(WhichMonth which, int month) {
  if (which == WhichMonth::Previous && --month == 0) month = 12;
  return static_cast<std::uint8_t>(kMonthArchive + month);
}

void LimitSelector(std::uint32_t tagNumber, std::uint8_t& selector) {
  for (const SelectorRow& row : kSelectors) {
    if (row.tags.Has(tagNumber)) selector = static_cast<std::uint8_t>(row.first + (tagNumber - row.tags.first));
  }
}

RequestFrame BuildRequest(const CDeviceTag& tag, const RequestSubject& subject) {
  RequestFrame frame;
  if (!IsRequested(tag)) return frame;
  const Body body = MakeBody(tag, subject);
  frame.bytes = {static_cast<std::uint8_t>(subject.address), body.code, body.param, body.subParam, body.selector};
  frame.length = tag.RequestLength;
  AppendCrc(frame.bytes.data(), static_cast<std::int32_t>(frame.length));
  return frame;
}

}  // namespace ostrel
