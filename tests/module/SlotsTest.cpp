// Every entry of the three tables, called by its number.
#include <array>
#include <cstring>
#include <vector>

#include "Protocol/link/HostContext.h"
#include "Protocol/link/PortSettings.h"
#include "tests/module/BuiltModule.h"

namespace ostrel::test {
namespace {

using U32 = std::uint32_t;
using I32 = std::int32_t;

class Slots : public BuiltModule {
 protected:
  Slots() : protocol_(NewProtocol()) {}
  ~Slots() override { EXPECT_EQ(0u, CallSlot<ULONG>(protocol_, 2)); }

  /// Meters of the channel, by the host's record: pointer, then the count.
  [[nodiscard]] U32 Devices() {
    U32 count = 0;
    std::memcpy(&count, CallSlot<std::uint8_t*>(protocol_, 3) + 144 + sizeof(void*), sizeof count);
    return count;
  }
  /// An empty record of the host's.
  [[nodiscard]] static std::vector<std::uint8_t> Record() { return std::vector<std::uint8_t>(708); }

  HostContext context_;  // of the host, so it outlives the object
  void* protocol_;
};

TEST_F(Slots, EveryFaceLeadsToTheSameThree) {
  const GUID ids[] = {IID_IProtocol, IID_IBrowser, IID_IEnumTypes};
  void* faces[3];
  for (int i = 0; i < 3; ++i) faces[i] = Face(protocol_, ids[i]);
  EXPECT_EQ(protocol_, faces[0]);
  EXPECT_EQ(protocol_, Face(faces[2], IID_IUnknown));
  for (void* const from : faces) {
    for (int i = 0; i < 3; ++i) {
      EXPECT_EQ(faces[i], Face(from, ids[i])) << i;
      CallSlot<ULONG>(faces[i], 2);
    }
    void* none = this;
    EXPECT_EQ(E_NOINTERFACE, (CallSlot<HRESULT, const GUID*, void**>(from, 0, &IID_IClassFactory, &none)));
    EXPECT_EQ(nullptr, none);
    // One reference of the test's, three of the loop above and that of IUnknown.
    EXPECT_EQ(6u, CallSlot<ULONG>(from, 1));
    EXPECT_EQ(5u, CallSlot<ULONG>(from, 2));
  }
  for (int i = 4; i > 0; --i) EXPECT_EQ(static_cast<ULONG>(i), CallSlot<ULONG>(faces[i % 3], 2));
}

TEST_F(Slots, DeviceTable) {
  void* const channel = CallSlot<void*>(protocol_, 3);
  ASSERT_NE(nullptr, channel);
  EXPECT_EQ(-1, (CallSlot<I32, const void*>(protocol_, 4, nullptr)));
  EXPECT_EQ(0, (CallSlot<I32, const void*>(protocol_, 4, Record().data())));
  EXPECT_EQ(1, (CallSlot<I32, const void*>(protocol_, 4, Record().data())));
  EXPECT_EQ(2u, Devices());
  CallSlot<void, U32, void*>(protocol_, 6, 0, nullptr);
  CallSlot<void, I32>(protocol_, 5, 1);
  EXPECT_EQ(1u, Devices());
  EXPECT_EQ(1u, (CallSlot<U32, U32>(protocol_, 23, 0)));
  EXPECT_EQ(channel, CallSlot<void*>(protocol_, 3));
}

TEST_F(Slots, HistoryOfTagsThatNoMeterIsAskedFor) {
  constexpr U32 kNoTag = 1;
  FILETIME time = {};
  U32 minutes = 0;
  // Larger than either layout of the records.
  std::array<std::uint8_t, 64> item = {};
  std::array<std::uint8_t, 64> answer = {};
  // Nothing to ask a meter, and nothing to tell.
  EXPECT_EQ(1u, (CallSlot<U32, U32, void*, FILETIME*, void*>(protocol_, 7, 1, item.data(), &time, answer.data())));
  EXPECT_EQ((std::array<std::uint8_t, 64>{}), answer);
  EXPECT_EQ(-1, (CallSlot<I32, U32, U32, U32*>(protocol_, 8, kNoTag, 0, &minutes)));
  EXPECT_EQ(0, (CallSlot<I32, const void*>(protocol_, 4, Record().data())));
  EXPECT_EQ(3, (CallSlot<I32, U32, U32, U32*>(protocol_, 8, 40036, 0, &minutes)));
  EXPECT_EQ(11u, (CallSlot<U32, U32, U32>(protocol_, 9, 1, 40036)));
  EXPECT_EQ(0u, (CallSlot<U32, U32, U32>(protocol_, 9, 1, kNoTag)));
  EXPECT_EQ(
      0u, (CallSlot<U32, U32, U32, U32, FILETIME*, FILETIME*, void*>(protocol_, 10, 1, kNoTag, 0, &time, &time, answer.data())));
  EXPECT_EQ(0u, (CallSlot<U32, U32, U32, U32, FILETIME*>(protocol_, 11, 1, kNoTag, 0, &time)));
}

TEST_F(Slots, Locks) {
  for (const std::size_t slot : {16, 18, 20, 16, 17, 17, 19, 21}) EXPECT_EQ(1u, CallSlot<U32>(protocol_, slot)) << slot;
}

TEST_F(Slots, SettingsThreadAndRawExchange) {
  PortSettings settings = {};
  std::strcpy(settings.PortName, "COM1");
  settings.BaudRate = 9600;
  EXPECT_EQ(1u, (CallSlot<U32, HostContext*, const PortSettings*>(protocol_, 15, &context_, &settings)));
  const auto* const channel = CallSlot<const char*>(protocol_, 3);
  EXPECT_STREQ("COM1", channel);
  U32 exchangeEnabled = 0;
  std::memcpy(&exchangeEnabled, channel + 168, sizeof exchangeEnabled);
  EXPECT_EQ(1u, exchangeEnabled);
  EXPECT_EQ(1u, CallSlot<U32>(protocol_, 13));
  EXPECT_EQ(1u, CallSlot<U32>(protocol_, 14));
  EXPECT_EQ(1u, CallSlot<U32>(protocol_, 12));
  // The host gives no port.
  std::uint8_t bytes[4] = {};
  U32 count = sizeof bytes;
  EXPECT_EQ(0u, (CallSlot<U32, const void*, U32, void*, U32*, U32>(protocol_, 22, bytes, 4, bytes, &count, 0)));
}

TEST_F(Slots, Browser) {
  void* const browser = Face(protocol_, IID_IBrowser);
  char text[260] = {};
  EXPECT_EQ(1u, (CallSlot<U32, U32, U32, U32, char*, U32>(browser, 3, 20017, 1, 0, text, 0)));
  EXPECT_STREQ("A+ Tariff Sum", text);
  EXPECT_EQ(20000u, (CallSlot<U32, U32>(browser, 4, 0)));
  EXPECT_EQ(40000u, (CallSlot<U32, U32>(browser, 4, 1)));
  EXPECT_EQ(0u, (CallSlot<U32, U32>(browser, 4, 2)));
  EXPECT_EQ(0u, (CallSlot<U32, U32, U32>(browser, 5, 1, 2)));
  std::array<U32, 10> row = {};
  EXPECT_EQ(1u, (CallSlot<U32, U32, U32, U32, U32*>(browser, 6, 17, 0, 0, row.data())));
  EXPECT_EQ((std::array<U32, 10>{4, 5, 9, 0, 6, 1, 0, 0, 1, 19}), row);
  CallSlot<ULONG>(browser, 2);
}

TEST_F(Slots, MeterTypes) {
  void* const types = Face(protocol_, IID_IEnumTypes);
  U32 count = 0;
  EXPECT_EQ(S_OK, (CallSlot<HRESULT, U32*>(types, 3, &count)));
  EXPECT_EQ(9u, count);
  std::array<char, 88> record = {};
  for (U32 seen = 0; seen < 9; ++seen) EXPECT_EQ(S_OK, (CallSlot<HRESULT, void*>(types, 4, record.data())));
  EXPECT_EQ(S_FALSE, (CallSlot<HRESULT, void*>(types, 4, record.data())));
  EXPECT_EQ(S_OK, CallSlot<HRESULT>(types, 5));
  ASSERT_EQ(S_OK, (CallSlot<HRESULT, void*>(types, 4, record.data())));
  EXPECT_STREQ("SET4TM02", record.data() + 46);
  CallSlot<ULONG>(types, 2);
}

}  // namespace
}  // namespace ostrel::test
