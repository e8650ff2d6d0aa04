// The module registers itself through its own entry points: what it writes, replaces, removes and leaves alone.
#include "host/server/PlugInList.h"
#include "tests/module/BuiltModule.h"
#include "tests/module/RegistryForTest.h"

namespace ostrel::test {
namespace {

class Registration : public BuiltModule {
 protected:
  ~Registration() override { EXPECT_EQ(S_OK, Call("DllUnregisterServer")); }

  RegistryForTest registry_;
};

TEST_F(Registration, WritesEveryKeyReplacesAnOldOneAndGoesTwiceWithoutFailure) {
  platform::SetRegistryText(kClassKey + R"(\InprocServer32)", "", "an old place");
  platform::SetRegistryText(kClassKey + R"(\Left\Over)", "name", "text");
  for (int twice = 0; twice < 2; ++twice) {
    ASSERT_EQ(S_OK, Call("DllRegisterServer"));
    ExpectRegistered(BuiltModulePath());
  }
  for (int twice = 0; twice < 2; ++twice) {
    EXPECT_EQ(S_OK, Call("DllUnregisterServer"));
    ExpectUnregistered();
  }
}

TEST_F(Registration, LeavesTheEntriesOfOthersAlone) {
  const std::string other = kPlugIns + R"(\{11111111-2222-3333-4444-555555555555})";
  const std::string unrelated = R"(CLSID\{11111111-2222-3333-4444-555555555555})";
  ASSERT_TRUE(platform::SetRegistryText(other, "CLSID_PlaginProtocol", "of another plug-in"));
  ASSERT_TRUE(platform::SetRegistryText(unrelated, "", "another class"));
  ASSERT_EQ(S_OK, Call("DllRegisterServer"));
  // Something below the plug-in's own entry goes with it.
  ASSERT_TRUE(platform::CreateRegistryKey(kPlugIns + R"(\{09590E5C-2B82-4C8C-A6CD-1756BA3A8DFF}\Settings\Deeper)"));
  ASSERT_EQ(S_OK, Call("DllUnregisterServer"));
  ExpectUnregistered();
  EXPECT_EQ("of another plug-in", platform::RegistryText(other, "CLSID_PlaginProtocol"));
  EXPECT_EQ("another class", platform::RegistryText(unrelated, ""));
  platform::DeleteRegistryTree(other);
  platform::DeleteRegistryTree(unrelated);
}

TEST_F(Registration, AHostFindsThePlugInAndItsFactory) {
  EXPECT_FALSE(FindPlugIn(CLSID_Protocol));
  IClassFactory* factory = nullptr;
  EXPECT_EQ(static_cast<HRESULT>(0x80040154), platform::ClassFactoryOf(CLSID_Protocol, &factory));
  EXPECT_EQ(nullptr, factory);
  ASSERT_EQ(S_OK, Call("DllRegisterServer"));
  const auto plugIn = FindPlugIn(CLSID_Protocol);
  ASSERT_TRUE(plugIn);
  EXPECT_EQ(BuiltModulePath(), plugIn->Module);
  ASSERT_EQ(S_OK, platform::ClassFactoryOf(plugIn->ClassId, &factory));
  void* protocol = nullptr;
  EXPECT_EQ(S_OK, factory->CreateInstance(nullptr, IID_IProtocol, &protocol));
  EXPECT_EQ(1u, CallSlot<std::uint32_t>(protocol, 12));
  EXPECT_EQ(0u, CallSlot<ULONG>(protocol, 2));
  factory->Release();
}

}  // namespace
}  // namespace ostrel::test
