// The registry as a file of lines: [KEY\SUBKEY], then NAME=TEXT rows, where backslash and line ends of the text are escaped.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>

namespace ostrel::platform {

struct LessIgnoringCase {
  using is_transparent = void;
  [[nodiscard]] bool operator()(std::string_view left, std::string_view right) const;
};

using RegistryTexts = std::map<std::string, std::string, LessIgnoringCase>;
/// By full path; every key that has a key below it is there as well.
using RegistryKeys = std::map<std::string, RegistryTexts, LessIgnoringCase>;

/// Where the file is; empty when the user has no place for it.
[[nodiscard]] std::filesystem::path RegistryFile();

/// No keys for a missing file; nothing at all when it cannot be read or has a line that is none of its kind.
[[nodiscard]] std::optional<RegistryKeys> ReadRegistryFile(const std::filesystem::path& file);
/// Readers see the old content or the new, never a part.
[[nodiscard]] bool WriteRegistryFile(const std::filesystem::path& file, const RegistryKeys& keys);

}  // namespace ostrel::platform
