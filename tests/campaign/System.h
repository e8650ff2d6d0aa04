// The system that the campaign's programs run on: its clock, its files, and what of it fails.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "platform/clock.h"

namespace ostrel::campaign {

/// The n-th allocation or system call of a thread fails from here on.
struct Drill {
  std::uint32_t left = 0;  // 0: none fails
  std::uint32_t thread = 0;
};
[[nodiscard]] Drill& MemoryDrill();
[[nodiscard]] Drill& CallDrill();

/// How many of them have failed by now.
[[nodiscard]] std::uint32_t DrillsFired();

/// What the campaign does by itself never fails.
class [[nodiscard]] OwnWork {
 public:
  OwnWork();
  ~OwnWork();
  OwnWork(const OwnWork&) = delete;
  OwnWork& operator=(const OwnWork&) = delete;
};

/// Hands every piece that is appended to a file to its reader; nothing is kept.
void ReadLog(const std::string& path, std::function<void(std::string_view)> reader);
/// Readers and drills end with the world that asked for them.
void ForgetSystem();

/// Pieces of memory that are out, of the program and of what host and plug-in give each other.
[[nodiscard]] std::size_t BlocksInUse();

/// The computer's clocks over the scheduler's time. The wall clock can be wrong; the true time is that of the world.
class VirtualTime final : public platform::Clock {
 public:
  VirtualTime(std::int64_t startUtcMs, std::uint32_t startTick) : start_(startUtcMs), startTick_(startTick) {}

  std::uint32_t TickCount() override;
  std::int64_t UtcMilliseconds() override;
  void Sleep(std::uint32_t milliseconds) override;

  [[nodiscard]] std::int64_t True() const;
  [[nodiscard]] std::int64_t Start() const;
  void SetWrongBy(std::int64_t milliseconds) { jump_ = milliseconds; }

 private:
  std::int64_t start_;
  std::uint32_t startTick_;
  std::int64_t jump_ = 0;
};

}  // namespace ostrel::campaign
