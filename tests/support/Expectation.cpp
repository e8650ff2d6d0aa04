#include "tests/support/Expectation.h"

namespace ostrel::test {

Expectation& Expectation::Deliver(std::deque<Bytes> pieces) {
  pieces_ = std::move(pieces);
  return *this;
}

Expectation& Expectation::AnswerInPieces(std::initializer_list<std::string_view> pieces) {
  Bytes whole;
  for (const std::string_view piece : pieces) {
    const Bytes bytes = Hex(piece);
    whole.insert(whole.end(), bytes.begin(), bytes.end());
  }
  const Bytes framed = WithCheck(whole);
  AnswerInRawPieces(pieces);
  pieces_.back().insert(pieces_.back().end(), framed.end() - 2, framed.end());
  return *this;
}

Expectation& Expectation::AnswerInRawPieces(std::initializer_list<std::string_view> pieces) {
  std::deque<Bytes> list;
  for (const std::string_view piece : pieces) list.push_back(Hex(piece));
  return Deliver(std::move(list));
}

Expectation& Expectation::ReadFails(HRESULT result) {
  readResult_ = result;
  return *this;
}

Expectation& Expectation::StateBecomes(std::uint32_t state) {
  changesState_ = true;
  state_ = state;
  return *this;
}

Expectation& Expectation::Times(int count) {
  left_ = count;
  return *this;
}

}  // namespace ostrel::test
