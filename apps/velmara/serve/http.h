#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace velmara {

// What a server and its site tell each other: HTTP without any library of it.

struct HttpRequest {
  std::string method;
  std::string path;
  std::map<std::string, std::string> query;
  std::map<std::string, std::string> headers;  ///< by lower-case name; repeated ones joined by ", "
  std::string body;

  /// Empty where there is none.
  std::string header(const std::string& name) const {
    const auto found = headers.find(name);
    return found == headers.end() ? std::string() : found->second;
  }
  std::string parameter(const std::string& name) const {
    const auto found = query.find(name);
    return found == query.end() ? std::string() : found->second;
  }
};

struct HttpResponse {
  /// Gives what is to be written next, may wait a second for it, and ends with nothing.
  using Stream = std::function<std::optional<std::string>()>;

  int status = 200;
  std::string type;
  std::string body;
  std::vector<std::pair<std::string, std::string>> headers;
  Stream stream = nullptr;  ///< instead of a body
};

/// What a server shows. Called on any of its threads.
class IHttpSite {
 public:
  virtual ~IHttpSite() = default;

  /// Looks at a request before its body is read.
  virtual std::optional<HttpResponse> refuse(const HttpRequest& request) = 0;
  virtual HttpResponse answer(const HttpRequest& request) = 0;
  /// What the server itself has to say of a request that it cannot use.
  virtual HttpResponse complaint(int status) = 0;
};

}  // namespace velmara
