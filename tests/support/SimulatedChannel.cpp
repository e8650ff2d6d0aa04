#include "tests/support/SimulatedChannel.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Protocol/model/SharedFlag.h"
#include "Protocol/model/TagCatalogue.h"
#include "platform/text.h"
#include "simulator/MeterTypes.h"
#include "tests/support/FailingMemory.h"

namespace ostrel::test {
namespace {

template <std::size_t Size>
void CopyText(char (&field)[Size], const std::string& text) {
  ASSERT_LE(text.size(), Size);
  std::memcpy(field, text.data(), text.size());
}

/// Without "[ 22/11/2026 20:00:01.204 ] ".
std::vector<std::string> MessagesOf(const std::string& path) {
  std::vector<std::string> messages;
  for (const std::string& line : ReadLines(path)) messages.push_back(platform::Cp1251ToUtf8(line.substr(line.find(" ] ") + 3)));
  return messages;
}

void FillFromDescriptor(CDeviceTag& tag, const TagDescriptor& row) {
  tag.CanonicalType = static_cast<std::uint16_t>(row.DataType);
  tag.Value.vt = static_cast<VARTYPE>(row.DataType);
  tag.Code = row.Code;
  tag.Param = row.Param;
  tag.SubParam = row.SubParam;
  tag.RequestLength = row.RequestLength;
  tag.Access = row.Access;
  tag.WriteLength = row.WriteLength;
  tag.WriteParam = row.WriteParam;
  tag.Aux = row.Aux;
  tag.ExpectedLength = row.ExpectedLength;
}

}  // namespace

std::int64_t UtcMs(std::string_view text) {
  const SparedMemory spared;
  unsigned month = 0, day = 0;
  int year = 0, hour = 0, minute = 0, second = 0, milliseconds = 0;
  EXPECT_LE(3, std::sscanf(std::string(text).c_str(), "%d-%u-%u %d:%d:%d.%d", &year, &month, &day, &hour, &minute, &second,
                           &milliseconds));
  const std::chrono::sys_days date = std::chrono::year(year) / month / day;
  const auto time = date + std::chrono::hours(hour) + std::chrono::minutes(minute) + std::chrono::seconds(second);
  return std::chrono::milliseconds(time.time_since_epoch()).count() + milliseconds;
}

PortSettings MakePortSettings(const LineOptions& options) {
  PortSettings settings{};
  CopyText(settings.PortName, options.port);
  CopyText(settings.ParityName, platform::Utf8ToCp1251(options.parity));
  CopyText(settings.SettingsText, platform::Utf8ToCp1251(options.settingsText));
  settings.BaudRate = options.baud;
  settings.RetryCount = options.retries;
  settings.PollPeriod = options.pollPeriodSeconds;
  settings.PortTimeout = options.portTimeoutMs;
  settings.PreSendPause = options.preSendPauseMs;
  return settings;
}

SimulatedChannel::SimulatedChannel(const LineOptions& options)
    : clock_(options.startUtcMs, options.startTick), protocol_(options.protocol != nullptr ? options.protocol : new CProtocol) {
  context_.ObjectProvider = &line_;
  context_.LogFile = &log_;
  context_.Trace = &trace_;
  protocol_->AddRef();
  Configure(options);
}

SimulatedChannel::~SimulatedChannel() {
  clock_.ClearLimit();
  protocol_->Release();
  EXPECT_EQ(0, line_.Unreleased()) << "port interfaces or cookies not given back";
}

void SimulatedChannel::Configure(const LineOptions& options) {
  context_.ClockCorrectionDays = options.clockCorrectionDays;
  const PortSettings settings = MakePortSettings(options);
  EXPECT_EQ(1U, protocol_->SetPortSettings(&context_, &settings));
}

std::uint32_t SimulatedChannel::AddMeter(std::uint32_t address, std::uint32_t type, const DeviceOptions& options) {
  DeviceConfig config{};
  config.Address = address;
  config.TypeId = type;
  CopyText(config.Level1Password, options.level1Password);
  CopyText(config.Level2Password, options.level2Password);
  config.FailHoldTimer.period = options.failHoldMs;
  config.LogRequest = options.logRequest;
  config.ExchangeOn = options.exchangeOn;
  const std::int32_t index = protocol_->AddDevice(&config);
  EXPECT_GE(index, 0);
  const std::uint32_t onLine = address & 0xFF;
  const std::uint32_t simulated = sim::FindMeterType(type) != nullptr ? type : 1;
  if (options.onLine && onLine % 0xFF != 0) {
    line_.Add(std::to_string(onLine) + ":" + std::to_string(simulated) + (options.simulated.empty() ? "" : ":") +
              options.simulated);
  }
  return static_cast<std::uint32_t>(index);
}

CDeviceTag* SimulatedChannel::AddTag(std::uint32_t device, std::uint32_t number, bool inUse) {
  auto* const tag = new CDeviceTag;
  FillFromDescriptor(*tag, TagDescriptors()[number]);
  tag->TagNumber = number;
  tag->PortNumber = static_cast<std::uint32_t>(std::atoi(protocol_->Channel.PortName + 3));
  tag->DeviceAddress = Entry(device).Address;
  if (inUse) tag->Use();
  protocol_->AddTag(device, tag);
  return tag;
}

std::vector<std::string> SimulatedChannel::LogLines() const { return MessagesOf(folder_.File("events.log")); }

void SimulatedChannel::StartTrace(std::string_view settings) {
  trace_.SetFile(platform::Utf8ToOle(folder_.File("trace.log")).c_str());
  trace_.ApplySettings(platform::Utf8ToOle(settings).c_str());
}

std::vector<std::string> SimulatedChannel::TraceLines() const { return MessagesOf(folder_.File("trace.log")); }

OneMeterChannel::OneMeterChannel(const LineOptions& options, const DeviceOptions& meter, std::uint32_t address,
                                 std::uint32_t type)
    : SimulatedChannel(options), device(AddMeter(address, type, meter)) {
  Protocol().Running = 1;
}

std::vector<std::string> OneMeterChannel::Take(std::string_view start) {
  std::vector<std::string> texts = Line().RequestTexts();
  Line().ClearRecords();
  std::erase_if(texts, [&](const std::string& text) { return !text.starts_with(start); });
  return texts;
}

void LeaveWrite(CDeviceTag& tag, float value) {
  tag.WriteValue.vt = tag.CanonicalType;
  if (tag.CanonicalType == VT_UI1) {
    tag.WriteValue.bVal = static_cast<BYTE>(value);
  } else if (tag.CanonicalType == VT_BOOL) {
    tag.WriteValue.boolVal = static_cast<std::int16_t>(value);
  } else {
    tag.WriteValue.fltVal = value;
  }
  StoreFlag(tag.WritePending, 1);
}

float NumberOf(const CDeviceTag& tag) {
  switch (tag.Value.vt) {
    case VT_BOOL:
      return tag.Value.boolVal;
    case VT_UI1:
      return tag.Value.bVal;
    case VT_I1:
      return static_cast<signed char>(tag.Value.cVal);
    default:
      return tag.Value.fltVal;
  }
}

std::string TextOf(const CDeviceTag& tag) {
  return tag.Value.vt == VT_BSTR ? platform::OleToUtf8({tag.Value.bstrVal, platform::StringLength(tag.Value.bstrVal)}) : "?";
}

}  // namespace ostrel::test
