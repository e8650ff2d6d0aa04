// What stands where in the answers: one row for each family of tags that are read alike.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

namespace ostrel {

struct VariantInfo;

/// What a meter's numbers are multiplied and divided by.
struct MeterScale {
  float voltageFactor = 1;
  float currentFactor = 1;
  float powerScale = 1;
  std::uint32_t constant = 0;  // impulses per kWh
};

/// An answer with what is known of the meter that gave it.
struct AnswerView {
  const std::uint8_t* bytes;  // from the address byte on, zeros behind its end, at least as long as the longest row reads
  MeterScale scale;
  const VariantInfo* variant = nullptr;  // where the answer names the meter's variant
};

/// A value in the type that its tag has: VT_R4, VT_BSTR (text in code page 1251), VT_BOOL, VT_UI1, VT_I1.
using DecodedValue = std::variant<float, std::string, bool, std::uint8_t, std::int8_t>;

/// The tag's value in the answer; nothing for a tag that has no decoding.
[[nodiscard]] std::optional<DecodedValue> DecodeAnswer(const AnswerView& answer, std::uint32_t tagNumber);

}  // namespace ostrel
