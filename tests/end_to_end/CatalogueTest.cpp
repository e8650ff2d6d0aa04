// What ostrel-host tells of the plug-in's tags, against the tables made from the meters' documents; and which plug-in it takes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <set>

#include "tests/end_to_end/Programs.h"
#include "tests/support/TableFile.h"

namespace ostrel::test {
namespace {

using ::testing::HasSubstr;
using Ids = std::set<std::uint32_t>;

/// The ids of a row of ranges that have a name: none lies before the branch.
Ids Expected(const std::string& ranges, std::uint32_t first) {
  Ids ids;
  for (const std::string& range : Split(ranges, ' ')) {
    const auto ends = Numbers(range, '-');
    for (std::uint32_t id = std::max(ends.front(), first); id <= ends.back(); ++id) ids.insert(id);
  }
  return ids;
}

std::vector<std::uint32_t> Columns(const nlohmann::json& descriptor) {
  std::vector<std::uint32_t> columns;
  for (const char* const name : {"data_type", "code", "parameter", "sub_parameter", "request_bytes", "access", "write_bytes",
                                 "write_parameter", "aux", "answer_bytes"})
    columns.push_back(descriptor.at(name));
  return columns;
}

TEST(Catalogue, ListsTheTagsOfEachTypeInJson) {
  const auto rows = ReadTable("model/expected_support.tsv", 3);
  ASSERT_EQ(18U, rows.size());
  std::map<std::string, TableRow> catalogue;
  for (const TableRow& row : ReadTable("model/expected_catalogue.tsv", 5)) catalogue[row[0]] = row;
  Bench bench;
  for (const TableRow& row : rows) {
    SCOPED_TRACE(row[0] + " of type " + row[1]);
    const HostRun run = bench.RunPlain({"tags", "--type", row[1], "--branch", row[0], "--json"});
    EXPECT_EQ(0, run.exitCode) << run.errors;
    Ids listed;
    for (const auto& event : run.events) {
      const std::uint32_t id = event["id"];
      const TableRow& tag = catalogue.at(std::to_string(id));
      EXPECT_TRUE(listed.insert(id).second) << id << " twice";
      EXPECT_EQ("tagdef", event["event"]);
      EXPECT_EQ(row[0], event["branch"]);
      EXPECT_EQ(tag[1], event["name"]);
      if (row[0] == "da") {
        EXPECT_EQ(tag[2], event["description"]) << id;
        EXPECT_EQ(Numbers(tag[3]), Columns(event["descriptor"])) << id;
      } else {
        EXPECT_EQ(Numbers(tag[3]).front() == 5 ? "double" : "float", event["data_type"]) << id;
      }
    }
    EXPECT_EQ(Expected(row[2], row[0] == "da" ? 20000 : 40000), listed);
  }
}

TEST(Catalogue, ListsTheTypesInTheHostsOrder) {
  Bench bench;
  const HostRun run = bench.RunPlain({"types", "--json"});
  ASSERT_EQ(std::size(kMeterTypes), run.events.size()) << run.errors;
  for (std::size_t i = 0; i < run.events.size(); ++i) EXPECT_EQ(kMeterTypes[i], run.events[i]["type"]);
  EXPECT_EQ(R"({"display":"СЭТ-4ТМ.02М,03М","event":"type","name":"SET4TMM02M03","type":8,"version":1})", run.events[6].dump());
}

TEST(Catalogue, SaysWhatIsWrongWithATypeOrABranch) {
  Bench bench;
  using Arguments = std::vector<std::string>;
  for (const Arguments& wrong : {Arguments{"tags", "--type", "4"}, {"tags", "--type", "1", "--branch", "ae"}}) {
    const HostRun run = bench.RunPlain(wrong);
    EXPECT_EQ(2, run.exitCode) << wrong.back();
    EXPECT_THAT(run.errors, HasSubstr(wrong.back()));
  }
}

// A plug-in that is registered is the one that is taken when none is named.
TEST(Registration, FindsThePlugInThroughTheHostsList) {
  Bench bench;
  const std::string module = bench.File("libElsewhere.so");
  const std::filesystem::path programs = OSTREL_PROGRAMS;
  std::filesystem::copy_file(programs.parent_path() / "lib" / "libOstrelProtocol.so", module);
  EXPECT_EQ(0, bench.RunPlain({"register", "--module", module}).exitCode);
  EXPECT_THAT(FileText(bench.File("registry")), HasSubstr(module));
  EXPECT_EQ(9U, bench.RunPlain({"types", "--json"}).events.size());

  // Proof that it is that copy which is asked: without it the command fails and names it.
  std::filesystem::remove(module);
  const HostRun lost = bench.RunPlain({"types", "--json"});
  EXPECT_EQ(2, lost.exitCode);
  EXPECT_THAT(lost.errors, HasSubstr(module));

  EXPECT_EQ(0, bench.RunPlain({"unregister"}).exitCode);
  EXPECT_EQ(9U, bench.RunPlain({"types", "--json"}).events.size()) << "the one beside the program again";
  EXPECT_EQ(0, bench.RunPlain({"unregister"}).exitCode) << "twice is no error";
}

}  // namespace
}  // namespace ostrel::test
