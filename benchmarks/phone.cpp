// The unmodified server on a simulated phone: answers, start, transfers, memory.
#include <cstdio>
#include <exception>
#include <string_view>

#include "benchmarks/booted_phone.h"
#include "benchmarks/figures.h"

namespace {

constexpr uint32_t PING = 0x00;
constexpr uint32_t CAMERA_TEST = 0x24;
constexpr uint32_t READ_MODEM_IMAGE_CHUNK = 0x34;
constexpr uint32_t ANY = 0;

class EchoPhone : public BootedPhone {
 public:
  explicit EchoPhone(size_t answer_size = 4)
      : BootedPhone(ProgramBeside("echo_server"), {std::to_string(answer_size)}, "open /dev/usb/tts/0 rw") {}
};

// An answered ping. For the echo it is eight bytes.
double PingSeconds(BootedPhone& phone) {
  return Seconds([&] { phone.Ask(Words({PING, ANY}), 4); });
}

void MeasureRoundTrip() {
  ServerPhone server;
  EchoPhone echo;
  const Medians medians = MeasureInTurns(
      3000, [&] { return PingSeconds(server); }, [&] { return PingSeconds(echo); });
  PrintFigure({"ping's round trip", "us", medians.ours * 1e6, "select, read, write on such a port",
               medians.peers * 1e6, AtMost(1.2)});
}

// From nothing to the first answer. The phone's end is not counted.
template <typename Phone>
double BootSeconds() {
  std::unique_ptr<Phone> phone;
  return Seconds([&] {
    phone = std::make_unique<Phone>();
    PingSeconds(*phone);
  });
}

void MeasureBoot() {
  const Medians medians = MeasureInTurns(25, BootSeconds<ServerPhone>, BootSeconds<EchoPhone>);
  PrintFigure({"boot to the first answered ping", "ms", medians.ours * 1e3, "the limit", 50, AtMost(1)});
  PrintFigure({"boot to the first answered ping", "ms", medians.ours * 1e3,
               "with the echo in the server's place", medians.peers * 1e3});
}

constexpr size_t CHUNK = 1024;

double ChunkSeconds(BootedPhone& phone) {
  return Seconds([&] { phone.Ask(Words({READ_MODEM_IMAGE_CHUNK, ANY}), 4 + CHUNK); });
}

// Compared with a plain copy of the same bytes over the same port. The server has made the port raw and
// waits.
void MeasureFetch() {
  constexpr size_t IMAGE = 81920;
  constexpr int TIMES = 8;  // in a row, so that starting the copy counts little
  ServerPhone phone;
  phone.phone.Root().PutFile("/image", std::string(IMAGE, 'x'));
  const posix::FileDescriptor shell = phone.phone.OpenShell();
  std::string command = "cat";
  for (int i = 0; i < TIMES; ++i) command += " /image";
  command += " > /dev/usb/tts/0\n";

  const auto fetch = [&] {
    double seconds = 0;
    for (size_t chunk = 0; chunk < TIMES * (IMAGE / CHUNK + 1); ++chunk) seconds += ChunkSeconds(phone);
    return seconds;
  };
  const auto copy = [&] {
    return Seconds([&] {
      if (write(shell.Get(), command.data(), command.size()) < 0) throw std::runtime_error("no shell");
      if (phone.host.Receive(TIMES * IMAGE).size() != TIMES * IMAGE)
        throw std::runtime_error("the copy came short");
    });
  };
  copy();
  const Medians medians = MeasureInTurns(15, fetch, copy);
  constexpr double MEGABYTES = TIMES * IMAGE / 1e6;
  PrintFigure({"modem image of 80 KiB fetched in chunks", "MB/s", MEGABYTES / medians.ours,
               "cat of the same bytes", MEGABYTES / medians.peers});
}

// The first chunk, for which the partition is looked up through the shell, counts little among so many.
void MeasureChunk() {
  ServerPhone server;
  EchoPhone echo(4 + CHUNK);
  const Medians medians = MeasureInTurns(
      2000, [&] { return ChunkSeconds(server); }, [&] { return ChunkSeconds(echo); });
  PrintFigure({"one chunk of it", "us", medians.ours * 1e6, "as many bytes by select, read, write",
               medians.peers * 1e6});
}

void MeasureMemory() {
  constexpr uint32_t WIDTH = 1200, HEIGHT = 1600;
  constexpr double MEGABYTE = 1e6;
  ServerPhone server;
  EchoPhone echo;
  PingSeconds(server);
  PingSeconds(echo);
  const double started = server.PeakMemory();
  PrintFigure(
      {"peak memory after start-up", "MB", started / MEGABYTE, "the echo's", echo.PeakMemory() / MEGABYTE});

  constexpr uint32_t BLEMISH = 10;
  const Bytes answer = server.Ask(Words({CAMERA_TEST, BLEMISH, WIDTH, HEIGHT, 90}), 4);
  if (StatusOf(answer) != 0) throw std::runtime_error("no picture: " + std::to_string(StatusOf(answer)));
  PrintFigure({"peak memory of a turned 1200 x 1600 capture", "MB",
               (server.PeakMemory() - started) / MEGABYTE, "its two frames",
               2.0 * WIDTH * HEIGHT * 2 / MEGABYTE});
}

}  // namespace

int main() try {
  UseOneProcessor();
  PrintHeading("Server on the simulated phone");
  MeasureRoundTrip();
  MeasureBoot();
  MeasureFetch();
  MeasureChunk();
  MeasureMemory();
} catch (const std::exception& error) {
  fprintf(stderr, "phone_benchmark: %s\n", error.what());
  return 1;
}
