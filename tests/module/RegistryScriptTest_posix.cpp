// The reader of registry scripts, for systems without a registrar of their own.
#include "Protocol/module/RegistryScript.h"
#include "tests/module/RegistryForTest.h"

namespace ostrel::test {
namespace {

TEST(RegistryScript, ReadsKeysValuesAndQuotes) {
  const auto script =
      RegistryScript::Parse("HKCR\n{ A = s 'it''s %X%' { val V = s 'v' B }\r\n\tNoRemove C { ForceRemove {D} } }");
  ASSERT_TRUE(script);
  std::string paths;
  for (const ScriptKey& key : script->Keys()) paths += key.path + " ";
  EXPECT_EQ("A A\\B C C\\{D} ", paths);
  EXPECT_EQ("it's %X%", script->Keys()[0].texts.at(""));
  EXPECT_EQ("v", script->Keys()[0].texts.at("V"));
  EXPECT_EQ(KeyRemoval::Never, script->Keys()[2].removal);
  EXPECT_EQ(KeyRemoval::WithSubtree, script->Keys()[3].removal);
}

TEST(RegistryScript, RefusesWhatItDoesNotUnderstand) {
  for (const char* text :
       {"", "HKCR", "HKCR {", "HKCR { A = s 'open }", "HKCR { A = d '1' }", "HKCR { A = 'text' }", "HKLM { A }",
        "HKCR { val V = s 'v' }", "HKCR { A { }", "HKCR { A } more", "HKCR { = s 'x' }", "HKCR { A = s text }"}) {
    EXPECT_FALSE(RegistryScript::Parse(text)) << text;
  }
}

TEST(RegistryScript, PutsReplacementsIn) {
  const RegistryForTest registry;
  const auto script = RegistryScript::Parse("HKCR { A = s '<%MODULE%> %OTHER%100%' }");
  ASSERT_TRUE(script && script->Register({{"MODULE", "/a b/%c%.so"}}));
  EXPECT_EQ("</a b/%c%.so> 100%", platform::RegistryText("A", ""));
}

TEST(RegistryScript, RemovesOnlyWhatIsItsOwn) {
  const RegistryForTest registry;
  const auto script = RegistryScript::Parse("HKCR { Plain { Sub } NoRemove Kept { ForceRemove Forced } }");
  ASSERT_TRUE(script && script->Register({}));
  ASSERT_TRUE(platform::CreateRegistryKey("Plain\\Foreign") && platform::CreateRegistryKey("Kept\\Forced\\Foreign"));
  ASSERT_TRUE(script->Unregister());
  EXPECT_TRUE(platform::RegistryKeyExists("Plain\\Foreign"));
  EXPECT_FALSE(platform::RegistryKeyExists("Plain\\Sub"));
  EXPECT_TRUE(platform::RegistryKeyExists("Kept"));
  EXPECT_FALSE(platform::RegistryKeyExists("Kept\\Forced"));
}

}  // namespace
}  // namespace ostrel::test
