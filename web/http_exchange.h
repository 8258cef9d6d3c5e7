// What is read of one request and put into its answer, whatever the page.
#pragma once

#include <httplib.h>

#include <cstddef>
#include <exception>
#include <optional>
#include <string>

#include "web/page_server.h"

namespace web {

bool IsChange(const httplib::Request& request);

// Whether the HTTP library reads a body of the request's method.
bool TakesBody(const httplib::Request& request);

// Returns the body, or nothing if it is longer than `most` or in several parts. The rest is read and dropped,
// so that the connection can go on: the library itself bounds only a body whose length is announced.
std::optional<std::string> ReadBody(const httplib::Request& request, const httplib::ContentReader& read,
                                    std::size_t most);

// What a person is told who gets this status.
std::string StatusSentence(int status);

void Put(httplib::Response& response, int status, const std::string& sentence);

// Does some work; what it throws becomes the answer.
template <typename Work>
void Guarded(httplib::Response& response, Work work) {
  try {
    work();
  } catch (const Refused& refused) {
    Put(response, refused.status, refused.what());
  } catch (const std::exception& failure) {
    Put(response, 500, failure.what());
  }
}

}  // namespace web
