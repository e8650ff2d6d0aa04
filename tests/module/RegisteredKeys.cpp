#include "tests/module/RegisteredKeys.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "platform/registry.h"

namespace ostrel::test {
namespace {

using platform::RegistryKeyExists;
using platform::RegistrySubkeys;
using platform::RegistryText;
using testing::Contains;
using testing::Not;
using testing::UnorderedElementsAreArray;

const std::string kClassInScript = "{09590E5C-2B82-4c8c-A6CD-1756BA3A8DFF}";

struct Row {
  std::string key;
  std::string name;
  std::string text;
};

}  // namespace

void ExpectRegistered(const std::string& path) {
  const std::string display = "Tavrin OPC Server Ostrel Protocol 1";
  const Row rows[] = {
      {kProgId, "", display},
      {kProgId + R"(\CLSID)", "", kClassInScript},
      {kProgId + R"(\CurVer)", "", kProgId},
      {kClassKey, "", display},
      {kClassKey + R"(\ProgID)", "", kProgId},
      {kClassKey + R"(\VersionIndependentProgID)", "", kProgId},
      {kClassKey + R"(\InprocServer32)", "", path},
      {kClassKey + R"(\InprocServer32)", "ThreadingModel", "Apartment"},
      // Upper case, as the system writes a class id.
      {kPlugIns + '\\' + kClassInScript, "CLSID_PlaginProtocol", "{09590E5C-2B82-4C8C-A6CD-1756BA3A8DFF}"},
  };
  for (const Row& row : rows) EXPECT_EQ(row.text, RegistryText(row.key, row.name)) << row.key << " " << row.name;
  using Names = std::vector<std::string>;
  EXPECT_THAT(RegistrySubkeys(kProgId), UnorderedElementsAreArray(Names{"CLSID", "CurVer"}));
  EXPECT_THAT(RegistrySubkeys(kClassKey),
              UnorderedElementsAreArray(Names{"InprocServer32", "ProgID", "VersionIndependentProgID"}));
  EXPECT_THAT(RegistrySubkeys("CLSID"), Contains(kClassInScript));
  EXPECT_THAT(RegistrySubkeys(kPlugIns), Contains(kClassInScript));
}

void ExpectUnregistered() {
  EXPECT_FALSE(RegistryKeyExists(kProgId));
  EXPECT_FALSE(RegistryKeyExists(kClassKey));
  EXPECT_THAT(RegistrySubkeys(kPlugIns), Not(Contains(kClassInScript)));
  EXPECT_TRUE(RegistryKeyExists("CLSID"));
}

}  // namespace ostrel::test
