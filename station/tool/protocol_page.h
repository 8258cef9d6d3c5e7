// The command table as a document.
#pragma once

#include <string>

namespace station {

// A line for each of the tool's commands.
std::string CommandList();

// The whole protocol in Markdown, docs/protocol.md.
std::string ProtocolPage();

// The manual page's list of commands and their arguments, in troff.
std::string ManualCommandList();

}  // namespace station
