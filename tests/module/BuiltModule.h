// The module as it was built, beside the test program or in ../lib, and its entries called the way any host calls them: by
// exported name and by number in a table.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "Protocol/object/Interfaces.h"
#include "platform/com_server.h"
#include "platform/module.h"

namespace ostrel::test {

inline std::string BuiltModulePath() {
  const std::filesystem::path folder = std::filesystem::path(platform::ProgramPath()).parent_path();
  const std::string name = platform::ModuleFileName("OstrelProtocol");
  const std::filesystem::path beside = folder / name;
  return std::filesystem::exists(beside) ? beside.string() : std::filesystem::canonical(folder / "../lib" / name).string();
}

template <typename Result, typename... Arguments>
Result CallSlot(void* face, std::size_t slot, Arguments... arguments) {
  using Entry = Result(STDMETHODCALLTYPE*)(void*, Arguments...);
  void* const* const table = *static_cast<void* const* const*>(face);
  return reinterpret_cast<Entry>(table[slot])(face, arguments...);
}

/// The factory's CreateInstance.
inline HRESULT CreateFrom(void* factory, void* outer, const GUID& iid, void** object) {
  return CallSlot<HRESULT, void*, const GUID*, void**>(factory, 3, outer, &iid, object);
}

class BuiltModule : public testing::Test {
 protected:
  using GetClassObject = HRESULT(STDMETHODCALLTYPE*)(const GUID*, const GUID*, void**);
  using Plain = HRESULT(STDMETHODCALLTYPE*)();

  BuiltModule() {
    std::string error;
    module_ = platform::LoadedModule::Load(BuiltModulePath(), error);
    EXPECT_TRUE(module_) << error;
  }

  [[nodiscard]] HRESULT ClassObject(const GUID& classId, const GUID& iid, void** object) const {
    return reinterpret_cast<GetClassObject>(module_.Symbol("DllGetClassObject"))(&classId, &iid, object);
  }
  [[nodiscard]] HRESULT Call(const char* entry) const { return reinterpret_cast<Plain>(module_.Symbol(entry))(); }
  [[nodiscard]] HRESULT CanUnloadNow() const { return Call("DllCanUnloadNow"); }

  [[nodiscard]] void* NewFactory() const {
    void* factory = nullptr;
    EXPECT_EQ(S_OK, ClassObject(CLSID_Protocol, IID_IClassFactory, &factory));
    return factory;
  }
  /// A protocol object by its first face, made by a factory that is gone again.
  [[nodiscard]] void* NewProtocol() const {
    void* const factory = NewFactory();
    void* protocol = nullptr;
    EXPECT_EQ(S_OK, CreateFrom(factory, nullptr, IID_IProtocol, &protocol));
    EXPECT_EQ(0u, CallSlot<ULONG>(factory, 2));
    return protocol;
  }
  [[nodiscard]] static void* Face(void* from, const GUID& iid) {
    void* face = nullptr;
    EXPECT_EQ(S_OK, (CallSlot<HRESULT, const GUID*, void**>(from, 0, &iid, &face)));
    return face;
  }

  platform::ComThread apartment_;
  platform::LoadedModule module_;
};

}  // namespace ostrel::test
