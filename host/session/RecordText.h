// Texts in the records that the host hands to the plug-in: code page 1251, in fields of fixed length.
#pragma once

#include <cstring>
#include <string>

#include "platform/text.h"

namespace ostrel::host {

/// Cut to what fits, with its end.
template <std::size_t Size>
void StoreText(char (&field)[Size], const std::string& utf8) {
  const std::string text = platform::Utf8ToCp1251(utf8).substr(0, Size - 1);
  std::memcpy(field, text.c_str(), text.size() + 1);
}

}  // namespace ostrel::host
