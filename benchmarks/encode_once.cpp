// Encodes a camera scene a number of times, to count instructions and to look at the picture.
//   encode_once SCENE WIDTH HEIGHT TIMES [OUT.jpg]     SCENE: a seed, or a file of RGB565 pixels
//   encode_once SCENE WIDTH HEIGHT 0 OUT               writes the scene's pixels to such a file
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "tests/camera_scene.h"
#include "tests/unit/encoded_picture.h"

namespace {

std::vector<uint16_t> ReadFrame(const std::string& path, int width, int height) {
  std::vector<uint16_t> frame(static_cast<size_t>(width) * static_cast<size_t>(height));
  std::ifstream file(path, std::ios::binary);
  file.read(reinterpret_cast<char*>(frame.data()), static_cast<std::streamsize>(frame.size() * 2));
  if (!file) frame.clear();
  return frame;
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 5) {
    fputs("usage: encode_once SCENE WIDTH HEIGHT TIMES [OUT.jpg]\n", stderr);
    return 2;
  }
  const std::string scene = arguments[1];
  const int width = atoi(arguments[2]);
  const int height = atoi(arguments[3]);
  const int times = atoi(arguments[4]);
  const std::string out = count > 5 ? arguments[5] : "/dev/null";

  const bool isSeed = scene.find_first_not_of("0123456789") == std::string::npos;
  const auto frame = isSeed ? CameraScene(width, height, static_cast<uint32_t>(atoi(scene.c_str())))
                            : ReadFrame(scene, width, height);
  if (times == 0) {
    std::ofstream(out, std::ios::binary)
        .write(reinterpret_cast<const char*>(frame.data()), static_cast<std::streamsize>(frame.size() * 2));
  }
  for (int i = 0; i < times; ++i) {
    if (frame.empty() || EncodeToFile(frame.data(), width * 2, width, height, out) != 0) {
      fputs("encode_once: no picture\n", stderr);
      return 1;
    }
  }
}
