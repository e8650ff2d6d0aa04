// The pages for users and maintainers against what is built: files, commands, options, messages, keys.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <set>

#include "tests/end_to_end/Programs.h"

namespace ostrel::test {
namespace {

using ::testing::HasSubstr;

const std::filesystem::path kRoot = OSTREL_SOURCES;

std::string Page(const std::string& name) {
  const std::string text = FileText(kRoot / name);
  EXPECT_FALSE(text.empty()) << name;
  return text;
}

/// First groups of all matches, each once.
std::set<std::string> Found(const std::string& text, const std::string& pattern) {
  const std::regex regex(pattern);
  std::set<std::string> found;
  for (std::sregex_iterator at(text.begin(), text.end(), regex), end; at != end; ++at) found.insert((*at)[1]);
  return found;
}

TEST(Docs, NameFilesThatExist) {
  for (const char* page :
       {"README.md", "docs/tour.md", "docs/tags.md", "docs/events.md", "docs/commands.md", "docs/json.md", "docs/windows.md",
        "docs/configuration.md", "docs/station.md", "docs/reliability.md", "docs/scale.md"}) {
    const std::string text = Page(page);
    for (const std::string& name : Found(text, "`((?:Protocol|platform|host|simulator|tests|docs|bench)/[A-Za-z0-9_./]*)`")) {
      EXPECT_TRUE(std::filesystem::exists(kRoot / name)) << page << " names " << name;
    }
    for (const std::string& name : Found(text, "\\]\\(([a-zA-Z0-9_./]+)\\)")) {
      EXPECT_TRUE(std::filesystem::exists((kRoot / page).parent_path() / name)) << page << " links to " << name;
    }
  }
  EXPECT_LE(20U, Found(Page("docs/tour.md"), "`(Protocol/[A-Za-z0-9_./]*)`").size());
}

std::string Help(const std::string& program, const std::vector<std::string>& arguments) {
  TemporaryFolder folder;
  Background run(program, arguments, folder.File("help"));
  EXPECT_EQ(0, run.Wait(30));
  return run.Output();
}

TEST(Docs, DescribeEveryCommandAndOption) {
  const std::string page = Page("docs/commands.md");
  const std::string help = Help("ostrel-host", {"--help"});
  const auto commands = Found(help.substr(help.find("Subcommands:")), "\n  ([a-z]+) ");
  EXPECT_LE(8U, commands.size());
  for (const std::string& command : commands) {
    EXPECT_THAT(page, HasSubstr("| `" + command)) << command;
    for (const std::string& option : Found(Help("ostrel-host", {command, "--help"}), "\n  (--[a-z-]+)")) {
      EXPECT_THAT(page, HasSubstr(option)) << command;
    }
  }
  for (const std::string& option : Found(Help("ostrel-meter", {"--help"}), "\n  (--[a-z-]+)"))
    EXPECT_THAT(page, HasSubstr(option));
}

TEST(Docs, ExplainEveryMessage) {
  const std::string page = Page("docs/events.md");
  const auto messages = Found(Page("Protocol/resources/strings.rc"), "\n    61[0-9]{3}, \"%s (?:ПРИБОР:%d )?([^\"]+)\"");
  EXPECT_EQ(8U, messages.size());
  for (const std::string& message : messages) EXPECT_THAT(page, HasSubstr("| " + message + " |"));
}

TEST(Docs, ExplainEveryConfigurationKeyOfTheExample) {
  const std::string page = Page("docs/configuration.md");
  const std::size_t begin = page.find("```toml");
  const std::size_t end = page.find("```", begin + 1);
  const auto keys = Found(page.substr(begin, end - begin), "\n *([a-z_0-9]+) = ");
  EXPECT_LE(22U, keys.size());
  for (const std::string& key : keys) {
    EXPECT_TRUE(std::regex_search(page.substr(end), std::regex("\\| [^|]*`" + key + "[`.]"))) << key;
  }
}

// What programs read is a promise: no event and no field that the schema and the page do not have.
TEST(Docs, NameEveryFieldOfTheJsonLines) {
  Bench bench;
  bench.StartMeters({"12:1"});
  bench.Configure("poll_period_s = 1",
                  MeterTable("feeder", 12, 1, "tags = [\"Frequency\", \"Location\"]") + MeterTable("away", 13, 1));
  const std::vector<std::vector<std::string>> commands = {
      {"run", "--passes", "2"},
      {"read", "--meter", "feeder", "--why", "Frequency"},
      {"write", "--meter", "feeder", "LimitPowerWeekDay", "5000"},
      {"history", "--meter", "feeder", "A+ Month Tariff Sum", "P+ Profile Power"},
      {"plan", "--measure"},
      {"doctor"},
      {"doctor", "--scan-addresses", "12"},
      {"exchange", "--allow-writes", "0C 03 0D"},
      {"read", "--meter", "nobody", "Frequency"},
  };
  std::string lines;
  const auto add = [&lines](const HostRun& run) {
    for (const auto& event : run.events) lines += event.dump() + '\n';
    EXPECT_EQ(run.exitCode != 0, run.events.back()["event"] == "error") << run.errors;
  };
  for (std::vector<std::string> command : commands) {
    command.push_back("--json");
    add(bench.Run(command));
  }
  for (const char* const branch : {"da", "hda"}) add(bench.RunPlain({"tags", "--type", "1", "--branch", branch, "--json"}));
  add(bench.RunPlain({"types", "--json"}));
  const std::string logged = ReadBytes(bench.File("host.toml.writes.log"));
  EXPECT_THAT(logged, HasSubstr("\"frame\""));
  WriteBytes(bench.File("lines"), lines + logged);
  Background check(
      "/usr/bin/python3",
      {kRoot / "tests/end_to_end/check_json.py", kRoot / "docs/json.schema.json", kRoot / "docs/json.md", bench.File("lines")},
      bench.File("checked"));
  EXPECT_EQ(0, check.Wait(60)) << check.Output() << check.Errors();
  EXPECT_EQ("events: doctor error exchange frame history link log pass plan scan tag tagdef type why write\n", check.Output());
}

}  // namespace
}  // namespace ostrel::test
