#include "platform/registry.h"

#include "platform/text.h"

namespace ostrel::platform {
namespace {

class Key {
 public:
  Key(const std::string& path, REGSAM access) : result_(::RegOpenKeyExA(HKEY_CLASSES_ROOT, path.c_str(), 0, access, &key_)) {}
  explicit Key(const std::string& path) : result_(::RegOpenKeyA(HKEY_CLASSES_ROOT, path.c_str(), &key_)) {
    if (result_ != ERROR_SUCCESS) result_ = ::RegCreateKeyA(HKEY_CLASSES_ROOT, path.c_str(), &key_);
  }
  Key(const Key&) = delete;
  Key& operator=(const Key&) = delete;
  ~Key() {
    if (Open()) ::RegCloseKey(key_);
  }
  [[nodiscard]] bool Open() const { return result_ == ERROR_SUCCESS; }
  [[nodiscard]] HKEY Handle() const { return key_; }

 private:
  HKEY key_ = nullptr;
  LSTATUS result_;
};

/// Key names are shorter than this.
constexpr DWORD kLongestKey = 256;

using DeleteKeyEx = LSTATUS(WINAPI*)(HKEY, LPCSTR, REGSAM, DWORD);

/// Newer systems delete a key by its view; older ones lack the call.
DeleteKeyEx FindDeleteKeyEx() {
  const HMODULE library = ::GetModuleHandleA("Advapi32.dll");
  return library == nullptr
             ? nullptr
             : reinterpret_cast<DeleteKeyEx>(reinterpret_cast<void*>(::GetProcAddress(library, "RegDeleteKeyExA")));
}

LSTATUS DeleteEmptyKey(HKEY parent, const char* name) {
  static const DeleteKeyEx deleteKeyEx = FindDeleteKeyEx();
  // No view is asked for: keys stand in that of the running program.
  return deleteKeyEx != nullptr ? deleteKeyEx(parent, name, 0, 0) : ::RegDeleteKeyA(parent, name);
}

LSTATUS DeleteTree(HKEY parent, const char* name) {
  HKEY key = nullptr;
  LSTATUS result = ::RegOpenKeyExA(parent, name, 0, KEY_READ | KEY_WRITE, &key);
  if (result != ERROR_SUCCESS) return result;
  while (result == ERROR_SUCCESS) {
    char child[kLongestKey + 1];
    DWORD size = sizeof child;
    if (::RegEnumKeyExA(key, 0, child, &size, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) break;
    result = DeleteTree(key, child);
  }
  ::RegCloseKey(key);
  return result == ERROR_SUCCESS ? DeleteEmptyKey(parent, name) : result;
}

}  // namespace

bool RegistryKeyExists(const std::string& path) { return Key(path, KEY_READ).Open(); }

std::vector<std::string> RegistrySubkeys(const std::string& path) {
  std::vector<std::string> subkeys;
  const Key key(path, KEY_READ);
  char name[kLongestKey + 1];
  DWORD size = sizeof name;
  while (key.Open() && ::RegEnumKeyExA(key.Handle(), static_cast<DWORD>(subkeys.size()), name, &size, nullptr, nullptr, nullptr,
                                       nullptr) == ERROR_SUCCESS) {
    subkeys.emplace_back(name, size);
    size = sizeof name;
  }
  return subkeys;
}

std::optional<std::string> RegistryText(const std::string& path, const std::string& name) {
  const OleString widePath = Utf8ToOle(path);
  const OleString wideName = Utf8ToOle(name);
  DWORD bytes = 0;
  const auto get = [&](wchar_t* text) {
    return ::RegGetValueW(HKEY_CLASSES_ROOT, widePath.c_str(), wideName.c_str(), RRF_RT_REG_SZ, nullptr, text, &bytes);
  };
  if (get(nullptr) != ERROR_SUCCESS) return std::nullopt;
  OleString text(bytes / sizeof(wchar_t), L'\0');
  if (get(text.data()) != ERROR_SUCCESS) return std::nullopt;
  // The size counts the terminator.
  return OleToUtf8(text.c_str());
}

bool CreateRegistryKey(const std::string& path) { return Key(path).Open(); }

bool SetRegistryText(const std::string& path, const std::string& name, const std::string& text) {
  const Key key(path);
  const OleString data = Utf8ToOle(text);
  const auto bytes = static_cast<DWORD>((data.size() + 1) * sizeof(wchar_t));
  return key.Open() && ::RegSetValueExW(key.Handle(), Utf8ToOle(name).c_str(), 0, REG_SZ,
                                        reinterpret_cast<const BYTE*>(data.c_str()), bytes) == ERROR_SUCCESS;
}

bool DeleteRegistryTree(const std::string& path) {
  const LSTATUS result = DeleteTree(HKEY_CLASSES_ROOT, path.c_str());
  return result == ERROR_SUCCESS || result == ERROR_FILE_NOT_FOUND;
}

}  // namespace ostrel::platform
