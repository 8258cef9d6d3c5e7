// What is in the database, as the pages for history, yield and numbers ask for it.
#pragma once

#include <nlohmann/json.hpp>

#include "station/line/results_store.h"
#include "station/results/history.h"
#include "web/page_server.h"

namespace station {

// GET /runs, /runs/ID and /runs/ID/files/STEP/NAME. The store must outlive the server.
void ServeHistory(web::PageServer& server, const ResultsStore& store);

// GET /yields and /trend.
void ServeYield(web::PageServer& server, const ResultsStore& store);

// GET /numbers, and POST /numbers for the line manager.
void ServeNumbers(web::PageServer& server, const ResultsStore& store);

// What these pages share.

// Throws web::Refused with a sentence if the database cannot be reached.
Connection ConnectForPage(const ResultsStore& store);

web::Reply JsonReply(const nlohmann::ordered_json& value);

// From the parameters from, to, plan, station and phone.
RunFilter FilterOf(const web::Visit& visit);

}  // namespace station
