// A plug-in that is registered is the one that ostrel-host takes when none is named.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/end_to_end/Programs.h"

namespace ostrel::test {
namespace {

using ::testing::HasSubstr;

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
