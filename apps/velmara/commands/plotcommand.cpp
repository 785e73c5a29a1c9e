// A recording of live values as a picture.

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "commands/command.h"
#include "newfile.h"
#include "report/htmlreport.h"
#include "velmara/client/recording.h"
#include "velmara/client/texts.h"

namespace velmara {

namespace {

namespace fs = std::filesystem;
using Point = Recording::Point;
using Series = Recording::Series;

constexpr const char* StandardOutput = "-";

// The picture, in pixels.
constexpr double PictureWidth = 1240;
constexpr double PlotLeft = 70;
constexpr double PlotWidth = 760;
constexpr double LegendLeft = PlotLeft + PlotWidth + 20;
constexpr double TitleHeight = 28;
constexpr double AxisHeight = 40;
constexpr double LowestPlot = 170;
constexpr double LegendLine = 18;
constexpr std::size_t LegendWidth = 46;  // characters, also of a wide font

constexpr double WantedTicks = 6;
constexpr double SmallestSpan = 1e-9;  // of the values; doubles tell no finer ticks apart
constexpr double FirstMoment = 0.05;   // of a recording, in which its first value may come

// Both stand out on white as well as on black.
constexpr const char* Gray = "#7a7a7a";
constexpr std::array<const char*, 8> Colors = {"#3b82d8", "#d9622b", "#2a9d5c", "#b05cc6",
                                               "#b08400", "#d1477a", "#1f95a8", "#94704f"};
constexpr std::array<const char*, 4> Dashes = {"none", "7 4", "2 4", "9 4 2 4"};

// Round numbers along an axis.
class Axis {
 public:
  Axis(double lowest, double highest) : m_low(lowest), m_high(highest) {
    const double size = std::max({std::fabs(m_low), std::fabs(m_high), 1.0});
    if (m_high - m_low < size * SmallestSpan) {
      m_low -= size * 0.1;
      m_high += size * 0.1;
    }
    const double wanted = (m_high - m_low) / WantedTicks;
    const double power = std::pow(10.0, std::floor(std::log10(wanted)));
    const double part = wanted / power;
    m_step = power * (part <= 1 ? 1 : part <= 2 ? 2 : part <= 5 ? 5 : 10);
    m_decimals = std::max(0, static_cast<int>(-std::floor(std::log10(m_step) + SmallestSpan)));
  }

  /// Spreads the axis to ticks at both ends.
  void spread() {
    m_low = std::floor(m_low / m_step) * m_step;
    m_high = std::ceil(m_high / m_step) * m_step;
  }

  double share(double value) const { return (value - m_low) / (m_high - m_low); }

  std::vector<double> ticks() const {
    const double first = std::ceil(m_low / m_step - SmallestSpan);
    const auto count = static_cast<int>(std::floor(m_high / m_step + SmallestSpan) - first) + 1;
    std::vector<double> values;
    for (int i = 0; i < count; ++i) {
      values.push_back((first + i) * m_step + 0.0);  // no minus in front of 0
    }
    return values;
  }

  std::string text(double tick) const { return fmt::format("{:.{}f}", tick, m_decimals); }

 private:
  double m_low;
  double m_high;
  double m_step = 1;
  int m_decimals = 0;
};

struct TimeUnit {
  const char* name;
  double seconds;
};

// So that the numbers on the axis remain short.
TimeUnit timeUnitFor(double span) {
  constexpr double Minute = 60;
  constexpr double Hour = 3600;
  if (span > 6 * Hour) {
    return {"h", Hour};
  }
  return span > 10 * Minute ? TimeUnit{"min", Minute} : TimeUnit{"s", 1};
}

struct Panel {
  std::string unit;
  std::vector<const Series*> series;
};

class Picture {
 public:
  explicit Picture(const Recording& recording)
      : m_panels(panelsOf(recording)),
        m_unit(timeUnitFor(endOf(recording) - startOf(recording))),
        m_time(startOf(recording) / m_unit.seconds, endOf(recording) / m_unit.seconds) {}

  std::string svg() {
    for (const Panel& panel : m_panels) {
      draw(panel);
    }
    return fmt::format(
               R"(<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {0} {1:.0f}" width="{0}" height="{1:.0f}" )"
               R"(font-family="sans-serif" font-size="12" fill="{2}">)"
               "\n",
               PictureWidth, m_top, Gray) +
           m_body + "</svg>\n";
  }

 private:
  static std::vector<Panel> panelsOf(const Recording& recording) {
    std::vector<Panel> panels;
    std::map<std::string, std::size_t> places;
    for (const Series& series : recording.series) {
      const auto [place, isNew] = places.try_emplace(series.unit, panels.size());
      if (isNew) {
        panels.push_back({series.unit, {}});
      }
      panels[place->second].series.push_back(&series);
    }
    return panels;
  }

  // 0, unless what was recorded at first is missing.
  static double startOf(const Recording& recording) {
    double start = recording.series.front().points.front().time;
    for (const Series& series : recording.series) {
      start = std::min(start, series.points.front().time);
    }
    return start > 0 && start < endOf(recording) * FirstMoment ? 0 : start;
  }

  static double endOf(const Recording& recording) {
    double end = recording.series.front().points.back().time;
    for (const Series& series : recording.series) {
      end = std::max(end, series.points.back().time);
    }
    return end;
  }

  template <typename... Arguments>
  void add(fmt::format_string<Arguments...> format, Arguments&&... arguments) {
    fmt::format_to(std::back_inserter(m_body), format, std::forward<Arguments>(arguments)...);
  }

  double xOf(double time) const { return PlotLeft + PlotWidth * m_time.share(time / m_unit.seconds); }

  void draw(const Panel& panel) {
    double low = panel.series.front()->points.front().value;
    double high = low;
    for (const Series* const series : panel.series) {
      for (const Point& point : series->points) {
        low = std::min(low, point.value);
        high = std::max(high, point.value);
      }
    }
    Axis values(low, high);
    values.spread();
    const double top = m_top + TitleHeight;
    const double height = std::max(LowestPlot, LegendLine * static_cast<double>(panel.series.size()));
    const auto yOf = [&](double value) { return top + height * (1 - values.share(value)); };

    add("<text x=\"{}\" y=\"{:.0f}\" font-weight=\"bold\">{}</text>\n", PlotLeft, top - 9,
        panel.unit.empty() ? "without unit" : htmlText(panel.unit));
    for (const double tick : values.ticks()) {
      const double y = yOf(tick);
      add("<path d=\"M{} {:.1f}h{}\" stroke=\"{}\" stroke-opacity=\".3\"/>", PlotLeft, y, PlotWidth, Gray);
      add("<text x=\"{}\" y=\"{:.1f}\" text-anchor=\"end\">{}</text>\n", PlotLeft - 6, y + 4,
          values.text(tick));
    }
    drawTimes(top, height);
    for (std::size_t i = 0; i < panel.series.size(); ++i) {
      drawSeries(*panel.series[i], i, top, yOf);
    }
    m_top = top + height + AxisHeight;
  }

  void drawTimes(double top, double height) {
    for (const double tick : m_time.ticks()) {
      const double x = PlotLeft + PlotWidth * m_time.share(tick);
      add("<path d=\"M{:.1f} {:.1f}v{:.1f}\" stroke=\"{}\" stroke-opacity=\".3\"/>", x, top, height, Gray);
      add("<text x=\"{:.1f}\" y=\"{:.1f}\" text-anchor=\"middle\">{}</text>\n", x, top + height + 16,
          m_time.text(tick));
    }
    add("<text x=\"{}\" y=\"{:.1f}\">{}</text>\n", LegendLeft, top + height + 16, m_unit.name);
  }

  template <typename YOf>
  void drawSeries(const Series& series, std::size_t index, double top, const YOf& yOf) {
    const std::string style = fmt::format(
        "fill=\"none\" stroke=\"{}\" stroke-width=\"1.5\" stroke-linecap=\"round\" "
        "stroke-linejoin=\"round\" stroke-dasharray=\"{}\"",
        Colors[index % Colors.size()], Dashes[index / Colors.size() % Dashes.size()]);
    const double legendY = top + LegendLine * static_cast<double>(index) + 10;
    const bool isLong = displayWidth(series.name) > LegendWidth;
    add("<path d=\"M{} {:.1f}h24\" {}/><text x=\"{}\" y=\"{:.1f}\">{}<title>{}</title></text>\n", LegendLeft,
        legendY - 4, style, LegendLeft + 30, legendY,
        htmlText(isLong ? cutToWidth(series.name, LegendWidth - 1) + "…" : series.name),
        htmlText(series.name));
    add("<path {} d=\"", style);
    m_pen = 'M';
    const std::vector<Point>& points = series.points;
    for (std::size_t begin = 0; begin < points.size();) {
      begin = drawPixelColumn(points, begin, yOf);
    }
    // A line of a single point shows as a dot.
    add("{}\"/>\n", points.size() == 1 ? "h.01" : "");
  }

  // The first, the lowest, the highest and the last point of a pixel column: more would not be seen. Gives
  // where the next column begins.
  template <typename YOf>
  std::size_t drawPixelColumn(const std::vector<Point>& points, std::size_t begin, const YOf& yOf) {
    const double column = std::floor(xOf(points[begin].time));
    std::size_t low = begin;
    std::size_t high = begin;
    std::size_t end = begin + 1;
    for (; end < points.size() && std::floor(xOf(points[end].time)) <= column; ++end) {
      low = points[end].value < points[low].value ? end : low;
      high = points[end].value > points[high].value ? end : high;
    }
    std::array<std::size_t, 4> shown = {begin, low, high, end - 1};
    std::sort(shown.begin(), shown.end());
    const auto last = std::unique(shown.begin(), shown.end());
    for (auto place = shown.begin(); place != last; ++place) {
      add("{}{:.1f} {:.1f}", m_pen, xOf(points[*place].time), yOf(points[*place].value));
      m_pen = 'L';
    }
    return end;
  }

  std::vector<Panel> m_panels;
  TimeUnit m_unit;
  Axis m_time;
  std::string m_body;
  double m_top = 8;
  char m_pen = 'M';
};

std::string textOf(const std::string& file) {
  std::error_code error;
  const fs::file_status status = fs::status(file, error);
  if (!fs::exists(status)) {
    throw Failure(Failure::Kind::Unusable, fmt::format("There is no file {}.", file));
  }
  if (!fs::is_regular_file(status)) {
    throw Failure(Failure::Kind::Unusable, fmt::format("{} is no file that can be plotted.", file));
  }
  std::ifstream stream(file, std::ios::binary);
  std::string text(stream ? static_cast<std::size_t>(fs::file_size(file, error)) : 0, '\0');
  stream.read(text.data(), static_cast<std::streamsize>(text.size()));
  if (!stream) {
    throw Failure(Failure::Kind::Unusable, fmt::format("{} cannot be read.", file));
  }
  return text;
}

class PlotCommand : public Command {
 public:
  std::string name() const override { return "plot"; }
  std::string summary() const override { return "Draw a recording of live values"; }
  std::string examples() const override {
    return "  velmara sensors --record trip.csv 0C 0D 05   record until Ctrl-C\n"
           "  velmara plot trip.csv                        draw it, as trip.svg\n"
           "  velmara plot trip.csv --output idle.svg      for any browser\n";
  }
  bool needsVehicle() const override { return false; }

  void declare(Options& options) override {
    options.value("RECORDING", m_input, "", "What velmara sensors --record has written").required();
    options.value("--output", m_output, "FILE",
                  "The picture, as SVG; beside the recording if not given, - prints it");
  }

  ExitCode run(Program& program) override {
    const bool prints = m_output == StandardOutput;
    const std::string output =
        m_output.empty() ? fs::path(m_input).replace_extension(".svg").string() : m_output;
    const std::string text = textOf(m_input);
    std::error_code error;
    if (!prints && fs::equivalent(m_input, output, error)) {
      throw Failure(Failure::Kind::Unusable, "The picture would replace the recording.",
                    "Name another file with --output.");
    }
    const Recording recording = read(text);
    if (!recording.textColumns.empty()) {
      program.notes.note(printable(
          fmt::format("Not drawn, since they hold no numbers: {}", fmt::join(recording.textColumns, ", "))));
    }
    const std::string svg = Picture(recording).svg();
    if (prints) {
      program.out << svg;
      program.out.flush();
    } else {
      const NewFile file("picture", output);
      file.write(svg);
      program.notes.note("The picture is in " + printable(file.name()));
    }
    return ExitCode::Ok;
  }

 private:
  Recording read(const std::string& text) const {
    try {
      return readRecording(text, m_input);
    } catch (const Failure& failure) {
      throw Failure(failure.kind(), failure.what(),
                    "velmara sensors --record FILE writes what can be plotted.");
    }
  }

  std::string m_input;
  std::string m_output;
};

}  // namespace

std::unique_ptr<Command> makePlotCommand() {
  return std::make_unique<PlotCommand>();
}

}  // namespace velmara
