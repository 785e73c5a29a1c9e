#pragma once

#include <optional>
#include <string>
#include <vector>

#include "serve/http.h"

namespace velmara {

/// Who may ask for what. On loopback everybody may look, but pages of others may not: neither by a name that
/// they have made lead here (the Host header tells), nor by requests that change something (these need the
/// token, a JSON body and the own origin). On any other address nothing that tells of the vehicle goes out
/// without the token.
class Guard {
 public:
  struct Access {
    std::string host;  ///< as the user named it
    int port = 0;
    bool loopback = true;
    std::string token;
  };
  explicit Guard(Access access);

  /// Null if the request is in order, as far as it does not concern its path.
  struct Refusal {
    int status;
    const char* reason;
    const char* advice;
  };
  /// `open`: goes out to everybody, such as the page itself.
  std::optional<Refusal> check(const HttpRequest& request, bool open) const;

  const std::string& token() const { return m_access.token; }
  bool isLoopback() const { return m_access.loopback; }
  /// Lets a browser that has shown the token look around without showing it again.
  std::string cookie() const;

 private:
  bool isOurHost(const std::string& host) const;
  bool showsToken(const HttpRequest& request) const;
  bool showsCookie(const HttpRequest& request) const;

  Access m_access;
  std::vector<std::string> m_names;  // of this computer
};

/// A token that nobody guesses.
std::string makeToken();

}  // namespace velmara
