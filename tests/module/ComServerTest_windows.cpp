// The module as the system knows it: registered by the system's program, created by the system, and its texts, which come in
// code page 1251 whatever the system speaks.
#include <olectl.h>

#include <cstdlib>
#include <thread>

#include "host/server/PlugInList.h"
#include "platform/text.h"
#include "tests/module/BuiltModule.h"
#include "tests/module/RegistryForTest.h"

namespace ostrel::test {
namespace {

int Regsvr32(const std::string& options) {
  return std::system(("regsvr32 /s " + options + " \"" + BuiltModulePath() + "\"").c_str());
}

class ComServer : public testing::Test {
 protected:
  ComServer() { EXPECT_EQ(0, Regsvr32("")); }
  ~ComServer() override { EXPECT_EQ(0, Regsvr32("/u")); }

  [[nodiscard]] static HRESULT Create(const GUID& classId, const GUID& iid, void** object) {
    return ::CoCreateInstance(classId, nullptr, CLSCTX_INPROC_SERVER, iid, object);
  }

  platform::ComThread apartment_;
};

TEST_F(ComServer, TheSystemsProgramRegistersEveryKey) { ExpectRegistered(BuiltModulePath()); }

TEST_F(ComServer, TheSystemsProgramRemovesThemAndTwiceIsNoError) {
  EXPECT_EQ(0, Regsvr32("/u"));
  ExpectUnregistered();
  EXPECT_EQ(0, Regsvr32("/u"));
  void* object = this;
  EXPECT_EQ(REGDB_E_CLASSNOTREG, Create(CLSID_Protocol, IID_IProtocol, &object));
  EXPECT_EQ(nullptr, object);
}

TEST_F(ComServer, IsCreatedByClassId) {
  void* protocol = nullptr;
  ASSERT_EQ(S_OK, Create(CLSID_Protocol, IID_IProtocol, &protocol));
  EXPECT_EQ(2u, CallSlot<ULONG>(protocol, 1));
  EXPECT_EQ(1u, CallSlot<ULONG>(protocol, 2));
  EXPECT_EQ(1u, CallSlot<std::uint32_t>(protocol, 16));
  EXPECT_EQ(1u, CallSlot<std::uint32_t>(protocol, 17));
  EXPECT_EQ(0u, CallSlot<ULONG>(protocol, 2));
}

TEST_F(ComServer, IsCreatedByProgId) {
  GUID classId = {};
  ASSERT_EQ(S_OK, ::CLSIDFromProgID(L"Tavrin.Ostrel.OPCServer.Protocol.1", &classId));
  EXPECT_TRUE(platform::SameGuid(CLSID_Protocol, classId));
  void* types = nullptr;
  ASSERT_EQ(S_OK, Create(classId, IID_IEnumTypes, &types));
  std::uint32_t count = 0;
  EXPECT_EQ(S_OK, (CallSlot<HRESULT, std::uint32_t*>(types, 3, &count)));
  EXPECT_EQ(9u, count);
  EXPECT_EQ(0u, CallSlot<ULONG>(types, 2));
}

TEST_F(ComServer, RefusesAnInterfaceThatItHasNot) {
  void* object = this;
  EXPECT_EQ(E_NOINTERFACE, Create(CLSID_Protocol, IID_IDispatch, &object));
  EXPECT_EQ(nullptr, object);
}

using ComServerDeathTest = ComServer;

// The class wants an apartment of its own and its interfaces cannot be carried over into another one. What the system makes
// for such a caller can stay to the end of its process, so it has one of its own.
TEST_F(ComServerDeathTest, IsNotCreatedFromTheSharedApartment) {
  const auto create = [] {
    HRESULT result = S_OK;
    std::thread([&result] {
      void* object = nullptr;
      if (::CoInitializeEx(nullptr, COINIT_MULTITHREADED) == S_OK) result = Create(CLSID_Protocol, IID_IProtocol, &object);
      ::CoUninitialize();
    }).join();
    std::exit(FAILED(result) ? EXIT_SUCCESS : EXIT_FAILURE);
  };
  EXPECT_EXIT(create(), testing::ExitedWithCode(EXIT_SUCCESS), "");
}

TEST(ComServerRegistration, FailsByOneResultWhereObjectsCannotBeCreated) {
  std::string error;
  const auto module = platform::LoadedModule::Load(BuiltModulePath(), error);
  ASSERT_TRUE(module) << error;
  // This thread has not entered any apartment, so that there is no registrar.
  using Entry = HRESULT(STDMETHODCALLTYPE*)();
  EXPECT_EQ(SELFREG_E_CLASS, reinterpret_cast<Entry>(module.Symbol("DllRegisterServer"))());
  EXPECT_TRUE(FindPlugIn(CLSID_Protocol) == std::nullopt) << "listed, but without its class";
  EXPECT_EQ(SELFREG_E_CLASS, reinterpret_cast<Entry>(module.Symbol("DllUnregisterServer"))());
}

// The script that runs the tests says which code page it has set up, so that no run passes under another one than it means.
TEST_F(BuiltModule, SpeaksCodePage1251UnderAnySystem) {
  const char* const codePage = std::getenv("OSTREL_EXPECTED_CODE_PAGE");
  ASSERT_NE(nullptr, codePage) << "OSTREL_EXPECTED_CODE_PAGE is not set";
  ASSERT_EQ(codePage, std::to_string(::GetACP()));
  void* const protocol = NewProtocol();
  void* const browser = Face(protocol, IID_IBrowser);
  char text[260] = {};
  const auto describe = [&](std::uint32_t index) {
    return CallSlot<std::uint32_t, std::uint32_t, std::uint32_t, char*>(browser, 7, index, 0, text);
  };
  EXPECT_EQ(1u, describe(211));
  EXPECT_STREQ("\xCE\xE1\xEC\xE5\xED", text);  // Обмен
  EXPECT_EQ(0u, describe(65536 + 211)) << "ids have 16 bits in the table, and are not cut to them";
  EXPECT_STREQ("", text);
  CallSlot<ULONG>(browser, 2);
  CallSlot<ULONG>(protocol, 2);
}

}  // namespace
}  // namespace ostrel::test
