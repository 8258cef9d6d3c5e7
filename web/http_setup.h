// How the HTTP library serves a page: threads, sockets, limits, and the headers that every answer has.
#pragma once

#include <httplib.h>

#include <cstddef>

namespace web {

// `most_streams` connections may stay open as streams beside those that ask and change.
void SetUp(httplib::Server& server, std::size_t most_streams, std::size_t most_request_bytes);

}  // namespace web
