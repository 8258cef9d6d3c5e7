// The camera's self-test and test pictures.
#include "protocol/result_codes.h"
#include "station/commands/rows.h"

namespace station {

namespace {

using Kind = AnswerField::Kind;

}  // namespace

std::vector<Command> CameraRows() {
  return {
      {
          .code = 0x22,
          .name = "camera query",
          .action = "Nothing: the camera cannot be queried.",
          .request = {Ignored(4)},
          .answer = {Status(), Padding(128)},
          .answer_time = PROMPT,
          .statuses = {{NOT_SUPPORTED, "always"}},
          .verbs = {{"camera query", "send the query that the phone always refuses"}},
      },
      {
          .code = 0x24,
          .name = "camera test",
          .action = "0: makes the sensor deliver a white and a black frame and checks every pixel. 10, 20: "
                    "takes the "
                    "blemish or focus picture and stores it as JPEG. 12, 22: deletes that picture.",
          .request = {Number("action",
                             "0 self-test, 10 or 20 take, 12 or 22 delete the blemish or focus picture"),
                      Number("width", "width in pixels, at most 1200"),
                      Number("height", "height in pixels, at most 1600"),
                      Number("rotation", "90, 180 or 270 degrees clockwise; anything else does not rotate")},
          .answer = {Status()},
          // A second for the sensor to settle, and the encoding of two megapixels on the phone's processor.
          .answer_time = std::chrono::milliseconds{30'000},
          .statuses = {{OUT_OF_RANGE, "the picture is wider than 1200 or higher than 1600"},
                       {OUT_OF_MEMORY, "no memory for the frame"},
                       {OPEN_FAILED, "the camera could not be opened"},
                       {REQUEST_FAILED, "the camera's format could not be read"},
                       {SECOND_REQUEST_FAILED, "the camera refuses the format"},
                       {THIRD_REQUEST_FAILED, "the camera's first control could not be set"},
                       {FOURTH_REQUEST_FAILED, "the camera could not be started"},
                       {FIFTH_REQUEST_FAILED, "the camera's test pattern could not be selected"},
                       {SHORT_READ, "the camera delivered less than a frame"},
                       {CONTENT_MISMATCH, "a pixel of a test pattern is wrong: the sensor is defective"},
                       {IMAGING_NOT_SET_UP, "the imaging manager could not be set up"},
                       {PICTURE_NOT_OPENED, "the picture file could not be opened for writing"},
                       {ENCODER_NOT_CREATED, "the picture encoder could not be created"},
                       {ENCODING_FAILED, "the picture could not be encoded or written"},
                       {NOT_SUPPORTED, "there is no such action"}},
          .verbs = {{"camera self-test",
                     "check the camera's sensor with its white and black test patterns",
                     {{"action", "0"}, {"width", "0"}, {"height", "0"}, {"rotation", "0"}}}},
      },
      {
          .code = 0x41,
          .name = "read camera picture",
          .action = "Hands out the next 1024 bytes of the blemish (14) or focus (24) picture. Fewer than "
                    "1024 end the "
                    "picture. A picture once begun is carried on whichever is asked for; 15 or 25 ends it.",
          .request = {Number("action", "next chunk of the blemish or focus picture, or stop reading")
                          .OnlyChoices({{"blemish", 14}, {"focus", 24}, {"stop", 15}})},
          .answer = {{Kind::Count, 4, "count", "how many bytes are delivered, or a result code"},
                     {Kind::Block, 1024, "bytes", "the chunk"}},
          .answer_time = PROMPT,
          .statuses = {{OPEN_FAILED, "there is no such picture on the phone"},
                       {SHORT_READ, "the picture could not be read"},
                       {NOT_SUPPORTED, "there is no such picture"}},
          .verbs = {{"camera chunk", "read the next 1024 bytes of a test picture, or stop reading"}},
      },
  };
}

}  // namespace station
