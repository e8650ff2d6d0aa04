#include "platform/posix/registry_file.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <string_view>
#include <system_error>

namespace ostrel::platform {
namespace {

char Lower(char character) { return character >= 'A' && character <= 'Z' ? static_cast<char>(character + 32) : character; }

std::string Escaped(std::string_view text) {
  std::string escaped;
  for (const char character : text) {
    if (character == '\\') {
      escaped += "\\\\";
    } else if (character == '\n') {
      escaped += "\\n";
    } else {
      escaped += character;
    }
  }
  return escaped;
}

std::string Unescaped(std::string_view text) {
  std::string plain;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool escape = text[i] == '\\' && i + 1 < text.size();
    if (escape) ++i;
    plain += escape && text[i] == 'n' ? '\n' : text[i];
  }
  return plain;
}

/// Takes one line into `keys`; `texts` are those of the key whose lines follow.
bool TakeLine(const std::string& line, RegistryKeys& keys, RegistryTexts*& texts) {
  if (line.empty() || line[0] == '#') return true;
  if (line.front() == '[' && line.back() == ']') {
    texts = &keys[line.substr(1, line.size() - 2)];
    return true;
  }
  const std::size_t sign = line.find('=');
  if (sign == std::string::npos || texts == nullptr) return false;
  (*texts)[line.substr(0, sign)] = Unescaped(std::string_view(line).substr(sign + 1));
  return true;
}

}  // namespace

bool LessIgnoringCase::operator()(std::string_view left, std::string_view right) const {
  return std::ranges::lexicographical_compare(left, right, {}, Lower, Lower);
}

std::filesystem::path RegistryFile() {
  const auto variable = [](const char* name) {
    const char* const value = std::getenv(name);
    return std::filesystem::path(value != nullptr ? value : "");
  };
  if (const auto named = variable("OSTREL_REGISTRY"); !named.empty()) return named;
  if (const auto configuration = variable("XDG_CONFIG_HOME"); !configuration.empty()) return configuration / "ostrel/registry";
  if (const auto home = variable("HOME"); !home.empty()) return home / ".config/ostrel/registry";
  return {};
}

std::optional<RegistryKeys> ReadRegistryFile(const std::filesystem::path& file) {
  RegistryKeys keys;
  std::error_code error;
  if (!std::filesystem::exists(file, error)) return error ? std::nullopt : std::optional(keys);
  std::ifstream stream(file, std::ios::binary);
  if (!stream) return std::nullopt;
  RegistryTexts* texts = nullptr;
  for (std::string line; std::getline(stream, line);) {
    if (!TakeLine(line, keys, texts)) return std::nullopt;
  }
  return stream.bad() ? std::nullopt : std::optional(keys);
}

bool WriteRegistryFile(const std::filesystem::path& file, const RegistryKeys& keys) {
  auto fresh = file;
  fresh += ".new";
  std::ofstream stream(fresh, std::ios::binary | std::ios::trunc);
  stream << "# Registered plug-ins. Written by programs.\n";
  for (const auto& [path, texts] : keys) {
    stream << "\n[" << path << "]\n";
    for (const auto& [name, text] : texts) stream << name << '=' << Escaped(text) << '\n';
  }
  stream.close();
  std::error_code error;
  if (stream) std::filesystem::rename(fresh, file, error);
  return stream && !error;
}

}  // namespace ostrel::platform
