// The server's routines that read text or files which are not its own: what a tool prints, what the modem
// answers, the lists of the kernel, the template.
#include <algorithm>
#include <array>
#include <cstring>
#include <memory>

#include "server/bluetooth/test_tool.h"
#include "server/flash/bluetooth_info.h"
#include "server/flash/partition.h"
#include "server/maintenance/configuration.h"
#include "server/modem/at_port.h"
#include "tests/fuzz/fed_calls.h"
#include "tests/fuzz/target.h"

namespace {

// Rooms of the exact size on the heap: the sanitizer sees a byte too many.
using Room = std::unique_ptr<uint8_t[]>;

void TryBluetoothTool(Input input) {
  const uint8_t function = input.Byte() % 7;
  const auto a = static_cast<int32_t>(input.Word()), b = static_cast<int32_t>(input.Word());
  const std::vector<uint8_t> address = input.Bytes(BT_ADDRESS_SIZE), data = input.Bytes(BT_BLOCK_SIZE);
  const Feed feed(input.Text());
  const Room result(new uint8_t[BT_CODE_RESULT_SIZE]());
  const Room address_out(new uint8_t[BT_ADDRESS_SIZE]());
  const auto number = std::make_unique<int32_t>(77);
  switch (function) {
    case 0:
      BtToolFunction1(a, b, 3);
      break;
    case 1:
      BtToolFunction2(address_out.get());
      break;
    case 2:
      BtToolFunction3(a, b, number.get());
      break;
    case 3: {
      const Room block(new uint8_t[BT_BLOCK_SIZE]());
      uint32_t count = 0;
      BtToolFunction4(address.data(), static_cast<uint32_t>(a), data.data(), &count, block.get());
      Check(count <= BT_BLOCK_SIZE, "at most 16 result bytes");
      Check(std::all_of(block.get() + count, block.get() + BT_BLOCK_SIZE,
                        [](uint8_t byte) { return byte == 0; }),
            "no byte after those counted");
      break;
    }
    case 4:
      BtToolFunction5(address.data(), data.data(), result.get());
      break;
    case 5:
      BtToolFunction6(a, number.get());
      break;
    default:
      BtToolFunction7(a, address_out.get());
      break;
  }
}

void TryVersions(Input input) {
  const Feed feed(input.Text());
  const auto text = std::make_unique<std::array<char, VERSION_LENGTH + 1>>();
  ReadVersions(text->data(), nullptr, nullptr);
  Check(std::ranges::count(*text, '\0') != 0, "the text has an end");
  Check(strpbrk(text->data(), " \t\n") == nullptr, "it is one word");
}

void TryPartitionList(Input input) {
  const std::string name = input.Line();
  const Feed feed(input.Text());
  std::vector<char> path(PATH_SIZE, '#');
  const int32_t number = FindMtdIndex(path.data(), path.size(), name.c_str());
  Check(number == -1 || std::ranges::count(path, '\0') == 1, "the path has an end");
}

// Where the address goes, said once more: after the first 06 FC 06 that is found without a step back.
size_t PlaceOfAddress(const std::string& script) {
  size_t matched = 0;
  for (size_t at = 0; at < script.size(); ++at) {
    matched = script[at] == "\x06\xFC\x06"[matched] ? matched + 1 : 0;
    if (matched == 3) return at + 1;
  }
  return script.size();
}

void TryTemplate(Input input) {
  const std::vector<uint8_t> address = input.Bytes(BLUETOOTH_ADDRESS_SIZE);
  const std::string script = input.Text();
  if (script.size() > 16384) return;  // that leaks the descriptor on purpose
  Feed feed(script);
  feed.mtd_lines = "mtd3: 00020000 00020000 \"Bluetooth Info\"\n";
  const int32_t status = WriteBluetoothInfo(address.data());
  const size_t place = PlaceOfAddress(script);
  Check((status == SUCCESS) == (place + BLUETOOTH_ADDRESS_SIZE <= script.size()),
        "whole records are patched");
  if (status != SUCCESS) return;
  std::string expected = script;
  std::copy(address.begin(), address.end(), expected.begin() + static_cast<ptrdiff_t>(place));
  Check(feed.written == expected, "the template with the address in it is written");
}

void TryModemReplies(Input input) {
  const uint8_t timeout = input.Byte();
  const std::string command = input.Line();
  const Feed feed(input.Text());
  std::vector<char> response(AT_RESPONSE_SIZE);
  ModemAtExchange(command.c_str(), response.data(), timeout == 255 ? -1 : timeout * 100);
  CheckModemSim();
}

const bool added = AddTargets({{"bluetooth_tool", TryBluetoothTool},
                               {"versions", TryVersions},
                               {"partition_list", TryPartitionList},
                               {"bluetooth_template", TryTemplate},
                               {"modem_replies", TryModemReplies}});

}  // namespace
