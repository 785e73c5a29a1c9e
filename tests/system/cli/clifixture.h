#pragma once

#include <gtest/gtest.h>

#include <unistd.h>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "process.h"

namespace clitest {

using Arguments = std::vector<std::string>;
using Seconds = Process::Seconds;

inline constexpr Seconds Limit{40};  // for a whole run, also on a slow machine
inline constexpr Seconds Prompt{5};  // for an end after a signal

/// Every complaint names the program and ends as a sentence.
inline void expectComplaint(const Process::Result& result, int code, const std::string& words) {
  EXPECT_TRUE(result.inTime);
  EXPECT_EQ(result.code, code) << result.err;
  EXPECT_NE(result.err.find("velmara: "), std::string::npos) << result.err;
  EXPECT_NE(result.err.find(words), std::string::npos) << result.err;
}

inline bool has(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

inline nlohmann::json parsed(const Process::Result& result) {
  EXPECT_EQ(result.code, 0) << result.err;
  const nlohmann::json document = nlohmann::json::parse(result.out, nullptr, false);
  EXPECT_FALSE(document.is_discarded()) << result.out;
  return document;
}

// What one control unit of a report says.
inline nlohmann::json unitOf(const nlohmann::json& report, const std::string& id) {
  for (const nlohmann::json& unit : report.at("units")) {
    if (unit.at("id") == id) {
      return unit;
    }
  }
  ADD_FAILURE() << "no unit " << id;
  return {};
}

/// Runs of the program, each with the same folder of settings of its own.
class Cli : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = testing::TempDir() + "velmara-cli-XXXXXX";
    ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
    m_folder = pattern;
  }
  void TearDown() override { std::filesystem::remove_all(m_folder); }

  std::unique_ptr<Process> start(const Arguments& arguments, bool terminal = false,
                                 std::map<std::string, std::string> environment = {}) const {
    environment.insert({{"XDG_CONFIG_HOME", m_folder.string()}, {"NO_COLOR", ""}, {"TERM", "xterm"}});
    return std::make_unique<Process>(VELMARA_PROGRAM, arguments, Process::Options{environment, terminal});
  }
  Process::Result run(const Arguments& arguments) const { return start(arguments)->finish(Limit); }

  /// A simulated adapter, and the link to it.
  struct Simulator {
    std::unique_ptr<Process> process;
    std::string link;
  };
  static Simulator simulate(const Arguments& arguments) {
    Simulator simulator;
    simulator.process = std::make_unique<Process>(VELMARA_SIM_PROGRAM, arguments);
    simulator.link = simulator.process->firstLine(Seconds(10));
    return simulator;
  }

  std::filesystem::path m_folder;
};

}  // namespace clitest
