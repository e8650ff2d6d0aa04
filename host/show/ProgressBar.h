// A line on standard error that tells how far a long reading is: a bar on a terminal, elsewhere a line every ten seconds.
#pragma once

#include <cstdint>
#include <string>

namespace ostrel::host {

class ProgressBar {
 public:
  ProgressBar();
  ~ProgressBar() { Hide(); }
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  /// Starts the time that what is left is judged by.
  void Begin(const std::string& what);
  void Show(std::size_t done, std::size_t expected);
  /// Takes the line away, before anything else is printed.
  void Hide();

 private:
  void ShowLine(std::size_t done, std::size_t expected);

  const bool visible_;
  bool shown_ = false;
  std::string what_;
  std::uint32_t begun_ = 0;
  std::uint32_t said_;  // when the last line was
};

/// "A+ Day: 12 of 48, 1:05 left"; without the time as long as nothing can be said of it.
[[nodiscard]] std::string ProgressText(const std::string& what, std::size_t done, std::size_t expected, std::uint32_t elapsedMs);

}  // namespace ostrel::host
