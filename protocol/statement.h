// The language in which the commands are stated. A command is a code and a specialisation of `Statement` for
// it, which names its request and data records, how it is answered, and what its statuses mean. A record
// lists its own fields. The server takes records and time-outs from here; the station, the protocol page and
// tests take the texts too.
#pragma once

#include <cstdint>
#include <span>

#include "protocol/result_codes.h"
#include "protocol/selectors.h"

namespace protocol {

// How a field's bytes are read. Words are 32 bits, little-endian.
enum class Form : uint8_t {
  // The first word of every answer is one of these. A negative one is a failure.
  Status,   // 0, or a positive value of the routine's own
  Alive,    // the word 1
  Count,    // how many bytes of the block after it hold something
  Key,      // a key code
  Crosses,  // a bit for each cross that is still to be touched
  // All others.
  Number,    // a word, unsigned; a request takes a signed one too
  Integer,   // a signed word
  Length,    // a word that counts the bytes of the block after it
  Text,      // characters, padded with zero bytes
  Digits,    // decimal digits, as characters
  Block,     // raw bytes
  Address,   // six bytes of a device address
  Moment,    // six words: year, month (1 to 12), day, hour, minute, second
  Unused,    // sent, and carries nothing
  Constant,  // always the same
};

// A name for a value.
struct Choice {
  const char* name;
  int64_t value;
};

// Steps that some devices take instead: as many make a unit that is `finer` times smaller.
struct FinerSteps {
  const char* unit = "";
  int32_t finer = 1;
};

// The values that make sense in a field; none are stated if `lowest` is above `highest`.
struct Range {
  int64_t lowest = 1;
  int64_t highest = 0;
  const char* unit = "";
  int32_t steps = 1;  // how many of the word's counts make one unit
  FinerSteps other = {};
};

constexpr bool IsStated(const Range& range) {
  return range.lowest <= range.highest;
}

struct Field {
  Form form;
  uint32_t size;
  const char* name;
  const char* meaning;
  std::span<const Choice> choices = {};
  bool only_choices = false;  // no other value does anything
  Range range = {};
};

constexpr Field Number(const char* name, const char* meaning, Range range = {}) {
  return {Form::Number, 4, name, meaning, {}, false, range};
}
constexpr Field OneOf(const char* name, const char* meaning, std::span<const Choice> choices,
                      Range range = {}) {
  return {Form::Number, 4, name, meaning, choices, false, range};
}
constexpr Field OnlyOneOf(const char* name, const char* meaning, std::span<const Choice> choices) {
  return {Form::Number, 4, name, meaning, choices, true, {}};
}
constexpr Field Unused(uint32_t size, const char* meaning = "ignored") {
  return {Form::Unused, size, "", meaning};
}

inline constexpr Choice ON_OFF[] = {{"on", 1}, {"off", 0}};
inline constexpr Range ZERO_OR_ONE = {0, 1};

// A record's fields stand in the order of its members and fill it.
template <typename Record>
constexpr bool FieldsFill(uint32_t size) {
  uint32_t sum = 0;
  for (const Field& field : std::span<const Field>(Record::FIELDS)) sum += field.size;
  return sum == size && sizeof(Record) == (size > 0 ? size : 1);
}

struct NoData {
  static constexpr std::span<const Field> FIELDS = {};
};
static_assert(FieldsFill<NoData>(0));

// The host always sends a request, even if the command needs none.
struct Ignored {
  uint32_t unused;
  static constexpr Field FIELDS[] = {Unused(4)};
};
static_assert(FieldsFill<Ignored>(4));

// The clock's time, as requests and answers carry it.
struct Moment {
  uint32_t year, month, day, hour, minute, second;
};
static_assert(sizeof(Moment) == 24);

// The moment's words in their order, with a calendar's values.
struct MomentPart {
  const char* name;
  Range range;
};
// A clock driver counts from 1970. A 32-bit system's seconds end in January 2038.
inline constexpr MomentPart MOMENT_PARTS[] = {{"year", {1970, 2037}}, {"month", {1, 12}},
                                              {"day", {1, 31}},       {"hour", {0, 23}},
                                              {"minute", {0, 59}},    {"second", {0, 59}}};

enum class Answering : uint8_t {
  AfterWork,   // status and data
  BeforeWork,  // the word 0, and the work only if it could be sent
  Never,
};

// What a status means for one command.
struct StatusMeaning {
  int32_t status;
  const char* meaning;
};

constexpr Field STATUS = {Form::Status, 4, "status", "0 or a result code"};

// What most commands have in common. A statement that differs declares the member again.
struct CommonStatement {
  // From the code until the whole request is there.
  static constexpr int32_t request_timeout_ms = 1000;
  // How long the phone sleeps before it reads the request.
  static constexpr uint32_t seconds_before_request = 0;
  static constexpr Field first_word = STATUS;
  static constexpr std::span<const StatusMeaning> statuses = {};
};

template <typename RequestRecord, typename DataRecord = NoData>
struct Answered : CommonStatement {
  using Request = RequestRecord;
  using Data = DataRecord;
  static constexpr Answering answering = Answering::AfterWork;
};

template <typename RequestRecord>
struct AnsweredFirst : CommonStatement {
  using Request = RequestRecord;
  using Data = NoData;
  static constexpr Answering answering = Answering::BeforeWork;
};

template <typename RequestRecord>
struct NeverAnswered : CommonStatement {
  using Request = RequestRecord;
  using Data = NoData;
  static constexpr Answering answering = Answering::Never;
};

// Each command's statement: name, what it does (`action`), records and statuses.
template <uint32_t code>
struct Statement;

}  // namespace protocol
