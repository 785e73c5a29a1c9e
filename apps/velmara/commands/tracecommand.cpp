// What can be made of traces: a summary, a copy to hand on, a vehicle, a comparison.

#include <filesystem>
#include <optional>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "commands/command.h"
#include "newfile.h"
#include "report/textreport.h"
#include "terminal/table.h"
#include "velmara/client/texts.h"
#include "velmara/client/trace.h"

namespace velmara {

namespace {

constexpr const char* StandardOutput = "-";
constexpr std::size_t AnswerWidth = 100;  // of an answer in a comparison

std::string milliseconds(const std::optional<double>& seconds) {
  return seconds ? fmt::format("{:.1f}", *seconds * 1000) : Dash;
}

class TraceCommand : public Command {
 public:
  std::string name() const override { return "trace"; }
  std::string summary() const override { return "Tell about traces, and make things of them"; }
  std::string examples() const override {
    return "  velmara report --trace car.trace               record what goes over the link\n"
           "  velmara report --link replay:car.trace         read the same car again\n"
           "  velmara trace summary car.trace                what it holds\n"
           "  velmara trace anonymize car.trace --output public.trace\n"
           "  velmara trace vehicle car.trace --output car.vehicle\n"
           "  velmara trace compare before.trace after.trace\n";
  }
  bool needsVehicle() const override { return false; }

  void declare(Options& options) override {
    options.value("ACTION", m_action, "", "summary, anonymize, vehicle or compare").required();
    options.value("TRACE", m_files, "", "What --trace has written; two for compare").required();
    options.value("--output", m_output, "FILE", "Where anonymize and vehicle write; - prints it, as without");
    options.value("--name", m_name, "TEXT", "Name of the vehicle; that of the file if not given");
  }

  ExitCode run(Program& program) override {
    const std::size_t wanted = m_action == "compare" ? 2 : 1;
    const bool known =
        m_action == "summary" || m_action == "anonymize" || m_action == "vehicle" || m_action == "compare";
    if (!known) {
      throw Failure(Failure::Kind::Unusable, fmt::format("There is no velmara trace {}.", m_action),
                    "There are summary, anonymize, vehicle and compare.");
    }
    if (m_files.size() != wanted) {
      throw Failure(
          Failure::Kind::Unusable,
          fmt::format("velmara trace {} takes {}.", m_action, wanted == 1 ? "one trace" : "two traces"),
          wanted == 1 ? "--output FILE names where the result goes." : "");
    }
    const std::string& file = m_files.front();
    if (m_action == "anonymize") {
      write(program, "trace", anonymizedTrace(file));
    } else if (m_action == "vehicle") {
      write(program, "vehicle",
            vehicleOfTrace(file, m_name.empty() ? std::filesystem::path(file).stem().string() : m_name));
    } else if (m_action == "compare") {
      compare(program);
    } else {
      summarize(program, summarizeTrace(file));
    }
    program.out.flush();
    return ExitCode::Ok;
  }

 private:
  void write(Program& program, const std::string& what, const std::string& text) const {
    if (m_output.empty() || m_output == StandardOutput) {
      program.out << text;
      return;
    }
    std::error_code error;
    if (std::filesystem::equivalent(m_output, m_files.front(), error)) {
      throw Failure(Failure::Kind::Unusable, "The output would replace the trace.",
                    "Name another file with --output.");
    }
    const NewFile file(what, m_output);
    file.write(text);
    program.notes.note(fmt::format("The {} is in {}", what, printable(file.name())));
  }

  static void summarize(Program& program, const TraceSummary& trace) {
    Output& out = program.out;
    const auto line = [&out](const char* title, const std::string& text) {
      if (!text.empty()) {
        out.line(fmt::format("{:<12} {}", title, text));
      }
    };
    line("Links:", fmt::format("{}", fmt::join(trace.links, ", ")));
    line("Time:", fmt::format("{:.1f} s", trace.seconds));
    line("Adapter:", printable(trace.adapter));
    line("Description:", printable(trace.description));
    line("Protocol:", printable(trace.protocol));
    line("Units:", fmt::format("{}", fmt::join(trace.units, ", ")));
    for (const TraceSummary::Error& error : trace.errors) {
      line("Error:", fmt::format("{}, {} times", error.what, error.count));
    }
    line("Cut:", printable(trace.cut));
    out << "\n";
    Table table(std::vector<Table::Column>{
        {"Request"}, {"Count", true}, {"Without end", true}, {"Median ms", true}, {"Worst ms", true}});
    for (const TracedRequest& request : trace.requests) {
      table.add({request.text.empty() ? std::string("(empty line)") : request.text,
                 std::to_string(request.count),
                 request.unanswered == 0 ? std::string(Dash) : std::to_string(request.unanswered),
                 milliseconds(request.median), milliseconds(request.worst)});
    }
    table.print(out);
  }

  void compare(Program& program) const {
    const std::vector<TraceDifference> differences = compareTraces(m_files[0], m_files[1]);
    if (differences.empty()) {
      program.out.line("The same requests got the same answers.");
    }
    for (const TraceDifference& row : differences) {
      if (row.differing == 0) {
        program.out.line(fmt::format("{}: {} times, {} times", row.request, row.count, row.otherCount));
        continue;
      }
      program.out.line(fmt::format("{}: {} times, {} times, {} answers differ, first", row.request, row.count,
                                   row.otherCount, row.differing));
      program.out.line("  " + shortened(row.answer));
      program.out.line("  " + shortened(row.otherAnswer));
    }
  }

  static std::string shortened(const std::string& text) {
    return text.empty()                       ? Dash
           : displayWidth(text) > AnswerWidth ? cutToWidth(text, AnswerWidth - 1) + "…"
                                              : text;
  }

  std::string m_action;
  std::vector<std::string> m_files;
  std::string m_output;
  std::string m_name;
};

}  // namespace

std::unique_ptr<Command> makeTraceCommand() {
  return std::make_unique<TraceCommand>();
}

}  // namespace velmara
