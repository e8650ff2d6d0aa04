// The module's exports and its factory while memory runs short, as for every operation of the object: nothing leaves them but
// their result, and nothing keeps the module loaded afterwards.
#include <functional>

#include "tests/module/BuiltModule.h"
#include "tests/module/RegistryForTest.h"
#include "tests/support/FailingMemory.h"

namespace ostrel::test {
namespace {

constexpr auto kRegistrationFailed = static_cast<HRESULT>(0x80040201);

class ShortModule : public BuiltModule {
 protected:
  struct Row {
    const char* name;
    std::function<HRESULT()> call;
    HRESULT failure;
  };

  /// Allocations that the call makes when none fails.
  std::int64_t RunOnce(const Row& row, std::int64_t nth) {
    SCOPED_TRACE(std::string(row.name) + ", allocation " + std::to_string(nth));
    HRESULT result = E_FAIL;
    std::int64_t allocations = 0;
    {
      const FailingMemory memory(nth);
      try {
        result = row.call();
      } catch (...) {
        ADD_FAILURE() << "left the export";
      }
      allocations = FailingMemory::Count();
    }
    const bool struck = nth != 0 && nth <= allocations;
    EXPECT_TRUE(result == S_OK || (struck && result == row.failure)) << result;
    EXPECT_EQ(S_OK, CanUnloadNow());
    return allocations;
  }

  HRESULT Make(bool withObject) {
    void* factory = nullptr;
    void* object = nullptr;
    HRESULT result = ClassObject(CLSID_Protocol, IID_IClassFactory, &factory);
    if (factory != nullptr && withObject) result = CreateFrom(factory, nullptr, IID_IProtocol, &object);
    for (void* const made : {object, factory}) {
      if (made != nullptr) CallSlot<ULONG>(made, 2);
    }
    return result;
  }

  const RegistryForTest registry_;
};

TEST_F(ShortModule, ExportsEndWithTheirFailureResults) {
  const Row rows[] = {
      {"DllGetClassObject", [this] { return Make(false); }, E_OUTOFMEMORY},
      {"CreateInstance", [this] { return Make(true); }, E_OUTOFMEMORY},
      {"DllRegisterServer", [this] { return Call("DllRegisterServer"); }, kRegistrationFailed},
      {"DllUnregisterServer", [this] { return Call("DllUnregisterServer"); }, kRegistrationFailed},
  };
  for (const Row& row : rows) {
    const std::int64_t allocations = RunOnce(row, 0);
    EXPECT_NE(0, allocations) << row.name << ": the module has an allocator of its own";
    const std::int64_t living = FailingMemory::Living();
    for (std::int64_t nth = 1; nth <= RunOnce(row, nth); ++nth) EXPECT_EQ(living, FailingMemory::Living()) << row.name << nth;
    RunOnce(row, 0);
    EXPECT_EQ(living, FailingMemory::Living()) << row.name;
  }
}

}  // namespace
}  // namespace ostrel::test
