// Where classes and plug-ins are registered: a tree of keys with named texts. On Windows it is HKEY_CLASSES_ROOT; elsewhere
// a small file of the user, ostrel/registry in the configuration directory, or the file that OSTREL_REGISTRY names.
//
// Paths are keys joined by backslashes, ASCII; data are UTF-8. Keys and names compare without regard to case and keep the
// spelling that they were made with. The default text of a key has the empty name.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace ostrel::platform {

[[nodiscard]] bool RegistryKeyExists(const std::string& path);
/// Subkeys by their own names; none for a missing key.
[[nodiscard]] std::vector<std::string> RegistrySubkeys(const std::string& path);
[[nodiscard]] std::optional<std::string> RegistryText(const std::string& path, const std::string& name);

/// Makes the key and those above it; a key that is there already is left as it is. The changes report failure by false.
bool CreateRegistryKey(const std::string& path);
bool SetRegistryText(const std::string& path, const std::string& name, const std::string& text);
/// Deletes the key with everything below it. A missing key is no failure.
bool DeleteRegistryTree(const std::string& path);

}  // namespace ostrel::platform
