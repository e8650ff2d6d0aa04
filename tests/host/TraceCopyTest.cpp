// What is left of a trace when it is handed on.
#include <gtest/gtest.h>

#include "host/program/TraceCopy.h"

namespace ostrel::host {
namespace {

struct TraceRow {
  const char* line;
  const char* shown;  // null: as it is
};

TEST(TraceCopy, HidesPasswordsWhereverTheyStand) {
  // Lines of one thread in the order of a session, with its prefix left out.
  const TraceRow rows[] = {
      {"Read<4> 0C 31 32 33", "Read<4> ** ** ** **"},  // it begins behind a request that is not there any more
      {"Write<5> 0C 08 00 B6 03", nullptr},
      {"Read<4> 0C 05 C4 B3", nullptr},
      {"Write<10> 0C 01 31 32 33 34 35 36 42 FB", "Write<10> 0C 01 ** ** ** ** ** ** ** **"},
      {"Read<10> 0C 01 31 32 33 34 35 36 42 FB", "Read<10> ** ** ** ** ** ** ** ** ** **"},
      {"Read<4> 0C 00 04 B0", nullptr},
      {"Read<4> 0C 01 31 32", "Read<4> ** ** ** **"},  // a repeated request in pieces
      {"Write<5> 0C 08 00 B6 03", nullptr},
      {"Read<8> 31 32 33 34 35 36 42 FB", "Read<8> ** ** ** ** ** ** ** **"},
      {"Read<10> 0C 00 00 30 39 22 11 26 AA BB", nullptr},
      {"Write<12> 0C 03 1F 02 31 31 31 31 31 31 00 00", "Write<12> 0C 03 ** ** ** ** ** ** ** ** ** **"},
      {"Write<11> 0C 03 2F 08 00 00 00 C3 50 C8 33", nullptr},
      {"Write<10> 0C 01 31 3", "Write<10> ** ** ** *"},
      {"CProtocol::TransmitAndRecieve", nullptr},
  };
  TraceCopy copy;
  const std::string prefix = "PID=1 TID=2 [ 22/11/2026 20:00:01.204 ] ";
  for (const TraceRow& row : rows) {
    EXPECT_EQ(prefix + (row.shown != nullptr ? row.shown : row.line) + '\r', copy.Line(prefix + row.line + '\r'));
    // Another thread's lines come in between.
    const std::string other = "PID=1 TID=3 [ 22/11/2026 20:00:01.204 ] Write<5> 0D 08 00 B7 D3\r";
    EXPECT_EQ(other, copy.Line(other));
  }
}

}  // namespace
}  // namespace ostrel::host
