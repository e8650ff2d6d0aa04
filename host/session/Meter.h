// One meter of a channel as the host sees it: its configuration record and its tags.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Protocol/model/DeviceEntry.h"
#include "host/session/Catalogue.h"
#include "host/session/Config.h"
#include "host/session/TagValue.h"

namespace ostrel::host {

struct PolledTag {
  const TagDefinition& definition;   // one of the meter's
  CDeviceTag* tag = nullptr;         // the plug-in's from AddTag on
  bool readOnly = false;             // by the configuration
  std::optional<FILETIME> lastGood;  // when it had quality 192 last
};

struct Meter {
  MeterConfig config;
  MeterType type;
  std::shared_ptr<const std::vector<TagDefinition>> definitions;
  std::uint32_t index = 0;            // in the plug-in's table
  std::vector<PolledTag> tags;        // every tag of the type
  std::vector<std::size_t> selected;  // those in use, as indices into `tags`

  /// By name or id. Throws Failure (usage).
  [[nodiscard]] std::size_t FindTag(const std::string& text) const;
  [[nodiscard]] const PolledTag* TagById(std::uint32_t id) const;
};

/// The record that AddDevice takes.
[[nodiscard]] DeviceConfig MakeDeviceConfig(const MeterConfig& config, std::uint32_t typeId);

/// Makes a new tag what the plug-in wants: identity, descriptor and an empty value of its type.
void FillTag(CDeviceTag& tag, std::uint32_t number, const std::array<std::uint32_t, 10>& descriptor, std::uint32_t portNumber,
             std::uint32_t address);

/// A tag of a definition that outlives it.
[[nodiscard]] PolledTag MakeTag(const TagDefinition& definition, std::uint32_t portNumber, std::uint32_t address);

/// Value, quality and time; no value unless the quality is good. The caller holds PollLock, so that no pass writes meanwhile.
[[nodiscard]] TagReading ReadTag(PolledTag& tag);
/// Brings an earlier reading of the tag up to date; what did not change is not copied. The caller holds PollLock.
void Refresh(PolledTag& tag, TagReading& reading);

/// Digits behind the first three characters of a port's name; 0 when there are none.
[[nodiscard]] std::uint32_t PortNumberOf(const std::string& port);

}  // namespace ostrel::host
