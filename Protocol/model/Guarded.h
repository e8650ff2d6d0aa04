// The border to other people's code: a host of another compiler cannot catch what we throw, and on a thread of ours nobody
// would. Every operation of an interface that may ask for memory, and every export, runs in here.
#pragma once

namespace ostrel {

/// What `operation` gives, or `failure` when memory was too short for it.
template <class Result, class Operation>
Result Guarded(Result failure, Operation operation) noexcept {
  try {
    return operation();
  } catch (...) {
    return failure;
  }
}

}  // namespace ostrel
