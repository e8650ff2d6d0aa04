// The tables that lie beside the tests: UTF-8 lines of fields between tabs, '#' before a comment.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace ostrel::test {

using TableRow = std::vector<std::string>;

/// A file's text by its name below tests/; empty when it is missing.
[[nodiscard]] std::string ReadBeside(const std::string& name);
/// Rows of a table by its file below tests/; every row has that many fields. A missing file fails the test.
[[nodiscard]] std::vector<TableRow> ReadTable(const std::string& name, std::size_t fields);

[[nodiscard]] std::vector<std::string> Split(const std::string& text, char mark);

/// A field's "\n" as line ends.
[[nodiscard]] std::string WithLineEnds(std::string text);

/// Numbers between blanks, or between the given mark.
[[nodiscard]] std::vector<std::uint32_t> Numbers(const std::string& text, char mark = ' ');

/// With a decimal point whatever the program's locale is.
float FloatOf(const std::string& text);
double DoubleOf(const std::string& text);

}  // namespace ostrel::test
