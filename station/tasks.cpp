#include "station/tasks.h"

#include <fmt/format.h>

#include "station/errors.h"

namespace station {

namespace {

Outcome RunRaw(Session& session, const ArgumentTexts& given) {
  const std::vector<Argument> arguments = FindOperation("raw")->arguments;
  const auto text = [&](std::size_t index) { return ArgumentText(arguments, arguments[index], given); };
  Bytes sent;
  AppendWord(sent, static_cast<std::uint32_t>(NumberOf(arguments[0], text(0))));
  const Bytes request = BytesFromHex(text(1));
  sent.insert(sent.end(), request.begin(), request.end());
  const std::int64_t size = NumberOf(arguments[2], text(2));
  if (size < 0 || size > 65536) throw UsageError("answer: between 0 and 65536 bytes can be waited for");
  const Bytes answer = session.RunRaw("raw code " + text(0), sent, static_cast<std::size_t>(size), PROMPT);
  Outcome outcome;
  if (answer.empty()) outcome.remark = "sent; no answer asked for";
  if (!answer.empty())
    outcome.readings = DecodeAnswer({{AnswerField::Kind::Block, answer.size(), "answer", ""}}, answer);
  return outcome;
}

Operation Raw() {
  return {
      .words = "raw",
      .help = "send any command code with any request and show the answer's bytes",
      .arguments = {Number("code", "command code, for instance 0x2B"),
                    Word("request", "request bytes in hexadecimal, for instance \"01000000 00000000\"")
                        .Optional("00000000"),
                    Number("answer", "how many answer bytes to wait for").Optional("4")},
      .run = RunRaw,
      .codes = {},
  };
}

}  // namespace

std::vector<Operation> Tasks() {
  return {Raw()};
}

}  // namespace station
