#include <algorithm>
#include <chrono>
#include <map>
#include <optional>
#include <utility>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "commands/command.h"
#include "programsession.h"
#include "report/livejson.h"
#include "report/textreport.h"
#include "terminal/livearea.h"
#include "terminal/table.h"
#include "velmara/client/parameters.h"
#include "velmara/client/poller.h"
#include "velmara/client/recordingfile.h"
#include "velmara/client/recordingwriter.h"
#include "velmara/client/texts.h"

namespace velmara {

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr milliseconds DrawTime{200};
constexpr double LongestRun = 1e6;  // seconds
constexpr const char* StandardOutput = "-";

// One sensor, and its latest reading.
struct Row {
  Sensor sensor;
  std::optional<SensorReading> reading;
};

class SensorsCommand : public Command {
 public:
  std::string name() const override { return "sensors"; }
  std::string summary() const override { return "Show live values with minimum, maximum and average"; }
  std::string examples() const override {
    return "  velmara sensors                       all values, until Ctrl-C\n"
           "  velmara sensors 0C 0D consumption     engine speed, vehicle speed, fuel consumption\n"
           "  velmara sensors --fast 0C 0D 05 11    several values with one request\n"
           "  velmara sensors --list                what there is to read\n"
           "  velmara sensors --once --unit imperial\n"
           "  velmara sensors --record trip.csv     keep them, for velmara plot or a spreadsheet\n"
           "  velmara sensors --json --for 60 0C    one JSON object per value, for a minute\n";
  }

  void declare(Options& options) override {
    options.value("PID", m_wanted, "",
                  fmt::format("What to read: PIDs in hexadecimal (0C), or\n{};\nall without any",
                              fmt::join(calculatedNames(), ", ")));
    const Option once = options.flag("--once", m_once, "Read each value once");
    options.flag("--watch", m_watch, "Read until Ctrl-C; this is the default").excludes(once);
    options.value("--count", m_count, "NUMBER", "Read each value so many times")
        .between(1, 1000000)
        .excludes(once);
    options.value("--for", m_seconds, "SECONDS", "Read for so long")
        .between(0.001, LongestRun)
        .excludes(once);
    options.flag("--fast", m_fast,
                 "Ask for up to six values with one request, where the\n"
                 "vehicle answers that; see velmara settings fast");
    const Option list = options.flag("--list", m_list, "Only list what can be read, with units and ranges");
    const Option json = options.flag("--json", m_json, "Print one JSON object per value and line");
    const Option record =
        options.value("--record", m_record, "FILE", "Write the values to this file as CSV; - prints them")
            .excludes(list)
            .excludes(json);
    options.flag("--force", m_force, "Replace the file if there is one").needs(record);
    options.value("--ecu", m_ecu, "UNIT", "Control unit by identifier or name, see velmara ecus");
  }

  ExitCode run(Program& program) override {
    const std::vector<int> wanted = parseParameters(m_wanted);
    if (!m_record.empty() && m_record != StandardOutput) {
      claimFile();
    }
    if (int fast = 0; program.settings->value(FastSetting, fast)) {
      m_fast = m_fast || fast != 0;
    }
    ProgramSession session(program);
    session.connect();
    const ControlUnit unit =
        m_ecu.empty() ? session.selectedUnit().value_or(ControlUnit()) : session.findUnit(m_ecu);
    m_unitLabel = unit.label;
    m_title = fmt::format("{} on {}", unit.name, unit.protocol);

    Poller poller(session, unit);
    const std::vector<int> parameters = choose(program, poller.sensors(), wanted);
    if (m_list) {
      printList(program.out);
      return ExitCode::Ok;
    }
    if (m_record.empty()) {
      return read(program, session, poller, parameters);
    }
    startRecording(program.out);
    try {
      const ExitCode code = read(program, session, poller, parameters);
      endRecording(program);
      return code;
    } catch (...) {  // Ctrl-C, a lost link
      endRecording(program);
      throw;
    }
  }

 private:
  void claimFile() {
    try {
      m_recordingFile.emplace(m_record, m_force);
    } catch (const Failure& failure) {
      switch (failure.kind()) {
        case Failure::Kind::FileExists:
          throw Failure(failure.kind(), failure.what(), "Choose another name, or replace it with --force.");
        case Failure::Kind::NotAFile:
          throw Failure(failure.kind(), failure.what(), "- stands for standard output.");
        default:
          throw;
      }
    }
  }

  // What is to be read, in the user's order; makes a row for each sensor.
  std::vector<int> choose(Program& program, const std::vector<Sensor>& offered,
                          const std::vector<int>& wanted) {
    std::vector<int> chosen;
    for (const Sensor& sensor : offered) {
      if (chosen.empty() || chosen.back() != sensor.parameter) {
        chosen.push_back(sensor.parameter);
      }
    }
    if (!wanted.empty()) {
      const std::vector<int> all = std::exchange(chosen, {});
      std::vector<std::string> missing;
      for (const int parameter : wanted) {
        if (std::find(all.begin(), all.end(), parameter) != all.end()) {
          chosen.push_back(parameter);
        } else {
          missing.push_back(parameterLabel(parameter));
        }
      }
      complainOf(program, missing, chosen.empty());
    }
    for (const int parameter : chosen) {
      for (const Sensor& sensor : offered) {
        if (sensor.parameter == parameter) {
          addRow(sensor);
        }
      }
    }
    return chosen;
  }

  void complainOf(Program& program, const std::vector<std::string>& missing, bool all) const {
    if (missing.empty()) {
      return;
    }
    const std::string text =
        fmt::format("The control unit {} does not list {}.", m_unitLabel, fmt::join(missing, ", "));
    if (all) {
      throw Failure(Failure::Kind::NoData, text, "velmara sensors --list shows what it offers.");
    }
    program.notes.warn(text);
  }

  void addRow(const Sensor& sensor) {
    m_labelWidth = std::max(m_labelWidth, displayWidth(sensor.label));
    m_nameWidth = std::max(m_nameWidth, displayWidth(sensor.name));
    m_byUid.try_emplace(sensor.uid, m_rows.size());
    m_rows.push_back({sensor, std::nullopt});
  }

  void startRecording(Output& out) {
    std::vector<RecordingWriter::Column> columns;
    for (const Row& row : m_rows) {
      columns.push_back({row.sensor.label, row.sensor.name, row.sensor.unit});
    }
    if (m_recordingFile) {
      m_recordingFile->open();
    }
    m_recording.emplace(columns, [this, &out](const std::string& text) {
      if (m_recordingFile) {
        m_recordingFile->write(text);
      } else {
        out << text;
      }
    });
  }

  void endRecording(Program& program) {
    m_recording->finish();
    if (m_recordingFile) {
      m_recordingFile->close();
      program.notes.note(
          fmt::format("{} rows are in {}", m_recording->rows(), printable(m_recordingFile->name())));
    } else {
      program.out.flush();
    }
  }

  void printList(Output& out) const {
    if (m_json) {
      for (const Row& row : m_rows) {
        printJson(out, toJson(m_unitLabel, row.sensor));
      }
    } else {
      Table table({{"PID"}, {"Name"}, {"Unit"}, {"Range"}});
      for (const auto& [sensor, reading] : m_rows) {
        table.add({sensor.label, sensor.name, sensor.unit,
                   !sensor.lowest    ? std::string()
                   : !sensor.highest ? "from " + rangeEnd(sensor.lowest)
                                     : rangeEnd(sensor.lowest) + " to " + rangeEnd(sensor.highest)});
      }
      table.print(out);
    }
    out.flush();
  }

  ExitCode read(Program& program, Session& session, Poller& poller, const std::vector<int>& parameters) {
    const bool live = program.out.isTerminal() && !m_json && !m_once && m_record != StandardOutput;
    LiveArea area(program.out);
    m_start = Clock::now();
    Clock::time_point nextDraw = m_start;
    const auto draw = [&] {
      area.draw(liveLines(poller, program.out.width()), 2);
      nextDraw = Clock::now() + DrawTime;
    };
    std::optional<milliseconds> limit;
    if (m_seconds > 0) {
      limit = std::chrono::ceil<milliseconds>(std::chrono::duration<double>(m_seconds));
    }
    poller.start(
        parameters, m_once ? 1 : m_count,
        [&](int /*parameter*/, const std::vector<SensorReading>& readings) {
          onReadings(program.out, readings, live);
        },
        m_fast);
    poller.run(
        [&] {
          if (live && Clock::now() >= nextDraw) {
            draw();
          }
          program.out.flush();
          return false;
        },
        limit);
    if (live) {
      draw();
    } else if (m_once && !m_json && m_record != StandardOutput) {
      printValues(program.out);
    }
    program.out.flush();
    if (poller.pace() != Pace::Single) {
      program.notes.note(fmt::format("{} readings in {:.1f} s, {:.0f} a second{}.", poller.readings(),
                                     seconds(), rate(poller), paceWords(poller.pace())));
    }
    return verdict(program, session, poller);
  }

  ExitCode verdict(Program& program, Session& session, const Poller& poller) const {
    const std::vector<int> silent = poller.silent();
    if (poller.readings() == 0) {
      expectAdapter(session);
      throw Failure(Failure::Kind::NoData,
                    fmt::format("The control unit {} gave none of these values.", m_unitLabel),
                    "Is the ignition on? Some values come only while the engine runs.");
    }
    if (silent.empty()) {
      return ExitCode::Ok;
    }
    std::vector<std::string> labels;
    std::transform(silent.begin(), silent.end(), std::back_inserter(labels), parameterLabel);
    program.notes.warn(fmt::format("No value came for {}.", fmt::join(labels, ", ")));
    return ExitCode::Ok;
  }

  void onReadings(Output& out, const std::vector<SensorReading>& readings, bool live) {
    for (const SensorReading& reading : readings) {
      const auto found = m_byUid.find(reading.uid);
      if (found == m_byUid.end()) {
        continue;
      }
      Row& row = m_rows[found->second];
      row.reading = reading;
      if (m_recording) {
        m_recording->add(found->second, reading.value, seconds());
      }
      if (m_json) {
        printJson(out, toJson(m_unitLabel, row.sensor, reading, seconds()));
      } else if (!live && !m_once && m_record != StandardOutput) {
        out.line(plainLine(row.sensor, reading));
      }
    }
  }

  double seconds() const { return std::chrono::duration<double>(Clock::now() - m_start).count(); }

  // The widths of label and name are counted in characters, not bytes.
  std::string plainLine(const Sensor& sensor, const SensorReading& reading) const {
    const auto pad = [](const std::string& text, std::size_t width) {
      return text + std::string(width - std::min(width, displayWidth(text)), ' ');
    };
    std::string line = fmt::format("{:9.3f}  {}  {}  {}", seconds(), pad(sensor.label, m_labelWidth),
                                   pad(sensor.name, m_nameWidth), valueText(reading));
    if (!sensor.unit.empty()) {
      line += " " + sensor.unit;
    }
    if (reading.numeric) {
      line += fmt::format("  (minimum {}, maximum {}, average {})", orDash(reading.minimum),
                          orDash(reading.maximum), orDash(reading.average));
    }
    return line;
  }

  static std::string valueText(const SensorReading& reading) {
    return reading.numeric ? orDash(reading.value) : printable(reading.value);
  }

  Table valueTable(bool statistics) const {
    std::vector<Table::Column> columns = {{"PID"}, {"Name"}, {"Value", true}, {"Unit"}};
    if (statistics) {
      columns.insert(columns.end(), {{"Minimum", true}, {"Maximum", true}, {"Average", true}});
    }
    Table table(std::move(columns));
    for (const auto& [sensor, reading] : m_rows) {
      std::vector<std::string> cells = {sensor.label, sensor.name, reading ? valueText(*reading) : Dash};
      if (reading && !reading->numeric && sensor.unit.empty()) {
        table.addSpilling(std::move(cells));
        continue;
      }
      cells.push_back(sensor.unit);
      if (statistics && reading && reading->numeric) {
        cells.insert(cells.end(),
                     {orDash(reading->minimum), orDash(reading->maximum), orDash(reading->average)});
      }
      table.add(std::move(cells));
    }
    return table;
  }

  double rate(const Poller& poller) const {
    const double time = seconds();
    return time > 0 ? static_cast<double>(poller.readings()) / time : 0.0;
  }

  // How values are asked for, where that is worth a word.
  static std::string paceWords(Pace pace) {
    switch (pace) {
      case Pace::Grouped:
        return " in groups";
      case Pace::Declined:
        return " one by one, as the vehicle answers no groups";
      case Pace::Unavailable:
        return " one by one, as this protocol has no groups";
      default:
        return "";
    }
  }

  std::vector<std::string> liveLines(const Poller& poller, std::size_t width) const {
    std::vector<std::string> lines = {fmt::format("{}  {:.0f} s, {:.0f} readings/s{}, Ctrl-C ends", m_title,
                                                  seconds(), rate(poller), paceWords(poller.pace()))};
    const std::vector<std::string> table = valueTable(true).lines(width);
    lines.insert(lines.end(), table.begin(), table.end());
    return lines;
  }

  void printValues(Output& out) const { valueTable(false).print(out); }

  std::vector<std::string> m_wanted;
  std::string m_ecu;
  std::string m_record;
  bool m_force = false;
  bool m_once = false;
  bool m_fast = false;
  bool m_watch = false;
  bool m_list = false;
  bool m_json = false;
  unsigned m_count = 0;
  double m_seconds = 0;

  std::string m_title;
  std::string m_unitLabel;
  std::vector<Row> m_rows;
  std::map<int, std::size_t> m_byUid;
  std::size_t m_labelWidth = 0;
  std::size_t m_nameWidth = 0;
  Clock::time_point m_start;
  std::optional<RecordingFile> m_recordingFile;
  std::optional<RecordingWriter> m_recording;
};

}  // namespace

std::unique_ptr<Command> makeSensorsCommand() {
  return std::make_unique<SensorsCommand>();
}

}  // namespace velmara
