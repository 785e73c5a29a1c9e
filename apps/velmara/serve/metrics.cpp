#include "serve/metrics.h"

#include <string_view>

#include <fmt/format.h>

#include "velmara/client/texts.h"

namespace velmara {

namespace {

std::string labelText(const std::string& text) {
  std::string result;
  for (const char c : printable(text)) {
    if (c == '"' || c == '\\') {
      result += '\\';
    }
    result += c;
  }
  return result;
}

std::string textAt(const Json& object, const char* key) {
  const auto found = object.find(key);
  return found != object.end() && found->is_string() ? found->get<std::string>() : std::string();
}

class Metrics {
 public:
  void family(std::string_view name, std::string_view type, std::string_view help) {
    m_text += fmt::format("# HELP {} {}\n# TYPE {} {}\n", name, help, name, type);
  }
  template <typename Value>
  void sample(std::string_view name, const std::string& labels, const Value& value) {
    m_text += labels.empty() ? fmt::format("{} {}\n", name, value)
                             : fmt::format("{}{{{}}} {}\n", name, labels, value);
  }
  template <typename Value>
  void single(std::string_view name, std::string_view type, std::string_view help, const Value& value) {
    family(name, type, help);
    sample(name, {}, value);
  }
  void raw(std::string_view samples) { m_text += samples; }
  std::string take() { return std::move(m_text); }

 private:
  std::string m_text;
};

void addLink(Metrics& metrics, const Json& state) {
  metrics.single("velmara_link_connected", "gauge", "Whether the vehicle can be asked.",
                 textAt(state, "phase") == "connected" ? 1 : 0);
  metrics.single("velmara_link_silent", "gauge", "Whether the vehicle has stopped answering.",
                 textAt(state, "silence").empty() ? 0 : 1);
  metrics.family("velmara_link_info", "gauge", "The link, the adapter and the protocol of the vehicle.");
  const Json adapter = state.value("adapter", Json::object());
  metrics.sample("velmara_link_info",
                 fmt::format("link=\"{}\",adapter=\"{}\",protocol=\"{}\"", labelText(textAt(state, "link")),
                             labelText(textAt(adapter, "name")), labelText(textAt(state, "protocol"))),
                 1);
}

void addValues(Metrics& metrics, const Board& board, bool connected) {
  metrics.single("velmara_readings_total", "counter", "Values that have been read.", board.live.readings());
  metrics.family("velmara_value", "gauge", "The latest value of a sensor.");
  std::string times;
  const double started = board.state().value("started", 0.0);
  for (const LiveTable::Latest& latest :
       connected ? board.live.numbers() : std::vector<LiveTable::Latest>()) {
    const std::string labels = fmt::format("key=\"{}\",name=\"{}\",unit=\"{}\",ecu=\"{}\"",
                                           labelText(latest.key), labelText(latest.sensor.name),
                                           labelText(latest.sensor.unit), labelText(latest.unitLabel));
    metrics.sample("velmara_value", labels, latest.value);
    times += fmt::format("velmara_value_time_seconds{{key=\"{}\"}} {:.3f}\n", labelText(latest.key),
                         started + latest.seconds);
  }
  metrics.family("velmara_value_time_seconds", "gauge", "When it was read, in seconds since 1970.");
  metrics.raw(times);
}

void addCodes(Metrics& metrics, const Board& board) {
  const Json codes = board.document("codes");
  if (!codes.is_object()) {
    return;
  }
  metrics.family("velmara_trouble_codes", "gauge", "Trouble codes when they were last read.");
  for (const Json& unit : codes.at("units")) {
    for (const char* const kind : {"confirmed", "pending", "permanent"}) {
      if (const Json& list = unit.at(kind); list.is_array()) {
        metrics.sample("velmara_trouble_codes",
                       fmt::format("ecu=\"{}\",kind=\"{}\"", labelText(textAt(unit, "id")), kind),
                       list.size());
      }
    }
  }
  metrics.family("velmara_indicator_lamp", "gauge", "Whether the lamp was on when codes were last read.");
  for (const Json& unit : codes.at("units")) {
    if (const Json& lamp = unit.at("mil"); lamp.is_boolean()) {
      metrics.sample("velmara_indicator_lamp", fmt::format("ecu=\"{}\"", labelText(textAt(unit, "id"))),
                     lamp.get<bool>() ? 1 : 0);
    }
  }
}

}  // namespace

std::string metricsText(const Board& board, const ServerCounts& counts) {
  Metrics metrics;
  const Json state = board.state();
  addLink(metrics, state);
  addValues(metrics, board, textAt(state, "phase") == "connected");
  addCodes(metrics, board);
  metrics.single("velmara_viewers", "gauge", "Pages that look on.", counts.viewers);
  metrics.single("velmara_http_connections", "gauge", "Connections to this server.", counts.connections);
  metrics.single("velmara_http_requests_total", "counter", "Requests to this server.", counts.requests);
  metrics.single("velmara_http_errors_total", "counter", "Requests that were answered by an error.",
                 counts.refused);
  metrics.single("velmara_http_turned_away_total", "counter", "Connections that were too many or too slow.",
                 counts.turnedAway);
  return metrics.take();
}

}  // namespace velmara
