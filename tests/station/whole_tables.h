// Whether a query goes through all rows of one of the large tables of a database of results.
#pragma once

#include <regex>
#include <string>

// A line of the query's plan, in the words of SQLite or PostgreSQL.
inline bool ReadsWholeTable(const std::string& plan_line) {
  static const std::regex whole_table(
      "Seq Scan on (runs|steps|measurements|answers|attachments)\\b|"
      "SCAN (r|e|s|m|a|runs|steps|measurements|answers|attachments)\\b(?! USING)");
  return std::regex_search(plan_line, whole_table);
}
