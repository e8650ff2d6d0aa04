#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <iterator>

#include "platform/thread.h"

namespace ostrel::test {

TemporaryFolder::TemporaryFolder() {
  static std::atomic<int> count{0};
  const std::string name = "ostrel-" + std::to_string(platform::CurrentProcessId()) + "-" + std::to_string(++count);
  path_ = std::filesystem::temp_directory_path() / name;
  std::filesystem::remove_all(path_);
  std::filesystem::create_directory(path_);
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string TemporaryFolder::File(std::string_view name) const { return (path_ / name).string(); }

std::string ReadBytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void WriteBytes(const std::string& path, std::string_view bytes) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

std::vector<std::string> ReadLines(const std::string& path) {
  const std::string text = ReadBytes(path);
  std::vector<std::string> lines;
  std::size_t start = 0;
  for (std::size_t end = text.find("\r\n"); end != std::string::npos; end = text.find("\r\n", start)) {
    lines.push_back(text.substr(start, end - start));
    start = end + 2;
  }
  EXPECT_EQ(text.size(), start) << "a line without its end in " << path;
  return lines;
}

}  // namespace ostrel::test
