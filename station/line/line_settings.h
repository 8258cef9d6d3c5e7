// The variables that are the same for every phone of the line: given at the start, and those of them that the
// plan lets the line manager set on the page.
#pragma once

#include <map>
#include <mutex>
#include <string>

#include "station/plan/outline.h"

namespace station {

class LineSettings {
 public:
  // The plan must outlive it.
  LineSettings(const PlanOutline& plan, std::map<std::string, std::string> given)
      : plan_(plan), values_(std::move(given)) {}

  std::map<std::string, std::string> All() const;

  // For the next phones. With an empty value the variable is scanned with each phone, or has its default.
  // Returns why it cannot be set, in a sentence, or nothing.
  std::string Set(const std::string& name, const std::string& value);

 private:
  const PlanOutline& plan_;
  mutable std::mutex mutex_;
  std::map<std::string, std::string> values_;
};

}  // namespace station
