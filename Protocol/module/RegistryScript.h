// Reads and runs a registry script where the system has no component registrar:
//
//   HKCR
//   {
//     [NoRemove|ForceRemove] KEY [= s 'TEXT']
//     {
//       val NAME = s 'TEXT'
//       KEY ...
//     }
//   }
//
// %NAME% in a text stands for a replacement, '' for one quote. ForceRemove empties the key before it is written and takes
// everything below away when it goes; NoRemove leaves the key where it is.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ostrel {

/// The module's own script, compiled in.
extern const std::string_view kModuleScript;

enum class KeyRemoval { WhenEmpty, Never, WithSubtree };

struct ScriptKey {
  std::string path;
  KeyRemoval removal = KeyRemoval::WhenEmpty;
  /// By value name; the default text has the empty name.
  std::map<std::string, std::string> texts = {};
};

class RegistryScript {
 public:
  using Replacements = std::map<std::string, std::string>;

  /// Nothing when the script is not of the form above.
  [[nodiscard]] static std::optional<RegistryScript> Parse(std::string_view script);

  [[nodiscard]] bool Register(const Replacements& replacements) const;
  [[nodiscard]] bool Unregister() const;
  /// Every key before those below it.
  [[nodiscard]] const std::vector<ScriptKey>& Keys() const { return keys_; }

 private:
  std::vector<ScriptKey> keys_;
};

}  // namespace ostrel
