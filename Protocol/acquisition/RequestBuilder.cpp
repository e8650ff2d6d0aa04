#include "Protocol/acquisition/RequestBuilder.h"

#include "Protocol/acquisition/TagReader.h"
#include "Protocol/link/Frame.h"
#include "Protocol/model/DeviceEntry.h"
#include "Protocol/model/TagSet.h"
#include "Protocol/object/CProtocol.h"

namespace ostrel {
namespace {

constexpr std::uint32_t kShortestRequest = 4;

/// What stands between the address and the check, as far as the request is long.
struct Body {
  std::uint8_t code = 0;
  std::uint8_t param = 0;
  std::uint8_t subParam = 0;
  std::uint8_t selector = 0;
};

struct Question {
  CProtocol& protocol;
  const CDeviceTag& tag;
  std::uint32_t device;
};

/// All four kinds of energy come in one answer; the tag's own parameter tells tariffs apart for people only.
void Energy(const Question&, Body& body) { body.param = 0x00; }

/// The catalogue keeps quantity, kind and phase apart; the request packs them into one byte.
void Instantaneous(const Question& question, Body& body) {
  const std::uint32_t packed = (question.tag.Code & 0x0F) * 16 + (question.tag.Param & 3) * 4 + (question.tag.SubParam & 3);
  body = {.code = 0x08, .param = 0x11, .subParam = static_cast<std::uint8_t>(packed)};
}

void EventLog(const Question& question, Body& body) {
  const DeviceEntry* const entry = question.protocol.Device(question.device);
  if (entry != nullptr) body.param = entry->LogRequest;
}

void CurrentMonth(const Question& question, Body& body) {
  MonthByte(question.protocol, question.device, WhichMonth::Current, body.param);
}

void PreviousMonth(const Question& question, Body& body) {
  MonthByte(question.protocol, question.device, WhichMonth::Previous, body.param);
}

void Limit(const Question& question, Body& body) { LimitSelector(question.tag.TagNumber, body.selector); }

/// Tags whose request is not just what the catalogue says.
struct RequestRow {
  TagSet tags{};
  void (*adjust)(const Question&, Body&) = nullptr;
};

constexpr RequestRow kRequests[] = {
    {.tags = {{{9, 44}}}, .adjust = Energy},
    {.tags = {{{49, 93}}}, .adjust = Instantaneous},
    {.tags = {{kLogTags}}, .adjust = EventLog},
    {.tags = {{{188, 188}, {194, 194}, {200, 200}, {206, 206}}}, .adjust = CurrentMonth},
    {.tags = {{{189, 189}, {195, 195}, {201, 201}, {207, 207}}}, .adjust = PreviousMonth},
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

Body MakeBody(const Question& question) {
  Body body{.code = static_cast<std::uint8_t>(question.tag.Code),
            .param = static_cast<std::uint8_t>(question.tag.Param),
            .subParam = static_cast<std::uint8_t>(question.tag.SubParam)};
  const RequestRow* const row = FindRow(kRequests, question.tag.TagNumber);
  if (row != nullptr) row->adjust(question, body);
  return body;
}

}  // namespace

void LimitSelector(std::uint32_t tagNumber, std::uint8_t& selector) {
  for (const SelectorRow& row : kSelectors) {
    if (row.tags.Has(tagNumber)) selector = static_cast<std::uint8_t>(row.first + (tagNumber - row.tags.first));
  }
}

RequestFrame BuildRequest(CProtocol& protocol, const CDeviceTag& tag, std::uint32_t device) {
  RequestFrame frame;
  if (tag.RequestLength < kShortestRequest || tag.RequestLength > frame.bytes.size()) return frame;
  const Body body = MakeBody({protocol, tag, device});
  const DeviceEntry* const entry = protocol.Device(device);
  if (entry == nullptr) return frame;
  frame.bytes = {static_cast<std::uint8_t>(entry->Address), body.code, body.param, body.subParam, body.selector};
  frame.length = tag.RequestLength;
  AppendCrc(frame.bytes.data(), static_cast<std::int32_t>(frame.length));
  return frame;
}

}  // namespace ostrel
