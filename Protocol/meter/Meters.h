// The meters of a line, with what is known of their variants.
#pragma once

#include <map>

#include "Protocol/link/Line.h"
#include "Protocol/model/VariantMap.h"

namespace ostrel {

class Meters : public Line {
 public:
  Meters() : VariantMap(MakeVariantMap()) {}

  std::map<VariantKey, VariantInfo> VariantMap;  // grows by unknown variants; guarded by ExchangeLock

 protected:
  ~Meters() = default;
};

}  // namespace ostrel
