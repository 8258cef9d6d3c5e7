// What is in the database, as the pages for history, yield and numbers ask for it.
#pragma once

#include "station/line/results_store.h"
#include "web/page_server.h"

namespace station {

// GET /runs, /runs/ID and /runs/ID/files/STEP/NAME. The store must outlive the server.
void ServeHistory(web::PageServer& server, const ResultsStore& store);

// GET /yields and /trend.
void ServeYield(web::PageServer& server, const ResultsStore& store);

// GET /numbers, and POST /numbers for the line manager.
void ServeNumbers(web::PageServer& server, const ResultsStore& store);

}  // namespace station
