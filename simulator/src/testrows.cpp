// Lines of services 05, 06 and 08 in vehicle files.

#include <algorithm>
#include <array>
#include <cmath>

#include "rowreader.h"

namespace simulator {

namespace {

constexpr std::uint8_t LastConstant = 0x04;  // tests 01 to 04 are thresholds (SAE J1979)
constexpr double LongestRoutine = 3600;      // s

/// How a number of a test becomes the bits on the wire: physical = bits * factor + offset.
struct Scaling {
  unsigned id = 0;
  double factor = 1;
  double offset = 0;
};

// Unit and scaling identifiers of SAE J1979, annex E. From 80 on the bits are signed.
constexpr Scaling Scalings[] = {
    {0x01, 1},          {0x02, 0.1},        {0x03, 0.01},
    {0x04, 0.001},      {0x05, 0.0000305},  {0x06, 0.000305},
    {0x07, 0.25},       {0x08, 0.01},       {0x09, 1},
    {0x0A, 0.000122},   {0x0B, 0.001},      {0x0C, 0.01},
    {0x0D, 0.00390625}, {0x0E, 0.001},      {0x0F, 0.01},
    {0x10, 0.001},      {0x11, 0.1},        {0x12, 1},
    {0x13, 0.001},      {0x14, 0.001},      {0x15, 1},
    {0x16, 0.1, -40},   {0x17, 0.01},       {0x18, 0.0117},
    {0x19, 0.079},      {0x1A, 1},          {0x1B, 10},
    {0x1C, 0.01},       {0x1D, 0.5},        {0x1E, 0.0000305},
    {0x1F, 0.05},       {0x20, 0.00390625}, {0x21, 0.001},
    {0x22, 1},          {0x23, 0.001},      {0x24, 1},
    {0x25, 1},          {0x26, 0.0001},     {0x27, 0.01},
    {0x28, 1},          {0x29, 0.00025},    {0x2A, 0.001},
    {0x2B, 1},          {0x2C, 0.01},       {0x2D, 0.01},
    {0x2E, 1},          {0x2F, 0.01},       {0x30, 0.001526},
    {0x31, 0.001},      {0x32, 0.000775},   {0x33, 0.0002441},
    {0x34, 1},          {0x35, 0.01},       {0x36, 0.01},
    {0x37, 0.1},        {0x38, 1},          {0x39, 0.01, -327.68},
    {0x3A, 0.001},      {0x3B, 0.0001},     {0x3C, 0.1},
    {0x3D, 0.01},       {0x3E, 0.000061},   {0x3F, 0.01},
    {0x40, 1},          {0x41, 0.01},       {0x42, 0.1},
    {0x43, 0.0002441},  {0x81, 1},          {0x82, 0.1},
    {0x83, 0.01},       {0x84, 0.001},      {0x85, 0.0000305},
    {0x86, 0.000305},   {0x87, 1},          {0x8A, 0.000122},
    {0x8B, 0.001},      {0x8C, 0.01},       {0x8D, 0.00390625},
    {0x8E, 0.001},      {0x8F, 1},          {0x90, 0.001},
    {0x91, 0.1},        {0x92, 0.1},        {0x96, 0.1},
    {0x97, 0.01},       {0x98, 1},          {0x99, 0.1},
    {0x9C, 0.01},       {0x9D, 0.5},        {0xA8, 1},
    {0xA9, 0.25},       {0xAD, 0.01},       {0xAE, 0.1},
    {0xAF, 0.01},       {0xB0, 0.003052},   {0xB1, 2},
    {0xFB, 10},         {0xFC, 0.01},       {0xFD, 0.001},
    {0xFE, 0.25},
};

// Volts and seconds of the sensor tests that all makers have in common; all others are plain numbers.
constexpr Scaling sensorScaling(std::uint8_t test) {
  if ((test >= 0x01 && test <= 0x04) || test == 0x07 || test == 0x08) {
    return {0, 0.005};
  }
  if (test == 0x05 || test == 0x06) {
    return {0, 0.004};
  }
  return {0, test == 0x09 || test == 0x0A ? 0.04 : 1};
}

class TestRow {
 public:
  TestRow(const RowReader& row, std::string_view key, std::string_view value)
      : m_row(row), m_key(key), m_value(value) {}

  void read(bool can, std::uint8_t service, Unit& unit) {
    const std::uint8_t id = keyByte("identifier");
    if (id % 0x20 == 0) {
      m_row.fail("Identifier " + hex(id) + " is a list of what is supported, which is worked out");
    }
    if (service == 0x05) {
      if (can) {
        m_row.fail("There is no service 05 on CAN");
      }
      sensorTest(id, unit.sensorTests[id]);
    } else if (service == 0x06 && can) {
      monitorTest(unit.monitorTests[id]);
    } else if (service == 0x06) {
      oldMonitorTest(unit.monitorTests[id]);
    } else {
      unit.routines[id] = routine(can);
    }
    if (!m_key.empty() || !m_value.empty()) {
      m_row.fail(RowReader::quoted(m_key.empty() ? m_value : m_key) + " is too much here");
    }
  }

 private:
  static std::string hex(unsigned value) {
    static constexpr char Digits[] = "0123456789ABCDEF";
    return {Digits[value >> 4 & 0x0FU], Digits[value & 0x0FU]};
  }

  std::uint8_t keyByte(const char* what) {
    const std::string_view word = RowReader::word(m_key);
    if (word.empty()) {
      m_row.fail(std::string("Expected the ") + what + " of the test");
    }
    return m_row.hexByte(word);
  }

  std::string_view next(const char* what) {
    const std::string_view word = RowReader::word(m_value);
    if (word.empty()) {
      m_row.fail(std::string("The test has no ") + what);
    }
    return word;
  }

  bool takes(std::string_view words) {
    if (m_value != words) {
      return false;
    }
    m_value = {};
    return true;
  }

  // A physical number, or bits as hexadecimal digits behind a dollar sign.
  void number(const char* what, const Scaling& scaling, unsigned width, Bytes& out) {
    std::string_view word = next(what);
    std::int32_t bits = 0;
    if (word.front() == '$') {
      word.remove_prefix(1);
      bits = static_cast<std::int32_t>(m_row.hexNumber(word, std::size_t{2} * width));
    } else {
      const double value = (m_row.number(word, -1e9, 1e9) - scaling.offset) / scaling.factor;
      const double span = width == 1 ? 256 : 65536;
      const double least = scaling.id >= 0x80 ? -span / 2 : 0;
      const double rounded = std::round(value);
      if (rounded < least || rounded >= least + span) {
        m_row.fail(RowReader::quoted(word) + " does not fit into the " + std::to_string(width) +
                   (width == 1 ? " byte" : " bytes") + " of the " + what);
      }
      bits = static_cast<std::int32_t>(rounded);
    }
    for (unsigned i = width; i-- > 0;) {
      out.push_back(static_cast<std::uint8_t>(static_cast<std::uint32_t>(bits) >> (8 * i)));
    }
  }

  void sensorTest(std::uint8_t id, std::vector<TestItem>& items) {
    const std::uint8_t sensor = keyByte("sensor");
    if (sensor == 0 || (sensor & (sensor - 1)) != 0) {
      m_row.fail("The sensor is one bit, 01 to 80");
    }
    const Scaling scaling = sensorScaling(id);
    TestItem item{{sensor}, {}, id <= LastConstant};
    number("value", scaling, 1, item.numbers);
    if (!item.constant) {
      number("lower limit", scaling, 1, item.numbers);
      number("upper limit", scaling, 1, item.numbers);
    }
    items.push_back(std::move(item));
  }

  void monitorTest(std::vector<TestItem>& items) {
    const std::uint8_t test = keyByte("number");
    const std::uint8_t id = m_row.hexByte(next("scaling"));
    const auto* scaling = std::find_if(std::begin(Scalings), std::end(Scalings),
                                       [id](const Scaling& entry) { return entry.id == id; });
    if (scaling == std::end(Scalings)) {
      m_row.fail("There is no scaling " + hex(id));
    }
    TestItem item{{test, id}, {}, test <= LastConstant};
    if (takes("not run")) {
      item.numbers.resize(6);
    } else {
      for (const char* what : {"value", "lower limit", "upper limit"}) {
        number(what, *scaling, 2, item.numbers);
      }
    }
    items.push_back(std::move(item));
  }

  // The top bit of the component tells that the limit is a lower one; both limits make two messages.
  void oldMonitorTest(std::vector<TestItem>& items) {
    const std::uint8_t component = keyByte("component");
    if (component >= 0x80) {
      m_row.fail("A component is 00 to 7F; \"min\" and \"max\" tell which limit it is");
    }
    Bytes value;
    number("value", {}, 2, value);
    std::string_view before;
    for (int limits = 0; limits == 0 || (limits == 1 && !m_value.empty()); ++limits) {
      const std::string_view kind = next("limit");
      if (kind != "min" && kind != "max") {
        m_row.fail(RowReader::quoted(kind) + " is neither min nor max");
      }
      if (kind == before) {
        m_row.fail("The test has two limits of a kind");
      }
      before = kind;
      TestItem item{{static_cast<std::uint8_t>(component | (kind == "min" ? 0x80U : 0U))}, value};
      number("limit", {}, 2, item.numbers);
      items.push_back(std::move(item));
    }
  }

  Routine routine(bool can) {
    Routine result;
    const std::string_view word = next("reply");
    if (word == "refuse") {
      result.reply = Routine::Reply::Refuse;
      result.code = m_row.hexByte(next("code of the refusal"));
    } else if (word == "silence") {
      result.reply = Routine::Reply::Silence;
    } else if (word == "status") {
      if (can) {
        m_row.fail("There is no status on CAN, only \"refuse\" and a code");
      }
      result.code = m_row.hexByte(next("status"));
    } else if (word != "accept") {
      m_row.fail(RowReader::quoted(word) + " is no reply; there are accept, refuse, status and silence");
    } else if (!m_value.empty()) {
      if (next("length") != "for") {
        m_row.fail("Expected \"accept\" or \"accept for SECONDS\"");
      }
      result.length = static_cast<std::uint32_t>(m_row.number(next("length"), 1, LongestRoutine) * 1000);
    }
    return result;
  }

  const RowReader& m_row;
  std::string_view m_key;
  std::string_view m_value;
};

}  // namespace

void readTestRow(const RowReader& row, bool can, std::uint8_t service, std::string_view key,
                 std::string_view value, Unit& unit) {
  TestRow(row, key, value).read(can, service, unit);
}

}  // namespace simulator
