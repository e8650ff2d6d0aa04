// The meters of a line, with what is known of their variants.
#pragma once

#include <map>

#include "Protocol/link/Line.h"
#include "Protocol/model/VariantMap.h"
#include "platform/critical_section.h"

namespace ostrel {

class Meters : public Line {
 public:
  Meters() : VariantMap(MakeVariantMap()) {}

  /// Guards the meters' profile stores and header addresses with what history keeps of them, and the table for who only looks a
  /// meter up; never held across a request, and nothing is taken or asked while it is.
  platform::FairSection ProfileDataLock;
  std::map<VariantKey, VariantInfo> VariantMap;  // grows by unknown variants; guarded by ExchangeLock

 protected:
  ~Meters() = default;
};

}  // namespace ostrel
