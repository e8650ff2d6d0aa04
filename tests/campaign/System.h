// The system that the campaign's programs run on: its files, and what of it fails. Its threads and clocks are the scheduler's.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace ostrel::campaign {

/// The n-th allocation or system call of a thread fails from here on.
struct Drill {
  std::uint32_t left = 0;  // 0: none fails
  std::uint32_t thread = 0;
};
inline Drill memoryDrill;
inline Drill callDrill;
/// How many of them have failed by now.
inline std::uint32_t drillsFired = 0;

/// What the campaign does by itself never fails. Other threads go on while one of them sleeps in it.
struct [[nodiscard]] OwnWork {
  OwnWork() { ++Depth(); }
  ~OwnWork() { --Depth(); }
  OwnWork(const OwnWork&) = delete;
  OwnWork& operator=(const OwnWork&) = delete;
  [[nodiscard]] static int& Depth();  // of the thread that runs
};

/// Pieces of memory that are out, of the program and of what host and plug-in give each other.
inline std::size_t blocksInUse = 0;

/// Hands every piece that is appended to a file to its reader; nothing is kept.
void ReadLog(const std::string& path, std::function<void(std::string_view)> reader);
/// Readers and drills end with the world that asked for them.
void ForgetSystem();

}  // namespace ostrel::campaign
