#include "simulator/panel/panel.h"

#include <fmt/format.h>
#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>

#include <algorithm>
#include <chrono>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

#include "posix/process_end.h"
#include "simulator/control/control_socket.h"

namespace web {
Assets PanelAssets();
}

namespace simulator {
namespace {

using nlohmann::json;
using web::Refused;
using web::Reply;
using web::Visit;

using Words = std::vector<std::string>;

constexpr char PHONE_NAME[] = "([A-Za-z0-9][A-Za-z0-9._-]*)";
constexpr char PHONES[] = "phones";

// What a page may do to a phone. Left out are commands that read or write files of the PC.
constexpr std::string_view COMMANDS[] = {"key",     "touch",   "unplug",  "plug",  "replug",   "card",
                                         "radio",   "modem",   "clock",   "fault", "otp",      "clear-faults",
                                         "missing", "present", "waiting", "gpio",  "launcher", "bluetooth",
                                         "stop",    "camera",  "restart"};

bool IsAllowed(const Words& words) {
  if (words.empty() || std::ranges::find(COMMANDS, words[0]) == std::end(COMMANDS)) return false;
  return words[0] != "camera" || words.size() < 2 || words[1] != "picture";
}

bool IsLoopback(const std::string& address) {
  return address.starts_with("127.") || address == "::1" || address == "localhost";
}

// A page's request as words, from {"words": ["key", "down", "power"]}.
Words WordsOfBody(const std::string& body) {
  const json request = json::parse(body, nullptr, false);
  if (!request.is_object() || !request.contains("words"))
    throw Refused(400, "The words of a command are wanted.");
  try {
    return request["words"].get<Words>();
  } catch (const json::exception&) {
    throw Refused(400, "The words of a command are texts.");
  }
}

std::string Ask(const std::string& phone, const Words& words) {
  Answer answer = PhoneRequest(phone, words).TakeAnswer();
  while (answer.text.ends_with('\n') && !answer.good) answer.text.pop_back();
  if (!answer.good) throw Refused(409, answer.text);
  return answer.text;
}

const web::Asset& AssetNamed(std::string_view name) {
  const web::Assets assets = web::PanelAssets();
  return *std::ranges::find(assets, name, &web::Asset::name);
}

Reply PageNamed(std::string_view name) {
  const web::Asset& page = AssetNamed(name);
  return {.content_type = std::string(page.content_type), .body = std::string(page.content)};
}

// What stands in the phone's storage, and what the camera sees.
Reply PictureOf(const Visit& visit) {
  const std::string& phone = visit.places.at(0);
  const std::string& which = visit.places.at(1);
  if (which == "preview" || which == "frame") {
    return {.content_type = "image/png", .body = Ask(phone, {which})};
  }
  const std::string file = which == "blemish" ? "BlemishTest.jpg" : "FocusTest.jpg";
  const Answer answer = PhoneRequest(phone, {"file", "/usr/share/usr_data/Photos/" + file}).TakeAnswer();
  if (!answer.good) return {.status = 204};  // none has been taken
  return {.content_type = "image/jpeg", .body = answer.text};
}

std::vector<std::string> TopicsOf(const Visit& visit) {
  std::vector<std::string> topics;
  const auto [first, last] = visit.parameters.equal_range("topic");
  for (auto parameter = first; parameter != last; ++parameter) {
    const std::string& topic = parameter->second;
    if (topic != PHONES && !PhoneWatch::IsTopic(topic)) throw Refused(400, "There is no such topic.");
    topics.push_back(topic);
  }
  if (topics.empty() || topics.size() > 100) throw Refused(400, "Up to 100 topics are wanted.");
  return topics;
}

web::PageServerOptions ServerOptions(const PanelOptions& options) {
  if (!IsLoopback(options.address) && options.public_name.empty()) {
    throw std::runtime_error(
        "Beyond this machine the page is served by a proxy with TLS only: --listen needs --public-name, the "
        "host "
        "name in the proxy's address.");
  }
  return {.name = "phonesim panel",
          .address = options.address,
          .port = options.port,
          .public_host = options.public_name};
}

}  // namespace

Panel::Panel(const PanelOptions& options) : options_(options), server_(ServerOptions(options)) {
  hub_.SetWatched([this](const std::string& topic, bool watched) { Watched(topic, watched); });
  AddPages();
  server_.Start();
}

Panel::~Panel() {
  hub_.Close();
  server_.Stop();
}

std::string Panel::Address(const std::string& phone) const {
  return server_.Address("viewer", phone.empty() ? "/" : "/phone/" + phone);
}

void Panel::AddPages() {
  const std::string phone = std::string("/phone/") + PHONE_NAME;
  server_.Get("/", [](const Visit&) { return PageNamed("index.html"); });
  server_.Get(phone, [](const Visit&) { return PageNamed("phone.html"); });
  server_.Get(phone + "/picture/(preview|frame|blemish|focus)", PictureOf);
  server_.Get(phone + "/records",
              [](const Visit& visit) { return Reply{.body = Ask(visit.places.at(0), {"records"})}; });
  server_.Post(phone + "/command", [this](const Visit& visit) { return Command(visit); });
  server_.Stream("/events", hub_, TopicsOf);
  server_.Serve(web::SharedAssets());
  server_.Serve(web::PanelAssets());
}

Reply Panel::Command(const Visit& visit) {
  const std::string& phone = visit.places.at(0);
  const Words words = WordsOfBody(visit.body);
  if (!IsAllowed(words)) throw Refused(403, "The page has no such command.");
  const std::string text = Ask(phone, words);
  const std::lock_guard lock(mutex_);
  if (const auto watch = watches_.find(phone); watch != watches_.end()) watch->second->LookSoon();
  return {.content_type = "text/plain; charset=utf-8", .body = text};
}

void Panel::Watched(const std::string& topic, bool watched) {
  if (topic == PHONES) return PublishPhones();
  const std::string phone = topic.substr(0, topic.find('/'));
  const std::lock_guard lock(mutex_);
  auto& watch = watches_[phone];
  if (watch == nullptr) watch = std::make_unique<PhoneWatch>(phone, hub_);
  watch->Want(topic, watched);
}

void Panel::PublishPhones() {
  json phones = json::array();
  std::vector<PhoneRequest> requests;
  for (const std::string& name : RunningPhones()) {
    if (PhoneWatch::IsTopic(name + "/lcd")) requests.emplace_back(name, Words{"status", "--json"});
  }
  for (PhoneRequest& request : requests) {
    const Answer answer = request.TakeAnswer();
    json status = answer.good ? json::parse(answer.text, nullptr, false) : json();
    if (status.is_object()) phones.push_back(std::move(status));
  }
  const std::string text = phones.dump(-1, ' ', false, json::error_handler_t::replace);
  {
    const std::lock_guard lock(mutex_);
    if (std::exchange(phones_, text) == text) return;
  }
  hub_.Publish(PHONES, text);
}

void Panel::Run() {
  constexpr int PACE_MS = 1000;
  constexpr int LOOKS_WITHOUT_PHONE = 10;  // a phone that restarts is away for a moment
  sigset_t ending;
  sigemptyset(&ending);
  for (int number : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&ending, number);
  const posix::FileDescriptor signals(signalfd(-1, &ending, SFD_CLOEXEC | SFD_NONBLOCK));
  const posix::FileDescriptor owner(options_.ends_with != 0 ? posix::ProcessEnd(options_.ends_with)
                                                            : posix::FileDescriptor());
  if (options_.ends_with != 0 && !owner.IsOpen()) return;
  for (int empty_looks = 0; empty_looks < LOOKS_WITHOUT_PHONE;) {
    pollfd polled[] = {{signals.Get(), POLLIN, 0}, {owner.Get(), POLLIN, 0}};
    const bool looks = options_.ends_with_phones || hub_.Viewers(PHONES) > 0;
    if (poll(polled, std::size(polled), looks || hub_.AllViewers() > 0 ? PACE_MS : 2 * PACE_MS) > 0) return;
    if (hub_.Viewers(PHONES) > 0) PublishPhones();
    empty_looks = options_.ends_with_phones && RunningPhones().empty() ? empty_looks + 1 : 0;
  }
}

}  // namespace simulator
