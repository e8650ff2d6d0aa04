// Text: the host and the string table speak code page 1251, tags hold UTF-16, people and files of ours UTF-8. Always by
// code page 1251, never by the system's code page. A character that has no place becomes '?'.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "platform/com.h"

namespace ostrel::platform {

using OleString = std::basic_string<OLECHAR>;

[[nodiscard]] OleString Cp1251ToOle(std::string_view text);
[[nodiscard]] std::string OleToCp1251(std::basic_string_view<OLECHAR> text);
[[nodiscard]] std::string Cp1251ToUtf8(std::string_view text);
[[nodiscard]] std::string Utf8ToCp1251(std::string_view text);
[[nodiscard]] std::string OleToUtf8(std::basic_string_view<OLECHAR> text);
[[nodiscard]] OleString Utf8ToOle(std::string_view text);
/// Whether OleToUtf8 of the one would give the other, and Cp1251ToOle of the one the other; without making a text.
[[nodiscard]] bool SameText(std::basic_string_view<OLECHAR> text, std::string_view utf8);
[[nodiscard]] bool SameTextAsCp1251(std::basic_string_view<OLECHAR> text, std::string_view cp1251);

/// A path as the system's functions of narrow paths take it: on Windows in the system's code page, elsewhere as it is.
/// Nothing when a character of it has no place there.
[[nodiscard]] std::optional<std::string> Utf8ToSystemPath(std::string_view path);

/// The same for the standard library's file functions; every name has its place there.
[[nodiscard]] inline std::filesystem::path PathOf(std::string_view utf8) { return std::u8string(utf8.begin(), utf8.end()); }

/// Sets the run-time's locale to code page 1251 where the system has it; elsewhere nothing changes.
void UseCp1251Locale();

}  // namespace ostrel::platform
