// Driver requests (ioctl) on the phone's devices.
#include <algorithm>
#include <cerrno>
#include <utility>

#include "simulator/supervisor/phone_processes.h"
#include "simulator/supervisor/system_calls.h"

namespace simulator {
namespace {

class PhoneRequest : public DriverRequest, public std::enable_shared_from_this<PhoneRequest> {
 public:
  PhoneRequest(std::shared_ptr<TrappedCall> call, std::string device_path, Journal& journal)
      : call_(std::move(call)), journal_(journal) {
    path = std::move(device_path);
    descriptor = call_->IntArgument(0);
    number = static_cast<uint32_t>(call_->Argument(1));
    argument = call_->Argument(2);
    thread = call_->Thread();
  }

  bool Read(void* bytes, size_t size) override {
    if (!ReadMemory(thread, argument, bytes, size) || !call_->StillWaits()) return false;
    const auto* first = static_cast<const uint8_t*>(bytes);
    bytes_in_.assign(first, first + size);
    return true;
  }

  bool Write(const void* bytes, size_t size) override {
    if (!call_->StillWaits() || !WriteMemory(thread, argument, bytes, size)) return false;
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
  Journal& journal_;
  std::vector<uint8_t> bytes_in_;
  std::vector<uint8_t> bytes_out_;
};

}  // namespace

void SystemCalls::RequestDevice(const CallPointer& call) {
  const std::optional<struct stat> status = StatDescriptor(call->Thread(), call->IntArgument(0));
  if (!call->StillWaits()) return;
  const DescriptorTable::Device* device = status ? descriptors_.Find(*status) : nullptr;
  if (device == nullptr) return call->PassOn();

  auto request = std::make_shared<PhoneRequest>(call, device->path, phone_.journal);
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
