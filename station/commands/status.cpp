#include "station/commands/status.h"

#include <algorithm>
#include <array>

#include "protocol/result_codes.h"

namespace station {

namespace {

constexpr std::array RESULT_CODES = {
    ResultCode{SUCCESS, "SUCCESS", "success"},
    ResultCode{ENCODING_FAILED, "ENCODING_FAILED", "picture encoding failed"},
    ResultCode{ENCODER_NOT_CREATED, "ENCODER_NOT_CREATED", "picture encoder could not be created"},
    ResultCode{PICTURE_NOT_OPENED, "PICTURE_NOT_OPENED", "picture file could not be opened"},
    ResultCode{IMAGING_NOT_SET_UP, "IMAGING_NOT_SET_UP", "imaging manager could not be set up"},
    ResultCode{MODEM_STATE_ZERO, "MODEM_STATE_ZERO", "modem state word is 0"},
    ResultCode{MODEM_PORT_NOT_OPENED, "MODEM_PORT_NOT_OPENED", "modem data port could not be opened"},
    ResultCode{SHORT_WRITE, "SHORT_WRITE", "short write"},
    ResultCode{SHORT_READ, "SHORT_READ", "short read or read error"},
    ResultCode{OUT_OF_MEMORY, "OUT_OF_MEMORY", "out of memory or mapping failed"},
    ResultCode{OPEN_FAILED, "OPEN_FAILED", "device or file could not be opened"},
    ResultCode{CONTENT_MISMATCH, "CONTENT_MISMATCH",
               "content check failed: not blank, pattern not found, mismatch or no \"OK\""},
    ResultCode{GENERAL_FAILURE, "GENERAL_FAILURE",
               "partition missing or general failure; of a device test: busy or not running"},
    ResultCode{REQUEST_FAILED, "REQUEST_FAILED", "driver request or external tool failed"},
    ResultCode{HOST_PORT_NOT_OPENED, "HOST_PORT_NOT_OPENED", "host port could not be opened"},
    ResultCode{NOT_SUPPORTED, "NOT_SUPPORTED", "not supported, or unknown selector"},
    ResultCode{NO_CARD_SERIAL_NUMBER, "NO_CARD_SERIAL_NUMBER", "no memory card serial number"},
    ResultCode{SIM_NOT_READY, "SIM_NOT_READY", "SIM not ready"},
    ResultCode{OUT_OF_RANGE, "OUT_OF_RANGE", "request parameter or file size out of range"},
    ResultCode{SECOND_REQUEST_FAILED, "SECOND_REQUEST_FAILED", "second driver request of a sequence failed"},
    ResultCode{THIRD_REQUEST_FAILED, "THIRD_REQUEST_FAILED", "third driver request of a sequence failed"},
    ResultCode{FOURTH_REQUEST_FAILED, "FOURTH_REQUEST_FAILED", "fourth driver request of a sequence failed"},
    ResultCode{FIFTH_REQUEST_FAILED, "FIFTH_REQUEST_FAILED", "fifth driver request of a sequence failed"},
    ResultCode{TOUCH_NOT_OPENED, "TOUCH_NOT_OPENED", "touch device could not be opened"},
};

const ResultCode* FindResultCode(std::int32_t status) {
  const auto found = std::ranges::find(RESULT_CODES, status, &ResultCode::code);
  return found == RESULT_CODES.end() ? nullptr : &*found;
}

}  // namespace

std::span<const ResultCode> ResultCodes() {
  return RESULT_CODES;
}

std::string StatusName(std::int32_t status) {
  const ResultCode* known = FindResultCode(status);
  return known != nullptr ? known->name : "";
}

std::string StatusMeaning(std::int32_t status) {
  const ResultCode* known = FindResultCode(status);
  if (known != nullptr) return known->meaning;
  return status < 0 ? "unknown failure" : "success";
}

}  // namespace station
