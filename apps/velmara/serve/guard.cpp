#include "serve/guard.h"

#include <arpa/inet.h>
#include <sys/random.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>
#include <system_error>
#include <utility>

#include <fmt/format.h>

namespace velmara {

namespace {

constexpr std::size_t TokenBytes = 16;

// Takes the same time wherever texts of one length differ.
bool sameSecret(std::string_view a, std::string_view b) {
  unsigned difference = a.size() == b.size() ? 0 : 1;
  for (std::size_t i = 0; i < std::min(a.size(), b.size()); ++i) {
    difference |= static_cast<unsigned char>(a[i]) ^ static_cast<unsigned char>(b[i]);
  }
  return difference == 0;
}

std::string lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

// The host of "host:port" and "[host]:port"; nothing if the port is another one.
std::optional<std::string> hostOf(std::string text, int port) {
  const std::string suffix = fmt::format(":{}", port);
  if (text.ends_with(suffix)) {
    text.resize(text.size() - suffix.size());
  } else if (port != 80 || (text.find(':') != std::string::npos && !text.ends_with(']'))) {
    return std::nullopt;
  }
  if (text.starts_with('[') && text.ends_with(']')) {
    text = text.substr(1, text.size() - 2);
  }
  return lower(text);
}

bool isAddress(const std::string& host) {
  std::array<unsigned char, sizeof(in6_addr)> buffer{};
  return ::inet_pton(AF_INET, host.c_str(), buffer.data()) == 1 ||
         ::inet_pton(AF_INET6, host.c_str(), buffer.data()) == 1;
}

std::string ownName() {
  std::array<char, 256> name{};
  return ::gethostname(name.data(), name.size() - 1) == 0 ? lower(name.data()) : std::string();
}

}  // namespace

std::string makeToken() {
  std::array<unsigned char, TokenBytes> bytes{};
  if (::getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
    throw std::system_error(errno, std::generic_category(), "random numbers");
  }
  std::string token;
  for (const unsigned char byte : bytes) {
    token += fmt::format("{:02x}", byte);
  }
  return token;
}

Guard::Guard(Access access) : m_access(std::move(access)) {
  m_names.push_back(lower(m_access.host));
  m_names.push_back("localhost");
  if (const std::string name = ownName(); !m_access.loopback && !name.empty()) {
    m_names.push_back(name);
    m_names.push_back(name + ".local");
  }
}

// A name that leads here from another page's server is none of ours; an address cannot be made to lead here.
bool Guard::isOurHost(const std::string& text) const {
  const std::optional<std::string> host = hostOf(text, m_access.port);
  return host && (isAddress(*host) || std::find(m_names.begin(), m_names.end(), *host) != m_names.end());
}

bool Guard::showsToken(const HttpRequest& request) const {
  return sameSecret(request.header("authorization"), "Bearer " + m_access.token);
}

bool Guard::showsCookie(const HttpRequest& request) const {
  const std::string cookies = "; " + request.header("cookie");
  const std::string start = fmt::format("; velmara-{}=", m_access.port);
  const std::size_t place = cookies.find(start);
  return place != std::string::npos &&
         sameSecret(cookies.substr(place + start.size(), m_access.token.size()), m_access.token);
}

std::string Guard::cookie() const {
  return fmt::format("velmara-{}={}; Path=/; HttpOnly; SameSite=Strict", m_access.port, m_access.token);
}

std::optional<Guard::Refusal> Guard::check(const HttpRequest& request, bool open) const {
  if (!isOurHost(request.header("host"))) {
    return Refusal{403, "This server is known by another name.",
                   "Use the address that velmara serve prints."};
  }
  if (const std::string site = request.header("sec-fetch-site"); site == "cross-site" && !open) {
    return Refusal{403, "Pages of others may not ask.", ""};
  }
  if (request.method != "POST") {
    if (!open && !m_access.loopback && !showsToken(request) && !showsCookie(request)) {
      return Refusal{401, "The token is missing or wrong.", "Open the address that velmara serve prints."};
    }
    return std::nullopt;
  }
  const std::string origin = request.header("origin");
  if (!origin.empty() && origin != "http://" + request.header("host")) {
    return Refusal{403, "Pages of others may not ask.", ""};
  }
  if (!showsToken(request)) {
    return Refusal{
        401, "The token is missing or wrong.",
        "Send it as \"Authorization: Bearer TOKEN\"; a page gets the present one when it is loaded anew."};
  }
  if (!request.header("content-type").starts_with("application/json")) {
    return Refusal{415, "The body of the request is to be JSON.", "Send \"Content-Type: application/json\"."};
  }
  if (!request.header("transfer-encoding").empty() || request.header("content-length").empty()) {
    return Refusal{411, "The length of the body is not told.", "Send \"Content-Length\"."};
  }
  return std::nullopt;
}

}  // namespace velmara
