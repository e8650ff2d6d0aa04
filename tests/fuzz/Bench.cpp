#include "tests/fuzz/Bench.h"

#include <cstddef>

#include "Protocol/link/PortSettings.h"
#include "platform/clock.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  ostrel::fuzz::Run({bytes, size});
  return 0;
}

namespace ostrel::fuzz {
namespace {

CDeviceTag* MakeTag(std::uint32_t number) {
  const TagDescriptor& row = TagDescriptors()[number];
  auto* const tag = new CDeviceTag;
  tag->TagNumber = number;
  tag->CanonicalType = static_cast<std::uint16_t>(row.DataType);
  tag->Value.vt = static_cast<VARTYPE>(row.DataType);
  tag->Code = row.Code;
  tag->Param = row.Param;
  tag->SubParam = row.SubParam;
  tag->RequestLength = row.RequestLength;
  tag->WriteLength = row.WriteLength;
  tag->WriteParam = row.WriteParam;
  tag->ExpectedLength = row.ExpectedLength;
  tag->Use();
  return tag;
}

}  // namespace

Bench::Bench(IObjectProvider* provider) {
  platform::ReplaceClock(&clock_);
  context_.ObjectProvider = provider;
  context_.Trace = &trace_;
  context_.ClockCorrectionDays = 1;
  protocol_->AddRef();
  const PortSettings settings{.PortName = "COM1", .BaudRate = 9600, .RetryCount = 2, .PollPeriod = 1, .PortTimeout = 100};
  protocol_->SetPortSettings(&context_, &settings);
  DeviceConfig config{};
  config.Address = 1;
  config.TypeId = 1;
  config.ExchangeOn = 1;
  protocol_->AddDevice(&config);
  for (std::uint32_t number = 0; number < kDaTagCount; ++number) {
    tags_[number] = MakeTag(number);
    protocol_->AddTag(0, tags_[number]);
  }
}

Bench::~Bench() {
  protocol_->Release();
  platform::ReplaceClock(nullptr);
}

}  // namespace ostrel::fuzz
