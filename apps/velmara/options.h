#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace velmara {

/// One option that has been declared. A copy stands for the same option.
class Option {
 public:
  explicit Option(CLI::Option* option) : m_option(option) {}

  Option& required();
  /// Not together with `other`.
  Option& excludes(const Option& other);
  /// Only together with `other`.
  Option& needs(const Option& other);
  /// Takes all values that follow, one at least.
  Option& oneOrMore();
  /// Refuses numbers outside of these limits.
  Option& between(int low, int high);
  Option& between(double low, double high);

 private:
  CLI::Option* m_option;
};

/// Where a command declares its options. Keeps the parser of the command line out of the commands, whose
/// compilation would take several times as long with it. What is bound must outlive the parsing.
class Options {
 public:
  explicit Options(CLI::App& app) : m_app(app) {}

  Option flag(const std::string& name, bool& isSet, const std::string& help);
  /// An option "--name PLACEHOLDER"; without dashes in its name, an argument, which needs no placeholder.
  Option value(const std::string& name, std::string& text, const std::string& placeholder,
               const std::string& help);
  Option value(const std::string& name, std::vector<std::string>& texts, const std::string& placeholder,
               const std::string& help);
  Option value(const std::string& name, int& number, const std::string& placeholder, const std::string& help);
  Option value(const std::string& name, unsigned& number, const std::string& placeholder,
               const std::string& help);
  Option value(const std::string& name, double& number, const std::string& placeholder,
               const std::string& help);

 private:
  CLI::App& m_app;
};

}  // namespace velmara
