// Every conversion goes character by character: one of three readers, then one of three writers.
#include "platform/text.h"

#include <algorithm>
#include <array>

namespace ostrel::platform {
namespace {

/// The upper half of code page 1251, from 0x80 on. 0x98 has no character of its own; the system's conversion keeps it as the
/// control U+0098.
constexpr std::array<char16_t, 128> kUpperHalf = {
    0x0402, 0x0403, 0x201A, 0x0453, 0x201E, 0x2026, 0x2020, 0x2021, 0x20AC, 0x2030, 0x0409, 0x2039, 0x040A, 0x040C, 0x040B,
    0x040F, 0x0452, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014, 0x0098, 0x2122, 0x0459, 0x203A, 0x045A, 0x045C,
    0x045B, 0x045F, 0x00A0, 0x040E, 0x045E, 0x0408, 0x00A4, 0x0490, 0x00A6, 0x00A7, 0x0401, 0x00A9, 0x0404, 0x00AB, 0x00AC,
    0x00AD, 0x00AE, 0x0407, 0x00B0, 0x00B1, 0x0406, 0x0456, 0x0491, 0x00B5, 0x00B6, 0x00B7, 0x0451, 0x2116, 0x0454, 0x00BB,
    0x0458, 0x0405, 0x0455, 0x0457, 0x0410, 0x0411, 0x0412, 0x0413, 0x0414, 0x0415, 0x0416, 0x0417, 0x0418, 0x0419, 0x041A,
    0x041B, 0x041C, 0x041D, 0x041E, 0x041F, 0x0420, 0x0421, 0x0422, 0x0423, 0x0424, 0x0425, 0x0426, 0x0427, 0x0428, 0x0429,
    0x042A, 0x042B, 0x042C, 0x042D, 0x042E, 0x042F, 0x0430, 0x0431, 0x0432, 0x0433, 0x0434, 0x0435, 0x0436, 0x0437, 0x0438,
    0x0439, 0x043A, 0x043B, 0x043C, 0x043D, 0x043E, 0x043F, 0x0440, 0x0441, 0x0442, 0x0443, 0x0444, 0x0445, 0x0446, 0x0447,
    0x0448, 0x0449, 0x044A, 0x044B, 0x044C, 0x044D, 0x044E, 0x044F,
};

struct Encoding {
  char16_t character;
  unsigned char byte;
};

consteval auto SortedByCharacter() {
  std::array<Encoding, kUpperHalf.size()> encodings{};
  for (std::size_t i = 0; i < kUpperHalf.size(); ++i) encodings[i] = {kUpperHalf[i], static_cast<unsigned char>(0x80 + i)};
  std::ranges::sort(encodings, {}, &Encoding::character);
  return encodings;
}

constexpr auto kEncodings = SortedByCharacter();

constexpr char32_t kNoPlace = U'?';

constexpr bool IsHighSurrogate(char32_t code) { return code >= 0xD800 && code <= 0xDBFF; }
constexpr bool IsLowSurrogate(char32_t code) { return code >= 0xDC00 && code <= 0xDFFF; }

char32_t Read1251(std::string_view text, std::size_t& at) {
  const auto byte = static_cast<unsigned char>(text[at++]);
  if (byte < 0x80) return byte;
  return kUpperHalf[byte - 0x80u];
}

/// Bytes that follow the first byte of a UTF-8 character; 0 when it can begin none.
std::size_t FollowingBytes(unsigned char lead) {
  if (lead >= 0xC2 && lead <= 0xDF) return 1;
  if (lead >= 0xE0 && lead <= 0xEF) return 2;
  if (lead >= 0xF0 && lead <= 0xF4) return 3;
  return 0;
}

char32_t ReadUtf8(std::string_view text, std::size_t& at) {
  constexpr char32_t kSmallest[] = {0, 0x80, 0x800, 0x10000};
  const auto lead = static_cast<unsigned char>(text[at++]);
  if (lead < 0x80) return lead;
  const std::size_t following = FollowingBytes(lead);
  if (following == 0) return kNoPlace;
  char32_t code = lead & (0x3Fu >> following);
  for (std::size_t i = 0; i < following; ++i) {
    if (at == text.size() || (static_cast<unsigned char>(text[at]) & 0xC0) != 0x80) return kNoPlace;
    code = code << 6 | (static_cast<unsigned char>(text[at++]) & 0x3Fu);
  }
  if (code < kSmallest[following] || code > 0x10FFFF || IsHighSurrogate(code) || IsLowSurrogate(code)) return kNoPlace;
  return code;
}

char32_t ReadOle(std::basic_string_view<OLECHAR> text, std::size_t& at) {
  const char32_t unit = static_cast<char16_t>(text[at++]);
  if (IsLowSurrogate(unit)) return kNoPlace;
  if (!IsHighSurrogate(unit)) return unit;
  if (at == text.size() || !IsLowSurrogate(static_cast<char16_t>(text[at]))) return kNoPlace;
  const char32_t low = static_cast<char16_t>(text[at++]);
  return 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
}

void Write1251(std::string& text, char32_t code) {
  if (code < 0x80) {
    text.push_back(static_cast<char>(code));
    return;
  }
  const auto found = std::ranges::lower_bound(kEncodings, code, {}, [](const Encoding& e) { return char32_t{e.character}; });
  const bool known = found != kEncodings.end() && found->character == code;
  text.push_back(static_cast<char>(known ? found->byte : kNoPlace));
}

void WriteUtf8(std::string& text, char32_t code) {
  const auto put = [&text](char32_t byte) { text.push_back(static_cast<char>(byte)); };
  if (code < 0x80) return put(code);
  if (code < 0x800) {
    put(0xC0 | code >> 6);
  } else {
    if (code < 0x10000) {
      put(0xE0 | code >> 12);
    } else {
      put(0xF0 | code >> 18);
      put(0x80 | (code >> 12 & 0x3F));
    }
    put(0x80 | (code >> 6 & 0x3F));
  }
  put(0x80 | (code & 0x3F));
}

void WriteOle(OleString& text, char32_t code) {
  if (code < 0x10000) {
    text.push_back(static_cast<OLECHAR>(code));
    return;
  }
  text.push_back(static_cast<OLECHAR>(0xD800 + ((code - 0x10000) >> 10)));
  text.push_back(static_cast<OLECHAR>(0xDC00 + ((code - 0x10000) & 0x3FF)));
}

template <class Result, class Source, class Reader, class Writer>
Result Convert(Source text, Reader read, Writer write) {
  Result result;
  result.reserve(text.size());
  for (std::size_t at = 0; at < text.size();) write(result, read(text, at));
  return result;
}

template <class Left, class Right, class LeftReader, class RightReader>
bool Same(Left left, Right right, LeftReader readLeft, RightReader readRight) {
  std::size_t atLeft = 0;
  std::size_t atRight = 0;
  while (atLeft < left.size() && atRight < right.size()) {
    if (readLeft(left, atLeft) != readRight(right, atRight)) return false;
  }
  return atLeft == left.size() && atRight == right.size();
}

}  // namespace

OleString Cp1251ToOle(std::string_view text) { return Convert<OleString>(text, Read1251, WriteOle); }

std::string OleToCp1251(std::basic_string_view<OLECHAR> text) { return Convert<std::string>(text, ReadOle, Write1251); }

std::string Cp1251ToUtf8(std::string_view text) { return Convert<std::string>(text, Read1251, WriteUtf8); }

std::string Utf8ToCp1251(std::string_view text) { return Convert<std::string>(text, ReadUtf8, Write1251); }

std::string OleToUtf8(std::basic_string_view<OLECHAR> text) { return Convert<std::string>(text, ReadOle, WriteUtf8); }

OleString Utf8ToOle(std::string_view text) { return Convert<OleString>(text, ReadUtf8, WriteOle); }

bool SameText(std::basic_string_view<OLECHAR> text, std::string_view utf8) { return Same(text, utf8, ReadOle, ReadUtf8); }

bool SameTextAsCp1251(std::basic_string_view<OLECHAR> text, std::string_view cp1251) {
  return Same(text, cp1251, ReadOle, Read1251);
}

}  // namespace ostrel::platform
