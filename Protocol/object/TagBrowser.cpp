// The tag namespace as the host walks it: names by meter type, descriptors, descriptions. Answers come from the catalogue
// and the module's strings alone.
#include <algorithm>

#include "Protocol/model/Guarded.h"
#include "Protocol/model/TagCatalogue.h"
#include "Protocol/object/CProtocol.h"
#include "platform/resources.h"

namespace ostrel {
namespace {

struct Branch {
  std::uint32_t firstId;
  std::uint32_t lastId;
  bool (*supports)(std::uint32_t meterType, std::uint32_t id);
};

/// By branch number.
constexpr Branch kBranches[] = {
    {.firstId = kFirstDaId, .lastId = kLastDaId, .supports = SupportsDaTag},
    {.firstId = kFirstHdaId, .lastId = kLastHdaId, .supports = SupportsHdaTag},
};

const Branch* FindBranch(std::uint32_t branch) { return branch < std::size(kBranches) ? &kBranches[branch] : nullptr; }

void CopyDescriptor(const TagDescriptor& row, std::uint32_t* output) {
  const std::uint32_t columns[] = {row.DataType, row.Code,        row.Param,      row.SubParam, row.RequestLength,
                                   row.Access,   row.WriteLength, row.WriteParam, row.Aux,      row.ExpectedLength};
  std::ranges::copy(columns, output);
}

std::uint32_t LoadText(std::uint32_t id, char* buffer) {
  return Guarded(0U, [&] { return platform::LoadModuleString(id, buffer, kNameBuffer) ? 1U : 0U; });
}

}  // namespace

std::uint32_t STDMETHODCALLTYPE CProtocol::GetTagName(std::uint32_t id, std::uint32_t meterType, std::uint32_t branch,
                                                      char* buffer, std::uint32_t /*unused*/) {
  const Branch* const found = FindBranch(branch);
  if (found != nullptr && id > found->lastId) return 0;
  if (buffer == nullptr) return 0;
  if (found == nullptr || !found->supports(meterType, id)) {
    buffer[0] = '\0';
    return 1;
  }
  return LoadText(id, buffer);
}

std::uint32_t STDMETHODCALLTYPE CProtocol::GetFirstTagId(std::uint32_t branch) {
  const Branch* const found = FindBranch(branch);
  return found != nullptr ? found->firstId : 0;
}

std::uint32_t STDMETHODCALLTYPE CProtocol::Reserved(std::uint32_t /*first*/, std::uint32_t /*second*/) { return 0; }

std::uint32_t STDMETHODCALLTYPE CProtocol::GetTagDescriptor(std::uint32_t index, std::uint32_t branch, std::uint32_t /*unused*/,
                                                            std::uint32_t* output) {
  if (output == nullptr) return 1;
  if (branch == kBranchDa && index < kDaTagCount) CopyDescriptor(TagDescriptors()[index], output);
  if (branch == kBranchHda && index < kHdaTagCount) output[0] = HistoryDataTypes()[index];
  return 1;
}

std::uint32_t STDMETHODCALLTYPE CProtocol::GetTagDescription(std::uint32_t index, std::uint32_t /*unused*/, char* buffer) {
  if (buffer == nullptr) return 0;
  if (LoadText(kFirstDescriptionId + index, buffer) != 0) return 1;
  buffer[0] = '\0';
  return 0;
}

}  // namespace ostrel
