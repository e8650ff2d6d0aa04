#include "host/session/Failure.h"

#include <fmt/format.h>

#include <utility>

namespace ostrel::host {
namespace {

constexpr std::pair<ExitCode, const char*> kTexts[] = {
    {kExitDone, "done"},
    {kExitUsage, "wrong usage or configuration; nothing was sent"},
    {kExitUnanswered, "a meter did not answer or refused"},
    {kExitPort, "the port could not be opened"},
    {kExitOutput, "results or a log could not be written"},
    {kExitInternal, "an error of the program itself"},
    {kExitInterrupted, "interrupted before the end"},
};

}  // namespace

std::string ExitCodeList() {
  std::string list = "Exit codes:";
  for (const auto& [code, text] : kTexts) list += fmt::format("\n  {:<4} {}", static_cast<int>(code), text);
  return list;
}

std::string ExitCodeText(ExitCode code) {
  for (const auto& [each, text] : kTexts) {
    if (each == code) return text;
  }
  return {};
}

}  // namespace ostrel::host
