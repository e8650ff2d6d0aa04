// A meter whose answers a test spells out, and the tags that are read from it.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "Protocol/acquisition/TagReader.h"
#include "platform/text.h"
#include "tests/support/TestChannel.h"

namespace ostrel::test {

/// Valid, and too short for a value.
inline constexpr char kStatus1[] = "01 01 C1 E0";

struct Scale {
  std::uint32_t constant = 5000;
  float voltage = 1;
  float current = 1;
  float power = 1;
};

class DecoderTest : public testing::Test {
 protected:
  DeviceEntry& Entry() { return channel_.Entry(meter_); }

  void SetScale(const Scale& scale) {
    Entry().MeterConstant = scale.constant;
    Entry().VoltageFactor = scale.voltage;
    Entry().CurrentFactor = scale.current;
    Entry().PowerScale = scale.power;
  }

  /// The tag read from a meter that answers this, whatever it is asked.
  CDeviceTag& Read(std::uint32_t number, const std::string& answer, std::uint32_t result = 1) {
    CDeviceTag& tag = *channel_.AddTag(meter_, number);
    return ReadAgain(tag, answer, result);
  }

  CDeviceTag& ReadAgain(CDeviceTag& tag, const std::string& answer, std::uint32_t result = 1) {
    channel_.Line().OnRequest([answer](auto) { return Hex(answer); });
    EXPECT_EQ(result, ReadTag(channel_.Protocol(), &tag, Send::Request, meter_)) << tag.TagNumber << ": " << answer;
    return tag;
  }

  static std::string Text(const CDeviceTag& tag) {
    EXPECT_EQ(VT_BSTR, tag.Value.vt);
    return platform::OleToUtf8({tag.Value.bstrVal, platform::StringLength(tag.Value.bstrVal)});
  }

  TestChannel channel_;
  const std::uint32_t meter_ = channel_.AddMeter(1, 1);
};

}  // namespace ostrel::test
