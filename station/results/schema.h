// The tables of a database of results. docs/results.md describes them for everyone who writes queries.
#pragma once

#include "station/results/connection.h"

namespace station {

// The version that this program makes and expects.
int NewestSchema();

// 0 for a database without tables.
int SchemaVersion(Connection& connection);

// Brings the tables to the newest version, whole or not at all. Throws ResultsError, also if the tables are a
// newer program's.
void Migrate(Connection& connection);

// Connects and migrates. Throws ResultsError, also if this user may only read the database's file.
Connection OpenResults(const ResultsAddress& address);

// The same for who only asks: a file that cannot be written will do.
Connection OpenResultsToRead(const ResultsAddress& address);

}  // namespace station
