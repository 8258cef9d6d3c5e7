#include "station/commands/clean_text.h"
#include "station/commands/errors.h"
#include "station/line/line_page.h"
#include "station/line/record_pages.h"
#include "station/results/numbers.h"

namespace station {

namespace {

nlohmann::ordered_json Numbers(const ResultsStore& store) {
  Connection connection = ConnectForPage(store);
  nlohmann::ordered_json pools = nlohmann::ordered_json::array();
  for (const PoolRow& pool : Pools(connection)) {
    pools.push_back({{"name", CleanText(pool.name)},
                     {"kind", pool.kind},
                     {"left", pool.left},
                     {"reserved", pool.reserved},
                     {"given_out", pool.given_out}});
  }
  return pools;
}

}  // namespace

void ServeNumbers(web::PageServer& server, const ResultsStore& store) {
  server.Get("/numbers", [&store](const web::Visit&) { return JsonReply(Numbers(store)); });
  server.Post("/numbers", [&store](const web::Visit& visit) -> web::Reply {
    if (visit.role != MANAGER_ROLE) throw web::Refused(403, "Only the line manager may do this.");
    const auto body = nlohmann::json::parse(visit.body, nullptr, false);
    if (!body.is_object() || !body.value("pool", nlohmann::json()).is_string() ||
        !body.value("range", nlohmann::json()).is_string()) {
      throw web::Refused(400, "The request needs a pool and a range.");
    }
    try {
      const NumberRange range = ParseNumberRange(body["range"]);
      Connection connection = ConnectForPage(store);
      const std::int64_t added = AddNumbers(connection, body["pool"], range);
      return JsonReply({{"added", added}});
    } catch (const UsageError& error) {
      throw web::Refused(409, CleanText(error.what()));
    }
  });
}

}  // namespace station
