#include "simulator/program/FaultFile.h"

#include <toml++/toml.h>

#include <limits>

namespace ostrel::sim {
namespace {

/// Goes through a file's keys and remembers the first thing that is wrong.
class FaultReader {
 public:
  FaultReader(const std::string& path, std::string& error) : path_(path), error_(error) {}

  bool ReadPlan(const toml::table& file, FaultPlan& plan) {
    for (const auto& [key, value] : file) {
      if (key == "seed") {
        ReadNumber(key, value, std::numeric_limits<std::int64_t>::max(), plan.seed);
      } else if (key == "in_order" && value.is_boolean()) {
        plan.inOrder = *value.value<bool>();
      } else if (key == "fault" && value.is_array_of_tables()) {
        for (const toml::node& each : *value.as_array()) ReadFault(*each.as_table(), plan);
      } else {
        Fail(key, value, "is not known here (seed, in_order, [[fault]])");
      }
    }
    return error_.empty();
  }

 private:
  void ReadFault(const toml::table& table, FaultPlan& plan) {
    constexpr std::int64_t kMost = std::numeric_limits<std::int32_t>::max();
    Fault fault;
    for (const auto& [key, value] : table) {
      if (key == "kind") {
        ReadKind(key, value, fault);
      } else if (key == "every") {
        ReadNumber(key, value, kMost, fault.every);
      } else if (key == "chance") {
        ReadChance(key, value, fault);
      } else if (key == "bytes") {
        ReadNumber(key, value, kMost, fault.bytes);
      } else if (key == "ms") {
        ReadNumber(key, value, kMost, fault.ms);
      } else if (key == "spread") {
        ReadNumber(key, value, kMost, fault.spread);
      } else if (key == "address") {
        ReadNumber(key, value, 254, fault.address);
      } else {
        Fail(key, value, "is not known here (kind, every, chance, bytes, ms, spread, address)");
      }
    }
    if (!table.contains("kind")) Fail("kind", table, "is missing");
    plan.faults.push_back(fault);
  }

  void ReadKind(const toml::key& key, const toml::node& value, Fault& fault) {
    const auto name = value.value<std::string_view>();
    const auto kind = name ? FaultKindFromName(*name) : std::nullopt;
    if (!kind) return Fail(key, value, "is no kind of fault");
    fault.kind = *kind;
  }

  void ReadChance(const toml::key& key, const toml::node& value, Fault& fault) {
    const auto chance = value.value<double>();
    if (!chance || !(*chance > 0 && *chance <= 1)) return Fail(key, value, "is not above 0 and at most 1");
    fault.chance = *chance;
  }

  template <typename Number>
  void ReadNumber(const toml::key& key, const toml::node& value, std::int64_t most, Number& number) {
    const auto given = value.value_exact<std::int64_t>();
    if (!given || *given < 0 || *given > most) return Fail(key, value, "is not a number from 0 to " + std::to_string(most));
    number = static_cast<Number>(*given);
  }

  void Fail(std::string_view key, const toml::node& at, const std::string& why) {
    if (!error_.empty()) return;
    error_ = path_ + ":" + std::to_string(at.source().begin.line) + ": " + std::string(key) + " " + why;
  }

  const std::string& path_;
  std::string& error_;
};

}  // namespace

bool LoadFaultFile(const std::string& path, FaultPlan& plan, std::string& error) {
  const toml::parse_result file = toml::parse_file(path);
  if (!file) {
    const toml::parse_error& failure = file.error();
    error = path + ":" + std::to_string(failure.source().begin.line) + ": " + std::string(failure.description());
    return false;
  }
  return FaultReader(path, error).ReadPlan(file.table(), plan);
}

}  // namespace ostrel::sim
