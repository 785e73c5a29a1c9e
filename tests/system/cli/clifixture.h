#pragma once

#include <algorithm>
#include <csignal>
#include <iomanip>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "commandline.h"
#include "process.h"
#include "support/temporaryfolder.h"

namespace clitest {

using Texts = std::vector<std::string>;
using Result = Process::Result;
using Terminal = Process::Terminal;
using nlohmann::json;

inline constexpr const char* ClosedLink = "tcp:127.0.0.1:1";  // nobody listens there

inline bool has(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

inline void expectAll(const std::string& text, std::initializer_list<const char*> parts) {
  for (const char* part : parts) {
    EXPECT_TRUE(has(text, part)) << part << "\n" << text;
  }
}

/// A run that went well, and what it printed holds all these.
inline void expectShown(const Result& result, std::initializer_list<const char*> parts) {
  EXPECT_EQ(result.code, 0) << result.err;
  expectAll(result.out, parts);
}

/// Every complaint names the program.
inline void expectComplaint(const Result& result, int code, const std::string& words) {
  EXPECT_EQ(result.code, code) << result.err;
  EXPECT_TRUE(has(result.err, "velmara: ") && has(result.err, words)) << words << "\n" << result.err;
}

inline json parsed(const Result& result, int code = 0) {
  EXPECT_EQ(result.code, code) << result.err;
  json document = json::parse(result.out, nullptr, false);
  EXPECT_FALSE(document.is_discarded()) << result.out;
  return document;
}

/// The element of a list that has this value at this key.
inline json pick(const json& list, const char* key, const json& value) {
  for (const json& entry : list) {
    if (entry.at(key) == value) {
      return entry;
    }
  }
  ADD_FAILURE() << "no " << value << " in " << list;
  return {};
}

/// What one control unit of a report says.
inline json unitOf(const json& report, const char* id) {
  return pick(report.at("units"), "id", id);
}

inline Texts linesOf(const std::string& text) {
  Texts lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

/// Runs of the program, each with the same folder of settings of its own. A command's words stand between
/// blanks, or in 'quotes'.
class Cli : public testing::Test, protected TemporaryFolder {
 protected:
  Cli() { ::setenv("XDG_CONFIG_HOME", m_folder.c_str(), 1); }

  static Texts wordsOf(const std::string& command) {
    Texts words;
    std::istringstream stream(command);
    for (std::string word; stream >> std::quoted(word, '\'');) {
      words.push_back(word);
    }
    return words;
  }
  static std::unique_ptr<Process> launch(const std::string& command, Terminal terminal = Terminal::None) {
    return std::make_unique<Process>(wordsOf(command), terminal);
  }
  /// The program, with what else shall stand in its environment.
  static std::string program(const std::string& more = {}) {
    return "/usr/bin/env NO_COLOR= TERM=xterm " + more + " " VELMARA_PROGRAM " ";
  }
  static std::unique_ptr<Process> start(const std::string& command, Terminal terminal = Terminal::None,
                                        const std::string& more = {}) {
    return launch(program(more) + command, terminal);
  }
  static Result run(const std::string& command) { return start(command)->finish(); }

  /// A run within this process, which spares the start of one; for commands that end without a vehicle.
  static Result runHere(const std::string& command) {
    Texts words = wordsOf("velmara " + command);
    std::vector<char*> arguments;
    for (std::string& word : words) {
      arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    sigset_t mask;  // which the program changes for good
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    Result result;
    const auto begin = std::chrono::steady_clock::now();
    result.code = velmara::runProgram(static_cast<int>(words.size()), arguments.data());
    result.seconds = Seconds(std::chrono::steady_clock::now() - begin).count();
    result.out = testing::internal::GetCapturedStdout();
    result.err = testing::internal::GetCapturedStderr();
    pthread_sigmask(SIG_SETMASK, &mask, nullptr);
    return result;
  }

  /// Runs that need no interplay, all at once, as they mostly wait. A row of each: the command, in which " @"
  /// stands for " --link demo:"; its exit code; what it prints; what it does not print, if that matters; and,
  /// if it shall print a document, members of control units in that.
  static void expectRuns(const json& rows) {
    std::vector<std::unique_ptr<Process>> runs;
    for (const json& row : rows) {
      std::string command = row[0];
      if (const std::size_t place = command.find(" @"); place != std::string::npos) {
        command.replace(place, 2, " --link demo:");
      }
      runs.push_back(start(command + " --quiet" + (row.size() > 4 ? " --json" : "")));
    }
    for (std::size_t i = 0; i < runs.size(); ++i) {
      SCOPED_TRACE(rows[i][0].dump());
      expectRun(rows[i], runs[i]->finish());
    }
  }
  static void expectRun(const json& row, const Result& result) {
    EXPECT_EQ(result.code, row[1]) << result.err;
    for (std::size_t column = 2; column < std::min<std::size_t>(row.size(), 4); ++column) {
      for (const std::string part : row[column]) {
        EXPECT_EQ(has(result.out + result.err, part), column == 2) << part << "\n"
                                                                   << result.out << result.err;
      }
    }
    if (row.size() > 4) {
      const json document = parsed(result, row[1]);
      for (const auto& [id, members] : row[4].items()) {
        const json unit = unitOf(document, id.c_str());
        for (const auto& [place, value] : members.items()) {
          EXPECT_EQ(unit.value(json::json_pointer("/" + place), json("missing")), value)
              << place << " " << unit;
        }
      }
    }
  }

  /// A simulated adapter, and the link to it.
  struct Simulator {
    explicit Simulator(const std::string& options) : process(launch(VELMARA_SIM_PROGRAM " " + options)) {
      process->await("\n");
      link = linesOf(process->out()).at(0);
    }
    std::unique_ptr<Process> process;
    std::string link;
  };
};

}  // namespace clitest
