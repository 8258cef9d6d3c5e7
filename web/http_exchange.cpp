#include "web/http_exchange.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

namespace web {

using httplib::Request;
using httplib::Response;

bool IsChange(const Request& request) {
  return request.method != "GET" && request.method != "HEAD";
}

bool TakesBody(const Request& request) {
  constexpr std::string_view METHODS[] = {"POST", "PUT", "PATCH", "DELETE"};
  return std::ranges::find(METHODS, request.method) != std::end(METHODS);
}

std::optional<std::string> ReadBody(const Request& request, const httplib::ContentReader& read, size_t most) {
  if (request.is_multipart_form_data()) {
    read([](const httplib::MultipartFormData&) { return true; }, [](const char*, size_t) { return true; });
    return std::nullopt;
  }
  std::string body;
  bool fits = true;
  const bool whole = read([&](const char* bytes, size_t size) {
    fits = fits && size <= most - body.size();
    if (fits) body.append(bytes, size);
    return true;
  });
  return fits && whole ? std::optional(std::move(body)) : std::nullopt;
}

std::string StatusSentence(int status) {
  switch (status) {
    case 400:
      return "The request is not one that this server understands.";
    case 404:
      return "There is no such page here.";
    case 413:
      return "The request is too long.";
    case 414:
      return "The address is too long.";
    default:
      return "The request failed.";
  }
}

void Put(Response& response, int status, const std::string& sentence) {
  static constexpr char PLAIN[] = "text/plain; charset=utf-8";
  response.status = status;
  response.set_header("Cache-Control", "no-store");
  response.set_content(sentence + "\n", PLAIN);
}

}  // namespace web
