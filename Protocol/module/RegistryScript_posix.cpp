#include <algorithm>
#include <utility>

#include "Protocol/module/RegistryScript.h"
#include "platform/registry.h"

namespace ostrel {
namespace {

constexpr std::string_view kBlanks = " \t\r\n";

struct Token {
  std::string text;
  bool quoted = false;
  [[nodiscard]] bool operator==(std::string_view word) const { return !quoted && text == word; }
};

class Parser {
 public:
  explicit Parser(std::string_view script) : left_(script) { Advance(); }

  /// False at the first thing that is not of the form.
  bool ParseScript(std::vector<ScriptKey>& keys) {
    return (Take("HKCR") || Take("HKEY_CLASSES_ROOT")) && ParseBlock("", nullptr, keys) && AtEnd();
  }

 private:
  [[nodiscard]] bool AtEnd() const { return token_.text.empty() && !token_.quoted && sound_; }

  void Advance() {
    left_.remove_prefix(std::min(left_.find_first_not_of(kBlanks), left_.size()));
    token_ = {};
    if (left_.starts_with('\'')) {
      AdvanceQuoted();
    } else {
      token_.text = left_.substr(0, left_.find_first_of(kBlanks));
      left_.remove_prefix(token_.text.size());
    }
  }

  void AdvanceQuoted() {
    token_.quoted = true;
    do {
      const std::size_t end = left_.find('\'', 1);
      sound_ = sound_ && end != std::string_view::npos;
      if (!sound_) return;
      token_.text += left_.substr(1, end - 1);
      left_.remove_prefix(end + 1);
      if (left_.starts_with('\'')) token_.text += '\'';
    } while (left_.starts_with('\''));
  }

  bool Take(std::string_view word) {
    if (!(token_ == word)) return false;
    Advance();
    return true;
  }

  bool TakeName(std::string& name) {
    name = token_.text;
    const bool isName = !name.empty() && !(token_ == "{") && !(token_ == "}") && !(token_ == "=");
    Advance();
    return isName && sound_;
  }

  bool TakeText(std::string& text) {
    if (!Take("s") || !token_.quoted) return false;
    text = token_.text;
    Advance();
    return sound_;
  }

  /// { ... } with values of `owner` and the keys below `path`.
  bool ParseBlock(const std::string& path, const std::size_t* owner, std::vector<ScriptKey>& keys) {
    if (!Take("{")) return false;
    while (!Take("}")) {
      const bool understood = Take("val") ? owner != nullptr && ParseValue(keys[*owner]) : ParseKey(path, keys);
      if (!understood) return false;
    }
    return sound_;
  }

  bool ParseValue(ScriptKey& key) {
    std::string name;
    return TakeName(name) && Take("=") && TakeText(key.texts[name]);
  }

  bool ParseKey(const std::string& above, std::vector<ScriptKey>& keys) {
    ScriptKey key;
    if (Take("NoRemove")) key.removal = KeyRemoval::Never;
    if (Take("ForceRemove")) key.removal = KeyRemoval::WithSubtree;
    std::string name;
    if (!TakeName(name) || (Take("=") && !TakeText(key.texts[""]))) return false;
    key.path = above.empty() ? name : above + '\\' + name;
    const std::string path = key.path;
    const std::size_t index = keys.size();
    keys.push_back(std::move(key));
    return !(token_ == "{") || ParseBlock(path, &index, keys);
  }

  std::string_view left_;
  Token token_;
  bool sound_ = true;
};

std::string Replaced(std::string text, const RegistryScript::Replacements& replacements) {
  std::string done;
  for (std::size_t sign = text.find('%'); sign != std::string::npos; sign = text.find('%')) {
    const std::size_t end = text.find('%', sign + 1);
    if (end == std::string::npos) break;
    const auto found = replacements.find(text.substr(sign + 1, end - sign - 1));
    done += text.substr(0, sign) + (found != replacements.end() ? found->second : "");
    text.erase(0, end + 1);
  }
  return done + text;
}

bool Write(const ScriptKey& key, const RegistryScript::Replacements& replacements) {
  bool done = key.removal != KeyRemoval::WithSubtree || platform::DeleteRegistryTree(key.path);
  done = done && platform::CreateRegistryKey(key.path);
  for (const auto& [name, text] : key.texts) {
    done = done && platform::SetRegistryText(key.path, name, Replaced(text, replacements));
  }
  return done;
}

bool Remove(const ScriptKey& key) {
  const bool keep =
      key.removal == KeyRemoval::Never || (key.removal == KeyRemoval::WhenEmpty && !platform::RegistrySubkeys(key.path).empty());
  return keep || platform::DeleteRegistryTree(key.path);
}

}  // namespace

std::optional<RegistryScript> RegistryScript::Parse(std::string_view script) {
  RegistryScript parsed;
  return Parser(script).ParseScript(parsed.keys_) ? std::optional(std::move(parsed)) : std::nullopt;
}

bool RegistryScript::Register(const Replacements& replacements) const {
  bool done = true;
  for (const ScriptKey& key : keys_) done = done && Write(key, replacements);
  return done;
}

bool RegistryScript::Unregister() const {
  bool done = true;
  std::for_each(keys_.rbegin(), keys_.rend(), [&done](const ScriptKey& key) { done = Remove(key) && done; });
  return done;
}

}  // namespace ostrel
