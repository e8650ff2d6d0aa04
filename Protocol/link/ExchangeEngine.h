// The one loop that sends a request and gathers its answer. Six operations use it with small differences, which are
// values of a policy; what each does after the loop (report, link state, decoding) stays with the operation, since the
// orders differ.
//
// The loop counts a pass as a try when nothing of an answer is left in the buffer after it, so an answer that comes in
// pieces is gathered however few tries there are. Answers with a bad check count as incomplete: reading goes on until a
// pass brings nothing, or for too long, and the request is sent again. Once the poll thread is to stop, it gathers no more.
#pragma once

#include <cstdint>
#include <span>

namespace ostrel {

class Line;

/// What a four-byte answer with the status "access channel closed" leads to, if it is the whole answer.
enum class OnClosedChannel { Validate, OpenLevel1, OpenAccess };
/// Where a busy answer is recognised; it counts as a try in any case.
enum class OnBusy { Validate, RetryBeforeCheck, RetryAfterCheck };

/// An answer may be gathered for as long as the longest one takes on the line, with this many time-outs on top. Stray bytes
/// would otherwise hold the line, and everybody who waits for it, for as long as they go on.
inline constexpr std::uint32_t kGatherTimeouts = 4;

/// A meter that grants access but keeps answering that its channel is closed would hold the line for ever, and Stop with
/// it. After this many openings in one transaction the access counts as failed.
inline constexpr int kMaxReopenings = 8;

struct ExchangePolicy {
  std::uint32_t room;            // bytes asked for at the start; a continuation asks for the rest
  std::uint32_t expectedLength;  // given to ValidateAnswer; 0 = any
  bool lowersRetryCountWhenStopped;
  OnClosedChannel onClosedChannel;
  OnBusy onBusy;
  std::uint32_t pauseAfterRejectedMs;
  std::uint32_t* keptLength;  // counts the bytes of the answer, or null
};

struct [[nodiscard]] ExchangeOutcome {
  bool valid;
  std::uint8_t code;       // last AnswerCheck, 4 after silence, 0 before the first result
  std::uint32_t received;  // bytes of the valid answer, 0 otherwise
};

/// Sends `request` to the meter until a valid answer stands in `answer` (at least policy.room bytes) or the tries are used
/// up. The caller holds ExchangeLock.
ExchangeOutcome RunExchange(Line& line, std::uint32_t device, std::span<const std::uint8_t> request, std::uint8_t* answer,
                            const ExchangePolicy& policy);

/// What came of a transaction, and what is still to be written to the event log of it.
struct [[nodiscard]] TransactionOutcome {
  bool valid = false;         // the answer holds an answer of exactly its size; otherwise it is not to be used
  bool known = false;         // the meter is still in the table
  std::uint8_t code = 0;      // last AnswerCheck
  std::uint32_t address = 0;  // of the meter, where it is known
};

/// A transaction without its message, for who looks at the meter before and after it. The caller holds ExchangeLock, lets go of
/// it, and then calls ReportTransaction: writing to the log may take long, and the line is not to wait for it.
TransactionOutcome RunTransaction(Line& line, std::uint32_t device, std::span<const std::uint8_t> request,
                                  std::span<std::uint8_t> answer);
void ReportTransaction(Line& line, const TransactionOutcome& outcome);

/// One whole transaction under ExchangeLock: retries, level-1 reopening, link state, message. 1 when `answer` holds an
/// answer of exactly `expectedLength` bytes; on 0 the buffer is not to be used. 0 for a device outside the table.
std::uint32_t ExecuteRequest(Line& line, std::uint32_t device, const std::uint8_t* request, std::uint32_t requestLength,
                             std::uint8_t* answer, std::uint32_t expectedLength);

}  // namespace ostrel
