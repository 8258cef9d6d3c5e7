#include "posix/sha256.h"

#include <nettle/base16.h>
#include <nettle/sha2.h>

namespace posix {

std::string Sha256(std::string_view content) {
  sha256_ctx context;
  sha256_init(&context);
  sha256_update(&context, content.size(), reinterpret_cast<const uint8_t*>(content.data()));
  uint8_t digest[SHA256_DIGEST_SIZE];
  sha256_digest(&context, sizeof digest, digest);
  std::string text(BASE16_ENCODE_LENGTH(sizeof digest), '\0');
  base16_encode_update(text.data(), sizeof digest, digest);
  return text;
}

}  // namespace posix
