#include "simulator/phonesim/session.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <thread>
#include <utility>

#include "posix/process_end.h"
#include "posix/whole_output.h"
#include "simulator/models/front_panel.h"
#include "simulator/models/sound.h"
#include "simulator/supervisor/landlock.h"

namespace simulator {
namespace {

std::string TimedLine(const JournalEntry& entry) {
  return fmt::format("{:12.6f} {}\n", std::chrono::duration<double>(entry.time).count(), entry.Line());
}

const char* TaskLimitText(TaskLimit limit) {
  switch (limit) {
    case TaskLimit::ControlGroup:
      return "a control group";
    case TaskLimit::User:
      return "the kernel's limit of the user";
    case TaskLimit::Counting:
      break;
  }
  return "counting";
}

}  // namespace

Session::Session(SessionOptions options) : options_(std::move(options)), phone_(options_.phone) {
  if (!options_.phone.server.empty()) executable_ = IdentifyExecutable(options_.phone.server);
  TakeName();
  if (!options_.journal_file.empty()) {
    const int kept = options_.goes_on ? O_APPEND : O_TRUNC;
    journal_.Reset(open(options_.journal_file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | kept, 0666));
    if (!journal_.IsOpen()) throw posix::OutputLost(LostJournal(strerror(errno)));
  }
  sigset_t ending;
  sigemptyset(&ending);
  for (int number : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&ending, number);
  if (options_.ends_with != 0) {
    owner_ = posix::ProcessEnd(options_.ends_with);
    if (!owner_.IsOpen())
      throw std::runtime_error(fmt::format("There is no process {}.", options_.ends_with));
  }
  signals_.Reset(signalfd(-1, &ending, SFD_CLOEXEC | SFD_NONBLOCK));
  changed_.Reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  phone_.GetJournal().SetListener([this](const JournalEntry& entry) { Record(entry); });
  phone_.SetEnded([this](const PhoneEnd&) { eventfd_write(changed_.Get(), 1); });
  if (!options_.camera_file.empty()) phone_.Command({"camera", "picture", options_.camera_file});
  listening_at_port_ = ListenAtPort(phone_.HostPort());
  phone_.Boot();
  phone_.Command({"launcher", "start"});
}

Session::~Session() {
  phone_.GetJournal().SetListener({});
}

void Session::TakeName() {
  if (!options_.name.empty()) {
    listening_ = ListenAs(options_.name);
    if (!listening_.IsOpen()) {
      throw std::runtime_error(fmt::format("A simulated phone named {} runs already.", options_.name));
    }
  }
  for (int number = 1; !listening_.IsOpen(); ++number) {
    options_.name = number == 1 ? "phone" : fmt::format("phone-{}", number);
    listening_ = ListenAs(options_.name);
  }
}

void Session::Record(const JournalEntry& entry) {
  if (journal_.IsOpen()) {
    const bool as_json = options_.journal_file.ends_with(".json");
    const std::string reason = posix::WriteAll(journal_.Get(), as_json ? entry.JsonLine() : TimedLine(entry));
    if (!reason.empty()) {
      posix::TellLostOutput(LostJournal(reason));
      journal_.Reset();
    }
  }
  if (options_.prints_journal) {
    posix::WriteToOutput(TimedLine(entry));
  }
  if (is_followed_) eventfd_write(changed_.Get(), 1);
}

std::string Session::LostJournal(const std::string& reason) const {
  return fmt::format("cannot write the journal {}: {}", options_.journal_file, reason);
}

void Session::AwaitServer() {
  if (options_.phone.server.empty()) return;
  const auto seen = phone_.GetJournal().WaitFor(
      (OfKind({JournalKind::Value}) && AtPath("/proc/backlight/lcd")) || (OfKind({JournalKind::Event})), 0,
      std::chrono::seconds(5));
  // The journal tells of the end a moment before it is one.
  const bool may_end = seen && seen->kind == JournalKind::Event;
  const auto end = phone_.WaitForEnd(std::chrono::seconds(may_end ? 1 : 0));
  if (end && end->reason != PhoneEnd::Reason::PoweredOff) {
    throw std::runtime_error(fmt::format("The phone does not serve: {}.", end->Text()));
  }
}

PhoneEnd Session::Run() {
  while (true) {
    Wait();
    std::erase_if(clients_, [this](Client& client) { return !GoOn(client); });
    is_followed_ = std::ranges::any_of(clients_, &Client::follows);
    if (stopped_) phone_.Stop();
    if (restarts_) phone_.CutPower();
    const auto end = phone_.WaitForEnd(std::chrono::milliseconds(0));
    if (!end) continue;
    if (!options_.lcd_file.empty()) {
      const std::string lost = posix::WriteWholeFile(
          options_.lcd_file, phone_.With<Framebuffer>([](const Framebuffer& lcd) { return lcd.Png(); }));
      if (!lost.empty()) posix::TellLostOutput(lost);
    }
    for (Client& client : clients_) {
      if (client.awaits_end) {
        for (const std::string& lost : posix::LostOutput()) client.pending += lost + "\n";
        client.awaits_end = false;
      }
      GoOn(client);  // the last entries, for those who follow
    }
    return *end;
  }
}

std::optional<SessionOptions> Session::OptionsOfRestart() const {
  const auto end = phone_.WaitForEnd(std::chrono::milliseconds(0));
  if (!end || end->reason != PhoneEnd::Reason::PowerCut) return std::nullopt;
  SessionOptions options = options_;
  options.goes_on = true;
  if (options.phone.state_directory.empty()) options.phone.kept_files = phone_.TakeKeptFiles();
  return options;
}

void Session::Wait() {
  std::vector<pollfd> polled = {
      {signals_.Get(), POLLIN, 0}, {changed_.Get(), POLLIN, 0}, {owner_.Get(), POLLIN, 0}};
  const size_t first_listening = polled.size();
  const posix::FileDescriptor* listening[] = {&listening_, &listening_at_port_};
  for (const auto* each : listening) polled.push_back({each->Get(), POLLIN, 0});
  const size_t others = polled.size();
  int time_out = -1;
  for (const Client& client : clients_) {
    const int events = !client.served ? POLLIN : client.pending.empty() ? 0 : POLLOUT;
    polled.push_back({client.socket.Get(), static_cast<short>(events), 0});
    if (client.served) continue;
    const int left = client.request_until.MillisecondsLeft();
    time_out = time_out < 0 ? left : std::min(time_out, left);
  }
  if (poll(polled.data(), polled.size(), time_out) < 0) {
    if (errno == EINVAL) throw std::runtime_error("Too few descriptors are allowed for the phone's clients.");
    return;
  }
  eventfd_t ignored_count;
  if (polled[1].revents != 0) eventfd_read(changed_.Get(), &ignored_count);
  for (size_t index = 0; index < std::size(listening); ++index) {
    if (polled[first_listening + index].revents == 0) continue;
    posix::FileDescriptor client = AcceptClient(*listening[index]);
    if (client.IsOpen()) {
      clients_.push_back({std::move(client)});
    } else if (errno == EMFILE || errno == ENFILE) {
      // The client waits until a descriptor is free.
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
  }
  for (size_t index = others; index < polled.size(); ++index) {
    clients_[index - others].gone = (polled[index].revents & (POLLHUP | POLLERR)) != 0;
  }
  if (polled[0].revents != 0 || polled[2].revents != 0) stopped_ = true;
}

void Session::TakeRequest(Client& client) {
  if (!ReceiveRequest(client.socket, client.request)) return;
  client.served = true;
  const std::vector<std::string> words = WordsOf(client.request);
  if (words.empty()) return;
  try {
    Serve(client, words);
  } catch (const posix::OutputLost& lost) {
    client.pending = fmt::format("{}{}\n", ANSWER_LOST, lost.what());
  } catch (const std::exception& failure) {
    client.pending = fmt::format("{}{}\n", ANSWER_BAD, failure.what());
  }
}

void Session::Serve(Client& client, const std::vector<std::string>& words) {
  std::string text;
  if (words[0] == "shell") {
    SendDescriptor(client.socket, phone_.OpenShell().Get());
    return;
  }
  if (words[0] == "lcd") {
    const auto opened = phone_.With<Framebuffer>([](const Framebuffer& lcd) { return lcd.OpenToRead(); });
    SendDescriptor(client.socket, opened.Get());
    return;
  }
  if (words[0] == "listen") {
    SendDescriptor(client.socket, phone_.With<Sound>([](Sound& sound) { return sound.Listen(); }).Get());
    return;
  }
  if (words[0] == "journal") {
    StartJournal(client, words);
  } else if (words[0] == "stop") {
    stopped_ = true;
    client.awaits_end = words.size() > 1 && words[1] == "--wait";
  } else if (words[0] == "restart") {
    restarts_ = true;
  } else if (words[0] == "status") {
    text = words.size() > 1 && words[1] == "--json" ? StatusAsJson() : Status();
  } else if (words[0] == "name") {
    text = options_.name;
  } else if (words[0] == "host-port") {
    text = phone_.HostPort();
  } else if (words[0] == "defects") {
    text = Defects();
  } else if (words[0] == "file-word") {
    text = FileWordOf({words.begin() + 1, words.end()});
  } else {
    text = phone_.Command(words);
  }
  client.pending = ANSWER_GOOD + text;
}

void Session::StartJournal(Client& client, const std::vector<std::string>& words) {
  is_followed_ = true;  // perhaps, and before the mark is taken: no entry comes unnoticed
  const size_t mark = phone_.GetJournal().Mark();
  client.journal_next = 0;
  for (size_t index = 1; index < words.size(); ++index) {
    if (words[index] == "--follow") {
      client.follows = true;
    } else if (words[index] == "--json") {
      client.wants_json = true;
    } else if (words[index] == "--last" && index + 1 < words.size()) {
      client.journal_next = mark - std::min(mark, static_cast<size_t>(CountWord(words[++index])));
    }
  }
  if (!client.follows) client.journal_end = mark;
}

// Puts the next piece of the journal before the client; a slow one keeps no more than that waiting here.
void Session::TakeJournal(Client& client) {
  constexpr size_t PIECE = 500;
  const Journal::Piece piece = phone_.GetJournal().Next(client.journal_next, PIECE);
  if (piece.dropped != 0 && !client.wants_json) {
    client.pending += fmt::format("({} entries came and went before they could be shown)\n", piece.dropped);
  }
  for (const JournalEntry& entry : piece.entries)
    client.pending += client.wants_json ? entry.JsonLine() : TimedLine(entry);
  client.journal_next = piece.mark;
}

// Returns false when the client has its whole answer, has gone, or is too slow to ask.
bool Session::GoOn(Client& client) {
  if (!client.served) TakeRequest(client);
  if (client.gone && (client.follows || client.awaits_end))
    return false;  // before there is something to send to it
  if (!client.served) return !client.request_until.HasPassed();
  const size_t journal_end = std::min(phone_.GetJournal().Mark(), client.journal_end);
  while (client.journal_next < journal_end && SendSome(client.socket, client.pending) &&
         client.pending.empty())
    TakeJournal(client);
  return SendSome(client.socket, client.pending) &&
         (client.follows || client.awaits_end || !client.pending.empty());
}

std::string Session::Status() const {
  std::string text = fmt::format("{}: {}, host port {}, server process {}, simulator process {}",
                                 options_.name, phone_.IsRunning() ? "running" : "ended", phone_.HostPort(),
                                 phone_.ServerProcess(), getpid());
  if (executable_) text += fmt::format(", executable {} ({})", executable_->path, executable_->processor);
  text += ", confined by a root directory and a list of allowed system calls";
  if (const auto confinement = phone_.GetConfinement()) {
    const std::string landlock = LandlockText(confinement->landlock);
    text += landlock.empty() ? ", not by Landlock" : fmt::format(", by Landlock ({})", landlock);
    text += fmt::format(", number of processes held by {}", TaskLimitText(confinement->tasks));
  }
  text += ", limited to " + options_.phone.limits.Text();
  for (const std::string& lost : posix::LostOutput()) text += ", " + lost;
  return text + "\n";
}

std::string Session::StatusAsJson() const {
  nlohmann::ordered_json status = {{"name", options_.name},
                                   {"running", phone_.IsRunning()},
                                   {"host_port", phone_.HostPort()},
                                   {"server_process", phone_.ServerProcess()},
                                   {"simulator_process", getpid()}};
  if (posix::IsOutputLost()) status["output_lost"] = posix::LostOutput();
  if (executable_) {
    status["executable"] = {
        {"path", executable_->path}, {"processor", executable_->processor}, {"sha256", executable_->sha256}};
  }
  if (const auto confinement = phone_.GetConfinement()) {
    status["confinement"] = {{"landlock", LandlockText(confinement->landlock)},
                             {"processes", TaskLimitText(confinement->tasks)}};
  }
  return status.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

std::string Session::Defects() {
  std::string lines;
  for (const ModelCommand& command : phone_.Commands()) {
    for (std::vector<std::string> words : command.defects) {
      words.insert(words.begin(), command.name);
      lines += nlohmann::json(words).dump() + "\n";
    }
  }
  return lines;
}

std::string Session::FileWordOf(const std::vector<std::string>& words) {
  const std::vector<ModelCommand> commands = phone_.Commands();
  const auto command = std::ranges::find(commands, words.at(0), &ModelCommand::name);
  if (command == commands.end()) throw std::invalid_argument(words[0]);
  if (!command->file) return "";
  const FileWord& file = *command->file;
  const bool meant = file.subcommand.empty() || (words.size() > 1 && words[1] == file.subcommand);
  const size_t place = 1 + file.place;
  if (!meant || place >= words.size()) return "";
  return fmt::format("{} {}", file.opener == FileWord::Opener::Caller ? FILE_OF_CALLER : FILE_OF_PHONE,
                     place);
}

}  // namespace simulator
