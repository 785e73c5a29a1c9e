// The parts of velmara that work without a vehicle.

#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <set>
#include <thread>
#include <vector>

#include "report/htmlreport.h"
#include "report/json.h"
#include "report/jsonreport.h"
#include "settingsstore.h"
#include "support/temporaryfolder.h"
#include "terminal/table.h"
#include "velmara/client/failure.h"

namespace {

using velmara::Failure;
using velmara::SettingsStore;

TEST(TableText, AlignsCharactersAndNotBytes) {
  velmara::Table table({{"Name"}, {"Value", true}, {"Unit"}, {"Empty"}});
  table.add({"Temperature", "7", "°C"});
  table.add({"Öl", "123.5", "mm²", ""});
  EXPECT_EQ(table.lines(), (std::vector<std::string>{"Name         Value  Unit", "Temperature      7  °C",
                                                     "Öl           123.5  mm²"}));
  table.addSpilling({"State", "closed loop, all well"});
  EXPECT_EQ(table.lines().back(), "State        closed loop, all well");
  // The widest column gives way, though not to nothing.
  velmara::Table wide({{"A"}, {"Name"}, {"Value", true}});
  wide.add({"1", "0123456789012345678901", "9.5"});
  EXPECT_EQ(wide.lines(24),
            (std::vector<std::string>{"A  Name            Value", "1  0123456789012…    9.5"}));
  EXPECT_EQ(wide.lines(5).back(), "1  01234567890…    9.5");
}

// What the client gives as an empty number was none that is finite.
TEST(ReportText, WritesNoNumberWhereThereIsNone) {
  EXPECT_TRUE(velmara::numberOrText("").is_null());
  EXPECT_EQ(velmara::numberOrText("1.50"), 1.5);
  EXPECT_EQ(velmara::numberOrText("true"), "true");
  velmara::VehicleReport report;
  velmara::UnitReport& unit = report.units.emplace_back();
  unit.values.state = velmara::Section::State::Complete;
  unit.values.readings = {{"0C", "Engine RPM", "", "rpm", true}, {"03", "State", "", "", false}};
  const velmara::Json values = velmara::toJson(unit.values)["values"];
  EXPECT_TRUE(values[0]["value"].is_null());
  EXPECT_EQ(values[1]["value"], "");
  EXPECT_NE(velmara::htmlReport(report, {}).find("<td class=\"number\">–</td>"), std::string::npos);
}

class SettingsFile : public testing::Test, protected TemporaryFolder {
 protected:
  void write(const std::string& text) const { TemporaryFolder::write("velmara/settings.json", text); }
  std::set<std::string> files() const {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(m_file.parent_path())) {
      names.insert(entry.path().filename());
    }
    names.erase("settings.json.lock");  // which stays
    return names;
  }

  template <typename T = int>
  static std::optional<T> valueOf(SettingsStore& store, const std::string& key) {
    T value{};
    return store.value(key, value) ? std::optional<T>(value) : std::nullopt;
  }
  std::optional<int> stored(const std::string& key) const {
    SettingsStore store(m_file);
    return valueOf(store, key);
  }

  const std::filesystem::path m_file = m_folder / "velmara" / "settings.json";
};

TEST_F(SettingsFile, KeepsNumbersAndTextsApart) {
  SettingsStore store(m_file);
  store.setValue("number", -7);
  store.setValue("text", std::string("a \"quoted\" ü\n"));
  store.sync();
  EXPECT_EQ(files(), (std::set<std::string>{"settings.json"}));  // no temporary file stays

  SettingsStore again(m_file);
  EXPECT_EQ(again.complaint(), "");
  EXPECT_EQ(valueOf(again, "number"), -7);
  EXPECT_EQ(valueOf<std::string>(again, "text"), "a \"quoted\" ü\n");
  EXPECT_FALSE(valueOf(again, "text") || valueOf(again, "absent") || valueOf<std::string>(again, "number"));
}

TEST_F(SettingsFile, IsWrittenOnlyWhenSomethingChanged) {
  SettingsStore(m_file).sync();
  EXPECT_FALSE(std::filesystem::exists(m_folder / "velmara"));
  write("{ \"a\": 1,\n\n \"other\": [1, 2.5, null] }");
  const std::string before = read(m_file);
  SettingsStore store(m_file);
  store.setValue("a", 1);
  store.remove("absent");
  store.overrideValue("a", 5);
  EXPECT_EQ(valueOf(store, "a"), 5);
  store.sync();
  EXPECT_EQ(read(m_file), before);
  // A change keeps what the program does not know, the override out, and a link to another place.
  const std::filesystem::path real = m_folder / "real.json";
  std::filesystem::rename(m_file, real);
  std::filesystem::create_symlink(real, m_file);
  store.setValue("b", 2);
  store.sync();
  EXPECT_TRUE(std::filesystem::is_symlink(m_file));
  EXPECT_NE(read(real).find("2.5"), std::string::npos);
  EXPECT_EQ(stored("a"), 1);

  SettingsStore below(m_file / "below-a-file.json");
  below.setValue("a", 1);
  EXPECT_THROW(below.sync(), Failure);
}

TEST_F(SettingsFile, BrokenOnesAreKeptAside) {
  for (const std::string& broken :
       {std::string("{ \"a\": 1"), std::string("[1, 2]"), std::string(100000, '['),
        std::string(R"({"a":1e999})"), std::string("\xff\xfe\0\1", 4)}) {
    write(broken);
    const std::size_t before = files().size();
    SettingsStore store(m_file);
    EXPECT_NE(store.complaint(), "");
    EXPECT_EQ(files().count("settings.json"), 0U);
    EXPECT_EQ(files().size(), before);
    store.setValue("b", 2);
    store.sync();
    EXPECT_EQ(SettingsStore(m_file).complaint(), "");
  }
  EXPECT_EQ(read(m_file.string() + ".broken"), "{ \"a\": 1");
  EXPECT_EQ(read(m_file.string() + ".broken-2"), "[1, 2]");
  EXPECT_EQ(files().size(), 6U);
  write("");
  EXPECT_EQ(SettingsStore(m_file).complaint(), "");
}

// Programs that run at the same time: each change is kept, and nobody ever reads half a file.
TEST_F(SettingsFile, KeepsTheChangesOfAll) {
  constexpr int Programs = 4;
  constexpr int Changes = 15;
  write(R"({"mine": [1], "gone": 1, "shared": 0})");
  std::atomic<int> complaints{0};
  std::vector<std::thread> programs;
  for (int program = 0; program < Programs; ++program) {
    programs.emplace_back([this, program, &complaints] {
      for (int change = 0; change < Changes; ++change) {
        SettingsStore store(m_file);
        complaints += store.complaint().empty() ? 0 : 1;
        store.setValue(std::to_string(program) + "-" + std::to_string(change), change);
        store.setValue("shared", program);
        store.remove("gone");
        store.sync();
      }
    });
  }
  for (std::thread& program : programs) {
    program.join();
  }
  EXPECT_EQ(complaints, 0);
  SettingsStore store(m_file);
  for (int program = 0; program < Programs; ++program) {
    for (int change = 0; change < Changes; ++change) {
      EXPECT_EQ(valueOf(store, std::to_string(program) + "-" + std::to_string(change)), change);
    }
  }
  EXPECT_FALSE(valueOf(store, "gone"));
  EXPECT_NE(read(m_file).find("mine"), std::string::npos);
  EXPECT_EQ(files(), (std::set<std::string>{"settings.json"}));
}

// A run goes by what it read, and what it did not change is not its own to write.
TEST_F(SettingsFile, LeavesTheChangesOfOthersAlone) {
  write(R"({"a": 1, "b": 1})");
  SettingsStore one(m_file);
  SettingsStore other(m_file);
  one.setValue("a", 2);
  one.sync();
  EXPECT_EQ(valueOf(other, "a"), 1);
  other.setValue("b", 3);
  other.sync();
  other.setValue("a", 1);  // as it read it, but meant all the same
  EXPECT_EQ(stored("a"), 2);
  other.sync();
  EXPECT_EQ(stored("a"), 1);
  EXPECT_EQ(stored("b"), 3);
  // What others have broken since is not overwritten.
  write("[");
  other.setValue("b", 4);
  EXPECT_THROW(other.sync(), Failure);
  EXPECT_EQ(read(m_file), "[");
}

TEST_F(SettingsFile, NumbersOutOfRangeDoNotCount) {
  write(R"({"big": 2147483648, "huge": 18446744073709551615, "small": -2147483649, "half": 1.5, "bool": true,
            "max": 2147483647, "min": -2147483648})");
  for (const char* key : {"big", "huge", "small", "half", "bool"}) {
    EXPECT_FALSE(stored(key)) << key;
  }
  EXPECT_EQ(stored("max"), 2147483647);
  EXPECT_EQ(stored("min"), -2147483647 - 1);
}

}  // namespace
