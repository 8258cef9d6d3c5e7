// Texts of unknown origin (phones, programs, files), made fit for terminals and reports.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace station {

// Valid UTF-8 that XML 1.0 allows and that moves no terminal's cursor, whatever the bytes: an invalid
// sequence becomes U+FFFD, a control character (C0, DEL, C1) or noncharacter becomes '?'. Tabs and line ends
// stay,
// and "\r\n" becomes "\n".
std::string CleanText(std::string_view text);

// JSON with indentation and without a line end. It is as harmless as CleanText's result, but control
// characters stay as \u escapes.
std::string JsonText(const nlohmann::ordered_json& value);

}  // namespace station
