// Commands on the camera's self-test and test pictures.
#pragma once

#include "protocol/flash_commands.h"
#include "protocol/statement.h"

namespace protocol {

struct CameraQueryData {
  uint8_t unused[128];
  static constexpr Field FIELDS[] = {Unused(sizeof unused, "zero")};
};
static_assert(FieldsFill<CameraQueryData>(128));

constexpr uint32_t QUERY_CAMERA = 0x22;
template <>
struct Statement<QUERY_CAMERA> : Answered<Ignored, CameraQueryData> {
  static constexpr char name[] = "camera query";
  static constexpr char action[] = "Does nothing: the camera cannot be queried.";
  static constexpr StatusMeaning statuses[] = {{NOT_SUPPORTED, "always"}};
};

struct CameraRequest {
  int32_t subcommand;
  int32_t width;
  int32_t height;
  int32_t rotation;
  static constexpr Field FIELDS[] = {
      Number("action", "0 self-test, 10 or 20 take, 12 or 22 delete the blemish or focus picture"),
      Number("width", "width of a picture", {1, MAX_PICTURE_WIDTH, "pixels"}),
      Number("height", "height of a picture", {1, MAX_PICTURE_HEIGHT, "pixels"}),
      Number("rotation", "90, 180 or 270 degrees clockwise; anything else does not rotate")};
};
static_assert(FieldsFill<CameraRequest>(16));

constexpr uint32_t TEST_CAMERA = 0x24;
template <>
struct Statement<TEST_CAMERA> : Answered<CameraRequest> {
  static constexpr char name[] = "camera test";
  static constexpr char action[] =
      "0: makes the sensor deliver a white and a black frame and checks every pixel. 10, 20: takes the "
      "blemish or "
      "focus picture and stores it as JPEG. 12, 22: deletes that picture.";
  static constexpr StatusMeaning statuses[] = {
      {OUT_OF_RANGE, "the picture is wider than 1200 or higher than 1600"},
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
      {NOT_SUPPORTED, "there is no such action"}};
};

struct PictureRequest {
  int32_t subcommand;
  static constexpr Choice READERS[] = {
      {"blemish", READ_BLEMISH}, {"focus", READ_FOCUS}, {"stop", STOP_READING_BLEMISH}};
  static constexpr Field FIELDS[] = {
      OnlyOneOf("action", "next chunk of the blemish or focus picture, or stop reading", READERS)};
};
static_assert(FieldsFill<PictureRequest>(4));

struct PictureChunk {
  uint8_t bytes[PICTURE_CHUNK_SIZE];
  static constexpr Field FIELDS[] = {{Form::Block, sizeof bytes, "bytes", "the chunk"}};
};
static_assert(FieldsFill<PictureChunk>(1024));

constexpr uint32_t READ_PICTURE = 0x41;
template <>
struct Statement<READ_PICTURE> : Answered<PictureRequest, PictureChunk> {
  static constexpr char name[] = "read camera picture";
  static constexpr char action[] =
      "Hands out the next 1024 bytes of the blemish (14) or focus (24) picture. Fewer than 1024 end the "
      "picture. A "
      "picture once begun is carried on whichever is asked for; 15 or 25 ends it.";
  static constexpr Field first_word = CHUNK_COUNT;
  static constexpr StatusMeaning statuses[] = {{OPEN_FAILED, "there is no such picture on the phone"},
                                               {SHORT_READ, "the picture could not be read"},
                                               {NOT_SUPPORTED, "there is no such action"}};
};

}  // namespace protocol
