// Stations that write runs to one PostgreSQL server at the same time, while it is restarted and writers are
// killed.
#pragma once

#include "benchmarks/factory_runs.h"
#include "tests/station/postgresql_server.h"

// Each of so many processes stores so many runs through a RunRecorder, and has a spool of its own; others are
// killed at random points. Prints the runs a second and what became of all runs. Returns false if one was
// lost, stored twice, changed, or handed in out of order.
bool MeasureManyStations(PostgresqlServer& server, const FactoryRun& run, int stations, int runs);
