#include "station/line/record_pages.h"

#include <fmt/format.h>

#include "station/commands/clean_text.h"

namespace station {

Connection ConnectForPage(const ResultsStore& store) {
  try {
    return store.Connect();
  } catch (const ResultsError& error) {
    throw web::Refused(503,
                       fmt::format("The results cannot be reached now. Runs are kept on this computer. ({})",
                                   CleanText(error.what())));
  }
}

web::Reply JsonReply(const nlohmann::ordered_json& value) {
  return {.body = value.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace)};
}

RunFilter FilterOf(const web::Visit& visit) {
  return {.from_day = visit.Parameter("from"),
          .to_day = visit.Parameter("to"),
          .plan = visit.Parameter("plan"),
          .station = visit.Parameter("station"),
          .phone = visit.Parameter("phone")};
}

}  // namespace station
