// The meter's variant word: which meter it is, how many impulses it counts per kWh, and how its powers are scaled.
#pragma once

#include <compare>
#include <cstdint>
#include <map>
#include <string>

namespace ostrel {

struct VariantKey {
  std::uint32_t TypeCode;
  std::uint32_t ExtraFlag;
  std::uint32_t CodeA;  // voltage
  std::uint32_t CodeB;  // current
  // NOLINTNEXTLINE(modernize-use-nullptr): a false alarm on comparisons
  auto operator<=>(const VariantKey&) const = default;
};

struct VariantInfo {
  std::string Name;  // code page 1251
  std::int32_t PowerScale = 0;
  std::int32_t Constant = 0;  // impulses per kWh
};

/// The key of the three variant bytes as the meter sends them.
[[nodiscard]] VariantKey MakeVariantKey(const std::uint8_t (&bytes)[3]);

/// The known variants; of two rows with one key the first counts.
[[nodiscard]] std::map<VariantKey, VariantInfo> MakeVariantMap();

}  // namespace ostrel
