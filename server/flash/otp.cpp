#include "server/flash/otp.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "protocol/result_codes.h"
#include "server/base/device.h"
#include "server/base/little_endian.h"
#include "server/flash/partition.h"

constexpr uint8_t BLANK = 0xFF;
constexpr uint32_t PACKED_SIZE = 8;
constexpr uint32_t BLANK_CHECK_SIZE = 8192;

// Packed decimal, high half-byte first. The last half-byte is 0.
struct OtpIdentity {
  uint8_t packed[PACKED_SIZE];
  uint8_t complement[PACKED_SIZE];
};
static_assert(sizeof(OtpIdentity) == 16);

// The block that is programmed in one write.
struct OtpBlock {
  OtpIdentity identity;
  uint8_t marker[4];             // the word 5
  uint8_t marker_complement[4];  // its complement
  uint8_t rest[488];             // blank
};
static_assert(sizeof(OtpBlock) == 512);

constexpr uint32_t OTP_MARKER = 5;

constexpr OtpIdentity DEFAULT_IDENTITY = {{0x00, 0x00, 0x00, 0x01, 0x12, 0x34, 0x56, 0x40},
                                          {0xFF, 0xFF, 0xFF, 0xFE, 0xED, 0xCB, 0xA9, 0xBF}};

// Does `work` on the area's character device, opened with `flags`.
template <typename Work>
static int32_t WithOtp(int flags, Work work) {
  char path[PATH_SIZE];
  const int32_t number = FindMtdIndex(path, sizeof path, "OTP");
  if (number < 0) return FLASH_ERR;
  FormatCharacterDevicePath(path, sizeof path, number);
  return WithDevice(path, flags, OPEN_FAILED, work);
}

static bool IsBlank(const void* area, uint32_t size) {
  const auto* bytes = static_cast<const uint8_t*>(area);
  return std::all_of(bytes, bytes + size, [](uint8_t byte) { return byte == BLANK; });
}

static OtpIdentity PackIdentity(const uint8_t* digits) {
  uint8_t all[IDENTITY_DIGITS + 1];
  memcpy(all, digits, IDENTITY_DIGITS);
  all[IDENTITY_DIGITS] = '0';
  OtpIdentity identity;
  for (uint32_t i = 0; i < PACKED_SIZE; ++i) {
    const uint32_t high = static_cast<uint32_t>(all[2 * i]) - '0';
    const uint32_t low = static_cast<uint32_t>(all[2 * i + 1]) - '0';
    identity.packed[i] = static_cast<uint8_t>(high << 4 | low);
    identity.complement[i] = static_cast<uint8_t>(~identity.packed[i]);
  }
  return identity;
}

static void UnpackIdentity(const OtpIdentity& identity, uint8_t* digits) {
  for (uint32_t i = 0; i < IDENTITY_DIGITS; ++i) {
    const uint8_t pair = identity.packed[i / 2];
    digits[i] = static_cast<uint8_t>((i % 2 == 0 ? pair >> 4 : pair & 0xF) + '0');
  }
}

int32_t ReadOtpIdentity(uint8_t* out) {
  return WithOtp(O_RDONLY, [&](int otp) {
    OtpIdentity identity;
    if (read(otp, &identity, sizeof identity) != sizeof identity) return SHORT_READ;
    UnpackIdentity(IsBlank(&identity, sizeof identity) ? DEFAULT_IDENTITY : identity, out);
    return SUCCESS;
  });
}

int32_t WriteOtpIdentity(const uint8_t* digits) {
  return WithOtp(O_RDWR, [&](int otp) {
    OtpBlock block;
    memset(&block, BLANK, sizeof block);
    block.identity = PackIdentity(digits);
    StoreLittle32(block.marker, OTP_MARKER);
    StoreLittle32(block.marker_complement, ~OTP_MARKER);

    OtpIdentity current;
    if (read(otp, &current, sizeof current) != sizeof current) return SHORT_READ;
    if (memcmp(&current, &block.identity, sizeof current) == 0) return SUCCESS;
    if (!IsBlank(&current, sizeof current)) return CONTENT_MISMATCH;
    lseek(otp, 0, SEEK_SET);
    // The result is ignored on purpose: the station reads the number back, and a second try at an area that
    // took a part could only do harm.
    WriteToFlash(otp, &block, sizeof block);
    return SUCCESS;
  });
}

int32_t CheckOtpBlank() {
  return WithOtp(O_RDONLY, [](int otp) {
    void* area = malloc(BLANK_CHECK_SIZE);
    if (area == nullptr) return OUT_OF_MEMORY;
    int32_t result = SHORT_READ;
    if (read(otp, area, BLANK_CHECK_SIZE) == BLANK_CHECK_SIZE) {
      result = IsBlank(area, BLANK_CHECK_SIZE) ? SUCCESS : CONTENT_MISMATCH;
    }
    free(area);
    return result;
  });
}
