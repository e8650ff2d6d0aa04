// What a call says when it fails for its user's mistake.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "host/session/Failure.h"

namespace ostrel::host {

/// The message, "accepted" when there is none.
template <class Call>
std::string FailureOf(const Call& call) {
  try {
    call();
    return "accepted";
  } catch (const Failure& failure) {
    EXPECT_EQ(kExitUsage, failure.Code());
    return failure.what();
  }
}

}  // namespace ostrel::host
