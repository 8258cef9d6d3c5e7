// The result codes that the server's routines give and the host receives as the first word of an answer.
// 0 and positive values are success. Shared by the server, the simulated phone and the station tool.
#pragma once

#include <cstdint>

constexpr int32_t SUCCESS = 0;

// Camera pictures.
constexpr int32_t ENCODING_FAILED = -9980;
constexpr int32_t ENCODER_NOT_CREATED = -9981;
constexpr int32_t PICTURE_NOT_OPENED = -9982;
constexpr int32_t IMAGING_NOT_SET_UP = -9983;

// Modem.
constexpr int32_t MODEM_STATE_ZERO = -9984;
constexpr int32_t MODEM_PORT_NOT_OPENED = -9985;

// Devices, files and flash.
constexpr int32_t SHORT_WRITE = -9986;
constexpr int32_t SHORT_READ = -9987;
constexpr int32_t OUT_OF_MEMORY = -9988;  // also a mapping that failed
constexpr int32_t OPEN_FAILED = -9989;
constexpr int32_t CONTENT_MISMATCH = -9990;     // not blank, pattern not found, mismatch, no "OK"
constexpr int32_t FLASH_ERR = -9991;            // partition missing
constexpr int32_t GENERAL_FAILURE = FLASH_ERR;  // also busy, not running, thread not created
constexpr int32_t REQUEST_FAILED = -9992;       // driver request or external tool, first of a sequence
constexpr int32_t HOST_PORT_NOT_OPENED = -9993;
constexpr int32_t NOT_SUPPORTED = -9994;
constexpr int32_t NO_CARD_SERIAL_NUMBER = -9995;
constexpr int32_t SIM_NOT_READY = -9996;
constexpr int32_t OUT_OF_RANGE = -9997;  // request parameter or file size

// The further driver requests of a sequence count up from the first one's code by 100.
constexpr int32_t SECOND_REQUEST_FAILED = -9892;
constexpr int32_t THIRD_REQUEST_FAILED = -9792;
constexpr int32_t FOURTH_REQUEST_FAILED = -9692;
constexpr int32_t FIFTH_REQUEST_FAILED = -9592;

constexpr int32_t TOUCH_NOT_OPENED = -9889;
