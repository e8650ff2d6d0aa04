#include "tests/support/TableFile.h"

#include <gtest/gtest.h>

#include <charconv>
#include <filesystem>
#include <sstream>

#include "tests/support/TemporaryFolder.h"

namespace ostrel::test {

std::vector<std::string> Split(const std::string& text, char mark) {
  std::vector<std::string> parts;
  std::istringstream rest(text + mark);
  for (std::string part; std::getline(rest, part, mark);) parts.push_back(part);
  return parts;
}

std::string ReadBeside(const std::string& name) {
  return ReadBytes((std::filesystem::path(OSTREL_SOURCES) / "tests" / name).string());
}

std::vector<TableRow> ReadTable(const std::string& name, std::size_t fields) {
  std::istringstream file(ReadBeside(name));
  std::vector<TableRow> rows;
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with('#')) continue;
    rows.push_back(Split(line, '\t'));
    EXPECT_EQ(fields, rows.back().size()) << name << ": " << line;
    rows.back().resize(fields);
  }
  EXPECT_FALSE(rows.empty()) << name;
  return rows;
}

std::string WithLineEnds(std::string text) {
  for (std::size_t at; (at = text.find("\\n")) != std::string::npos;) text.replace(at, 2, "\n");
  return text;
}

std::vector<std::uint32_t> Numbers(const std::string& text, char mark) {
  std::vector<std::uint32_t> numbers;
  for (const std::string& part : Split(text, mark)) numbers.push_back(static_cast<std::uint32_t>(std::stoul(part)));
  return numbers;
}

namespace {

template <class Number>
Number Parsed(const std::string& text) {
  Number number = 0;
  const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), number);
  EXPECT_TRUE(problem == std::errc() && end == text.data() + text.size()) << text;
  return number;
}

}  // namespace

float FloatOf(const std::string& text) { return Parsed<float>(text); }
double DoubleOf(const std::string& text) { return Parsed<double>(text); }

}  // namespace ostrel::test
