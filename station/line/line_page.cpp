#include "station/line/line_page.h"

#include <algorithm>
#include <charconv>
#include <string_view>

#include "station/commands/clean_text.h"
#include "station/line/record_pages.h"

namespace web {
Assets LineAssets();
}

namespace station {

namespace {

using nlohmann::json;
using nlohmann::ordered_json;
using web::Refused;
using web::Reply;
using web::Visit;

// What a person can see of a change, and what 32 slots can send without a load.
constexpr std::chrono::milliseconds PUBLISH_PAUSE{20};
constexpr std::chrono::seconds STORE_LOOK{1};
constexpr std::size_t LONGEST_NAME = 240;  // bytes: the page takes 60 letters

// On one line, as an event's data is.
std::string EventText(const ordered_json& value) {
  return JsonReply(value).body;
}

json BodyOf(const Visit& visit) {
  json body = json::parse(visit.body, nullptr, false);
  if (!body.is_object()) throw Refused(400, "The request's body is not a JSON object.");
  return body;
}

std::string TextIn(const json& body, const char* key) {
  const json value = body.value(key, json(""));
  if (!value.is_string()) throw Refused(400, std::string("“") + key + "” is not a text.");
  return value;
}

// The operator's name, as the page's person has typed it. Not cut within a letter.
std::string WhoIn(const json& body) {
  std::string name = TextIn(body, "who");
  std::size_t end = std::min(name.size(), LONGEST_NAME);
  while (end > 0 && end < name.size() && (static_cast<unsigned char>(name[end]) & 0xC0) == 0x80) --end;
  name.resize(end);
  return CleanText(name);
}

Reply Done(const std::string& refusal) {
  if (!refusal.empty()) throw Refused(409, refusal);
  return JsonReply({{"done", true}});
}

Reply AssetReply(std::string_view name) {
  const web::Assets assets = web::LineAssets();
  const auto asset = std::ranges::find(assets, name, &web::Asset::name);
  return {.content_type = std::string(asset->content_type), .body = std::string(asset->content)};
}

std::string SlotTopic(const std::string& name) {
  return "slot-" + name;
}

void OnlyManager(const Visit& visit) {
  if (visit.role != MANAGER_ROLE) throw Refused(403, "Only the line manager may do this.");
}

}  // namespace

LinePage::LinePage(LineOrder order, ResultsStore& store, web::PageServerOptions options)
    : store_(store),
      server_(std::move(options)),
      line_(std::move(order), store, [this](const std::string& slot) { Note(slot); }) {
  server_.Serve(web::SharedAssets());
  server_.Serve(web::LineAssets());
  ServeLine();
  ServeSlots();
  ServeManager();
  ServeHistory(server_, store);
  ServeYield(server_, store);
  ServeNumbers(server_, store);
  for (const LineSlot& slot : line_.Slots()) changed_.insert(slot.Order().name);
}

LinePage::~LinePage() {
  hub_.Close();
  server_.Stop();
}

void LinePage::Start() {
  PublishStore();
  publisher_ = std::jthread([this](const std::stop_token& stop) { Publish(stop); });
  server_.Start();
}

void LinePage::ServeLine() {
  server_.Get("/", [](const Visit&) { return AssetReply("line.html"); });
  server_.Get("/line", [this](const Visit& visit) {
    ordered_json view = LineView();
    view["role"] = visit.role;
    return JsonReply(view);
  });
  server_.Stream("/events", hub_, [this](const Visit&) {
    std::vector<std::string> topics = {"store", "line"};
    for (const SlotOrder& slot : line_.Order().slots) topics.push_back(SlotTopic(slot.name));
    return topics;
  });
  server_.Post("/scan", [this](const Visit& visit) {
    const json body = BodyOf(visit);
    const Line::ScanResult result = line_.Scan(TextIn(body, "text"), TextIn(body, "slot"), WhoIn(body));
    return JsonReply({{"slot", result.slot}, {"refusal", result.refusal}});
  });
}

void LinePage::ServeSlots() {
  using Action = std::function<std::string(LineSlot&, const json&)>;
  const auto on_slot = [this](const char* word, const Action& action) {
    server_.Post(std::string("/slots/([A-Za-z0-9_-]+)/") + word, [this, action](const Visit& visit) {
      LineSlot* slot = line_.Find(visit.places.at(0));
      if (slot == nullptr) throw Refused(404, "There is no such slot.");
      return Done(action(*slot, BodyOf(visit)));
    });
  };
  on_slot("answer", [](LineSlot& slot, const json& body) {
    const std::string reply = TextIn(body, "reply");
    if (reply != "pass" && reply != "fail") throw Refused(400, "An answer is pass or fail.");
    const json question = body.value("question", json(0));
    if (!question.is_number_unsigned()) throw Refused(400, "“question” is not a number.");
    return slot.AnswerQuestion(question, reply == "pass" ? Answer::Reply::Pass : Answer::Reply::Fail,
                               WhoIn(body));
  });
  on_slot("abort", [](LineSlot& slot, const json& body) { return slot.Abort(WhoIn(body)); });
  on_slot("clear", [](LineSlot& slot, const json&) { return slot.Clear(); });
  on_slot("retest", [this](LineSlot& slot, const json& body) {
    const std::string held = line_.HeldBecause();
    return held.empty() ? slot.Retest(WhoIn(body)) : "The line is held: " + held;
  });
  server_.Get("/slots/([A-Za-z0-9_-]+)/picture", [this](const Visit& visit) -> Reply {
    LineSlot* slot = line_.Find(visit.places.at(0));
    const std::string question = visit.Parameter("question");
    std::uint64_t number = 0;
    std::from_chars(question.data(), question.data() + question.size(), number);
    const auto picture = slot == nullptr ? std::nullopt : slot->QuestionPicture(number);
    // Answered before the browser has asked for it: that is no mistake to complain of.
    if (!picture) return {.status = 204, .content_type = "image/png"};
    return {.content_type = picture->type,
            .body = std::string(picture->content.begin(), picture->content.end())};
  });
}

void LinePage::ServeManager() {
  server_.Post("/hold", [this](const Visit& visit) {
    OnlyManager(visit);
    line_.Hold(CleanText(TextIn(BodyOf(visit), "reason")));
    hub_.Publish("line", EventText(LineView()));
    return Done("");
  });
  server_.Get("/settings", [this](const Visit&) { return JsonReply(SettingsView()); });
  server_.Post("/settings", [this](const Visit& visit) {
    OnlyManager(visit);
    const json body = BodyOf(visit);
    return Done(line_.Set(TextIn(body, "name"), TextIn(body, "value")));
  });
}

void LinePage::Note(const std::string& slot) {
  const std::lock_guard lock(mutex_);
  changed_.insert(slot);
  noted_.notify_one();
}

void LinePage::Publish(const std::stop_token& stop) {
  auto next_look = std::chrono::steady_clock::now();
  while (!stop.stop_requested()) {
    std::set<std::string> changed;
    {
      std::unique_lock lock(mutex_);
      noted_.wait_for(lock, stop, STORE_LOOK, [this] { return !changed_.empty(); });
      changed.swap(changed_);
    }
    for (const std::string& name : changed)
      hub_.Publish(SlotTopic(name), EventText(line_.Find(name)->View()));
    if (std::chrono::steady_clock::now() >= next_look) {
      PublishStore();
      next_look = std::chrono::steady_clock::now() + STORE_LOOK;
    }
    // What changes meanwhile goes out together.
    std::unique_lock lock(mutex_);
    noted_.wait_for(lock, stop, PUBLISH_PAUSE, [] { return false; });
  }
}

void LinePage::PublishStore() {
  const LineStore::Condition condition = store_.State();
  hub_.Publish("store", EventText(ordered_json{{"reachable", condition.reachable},
                                               {"waiting", condition.waiting},
                                               {"where", CleanText(condition.where)},
                                               {"changes", condition.changes}}));
}

ordered_json LinePage::LineView() const {
  const LineOrder& order = line_.Order();
  ordered_json slots = ordered_json::array();
  for (const SlotOrder& slot : order.slots) {
    slots.push_back({{"name", slot.name}, {"barcode", slot.barcode}, {"page", slot.page}});
  }
  return {{"plan", CleanText(order.plan.name)},
          {"station", CleanText(order.station)},
          {"steps", order.plan.steps},
          {"slots", std::move(slots)},
          {"held", line_.HeldBecause()}};
}

ordered_json LinePage::SettingsView() const {
  const LineOrder& order = line_.Order();
  const std::map<std::string, std::string> values = line_.Settings().All();
  ordered_json settings = ordered_json::array();
  for (const PlanVariable& variable : order.plan.variables) {
    if (!std::ranges::count(order.plan.line.settings, variable.name)) continue;
    const auto value = values.find(variable.name);
    settings.push_back({{"name", CleanText(variable.name)},
                        {"help", CleanText(variable.help)},
                        {"value", value == values.end() ? "" : CleanText(value->second)}});
  }
  ordered_json slots = ordered_json::array();
  for (const SlotOrder& slot : order.slots)
    slots.push_back({{"name", slot.name}, {"barcode", slot.barcode}, {"port", CleanText(slot.port)}});
  const std::vector<std::pair<std::string, std::string>> station = {
      {"Name", CleanText(order.station)},
      {"Plan", CleanText(order.plan.file)},
      {"Results", CleanText(store_.State().where)},
      {"Numbers reserved of each pool", std::to_string(order.reserve)},
      {"phonetest", order.tool_version}};
  return {{"settings", std::move(settings)}, {"slots", std::move(slots)}, {"station", station}};
}

}  // namespace station
