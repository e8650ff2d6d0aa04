#include "host/ports/PortDirectory.h"

#include <utility>

namespace ostrel::host {

void PortDirectory::Set(const std::string& port, PortEntry entry) {
  entry.owed = std::make_shared<OwedAnswers>(entry.late);
  const std::lock_guard lock(mutex_);
  entries_.insert_or_assign(port, std::move(entry));
}

std::optional<PortEntry> PortDirectory::Find(const std::string& port) const {
  const std::lock_guard lock(mutex_);
  const auto found = entries_.find(port);
  return found == entries_.end() ? std::nullopt : std::optional(found->second);
}

void PortDirectory::SetProblem(const std::string& port, const std::string& problem) {
  const std::lock_guard lock(mutex_);
  problems_[port] = problem;
}

std::string PortDirectory::Problem(const std::string& port) const {
  const std::lock_guard lock(mutex_);
  const auto found = problems_.find(port);
  return found == problems_.end() ? std::string() : found->second;
}

}  // namespace ostrel::host
