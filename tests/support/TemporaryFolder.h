// A folder that lives as long as its test, and the text files in it.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace ostrel::test {

class TemporaryFolder {
 public:
  TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  ~TemporaryFolder();

  [[nodiscard]] std::string File(std::string_view name) const;

 private:
  std::filesystem::path path_;
};

/// The bytes of a file; empty when it is missing.
[[nodiscard]] std::string ReadBytes(const std::string& path);
void WriteBytes(const std::string& path, std::string_view bytes);
/// Lines that end with CR LF. Bytes behind the last one fail the test.
[[nodiscard]] std::vector<std::string> ReadLines(const std::string& path);

}  // namespace ostrel::test
