#pragma once

#include <string>

#include <nlohmann/json.hpp>

#include "terminal/output.h"

namespace velmara {

/// Objects keep the order in which they are filled.
using Json = nlohmann::ordered_json;

/// Prints `value` on one line, or spread over several for people who look. Bytes that are no UTF-8 are
/// replaced.
inline void printJson(Output& out, const Json& value, bool spread = false) {
  out.line(value.dump(spread ? 2 : -1, ' ', false, Json::error_handler_t::replace));
}

/// A formatted number as a number, anything else as the text that it is; null for nothing.
inline Json numberOrText(const std::string& text) {
  if (text.empty()) {
    return {};
  }
  const Json number = Json::parse(text, nullptr, false);
  return number.is_number() ? number : Json(text);
}

}  // namespace velmara
