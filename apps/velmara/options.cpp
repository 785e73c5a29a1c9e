#include "options.h"

#include <CLI/CLI.hpp>

namespace velmara {

namespace {

template <typename T>
Option declare(CLI::App& app, const std::string& name, T& variable, const std::string& placeholder,
               const std::string& help) {
  return Option(app.add_option(name, variable, help)->type_name(placeholder));
}

}  // namespace

Option& Option::required() {
  m_option->required();
  return *this;
}

Option& Option::excludes(const Option& other) {
  m_option->excludes(other.m_option);
  return *this;
}

Option& Option::needs(const Option& other) {
  m_option->needs(other.m_option);
  return *this;
}

Option& Option::oneOrMore() {
  m_option->expected(1, -1);
  return *this;
}

Option& Option::between(int low, int high) {
  m_option->check(CLI::Range(low, high).description(""));
  return *this;
}

Option& Option::between(double low, double high) {
  m_option->check(CLI::Range(low, high).description(""));
  m_option->check([](const std::string& text) {  // which nan passes
    return text.find_first_of("nN") == std::string::npos ? "" : "It is not a number.";
  });
  return *this;
}

Option Options::flag(const std::string& name, bool& isSet, const std::string& help) {
  return Option(m_app.add_flag(name, isSet, help));
}

Option Options::value(const std::string& name, std::string& text, const std::string& placeholder,
                      const std::string& help) {
  return declare(m_app, name, text, placeholder, help);
}

Option Options::value(const std::string& name, std::vector<std::string>& texts,
                      const std::string& placeholder, const std::string& help) {
  return declare(m_app, name, texts, placeholder, help);
}

Option Options::value(const std::string& name, int& number, const std::string& placeholder,
                      const std::string& help) {
  return declare(m_app, name, number, placeholder, help);
}

Option Options::value(const std::string& name, unsigned& number, const std::string& placeholder,
                      const std::string& help) {
  return declare(m_app, name, number, placeholder, help);
}

Option Options::value(const std::string& name, double& number, const std::string& placeholder,
                      const std::string& help) {
  return declare(m_app, name, number, placeholder, help);
}

}  // namespace velmara
