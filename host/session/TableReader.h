// One table of the configuration file, taken key by key: each value is checked where it is taken, and what nobody took is
// an unknown key.
#pragma once

// What the parser asserts of a text, such as "[{", it refuses a few lines on: a person's mistake is not to end the program.
#define TOML_ASSERT(condition) static_cast<void>(0)
#include <toml++/toml.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/session/Config.h"

namespace ostrel::host {

struct Range {
  std::int64_t least;
  std::int64_t most;
};

class TableReader {
 public:
  /// `path` is what the table is called in messages, with a point behind it unless empty.
  TableReader(const toml::table& table, std::string file, std::string path);

  [[nodiscard]] std::int64_t Integer(std::string_view key, std::int64_t otherwise, Range range);
  [[nodiscard]] bool Boolean(std::string_view key, bool otherwise);
  [[nodiscard]] std::string Text(std::string_view key, const std::string& otherwise);
  /// Fails when the key is missing or empty.
  [[nodiscard]] std::string RequiredText(std::string_view key);
  [[nodiscard]] std::int64_t RequiredInteger(std::string_view key, Range range);
  /// Null when the key is missing.
  [[nodiscard]] const toml::node* Node(std::string_view key);
  [[nodiscard]] const toml::table* Table(std::string_view key);
  /// The tables of [[key]]; none when the key is missing.
  [[nodiscard]] std::vector<const toml::table*> Tables(std::string_view key);

  /// To be called last: fails at the first key that was not asked for.
  void RejectOthers() const;

  [[nodiscard]] Place PlaceOf(std::string_view key) const;
  [[nodiscard]] Place PlaceOf(std::string_view key, const toml::node& node) const;
  [[noreturn]] void Fail(std::string_view key, const std::string& what) const;

 private:
  const toml::table& table_;
  std::string file_;
  std::string path_;
  std::vector<std::string> known_;
};

}  // namespace ostrel::host
