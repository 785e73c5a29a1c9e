// The description of the server holds what the server does.

#include <set>

#include "httpprobe.h"
#include "serve/site.h"

using namespace clitest;

namespace {

// Where a value is not what a schema says: as much of JSON Schema as the description uses.
class Schemas {
 public:
  explicit Schemas(json document) : m_document(std::move(document)) {}

  std::string complaint(const json& schema, const json& value, const std::string& place) const {
    if (schema.contains("$ref")) {
      const std::string name = schema.at("$ref");
      return complaint(m_document.at("components").at("schemas").at(name.substr(name.rfind('/') + 1)), value,
                       place);
    }
    if (schema.contains("anyOf")) {
      const json& all = schema.at("anyOf");
      const bool fits = std::any_of(all.begin(), all.end(),
                                    [&](const json& each) { return complaint(each, value, place).empty(); });
      return fits ? "" : place + " is none of what it may be";
    }
    if (!hasType(schema.at("type"), value)) {
      return place + " is " + value.type_name() + ", not " + schema.at("type").dump();
    }
    if (schema.contains("enum") &&
        std::find(schema.at("enum").begin(), schema.at("enum").end(), value) == schema.at("enum").end()) {
      return place + " is " + value.dump();
    }
    return value.is_array()    ? itemComplaint(schema, value, place)
           : value.is_object() ? memberComplaint(schema, value, place)
                               : "";
  }

 private:
  static bool hasType(const json& type, const json& value) {
    const std::string name = value.is_number_integer() ? "integer" : value.type_name();
    const auto fits = [&](const std::string& each) {
      return each == name || (each == "number" && value.is_number());
    };
    return type.is_array() ? std::any_of(type.begin(), type.end(), fits) : fits(type);
  }
  std::string itemComplaint(const json& schema, const json& value, const std::string& place) const {
    for (std::size_t i = 0; i < value.size(); ++i) {
      if (std::string words = complaint(schema.at("items"), value[i], place + "[" + std::to_string(i) + "]");
          !words.empty()) {
        return words;
      }
    }
    return {};
  }
  std::string memberComplaint(const json& schema, const json& value, const std::string& place) const {
    for (const std::string name : schema.value("required", json::array())) {
      if (!value.contains(name)) {
        return place + " has no " + name;
      }
    }
    for (const auto& [name, member] : value.items()) {
      const json known = schema.value("properties", json::object());
      const json rest = schema.value("additionalProperties", json());
      if (!known.contains(name) && rest.is_null()) {
        if (schema.contains("properties") && !schema.contains("description")) {
          return place + " has a " + name + " that is not told of";
        }
        continue;
      }
      if (std::string words = complaint(known.value(name, rest), member, place + "." + name);
          !words.empty()) {
        return words;
      }
    }
    return {};
  }

  json m_document;
};

TEST_F(Serve, DoesWhatItsDescriptionSays) {
  const json description = json::parse(read(VELMARA_OPENAPI));
  std::set<std::string> described;
  for (const auto& [path, methods] : description.at("paths").items()) {
    for (const auto& [method, operation] : methods.items()) {
      described.insert((method == "get" ? "GET " : "POST ") + path);
    }
  }
  std::set<std::string> routes = {"GET /api/openapi.json"};
  for (const velmara::Site::Route& route : velmara::Site::routes()) {
    routes.insert(std::string(route.method) + " " + route.path);
  }
  EXPECT_EQ(described, routes);

  const Server& server = shared();
  HttpProbe viewer(server.port);
  viewer.send(server.streamRequest("?watch=14"));  // a PID with two values
  ASSERT_TRUE(Server::await([&] { return server.get("/api/history").json().contains("14.1"); }));
  const Schemas schemas(description);
  const auto check = [&](const char* method, const std::string& path, const HttpAnswer& answer,
                         const std::string& status = "200") {
    const json& content =
        description.at("paths").at(path).at(method).at("responses").at(status).at("content");
    const std::string type = content.begin().key();
    EXPECT_TRUE(has(answer.head, "Content-Type: " + type)) << path << answer.head;
    if (type == "application/json") {
      EXPECT_EQ(schemas.complaint(content.begin()->at("schema"), answer.json(), path), "")
          << answer.body.substr(0, 500);
    }
  };
  const Server other = serve("");
  check("get", "/api/recording.csv", other.get("/api/recording.csv"), "404");
  check("get", "/report", other.get("/report"), "default");
  check("post", "/api/control-unit", server.post("/api/control-unit", "{\"ecu\": \"7E9\"}"));
  check("post", "/api/control-unit", server.post("/api/control-unit", "{\"ecu\": \"ECM\"}"));
  check("post", "/api/recording/start", server.post("/api/recording/start"));
  check("post", "/api/recording/stop", server.post("/api/recording/stop"));
  for (const char* name : {"codes", "freeze", "info", "monitors", "summary", "tests"}) {
    check("post", "/api/read",
          server.post("/api/read", std::string("{\"name\": \"") + name + "\", \"ecu\": \"ECM\"}"));
  }
  server.post("/api/read", "{\"name\": \"monitors\"}");
  for (const char* path : {"/api/state", "/api/sensors", "/api/values", "/api/history", "/api/links",
                           "/api/recording.csv", "/api/openapi.json", "/metrics"}) {
    check("get", path, server.get(path));
  }
  check("get", "/api/document", server.get("/api/document?name=monitors"));
  check("post", "/api/login", server.post("/api/login"));
  check("post", "/api/clear", server.post("/api/clear", "{\"confirm\": true}"));
  check("post", "/api/clear", server.post("/api/clear"), "default");
  check("post", "/api/bluetooth", server.post("/api/bluetooth"));
  check("post", "/api/unit-system", server.post("/api/unit-system", "{\"unitSystem\": \"imperial\"}"));
  server.post("/api/unit-system", "{\"unitSystem\": \"metric\"}");
  check("post", "/api/disconnect", other.post("/api/disconnect"));
  check("post", "/api/connect", other.post("/api/connect", "{\"link\": \"demo:iso9141\"}"));
  check("post", "/api/cancel", other.post("/api/cancel"));
}

}  // namespace
