// The result codes that the server's routines return and the host receives as the first word of an answer. 0
// and positive values are success. A code is declared here together with its name and meaning, so none goes
// without.
#pragma once

#include <cstdint>

#define RESULT_CODES(CODE)                                                                                   \
  CODE(SUCCESS, 0, "success")                                                                                \
  /* Camera pictures. */                                                                                     \
  CODE(ENCODING_FAILED, -9980, "picture encoding failed")                                                    \
  CODE(ENCODER_NOT_CREATED, -9981, "picture encoder could not be created")                                   \
  CODE(PICTURE_NOT_OPENED, -9982, "picture file could not be opened")                                        \
  CODE(IMAGING_NOT_SET_UP, -9983, "imaging manager could not be set up")                                     \
  /* Modem. */                                                                                               \
  CODE(MODEM_STATE_ZERO, -9984, "modem state word is 0")                                                     \
  CODE(MODEM_PORT_NOT_OPENED, -9985, "modem data port could not be opened")                                  \
  /* Devices, files and flash. */                                                                            \
  CODE(SHORT_WRITE, -9986, "short write")                                                                    \
  CODE(SHORT_READ, -9987, "short read or read error")                                                        \
  CODE(OUT_OF_MEMORY, -9988, "out of memory or mapping failed")                                              \
  CODE(OPEN_FAILED, -9989, "device or file could not be opened")                                             \
  CODE(CONTENT_MISMATCH, -9990, "content check failed: not blank, pattern not found, mismatch or no \"OK\"") \
  CODE(GENERAL_FAILURE, -9991,                                                                               \
       "partition missing or general failure; of a device test: busy or not running")                        \
  CODE(REQUEST_FAILED, -9992, "driver request or external tool failed")                                      \
  CODE(HOST_PORT_NOT_OPENED, -9993, "host port could not be opened")                                         \
  CODE(NOT_SUPPORTED, -9994, "not supported, or unknown selector")                                           \
  CODE(NO_CARD_SERIAL_NUMBER, -9995, "no memory card serial number")                                         \
  CODE(SIM_NOT_READY, -9996, "SIM not ready")                                                                \
  CODE(OUT_OF_RANGE, -9997, "request parameter or file size out of range")                                   \
  /* Further driver requests of a sequence count up from the first one's code by 100. */                     \
  CODE(SECOND_REQUEST_FAILED, -9892, "second driver request of a sequence failed")                           \
  CODE(THIRD_REQUEST_FAILED, -9792, "third driver request of a sequence failed")                             \
  CODE(FOURTH_REQUEST_FAILED, -9692, "fourth driver request of a sequence failed")                           \
  CODE(FIFTH_REQUEST_FAILED, -9592, "fifth driver request of a sequence failed")                             \
  CODE(TOUCH_NOT_OPENED, -9889, "touch device could not be opened")

#define DECLARE_RESULT_CODE(name, code, meaning) constexpr int32_t name = code;
RESULT_CODES(DECLARE_RESULT_CODE)
#undef DECLARE_RESULT_CODE

// The flash routines' own name for it.
constexpr int32_t FLASH_ERR = GENERAL_FAILURE;

struct ResultCode {
  int32_t code;
  const char* name;
  const char* meaning;
};

#define RESULT_CODE_ROW(name, code, meaning) {code, #name, meaning},
constexpr ResultCode RESULT_CODE_TABLE[] = {RESULT_CODES(RESULT_CODE_ROW)};
#undef RESULT_CODE_ROW
