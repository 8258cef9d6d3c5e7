// Reads the fields of a plan's JSON objects. Each function throws PlanError, which names the field, if it has
// another type or a value out of range.
#pragma once

#include <chrono>
#include <nlohmann/json.hpp>
#include <set>
#include <string>

namespace station {

// A number, or a text with one.
std::chrono::milliseconds Seconds(const nlohmann::json& object, const std::string& key, double fallback);

int Count(const nlohmann::json& object, const std::string& key, int fallback, int least);

bool YesOrNo(const nlohmann::json& object, const std::string& key, bool fallback);

std::string TextAt(const nlohmann::json& object, const std::string& key, const std::string& fallback = "");

using FieldNames = std::set<std::string, std::less<>>;

// No other field is there.
void CheckKeys(const nlohmann::json& object, const FieldNames& known);

}  // namespace station
