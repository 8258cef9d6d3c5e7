#include "server/service/bluetooth_commands.h"

#include "server/base/little_endian.h"

int32_t RunToolFunction1(const Words<3>& request, NoData&) {
  return BtToolFunction1(request.word[0], request.word[1], request.word[2]);
}

int32_t RunToolFunction2(const Ignored&, BluetoothAddress& address) {
  return BtToolFunction2(address.byte);
}

// Three words, as function 1 takes, so that a host sends both alike; the third goes nowhere.
int32_t RunToolFunction3(const Words<3>& request, Words<1>& result) {
  return BtToolFunction3(request.word[0], request.word[1], &result.word[0]);
}

int32_t RunToolFunction4(const BlockRequest& request, BlockResult& result) {
  return BtToolFunction4(request.address, LoadLittle32(request.length), request.data, &result.count,
                         result.data);
}

int32_t RunToolFunction5(const CodeRequest& request, CodeResult& result) {
  result.end_mark = 0xFF;
  return BtToolFunction5(request.address, request.characters, result.data);
}

int32_t RunToolFunction6(const Words<1>& request, Words<1>& result) {
  return BtToolFunction6(request.word[0], &result.word[0]);
}

int32_t RunToolFunction7(const Words<1>& request, LongAddress& result) {
  return BtToolFunction7(request.word[0], result.address);
}
