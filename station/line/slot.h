// One place of the line where a phone is tested: its port, the values that were scanned for the phone that is
// there, the run in a thread of its own, and what the operator is shown. No slot waits for another.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "station/line/line_order.h"
#include "station/line/line_settings.h"
#include "station/line/line_store.h"
#include "station/line/page_operator.h"
#include "station/line/run_progress.h"
#include "station/line/scanned_phone.h"
#include "station/line/step_times.h"

namespace station {

class LineSlot {
 public:
  enum class State { Idle, Ready, Checking, Running, Aborting, Finished };

  // All references must outlive the slot. `changed` is called, from any thread, whenever View() has changed.
  LineSlot(SlotOrder order, const LineOrder& line, const LineSettings& settings, LineStore& store,
           StepTimes& times, std::function<void()> changed);
  LineSlot(const LineSlot&) = delete;
  LineSlot& operator=(const LineSlot&) = delete;
  // Aborts the run and waits for its end.
  ~LineSlot();

  const SlotOrder& Order() const {
    return order_;
  }

  // Each of these is something that the operator does. It returns why it cannot be done, in a sentence, or
  // nothing when it is done. `who` is the operator's name; it may be empty.

  // The next value of the phone: its serial number first. After the last one the run starts. When a verdict
  // is shown, this is the next phone.
  std::string Enter(const std::string& value, const std::string& who);
  // Asks for what the settings want from now on, if no phone is there.
  void Renew();
  // Forgets the values that were entered, before the run.
  std::string Clear();
  std::string AnswerQuestion(std::uint64_t question, Answer::Reply reply, const std::string& who);
  std::string Abort(const std::string& who);
  // Tests the same phone again, with the same values.
  std::string Retest(const std::string& who);

  // All that the card shows, as docs/line.md describes it.
  nlohmann::ordered_json View() const;

  // The picture of this question; nothing if it has none or is no longer open.
  std::optional<Attachment> QuestionPicture(std::uint64_t question) const;

  State GetState() const;

  // Before the destructor, so that several slots end at the same time.
  void RequestEnd() {
    thread_.request_stop();
  }

 private:
  void NewPhone();
  void Start(const std::string& who);
  void Work(const std::stop_token& stop);
  // Returns false if the phone may not be tested now: the card says why, or asks for the reason.
  bool MayStart();
  void RunPhone(const std::stop_token& stop);
  StepResult WithAborter(StepResult result) const;
  void NoteStarted(std::size_t step);
  void NoteFinished(std::size_t step, const StepResult& result);
  void Refuse(const std::string& sentence);

  const SlotOrder order_;
  const LineOrder& line_;
  const LineSettings& settings_;
  LineStore& store_;
  StepTimes& times_;
  const std::function<void()> changed_;
  PageOperator person_;

  mutable std::mutex mutex_;
  State state_ = State::Idle;
  ScannedPhone phone_;
  RunProgress progress_;
  std::string operator_name_;
  std::string aborted_by_;
  nlohmann::ordered_json verdict_ = nullptr;  // of the phone that was tested last

  std::jthread thread_;
};

}  // namespace station
