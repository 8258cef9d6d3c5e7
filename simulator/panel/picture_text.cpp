#include "simulator/panel/picture_text.h"

#include <vector>

#include "web/base64.h"

namespace simulator {
namespace {

std::string WordsText(std::span<const uint16_t> words) {
  return web::Base64({reinterpret_cast<const uint8_t*>(words.data()), words.size_bytes()});
}

}  // namespace

std::string PictureText(std::span<const uint16_t> pixels) {
  std::vector<uint16_t> runs;
  for (const uint16_t pixel : pixels) {
    const bool goes_on = !runs.empty() && runs.back() == pixel && runs[runs.size() - 2] < UINT16_MAX;
    if (goes_on) {
      ++runs[runs.size() - 2];
    } else {
      runs.insert(runs.end(), {1, pixel});
    }
    if (runs.size() >= pixels.size()) return "{\"pixels\":\"" + WordsText(pixels) + "\"}";
  }
  return "{\"runs\":\"" + WordsText(runs) + "\"}";
}

}  // namespace simulator
