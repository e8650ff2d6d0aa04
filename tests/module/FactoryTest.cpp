// What keeps the module loaded, and what its factory gives and refuses.
#include <functional>
#include <utility>

#include "Protocol/model/DeviceEntry.h"
#include "tests/module/BuiltModule.h"

namespace ostrel::test {
namespace {

constexpr auto kNoAggregation = static_cast<HRESULT>(0x80040110);
constexpr auto kClassNotAvailable = static_cast<HRESULT>(0x80040111);
constexpr auto kNoInterface = static_cast<HRESULT>(0x80004002);

class Factory : public BuiltModule {};

TEST_F(Factory, RefusalsClearThePointerAndLeaveNothingBehind) {
  void* object = this;
  const auto expect = [&](HRESULT expected, HRESULT result) {
    EXPECT_EQ(expected, result);
    EXPECT_EQ(nullptr, std::exchange(object, this));
  };
  expect(kClassNotAvailable, ClassObject(IID_IUnknown, IID_IClassFactory, &object));
  expect(kNoInterface, ClassObject(CLSID_Protocol, IID_IProtocol, &object));
  EXPECT_EQ(S_OK, CanUnloadNow());
  void* const factory = NewFactory();
  expect(kNoAggregation, CreateFrom(factory, factory, IID_IProtocol, &object));
  expect(kNoInterface, CreateFrom(factory, nullptr, IID_IClassFactory, &object));
  EXPECT_EQ(0u, CallSlot<ULONG>(factory, 2));
  EXPECT_EQ(S_OK, CanUnloadNow());
}

TEST_F(Factory, CountsItsReferences) {
  void* const factory = NewFactory();
  EXPECT_EQ(2u, CallSlot<ULONG>(factory, 1));
  EXPECT_EQ(factory, Face(factory, IID_IUnknown));
  EXPECT_EQ(2u, CallSlot<ULONG>(factory, 2));
  EXPECT_EQ(1u, CallSlot<ULONG>(factory, 2));
  EXPECT_EQ(0u, CallSlot<ULONG>(factory, 2));
}

TEST_F(Factory, LivingFactoriesLocksAndObjectsKeepTheModule) {
  EXPECT_EQ(S_OK, CanUnloadNow());
  void* const factory = NewFactory();
  EXPECT_EQ(S_FALSE, CanUnloadNow()) << "a factory";
  EXPECT_EQ(S_OK, (CallSlot<HRESULT, BOOL>(factory, 4, 1)));
  EXPECT_EQ(0u, CallSlot<ULONG>(factory, 2));
  EXPECT_EQ(S_FALSE, CanUnloadNow()) << "a lock";
  void* const other = NewFactory();
  EXPECT_EQ(S_OK, (CallSlot<HRESULT, BOOL>(other, 4, 0)));
  EXPECT_EQ(0u, CallSlot<ULONG>(other, 2));
  EXPECT_EQ(S_OK, CanUnloadNow()) << "nothing left";
  void* const protocol = NewProtocol();
  EXPECT_EQ(S_FALSE, CanUnloadNow()) << "an object";
  EXPECT_EQ(0u, CallSlot<ULONG>(protocol, 2));
  EXPECT_EQ(S_OK, CanUnloadNow()) << "the object gone";
}

/// Asks at its end, which is a part of its protocol object's, whether the module may go.
class AskingTag final : public CDeviceTag {
 public:
  AskingTag(const std::function<HRESULT()>& canUnload, HRESULT& answer) : canUnload_(canUnload), answer_(answer) {}
  void Destroy(std::uint32_t flags) override {
    answer_ = canUnload_();
    if ((flags & 1) != 0) delete this;
  }

 private:
  const std::function<HRESULT()> canUnload_;
  HRESULT& answer_;
};

TEST_F(Factory, AnObjectThatEndsStillKeepsTheModule) {
  void* const protocol = NewProtocol();
  const DeviceConfig config{};
  EXPECT_EQ(0, (CallSlot<std::int32_t, const void*>(protocol, 4, &config)));
  HRESULT answer = E_FAIL;
  auto* const tag = new AskingTag([this] { return CanUnloadNow(); }, answer);
  CallSlot<void, std::uint32_t, void*>(protocol, 6, 0, static_cast<CDeviceTag*>(tag));
  EXPECT_EQ(0u, CallSlot<ULONG>(protocol, 2));
  EXPECT_EQ(S_FALSE, answer) << "code of the module still runs";
  EXPECT_EQ(S_OK, CanUnloadNow());
}

}  // namespace
}  // namespace ostrel::test
