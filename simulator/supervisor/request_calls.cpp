// Driver requests (ioctl) on the phone's devices.
#include <algorithm>
#include <cerrno>
#include <utility>

#include "simulator/supervisor/phone_processes.h"
#include "simulator/supervisor/system_calls.h"

namespace simulator {
namespace {

struct RequestWords {
  uint32_t number;
  uint64_t argument;
  uint64_t memory;  // where the caller's address 0 lies in the PC's process
};

// None if the words are not in the caller's memory.
std::optional<RequestWords> WordsOf(const TrappedCall& call) {
  if (call.Kind() != Call::CarriedRequest) {
    return RequestWords{static_cast<uint32_t>(call.Argument(1)), call.Argument(2), 0};
  }
  struct {
    uint32_t own_address;  // as the emulated program knows it
    uint32_t argument;
  } box;
  const uint64_t box_address = call.Argument(1);
  if (!ReadMemory(call.Thread(), box_address, &box, sizeof box)) return std::nullopt;
  return RequestWords{static_cast<uint32_t>(call.Argument(3)), box.argument, box_address - box.own_address};
}

class PhoneRequest : public DriverRequest, public std::enable_shared_from_this<PhoneRequest> {
 public:
  PhoneRequest(std::shared_ptr<TrappedCall> call, const RequestWords& words, std::string device_path,
               Journal& journal)
      : call_(std::move(call)), address_(words.memory + words.argument), journal_(journal) {
    path = std::move(device_path);
    descriptor = call_->IntArgument(0);
    number = words.number;
    argument = words.argument;
    thread = call_->Thread();
  }

  bool Read(void* bytes, size_t size) override {
    if (!ReadMemory(thread, address_, bytes, size) || !call_->StillWaits()) return false;
    const auto* first = static_cast<const uint8_t*>(bytes);
    bytes_in_.assign(first, first + size);
    return true;
  }

  bool Write(const void* bytes, size_t size) override {
    if (!call_->StillWaits() || !WriteMemory(thread, address_, bytes, size)) return false;
    const auto* first = static_cast<const uint8_t*>(bytes);
    bytes_out_.assign(first, first + size);
    return true;
  }

  int64_t FilePosition() const override {
    const int64_t position = DescriptorPosition(thread, descriptor);
    return call_->StillWaits() ? position : 0;
  }

  std::shared_ptr<DriverRequest> Hold() override {
    return shared_from_this();
  }

  void Answer(RequestAnswer answer) override {
    journal_.Add({.kind = JournalKind::Request,
                  .process = thread,
                  .path = path,
                  .request = number,
                  .bytes_in = std::move(bytes_in_),
                  .bytes_out = std::move(bytes_out_),
                  .result = answer.error == 0 ? answer.result : 0,
                  .error = answer.error});
    if (answer.error != 0) return call_->Refuse(answer.error);
    call_->Answer(answer.result);
  }

 private:
  std::shared_ptr<TrappedCall> call_;
  uint64_t address_;  // of the argument's bytes, if it is an address
  Journal& journal_;
  std::vector<uint8_t> bytes_in_;
  std::vector<uint8_t> bytes_out_;
};

}  // namespace

void SystemCalls::RequestDevice(const CallPointer& call) {
  const std::optional<struct stat> status = StatDescriptor(call->Thread(), call->IntArgument(0));
  const std::optional<RequestWords> words = WordsOf(*call);
  if (!call->StillWaits()) return;
  if (!words) return call->Refuse(EFAULT);
  const DescriptorTable::Device* device = status ? descriptors_.Find(*status) : nullptr;
  // Never passed on: a socket, which some devices are, would take an owner whom the kernel then signals.
  if (device == nullptr) return call->Refuse(status ? ENOTTY : EBADF);

  auto request = std::make_shared<PhoneRequest>(call, *words, device->path, phone_.journal);
  FaultRule rule;
  if (const auto strike = faults_.Strike(FaultCall::Request, device->path, request->number)) rule = *strike;
  After(rule, call, [this, call, request, rule, model = device->model] {
    if (rule.error != 0) return request->Answer(RequestAnswer::Refusal(rule.error));
    const RequestAnswer answer = model->Request(*request);
    if (answer.later) return Hold(call);
    request->Answer(answer);
  });
}

}  // namespace simulator
