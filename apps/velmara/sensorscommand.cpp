#include <algorithm>
#include <chrono>
#include <map>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "command.h"
#include "json.h"
#include "poller.h"
#include "recording.h"
#include "session.h"
#include "texts.h"
#include "vehiclereport.h"

namespace velmara {

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr milliseconds DrawTime{200};
constexpr milliseconds PatienceTime{20000};  // without a single value, until the vehicle counts as gone
constexpr double LongestRun = 1e6;           // seconds
constexpr const char* StandardOutput = "-";

// One sensor: what is known of it, and its latest reading.
struct Row {
  std::string label;
  std::string name;
  std::string unit;
  bool numeric = false;
  std::string lowest;   // the ends of the range, empty without one
  std::string highest;  // empty also where it is open
  std::shared_ptr<obd::SensorValueDataModel> value;
};

using Parameters = std::vector<std::shared_ptr<obd::ParameterDescriptor>>;

int identifierOf(obd::ParameterDescriptor& parameter) {
  return static_cast<int>(parameter.pid());
}

class SensorsCommand : public Command {
 public:
  std::string name() const override { return "sensors"; }
  std::string summary() const override { return "Show live values with minimum, maximum and average"; }
  std::string examples() const override {
    return "  velmara sensors                       all values, until Ctrl-C\n"
           "  velmara sensors 0C 0D consumption     engine speed, vehicle speed, fuel consumption\n"
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
      m_recordingFile.emplace(m_record, m_force);
    }
    Session session(program);
    session.connect();
    session.selectEcu(m_ecu);
    const std::shared_ptr<obd::IEcu> ecu = session.facade().ecuManager()->currentEcu();
    m_ecuLabel = ecu ? ecuLabel(ecu->id()) : std::string();
    m_title = fmt::format("{} on {}", ecu ? printable(ecu->name()) : std::string(),
                          ecu ? printable(ecu->protocolDescription()) : std::string());

    const std::shared_ptr<obd::ISensorService> service = obd::SensorServiceBuilder::createSensorService();
    const Parameters parameters = choose(program, service->parameters(), wanted);
    for (const std::shared_ptr<obd::ParameterDescriptor>& parameter : parameters) {
      addRows(*parameter);
    }
    if (m_list) {
      printList(program.out);
      return ExitCode::Ok;
    }
    if (m_record.empty()) {
      return read(program, session, *service, parameters);
    }
    startRecording(program.out);
    try {
      const ExitCode code = read(program, session, *service, parameters);
      endRecording(program);
      return code;
    } catch (...) {  // Ctrl-C, a lost link
      endRecording(program);
      throw;
    }
  }

 private:
  // What is to be read, in the user's order.
  Parameters choose(Program& program, const Parameters& offered, const std::vector<int>& wanted) const {
    if (wanted.empty()) {
      return offered;
    }
    Parameters chosen;
    std::vector<std::string> missing;
    for (const int identifier : wanted) {
      const auto found = std::find_if(offered.begin(), offered.end(), [identifier](const auto& parameter) {
        return identifierOf(*parameter) == identifier;
      });
      if (found != offered.end()) {
        chosen.push_back(*found);
      } else {
        missing.push_back(parameterLabel(identifier));
      }
    }
    if (!missing.empty()) {
      const std::string text =
          fmt::format("The control unit {} does not offer {}.", m_ecuLabel, fmt::join(missing, ", "));
      if (chosen.empty()) {
        throw Failure(ExitCode::NoData, text, "velmara sensors --list shows what it offers.");
      }
      program.notes.warn(text);
    }
    return chosen;
  }

  void addRows(obd::ParameterDescriptor& parameter) {
    for (KnownSensor& sensor : knownSensors(parameter)) {
      Row row;
      row.label = std::move(sensor.reading.label);
      row.name = std::move(sensor.reading.name);
      row.unit = std::move(sensor.reading.unit);
      row.numeric = sensor.reading.numeric;
      if (sensor.lowest != sensor.highest) {
        row.lowest = fmt::format("{:g}", sensor.lowest);
        // Some sensors have a highest value of -1 for none.
        row.highest = sensor.highest > sensor.lowest ? fmt::format("{:g}", sensor.highest) : std::string();
      }
      m_labelWidth = std::max(m_labelWidth, displayWidth(row.label));
      m_nameWidth = std::max(m_nameWidth, displayWidth(row.name));
      m_byUid.try_emplace(sensor.uid, m_rows.size());
      m_rows.push_back(std::move(row));
    }
  }

  void startRecording(Output& out) {
    std::vector<RecordingWriter::Column> columns;
    for (const Row& row : m_rows) {
      columns.push_back({row.label, row.name, row.unit});
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
        Json object = {{"ecu", m_ecuLabel},
                       {"pid", row.label},
                       {"name", row.name},
                       {"unit", row.unit},
                       {"numeric", row.numeric}};
        if (!row.lowest.empty()) {
          object["lowest"] = numberOrText(row.lowest);
          object["highest"] = row.highest.empty() ? Json() : numberOrText(row.highest);
        }
        printJson(out, object);
      }
    } else {
      Table table({{"PID"}, {"Name"}, {"Unit"}, {"Range"}});
      for (const Row& row : m_rows) {
        table.add({row.label, row.name, row.unit,
                   row.lowest.empty()    ? std::string()
                   : row.highest.empty() ? "from " + row.lowest
                                         : row.lowest + " to " + row.highest});
      }
      table.print(out);
    }
    out.flush();
  }

  ExitCode read(Program& program, Session& session, obd::ISensorService& service,
                const Parameters& parameters) {
    std::vector<int> identifiers;
    for (const std::shared_ptr<obd::ParameterDescriptor>& parameter : parameters) {
      identifiers.push_back(identifierOf(*parameter));
    }
    const bool live = program.out.isTerminal() && !m_json && !m_once && m_record != StandardOutput;
    LiveArea area(program.out);
    m_start = Clock::now();
    Clock::time_point nextDraw = m_start;
    Poller poller(service, identifiers, [&](const auto& /*parameter*/, const auto& values) {
      onValues(program.out, values, live);
    });
    const auto draw = [&] {
      area.draw(liveLines(poller.readings(), program.out.width()), 2);
      nextDraw = Clock::now() + DrawTime;
    };
    const auto turn = [&] {
      if (live && Clock::now() >= nextDraw) {
        draw();
      }
      program.out.flush();
      if (poller.quietTime() > PatienceTime) {
        throw Failure(ExitCode::NoData,
                      fmt::format("The vehicle does not answer any more: no value for {} s.",
                                  PatienceTime.count() / 1000),
                      "Is the ignition still on, and the adapter in its socket?");
      }
      return poller.done();
    };
    poller.start(m_once ? 1 : m_count);
    std::optional<milliseconds> limit;
    if (m_seconds > 0) {
      limit = std::chrono::ceil<milliseconds>(std::chrono::duration<double>(m_seconds));
    }
    session.pumpUntil(turn, limit);
    if (live) {
      draw();
    } else if (m_once && !m_json && m_record != StandardOutput) {
      printValues(program.out);
    }
    program.out.flush();
    return verdict(program, poller);
  }

  ExitCode verdict(Program& program, const Poller& poller) const {
    const std::vector<int> silent = poller.silent();
    if (poller.readings() == 0) {
      throw Failure(ExitCode::NoData, "The vehicle gave none of these values.",
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

  void onValues(Output& out, const std::vector<std::shared_ptr<obd::SensorValueDataModel>>& values,
                bool live) {
    for (const std::shared_ptr<obd::SensorValueDataModel>& value : values) {
      const auto found = m_byUid.find(value->uid);
      if (found == m_byUid.end()) {
        continue;
      }
      Row& row = m_rows[found->second];
      row.value = value;
      if (m_recording) {
        m_recording->add(found->second, value->value, seconds());
      }
      if (m_json) {
        printJson(out, toJson(row));
      } else if (!live && !m_once && m_record != StandardOutput) {
        out.line(plainLine(row));
      }
    }
  }

  double seconds() const { return std::chrono::duration<double>(Clock::now() - m_start).count(); }

  Json toJson(const Row& row) const {
    Json object = {{"seconds", numberOrText(fmt::format("{:.3f}", seconds()))},
                   {"ecu", m_ecuLabel},
                   {"pid", row.label},
                   {"name", row.name},
                   {"value", row.numeric ? numberOrText(row.value->value) : Json(row.value->value)},
                   {"unit", row.unit}};
    if (!row.value->minimum.empty()) {
      object["minimum"] = numberOrText(row.value->minimum);
      object["maximum"] = numberOrText(row.value->maximum);
      object["average"] = numberOrText(row.value->average);
    }
    return object;
  }

  // The widths of label and name are counted in characters, not bytes.
  std::string plainLine(const Row& row) const {
    const auto pad = [](const std::string& text, std::size_t width) {
      return text + std::string(width - std::min(width, displayWidth(text)), ' ');
    };
    std::string line = fmt::format("{:9.3f}  {}  {}  {}", seconds(), pad(row.label, m_labelWidth),
                                   pad(row.name, m_nameWidth), printable(row.value->value));
    if (!row.unit.empty()) {
      line += " " + row.unit;
    }
    if (!row.value->minimum.empty()) {
      line += fmt::format("  (minimum {}, maximum {}, average {})", row.value->minimum, row.value->maximum,
                          row.value->average);
    }
    return line;
  }

  Table valueTable(bool statistics) const {
    std::vector<Table::Column> columns = {{"PID"}, {"Name"}, {"Value", true}, {"Unit"}};
    if (statistics) {
      columns.insert(columns.end(), {{"Minimum", true}, {"Maximum", true}, {"Average", true}});
    }
    Table table(std::move(columns));
    for (const Row& row : m_rows) {
      std::vector<std::string> cells = {row.label, row.name, row.value ? printable(row.value->value) : "-"};
      const bool statisticsKnown = row.value && !row.value->minimum.empty();
      if (row.value && !statisticsKnown && row.unit.empty()) {
        table.addSpilling(std::move(cells));
        continue;
      }
      cells.push_back(row.unit);
      if (statistics && statisticsKnown) {
        cells.insert(cells.end(), {row.value->minimum, row.value->maximum, row.value->average});
      }
      table.add(std::move(cells));
    }
    return table;
  }

  std::vector<std::string> liveLines(std::size_t readings, std::size_t width) const {
    const double time = seconds();
    std::vector<std::string> lines = {fmt::format("{}  {:.0f} s, {:.0f} readings/s, Ctrl-C ends", m_title,
                                                  time,
                                                  time > 0 ? static_cast<double>(readings) / time : 0.0)};
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
  bool m_watch = false;
  bool m_list = false;
  bool m_json = false;
  unsigned m_count = 0;
  double m_seconds = 0;

  std::string m_title;
  std::string m_ecuLabel;
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
