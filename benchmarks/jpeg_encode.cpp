// How fast camera frames become JPEG pictures, compared with libjpeg-turbo with and without its vector code:
// the same RGB565 frame, quality and subsampling, in one run.
//   jpeg_encode [ROUNDS]
//
// libjpeg-turbo decides once in a process whether to use vector code, so each encoder has a process of its
// own. They take turns, and the medians of their processor times are compared: other work on the machine
// meets all alike.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>

#include <jpeglib.h>

#include "tests/camera_scene.h"
#include "tests/unit/encoded_picture.h"

namespace {

constexpr int WIDTH = 1200;
constexpr int HEIGHT = 1600;
constexpr int QUALITY = 90;

void EncodeHere(const std::vector<uint16_t>& frame) {
  if (EncodeToFile(frame.data(), WIDTH * 2, WIDTH, HEIGHT, "/dev/null") != 0) _exit(1);
}

void EncodeByPeer(const std::vector<uint16_t>& frame) {
  jpeg_compress_struct codec{};
  jpeg_error_mgr errors{};
  codec.err = jpeg_std_error(&errors);
  jpeg_create_compress(&codec);
  unsigned char* out = nullptr;
  unsigned long size = 0;
  jpeg_mem_dest(&codec, &out, &size);
  codec.image_width = WIDTH;
  codec.image_height = HEIGHT;
  codec.input_components = 3;
  codec.in_color_space = JCS_RGB;
  jpeg_set_defaults(&codec);  // 4:2:0
  jpeg_set_quality(&codec, QUALITY, TRUE);
  codec.dct_method = JDCT_ISLOW;
  jpeg_start_compress(&codec, TRUE);
  std::vector<uint8_t> row(3 * WIDTH);
  const uint16_t* pixel = frame.data();
  while (codec.next_scanline < HEIGHT) {
    for (size_t i = 0; i < row.size(); i += 3, ++pixel) {
      const int red = *pixel >> 11;
      const int green = *pixel >> 5 & 63;
      const int blue = *pixel & 31;
      row[i] = static_cast<uint8_t>(red << 3 | red >> 2);
      row[i + 1] = static_cast<uint8_t>(green << 2 | green >> 4);
      row[i + 2] = static_cast<uint8_t>(blue << 3 | blue >> 2);
    }
    JSAMPROW start = row.data();
    jpeg_write_scanlines(&codec, &start, 1);
  }
  jpeg_finish_compress(&codec);
  jpeg_destroy_compress(&codec);
  free(out);
}

double ProcessorSeconds() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

struct Contestant {
  Contestant(const char* calledBy, bool vectorCode, const std::function<void()>& encode) : name(calledBy) {
    int toChild[2];
    int fromChild[2];
    if (pipe(toChild) != 0 || pipe(fromChild) != 0) exit(1);
    process = fork();
    if (process == 0) {
      close(toChild[1]);
      if (!vectorCode) setenv("JSIMD_FORCENONE", "1", 1);
      for (char turn = 0; read(toChild[0], &turn, 1) == 1;) {
        const double start = ProcessorSeconds();
        encode();
        const double time = ProcessorSeconds() - start;
        if (write(fromChild[1], &time, sizeof time) != sizeof time) break;
      }
      _exit(0);
    }
    close(toChild[0]);
    close(fromChild[1]);
    go = toChild[1];
    answer = fromChild[0];
  }
  ~Contestant() {
    close(go);
    close(answer);
    waitpid(process, nullptr, 0);
  }
  Contestant(const Contestant&) = delete;
  Contestant& operator=(const Contestant&) = delete;

  void Run() {
    double time = 0;
    if (write(go, "", 1) != 1 || read(answer, &time, sizeof time) != sizeof time) exit(1);
    seconds.push_back(time);
  }

  double Median() {
    const auto middle = seconds.begin() + static_cast<std::ptrdiff_t>(seconds.size() / 2);
    std::nth_element(seconds.begin(), middle, seconds.end());
    return *middle;
  }

  const char* name;
  pid_t process = 0;
  int go = -1;
  int answer = -1;
  std::vector<double> seconds;
};

}  // namespace

int main(int count, char** arguments) {
  const int rounds = count > 1 ? atoi(arguments[1]) : 31;
  const auto frame = CameraScene(WIDTH, HEIGHT);
  Contestant here("this encoder", false, [&] { EncodeHere(frame); });
  Contestant scalar("libjpeg-turbo, scalar", false, [&] { EncodeByPeer(frame); });
  Contestant vectors("libjpeg-turbo, vector code", true, [&] { EncodeByPeer(frame); });
  const auto all = {&here, &scalar, &vectors};

  for (int round = 0; round < rounds; ++round) {
    for (Contestant* contestant : all) contestant->Run();
  }
  printf("%d x %d, quality %d, 4:2:0, medians of %d rounds:\n", WIDTH, HEIGHT, QUALITY, rounds);
  for (Contestant* contestant : all) {
    const double median = contestant->Median();
    printf("  %-27s%7.2f ms%8.1f Mpixel/s%7.2f times scalar\n", contestant->name, 1e3 * median,
           1e-6 * WIDTH * HEIGHT / median, scalar.Median() / median);
  }
}
