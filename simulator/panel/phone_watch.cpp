#include "simulator/panel/phone_watch.h"

#include <fmt/format.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>
#include <utility>

#include "simulator/panel/picture_text.h"
#include "web/base64.h"

namespace simulator {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;

// How soon a change of the LCD is seen, and how long from one picture to the next.
constexpr auto LCD_LOOK = 15ms;
constexpr auto LCD_PACE = 40ms;
constexpr auto LINES_PACE = 50ms;
// How often the state is asked for: when something happens in the phone, and otherwise.
constexpr auto BUSY_PACE = 60ms;
constexpr auto IDLE_PACE = 1000ms;
constexpr auto RETRY = 250ms;
constexpr auto QUICK_ANSWER = 2s;

constexpr size_t LINES_OF_A_PIECE = 200;
constexpr size_t KEPT_PIECES = 200;
constexpr char LINES_OF_BEFORE[] = "400";
constexpr size_t KEPT_SOUND = 40;

constexpr const char* TOPICS[] = {"phone", "lcd", "state", "exchanges", "journal", "sound"};

std::string Dump(const json& value) {
  return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

}  // namespace

PhoneWatch::PhoneWatch(std::string phone, web::EventHub& hub)
    : phone_(std::move(phone)), hub_(hub), wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (!wake_.IsOpen()) posix::ThrowErrno("eventfd");
  thread_ = std::thread([this] { Work(); });
}

PhoneWatch::~PhoneWatch() {
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
  }
  eventfd_write(wake_.Get(), 1);
  thread_.join();
}

bool PhoneWatch::IsTopic(const std::string& topic) {
  const size_t slash = topic.find('/');
  if (slash == std::string::npos || slash == 0 || slash > 100) return false;
  const std::string_view allowed = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._-";
  if (topic.find_first_not_of(allowed) != slash) return false;
  return std::ranges::find(TOPICS, topic.substr(slash + 1)) != std::end(TOPICS);
}

void PhoneWatch::Want(const std::string& topic, bool wanted) {
  {
    const std::lock_guard lock(mutex_);
    const std::string name = topic.substr(phone_.size() + 1);
    if (wanted) {
      wanted_.insert(name);
    } else {
      wanted_.erase(name);
    }
    look_soon_ = true;
  }
  eventfd_write(wake_.Get(), 1);
}

void PhoneWatch::LookSoon() {
  {
    const std::lock_guard lock(mutex_);
    look_soon_ = true;
  }
  eventfd_write(wake_.Get(), 1);
}

bool PhoneWatch::Wants(const std::string& topic) const {
  const std::lock_guard lock(mutex_);
  return !ending_ && wanted_.contains(topic);
}

bool PhoneWatch::WantsAny() const {
  const std::lock_guard lock(mutex_);
  return !ending_ && !wanted_.empty();
}

void PhoneWatch::Sleep(std::chrono::milliseconds time) {
  pollfd polled = {wake_.Get(), POLLIN, 0};
  poll(&polled, 1, static_cast<int>(time.count()));
  eventfd_t ignored;
  eventfd_read(wake_.Get(), &ignored);
}

void PhoneWatch::Publish(const std::string& topic, const std::string& data, web::TopicKind kind,
                         size_t keep) {
  hub_.Publish(phone_ + "/" + topic, data, kind, keep);
}

void PhoneWatch::Work() {
  while (true) {
    {
      const std::lock_guard lock(mutex_);
      if (ending_) return;
    }
    if (!WantsAny()) {
      Sleep(std::chrono::milliseconds(-1));
      continue;
    }
    std::optional<Contact> contact = Reach();
    if (!contact) {
      Sleep(RETRY);
      continue;
    }
    Follow(*contact);
  }
}

// Gets in touch with the phone. Returns nothing if it does not run.
std::optional<PhoneWatch::Contact> PhoneWatch::Reach() {
  Contact contact;
  contact.journal = std::make_unique<PhoneRequest>(
      phone_, std::vector<std::string>{"journal", "--follow", "--last", LINES_OF_BEFORE},
      posix::Deadline(QUICK_ANSWER));
  if (!contact.journal->TakeStatus().good) {
    PublishPhone(false);
    return std::nullopt;
  }
  ++boot_;
  for (const char* topic : TOPICS) hub_.Forget(phone_ + "/" + topic);
  PublishPhone(true);
  return contact;
}

void PhoneWatch::PublishPhone(bool running) {
  json status = json::object();
  if (running) {
    const Answer answer =
        PhoneRequest(phone_, {"status", "--json"}, posix::Deadline(QUICK_ANSWER)).TakeAnswer();
    if (answer.good) status = json::parse(answer.text, nullptr, false);
    if (!status.is_object()) status = json::object();
  }
  status["running"] = running;
  status["boot"] = boot_;
  Publish("phone", Dump(status));
}

void PhoneWatch::Follow(Contact& contact) {
  while (WantsAny()) {
    try {
      Open(contact);
    } catch (const std::exception&) {
      break;  // it ends
    }
    pollfd polled[] = {{wake_.Get(), POLLIN, 0},
                       {contact.journal->Socket().Get(), POLLIN, 0},
                       {contact.sound.Get(), POLLIN, 0}};  // none: poll leaves it alone
    if (poll(polled, std::size(polled), TimeOut(contact)) < 0 && errno != EINTR) posix::ThrowErrno("poll");
    if (polled[0].revents != 0) {
      eventfd_t ignored;
      eventfd_read(wake_.Get(), &ignored);
      contact.state_due = Clock::now();
    }
    if (polled[1].revents != 0 && !TakeJournal(contact)) break;
    if (polled[2].revents != 0) TakeSound(contact);
    Look(contact);
  }
  PublishLines(contact);
  if (WantsAny()) PublishPhone(false);
}

void PhoneWatch::Open(Contact& contact) {
  if (Wants("lcd") && contact.lcd == nullptr) contact.lcd = std::make_unique<LcdView>(phone_);
  if (!Wants("lcd")) contact.lcd.reset();
  if (Wants("sound") && !contact.sound.IsOpen()) contact.sound = ListenTo(phone_);
  if (!Wants("sound")) contact.sound.Reset();
}

int PhoneWatch::TimeOut(const Contact& contact) const {
  Clock::time_point next = contact.state_due;
  if (contact.lcd != nullptr) next = std::min(next, contact.lcd_due);
  if (!contact.lines.empty()) next = std::min(next, contact.lines_due);
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(next - Clock::now()).count();
  return static_cast<int>(std::clamp<int64_t>(left, 0, std::chrono::milliseconds(IDLE_PACE).count()));
}

// Returns false if the phone has ended.
bool PhoneWatch::TakeJournal(Contact& contact) {
  char bytes[1 << 16];
  const ssize_t size = read(contact.journal->Socket().Get(), bytes, sizeof bytes);
  if (size < 0) return errno == EAGAIN || errno == EINTR;
  if (size == 0) return false;
  contact.state_due = std::min(contact.state_due, std::max(contact.next_state, Clock::now()));
  if (!Wants("journal")) return true;
  contact.unfinished_line.append(bytes, static_cast<size_t>(size));
  size_t start = 0;
  for (size_t end; (end = contact.unfinished_line.find('\n', start)) != std::string::npos; start = end + 1) {
    if (contact.lines.size() < 2 * LINES_OF_A_PIECE) {
      contact.lines.push_back(contact.unfinished_line.substr(start, end - start));
    } else {
      ++contact.dropped_lines;
    }
  }
  contact.unfinished_line.erase(0, start);
  return true;
}

void PhoneWatch::TakeSound(Contact& contact) {
  std::vector<uint8_t> message(MOST_SOUND_MESSAGE);
  const ssize_t size = recv(contact.sound.Get(), message.data(), message.size(), MSG_DONTWAIT);
  if (size <= 0) return contact.sound.Reset();
  SoundPiece piece = {};
  const std::vector<int16_t> samples = SamplesOf({message.data(), static_cast<size_t>(size)}, piece);
  const auto* pcm = reinterpret_cast<const uint8_t*>(samples.data());
  Publish("sound",
          Dump({{"rate", piece.sample_rate},
                {"channels", piece.channels},
                {"pcm", web::Base64({pcm, samples.size() * sizeof(int16_t)})}}),
          web::TopicKind::Live, KEPT_SOUND);
}

void PhoneWatch::Look(Contact& contact) {
  const auto now = Clock::now();
  if (contact.lcd != nullptr && now >= contact.lcd_due) {
    const bool changed = contact.lcd->Look();
    if (changed) PublishLcd(contact);
    contact.lcd_due = now + (changed ? LCD_PACE : LCD_LOOK);
  }
  if (!contact.lines.empty() && now >= contact.lines_due) {
    PublishLines(contact);
    contact.lines_due = now + LINES_PACE;
  }
  if (now >= contact.state_due) {
    PublishState(contact);
    contact.next_state = Clock::now() + BUSY_PACE;
    contact.state_due = Clock::now() + IDLE_PACE;
  }
}

void PhoneWatch::PublishLcd(const Contact& contact) {
  Publish("lcd", PictureText(contact.lcd->Pixels()));
}

void PhoneWatch::PublishLines(Contact& contact) {
  if (contact.lines.empty()) return;
  for (size_t start = 0; start < contact.lines.size(); start += LINES_OF_A_PIECE) {
    const size_t end = std::min(start + LINES_OF_A_PIECE, contact.lines.size());
    const std::vector<std::string> piece(contact.lines.begin() + static_cast<ptrdiff_t>(start),
                                         contact.lines.begin() + static_cast<ptrdiff_t>(end));
    Publish("journal", Dump({{"lines", piece}, {"dropped", std::exchange(contact.dropped_lines, 0)}}),
            web::TopicKind::Log, KEPT_PIECES);
  }
  contact.lines.clear();
}

void PhoneWatch::PublishState(Contact& contact) {
  const auto ask = [this](const std::vector<std::string>& words) {
    return PhoneRequest(phone_, words, posix::Deadline(QUICK_ANSWER)).TakeAnswer();
  };
  if (Wants("state")) {
    Answer answer = ask({"state"});
    if (answer.text.ends_with('\n')) answer.text.pop_back();
    if (answer.good && answer.text != contact.state) Publish("state", contact.state = answer.text);
  }
  if (!Wants("exchanges")) return;
  const Answer answer = ask({"exchanges", std::to_string(contact.last_exchange)});
  const json list = answer.good ? json::parse(answer.text, nullptr, false) : json();
  if (!list.is_array() || list.empty()) return;
  // One that goes on is published again when it is whole.
  for (const json& exchange : list) {
    if (exchange.value("whole", true)) contact.last_exchange = exchange.value("number", 0);
  }
  Publish("exchanges", Dump(list), web::TopicKind::Log, KEPT_PIECES);
}

}  // namespace simulator
