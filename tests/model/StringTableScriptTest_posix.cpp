// The build step that turns the resource script into a table: what it says of a script it does not understand.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <string>

#include "tests/support/TemporaryFolder.h"

namespace ostrel {
namespace {

struct Outcome {
  int status;
  std::string text;  // both outputs
};

Outcome RunScript(const std::string& source, const std::string& table) {
  const auto root = std::filesystem::path(OSTREL_SOURCES);
  const auto script = root / "Protocol" / "resources" / "make_string_table.py";
  FILE* const pipe = popen(("python3 '" + script.string() + "' '" + source + "' '" + table + "' 2>&1").c_str(), "r");
  if (pipe == nullptr) return {.status = -1, .text = "no shell"};
  Outcome outcome{};
  for (std::array<char, 256> part{}; std::fgets(part.data(), part.size(), pipe) != nullptr;) outcome.text += part.data();
  outcome.status = pclose(pipe);
  return outcome;
}

TEST(StringTableScript, NamesFileAndLineOfARowItDoesNotTake) {
  const struct {
    const char* script;
    const char* message;  // behind the file's name
  } rows[] = {
      {"STRINGTABLE\nBEGIN\n1, \"a\"\n2 \"b\"\nEND\n", ":4: expected ID, \"text\""},
      {"STRINGTABLE\nBEGIN\n1, \"a\\n\"\nEND\n", ":3: expected ID, \"text\""},
      {"STRINGTABLE\nBEGIN\n7, \"a\"\n8, \"b\"\n7, \"c\"\nEND\n", ":5: string 7 stands on line 3 already"},
      {"STRINGTABLE\nBEGIN\n65536, \"a\"\nEND\n", ":3: string 65536 is above 65535"},
      {"// head\n1, \"a\"\n", ":2: expected STRINGTABLE"},
      {"STRINGTABLE\nBEGIN\n1, \"a\"\n", ":3: the last STRINGTABLE has no END"},
  };
  const test::TemporaryFolder folder;
  const std::string source = folder.File("strings.rc");
  const std::string table = folder.File("table.cpp");
  for (const auto& row : rows) {
    test::WriteBytes(source, row.script);
    const Outcome outcome = RunScript(source, table);
    EXPECT_NE(0, outcome.status) << row.script;
    EXPECT_TRUE(outcome.text.starts_with(source + row.message)) << row.script << outcome.text;
    EXPECT_FALSE(std::filesystem::exists(table)) << row.script;
  }
}

}  // namespace
}  // namespace ostrel
