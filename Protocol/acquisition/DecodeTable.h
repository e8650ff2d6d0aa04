// What stands where in the answers: one row for each family of tags that are read alike.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

namespace ostrel {

class CProtocol;
struct DeviceEntry;

/// A value in the type that its tag has: VT_R4, VT_BSTR (text in code page 1251), VT_BOOL, VT_UI1, VT_I1.
using DecodedValue = std::variant<float, std::string, bool, std::uint8_t, std::int8_t>;

/// The tag's value in AnswerBuffer; nothing for a tag that has no decoding. The readings of coefficients and variant also
/// leave what they learn about the meter in its entry.
[[nodiscard]] std::optional<DecodedValue> DecodeAnswer(CProtocol& protocol, DeviceEntry& entry, std::uint32_t tagNumber);

}  // namespace ostrel
