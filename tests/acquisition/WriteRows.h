// Writes and the frames that they become.
#pragma once

#include <cstdint>
#include <limits>
#include <ostream>

namespace ostrel::test {

inline constexpr float kInf = std::numeric_limits<float>::infinity();
inline constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
inline constexpr float kMax = std::numeric_limits<float>::max();

struct WriteRow {
  std::uint32_t tag;
  float value;
  const char* frame;  // "" for none
};

inline void PrintTo(const WriteRow& row, std::ostream* out) { *out << row.tag << " = " << row.value; }

// Whole frames with the checks worked out by hand.
inline constexpr WriteRow kWholeFrames[] = {
    {6, 220, "01 03 1B 00 DC 68 1A"},
    {6, 220.9F, "01 03 1B 00 DC 68 1A"},
    {7, 65535, "01 03 1C FF FF D9 F2"},
    {7, -1, "01 03 1C FF FF D9 F2"},
    {99, 10, "01 03 07 0A 73 EF"},
    {100, 1, "01 03 18 01 3A 18"},
    {100, 0, "01 03 18 00 FB D8"},
    {100, -1, "01 03 18 00 FB D8"},
    {100, 0.9F, "01 03 18 00 FB D8"},
    {100, 200, "01 03 18 00 FB D8"},
    {185, 1, "01 03 18 04 FA 1B"},
    {185, 0, "01 03 18 05 3B DB"},
    {185, 0.5F, "01 03 18 05 3B DB"},
    {185, -1, "01 03 18 00 FB D8"},
    {212, 0, "01 03 2F 01 2C 28"},
    {212, 1, "01 03 2F 00 ED E8"},
    {213, 0, "01 03 2F 07 00 00 00 00 01 59 C0"},
    {213, 40, "01 03 2F 07 00 00 00 00 19 59 CA"},
    {214, 1, "01 03 2F 04 01 00 00 27 10 BF CF"},
    {214, 10000.1F, "01 03 2F 04 01 05 F5 E4 E8 FE 43"},
    {242, 1, "01 03 2F 04 30 00 00 27 10 C2 0B"},
    {219, 5000, "01 03 2F 08 00 00 00 C3 50 C8 33"},
};

// Data behind the parameter number.
inline constexpr WriteRow kData[] = {
    {6, kNan, "1B 00 00"},
    {6, kInf, "1B 00 00"},
    {6, 1e30F, "1B 00 00"},
    {6, 70000, "1B 11 70"},
    {7, 0.99F, "1C 00 00"},
    {99, 255, "07 FF"},
    {99, 256, "07 00"},
    {99, kNan, "07 00"},
    {100, 127, "18 01"},
    {100, kNan, "18 00"},
    {185, kInf, "18 05"},
    {185, 127.9F, "18 04"},
    {213, 1, "2F 07 00 00 00 00 01"},
    {213, 24, "2F 07 00 00 00 00 18"},
    {213, 25, "2F 07 00 00 00 00 19"},
    {213, 26, "2F 07 00 00 00 00 19"},
    // The selector of each limit.
    {215, 0.5F, "2F 04 02 00 00 13 88"},
    {216, 0, "2F 04 03 00 00 00 00"},
    {217, 1, "2F 04 04 00 00 27 10"},
    {218, 1, "2F 04 00 00 00 27 10"},
    {223, 1, "2F 04 01 00 00 27 10"},
    {226, 1, "2F 04 04 00 00 27 10"},
    {227, 1, "2F 04 00 00 00 27 10"},
    {228, 1, "2F 04 11 00 00 27 10"},
    {232, 1, "2F 04 10 00 00 27 10"},
    {233, 1, "2F 04 21 00 00 27 10"},
    {237, 1, "2F 04 20 00 00 27 10"},
    {238, 1, "2F 04 31 00 00 27 10"},
    {241, 1, "2F 04 34 00 00 27 10"},
    {220, 1, "2F 08 01 00 00 00 0A"},
    {221, 1, "2F 08 02 00 00 00 0A"},
    {222, 1, "2F 08 03 00 00 00 0A"},
    // The edges of energy limits: past 32 bits the low ones go out, past 64 none is left.
    {214, -1, "2F 04 01 FF FF D8 F0"},
    {214, 300000, "2F 04 01 B2 D0 5E 00"},
    {214, 429497, "2F 04 01 00 00 0A 00"},
    {214, 1e20F, "2F 04 01 00 00 00 00"},
    {214, 0.00005F, "2F 04 01 00 00 00 00"},
    // The edges of power limits.
    {219, 0.05F, "2F 08 00 00 00 00 0A"},
    {219, 0.0999F, "2F 08 00 00 00 00 0A"},
    {219, kNan, "2F 08 00 00 00 00 0A"},
    {219, -3, "2F 08 00 00 00 00 0A"},
    {219, -kInf, "2F 08 00 00 00 00 0A"},
    {219, 0.1F, "2F 08 00 00 00 00 01"},
    {219, 0.14F, "2F 08 00 00 00 00 01"},
    {219, 0.15F, "2F 08 00 00 00 00 02"},
    {219, 0.35F, "2F 08 00 00 00 00 03"},
    {219, 6553.4F, "2F 08 00 00 00 FF FE"},
    {219, 6553.5F, "2F 08 00 00 00 FF FF"},
    {219, 6553.6F, "2F 08 00 00 00 FF FF"},
    {219, 10000, "2F 08 00 00 00 FF FF"},
    {219, kInf, "2F 08 00 00 00 FF FF"},
};

// Nothing goes out and the write is dropped.
inline constexpr WriteRow kDropped[] = {
    {212, 2, ""}, {212, 255, ""}, {214, kNan, ""}, {214, kInf, ""}, {214, -kInf, ""}, {242, kMax, ""},
    {0, 1, ""},   {5, 1, ""},     {8, 1, ""},      {9, 1, ""},      {96, 1, ""},      {101, 1, ""},
    {102, 3, ""}, {103, 1, ""},   {184, 1, ""},    {186, 1, ""},    {210, 1, ""},     {243, 1, ""},
};

}  // namespace ostrel::test
