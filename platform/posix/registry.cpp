#include "platform/registry.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <functional>
#include <iterator>

#include "platform/posix/registry_file.h"

namespace ostrel::platform {
namespace {

/// One process at a time changes the file.
class ChangeLock {
 public:
  explicit ChangeLock(std::filesystem::path file) {
    file += ".lock";
    descriptor_ = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    locked_ = descriptor_ >= 0 && ::flock(descriptor_, LOCK_EX) == 0;
  }
  ChangeLock(const ChangeLock&) = delete;
  ChangeLock& operator=(const ChangeLock&) = delete;
  ~ChangeLock() {
    if (descriptor_ >= 0) ::close(descriptor_);
  }
  [[nodiscard]] bool Locked() const { return locked_; }

 private:
  int descriptor_ = -1;
  bool locked_ = false;
};

bool Change(const std::function<void(RegistryKeys&)>& change) {
  const std::filesystem::path file = RegistryFile();
  if (file.empty()) return false;
  std::error_code ignored;
  std::filesystem::create_directories(file.parent_path(), ignored);
  const ChangeLock lock(file);
  auto keys = lock.Locked() ? ReadRegistryFile(file) : std::nullopt;
  if (!keys) return false;
  change(*keys);
  return WriteRegistryFile(file, *keys);
}

RegistryKeys Keys() { return ReadRegistryFile(RegistryFile()).value_or(RegistryKeys()); }

RegistryTexts& Made(RegistryKeys& keys, const std::string& path) {
  for (std::size_t end = path.find('\\'); end != std::string::npos; end = path.find('\\', end + 1)) {
    keys.try_emplace(path.substr(0, end));
  }
  return keys[path];
}

/// The keys below `path` stand next to each other, as they begin with the same text.
template <typename Keys>
auto Below(Keys& keys, const std::string& path) {
  const std::string first = path + '\\';
  const std::string behind = path + static_cast<char>('\\' + 1);
  return std::pair(keys.lower_bound(first), keys.lower_bound(behind));
}

}  // namespace

bool RegistryKeyExists(const std::string& path) { return Keys().contains(path); }

std::vector<std::string> RegistrySubkeys(const std::string& path) {
  const RegistryKeys keys = Keys();
  std::vector<std::string> subkeys;
  const auto [first, behind] = Below(keys, path);
  for (auto key = first; key != behind; ++key) {
    std::string name = key->first.substr(path.size() + 1);
    if (name.find('\\') == std::string::npos) subkeys.push_back(std::move(name));
  }
  return subkeys;
}

std::optional<std::string> RegistryText(const std::string& path, const std::string& name) {
  const RegistryKeys keys = Keys();
  const auto key = keys.find(path);
  if (key == keys.end()) return std::nullopt;
  const auto text = key->second.find(name);
  return text == key->second.end() ? std::nullopt : std::optional(text->second);
}

bool CreateRegistryKey(const std::string& path) {
  return Change([&](RegistryKeys& keys) { Made(keys, path); });
}

bool SetRegistryText(const std::string& path, const std::string& name, const std::string& text) {
  return Change([&](RegistryKeys& keys) { Made(keys, path)[name] = text; });
}

bool DeleteRegistryTree(const std::string& path) {
  return Change([&](RegistryKeys& keys) {
    const auto [first, behind] = Below(keys, path);
    keys.erase(first, behind);
    keys.erase(path);
  });
}

}  // namespace ostrel::platform
