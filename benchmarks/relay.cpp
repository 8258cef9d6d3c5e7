// The modem pass-through relay, compared with socat between the same two ports of a simulated phone. Both
// hand on what the simulator sends and takes, so the relays' own processor time is printed as well.
#include <algorithm>
#include <cstdio>
#include <exception>
#include <thread>

#include "benchmarks/booted_phone.h"
#include "benchmarks/figures.h"
#include "simulator/models/serial_ports.h"

namespace {

constexpr uint32_t PASS_THROUGH = 0x3D;
constexpr uint32_t ANY = 0;
constexpr int ROUNDS = 31;
constexpr char HOST_PORT[] = "/dev/usb/tts/0";
constexpr char MODEM_PORT[] = "/dev/csmi_tty/7";

// A running relay, with this program at both ends.
struct Relay {
  BootedPhone& phone;
  HostLine modem;

  explicit Relay(BootedPhone& booted)
      : phone(booted), modem(booted.phone.With<simulator::ModemDataPort>([](auto& port) {
          return port.ModemSide().DevicePath();
        })) {}

  double RoundTripSeconds() {
    return Seconds([&] {
      phone.host.Send({0x55});
      if (modem.Receive(1).empty()) throw std::runtime_error("nothing came through");
      modem.Send({0xAA});
      if (phone.host.Receive(1).empty()) throw std::runtime_error("nothing came back");
    });
  }

  // Sends a number of bytes from the host, in writes of one size.
  double TransferSeconds(size_t total, size_t write_size) {
    const Bytes piece(write_size, 0x55);
    return Seconds([&] {
      std::thread sender([&] {
        for (size_t sent = 0; sent < total; sent += write_size) phone.host.Send(piece);
      });
      const size_t received = modem.Receive(total).size();
      sender.join();
      if (received != total) throw std::runtime_error("bytes were lost on their way");
    });
  }
};

void MeasureTransfer(Relay& server, Relay& socat, size_t total, size_t write_size, const std::string& what) {
  const double server_start = server.phone.ProcessorSeconds(), socat_start = socat.phone.ProcessorSeconds();
  const Medians medians = MeasureInTurns(
      15, [&] { return server.TransferSeconds(total, write_size); },
      [&] { return socat.TransferSeconds(total, write_size); });
  const double megabytes = static_cast<double>(total) / 1e6;
  PrintFigure({what, "MB/s", megabytes / medians.ours, "socat", megabytes / medians.peers, AtLeast(1)});
  PrintFigure({what + ": processor", "us/KB",
               (server.phone.ProcessorSeconds() - server_start) * 1e3 / ROUNDS / megabytes, "socat",
               (socat.phone.ProcessorSeconds() - socat_start) * 1e3 / ROUNDS / megabytes});
}

}  // namespace

int main() try {
  UseOneProcessor();
  ServerPhone server_phone;
  server_phone.Ask(Words({PASS_THROUGH, ANY}), 4);
  const std::string raw = ",raw,echo=0";
  BootedPhone socat_phone("/usr/bin/socat", {HOST_PORT + raw, MODEM_PORT + raw},
                          std::string("open ") + MODEM_PORT + " rw+append");
  Relay server(server_phone), socat(socat_phone);

  PrintHeading("Modem pass-through");
  const Medians round_trip = MeasureInTurns(
      3000, [&] { return server.RoundTripSeconds(); }, [&] { return socat.RoundTripSeconds(); });
  PrintFigure({"one byte to the modem and one back", "us", round_trip.ours * 1e6, "socat",
               round_trip.peers * 1e6, AtMost(1)});
  MeasureTransfer(server, socat, 4 << 20, 4096, "writes of 4 KiB");
  MeasureTransfer(server, socat, 4 << 20, 64, "writes of 64 bytes");
} catch (const std::exception& error) {
  fprintf(stderr, "relay_benchmark: %s\n", error.what());
  return 1;
}
