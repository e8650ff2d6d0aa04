#include "host/session/TableReader.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "host/session/NearNames.h"

namespace ostrel::host {

TableReader::TableReader(const toml::table& table, std::string file, std::string path)
    : table_(table), file_(std::move(file)), path_(std::move(path)) {}

Place TableReader::PlaceOf(std::string_view key, const toml::node& node) const {
  return {.file = file_, .line = static_cast<std::uint32_t>(node.source().begin.line), .key = path_ + std::string(key)};
}

Place TableReader::PlaceOf(std::string_view key) const {
  const toml::node* const node = table_.get(key);
  return PlaceOf(key, node != nullptr ? *node : static_cast<const toml::node&>(table_));
}

void TableReader::Fail(std::string_view key, const std::string& what) const { FailAt(PlaceOf(key), what); }

const toml::node* TableReader::Node(std::string_view key) {
  known_.emplace_back(key);
  return table_.get(key);
}

std::int64_t TableReader::Integer(std::string_view key, std::int64_t otherwise, Range range) {
  const toml::node* const node = Node(key);
  if (node == nullptr) return otherwise;
  const auto* const value = node->as_integer();
  if (value == nullptr) Fail(key, "must be a whole number");
  if (value->get() < range.least || value->get() > range.most) {
    Fail(key, fmt::format("must be from {} to {}, not {}", range.least, range.most, value->get()));
  }
  return value->get();
}

std::int64_t TableReader::RequiredInteger(std::string_view key, Range range) {
  if (table_.get(key) == nullptr) Fail(key, "is missing");
  return Integer(key, 0, range);
}

bool TableReader::Boolean(std::string_view key, bool otherwise) {
  const toml::node* const node = Node(key);
  if (node == nullptr) return otherwise;
  const auto* const value = node->as_boolean();
  if (value == nullptr) Fail(key, "must be true or false");
  return value->get();
}

std::string TableReader::Text(std::string_view key, const std::string& otherwise) {
  const toml::node* const node = Node(key);
  if (node == nullptr) return otherwise;
  const auto* const value = node->as_string();
  if (value == nullptr) Fail(key, "must be a text in quotes");
  return value->get();
}

std::string TableReader::RequiredText(std::string_view key) {
  if (table_.get(key) == nullptr) Fail(key, "is missing");
  std::string text = Text(key, "");
  if (text.empty()) Fail(key, "must not be empty");
  return text;
}

const toml::table* TableReader::Table(std::string_view key) {
  const toml::node* const node = Node(key);
  if (node == nullptr) return nullptr;
  if (!node->is_table()) Fail(key, "must be a table");
  return node->as_table();
}

std::vector<const toml::table*> TableReader::Tables(std::string_view key) {
  std::vector<const toml::table*> tables;
  const toml::node* const node = Node(key);
  if (node == nullptr) return tables;
  const toml::array* const array = node->as_array();
  if (array == nullptr) Fail(key, fmt::format("must be written as [[{}{}]]", path_, key));
  for (const toml::node& element : *array) {
    if (!element.is_table()) FailAt(PlaceOf(key, element), "must be a table");
    tables.push_back(element.as_table());
  }
  return tables;
}

void TableReader::RejectOthers() const {
  for (const auto& [key, node] : table_) {
    const std::string_view name = key.str();
    if (std::find(known_.begin(), known_.end(), name) != known_.end()) continue;
    const std::vector<std::string> near = NearNames(name, known_, 1);
    FailAt(PlaceOf(name, node), "unknown key" + (near.empty() ? std::string() : "; did you mean \"" + near.front() + "\"?"));
  }
}

}  // namespace ostrel::host
