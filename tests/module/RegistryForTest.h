// The registry for the life of a test, and what registration must leave behind in it, key by key, and nothing else.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/registry.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TimeZone.h"

namespace ostrel::test {

/// Where the registry is a file, a file of the test's own; on Windows the tests run in a system that was made for them.
class RegistryForTest {
 public:
  RegistryForTest() { SetVariable("OSTREL_REGISTRY", File()); }
  RegistryForTest(const RegistryForTest&) = delete;
  RegistryForTest& operator=(const RegistryForTest&) = delete;
  ~RegistryForTest() { SetVariable("OSTREL_REGISTRY", ""); }

  [[nodiscard]] std::string File() const { return folder_.File("deeper/registry"); }

 private:
  TemporaryFolder folder_;
};

inline const std::string kPlugIns = R"(CLSID\{DAD6156E-FBCC-4532-AFB5-D4AB2326FB02}\Plugins)";
inline const std::string kClassInScript = "{09590E5C-2B82-4c8c-A6CD-1756BA3A8DFF}";
inline const std::string kClassKey = R"(CLSID\)" + kClassInScript;
inline const std::string kProgId = "Tavrin.Ostrel.OPCServer.Protocol.1";

/// Every key with its text and its subkeys; the class is served by the module at `path`.
inline void ExpectRegistered(const std::string& path) {
  const std::string display = "Tavrin OPC Server Ostrel Protocol 1";
  const struct {
    std::string key, name, text;
  } rows[] = {
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
  for (const auto& row : rows) EXPECT_EQ(row.text, platform::RegistryText(row.key, row.name)) << row.key << " " << row.name;
  EXPECT_THAT(platform::RegistrySubkeys(kProgId), testing::UnorderedElementsAre("CLSID", "CurVer"));
  EXPECT_THAT(platform::RegistrySubkeys(kClassKey),
              testing::UnorderedElementsAre("InprocServer32", "ProgID", "VersionIndependentProgID"));
  for (const std::string& parent : {std::string("CLSID"), kPlugIns})
    EXPECT_THAT(platform::RegistrySubkeys(parent), testing::Contains(kClassInScript));
}

/// None of the module's keys, but those that it shares with others.
inline void ExpectUnregistered() {
  EXPECT_FALSE(platform::RegistryKeyExists(kProgId));
  EXPECT_FALSE(platform::RegistryKeyExists(kClassKey));
  EXPECT_THAT(platform::RegistrySubkeys(kPlugIns), testing::Not(testing::Contains(kClassInScript)));
  EXPECT_TRUE(platform::RegistryKeyExists("CLSID"));
}

}  // namespace ostrel::test
