// One expected request of a scripted line, and what comes back.
#pragma once

#include <cstdint>
#include <deque>
#include <initializer_list>
#include <string_view>
#include <utility>

#include "platform/com.h"
#include "tests/support/Hex.h"

namespace ostrel::test {

class Expectation {
 public:
  explicit Expectation(Bytes request) : request_(std::move(request)) {}

  Expectation& Answer(std::string_view hex) { return Deliver({Frame(hex)}); }
  Expectation& AnswerRaw(std::string_view hex) { return Deliver({Hex(hex)}); }
  /// The pieces make one frame; its check goes to the end of the last piece.
  Expectation& AnswerInPieces(std::initializer_list<std::string_view> pieces);
  Expectation& AnswerInRawPieces(std::initializer_list<std::string_view> pieces);
  Expectation& Silence() { return Deliver({}); }
  /// The Read after the request fails with this result.
  Expectation& ReadFails(HRESULT result = E_FAIL);
  /// The line is in this state from the request on.
  Expectation& StateBecomes(std::uint32_t state);
  Expectation& Times(int count);

 private:
  friend class ScriptedLine;
  Expectation& Deliver(std::deque<Bytes> pieces);

  Bytes request_;
  std::deque<Bytes> pieces_;
  HRESULT readResult_ = S_OK;
  bool changesState_ = false;
  std::uint32_t state_ = 0;
  int left_ = 1;
};

}  // namespace ostrel::test
