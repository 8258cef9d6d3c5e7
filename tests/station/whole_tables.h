// Whether a query goes through all rows of one of the large tables of a database of results.
#pragma once

#include <re2/re2.h>

#include <string>

// A line of the query's plan, in the words of SQLite or PostgreSQL.
inline bool ReadsWholeTable(const std::string& plan_line) {
  static const RE2 reads("(?:Seq Scan on|SCAN) (?:r|e|s|m|a|runs|steps|measurements|answers|attachments)\\b");
  static const RE2 uses_an_index("SCAN [a-z]+ USING");
  return RE2::PartialMatch(plan_line, reads) && !RE2::PartialMatch(plan_line, uses_an_index);
}
