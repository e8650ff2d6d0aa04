// ostrel-host types and tags: what the plug-in says of itself, without any meter.
#include <fmt/format.h>

#include <charconv>

#include "host/program/Commands.h"
#include "host/session/Catalogue.h"
#include "host/session/Plugin.h"
#include "host/show/JsonLines.h"
#include "host/show/LiveTable.h"
#include "host/show/Output.h"

namespace ostrel::host {
namespace {

constexpr std::size_t kNameWidth = 36;

std::variant<std::uint32_t, std::string> TypeOf(const std::string& text) {
  std::uint32_t id = 0;
  const auto read = std::from_chars(text.data(), text.data() + text.size(), id);
  if (read.ec == std::errc() && read.ptr == text.data() + text.size()) return id;
  return text;
}

std::string TagLine(std::uint32_t branch, const TagDefinition& tag) {
  const char* const access = branch == kBranchHda ? "" : tag.Writable() ? "rw" : tag.descriptor[kColumnAccess] != 0 ? "r " : "- ";
  return fmt::format("{}  {} {:6} {} {}\n", tag.id, Padded(tag.name, kNameWidth), DataTypeText(tag.DataType()), access,
                     tag.description);
}

}  // namespace

ExitCode CommandTypes(const CommonOptions& options) {
  const Plugin plugin = Plugin::Load(options.module);
  const ComPointer<IProtocol> protocol = plugin.CreateProtocol();
  for (const MeterType& type : ReadMeterTypes(*protocol)) {
    Print(options.json ? TypeJson(type) + '\n' : fmt::format("{:2}  {} {}\n", type.id, Padded(type.name, 14), type.display));
  }
  return kExitDone;
}

ExitCode CommandTags(const TagsOptions& options) {
  const Plugin plugin = Plugin::Load(options.common.module);
  const ComPointer<IProtocol> protocol = plugin.CreateProtocol();
  const std::uint32_t branch = options.branch == "hda" ? kBranchHda : kBranchDa;
  const std::vector<MeterType> types = ReadMeterTypes(*protocol);
  const MeterType& type = FindMeterType(types, TypeOf(options.type));
  for (const TagDefinition& tag : ReadTagDefinitions(*protocol, type.id, branch)) {
    Print(options.common.json ? TagDefinitionJson(branch, tag) + '\n' : TagLine(branch, tag));
  }
  return kExitDone;
}

ExitCode CommandRegister(const CommonOptions& options, bool enter) {
  const std::string module = RegisterPlugin(options.module, enter);
  fmt::print(stderr, "{} {}\n", module, enter ? "is registered" : "is not registered any more");
  return kExitDone;
}

}  // namespace ostrel::host
