#include "powertrain/sensorvalue.h"

#include <cmath>
#include <limits>

#include "powertrain/monitorstatus.h"
#include "powertrain/parameterdescriptor.h"
#include "powertrain/torque.h"
#include "powertrain/unitscaling.h"
#include "support/foreignlocale.h"
#include "texts.h"

namespace {

using obd::LinearScaling;
using obd::ParameterIdentifier;
using obd::Pid2Uid;
using obd::UnitSystem;
using Unit = MeasurementUnit;

TEST(SensorValue, IntegersAreNeverRoundedOrPadded) {
  const auto signedValue = obd::ConcreateNumericSensorValue<int>::buildObject(50, -5, 2);
  EXPECT_EQ(signedValue->textualValue(), "-5");
  EXPECT_EQ(signedValue->toString(-5.0F), "-5.00");
  EXPECT_EQ(signedValue->numericValue(), -5.0F);
  const auto unsignedValue = obd::ConcreateNumericSensorValue<unsigned int>::buildObject(1, 4000000000U, 1);
  EXPECT_EQ(unsignedValue->textualValue(), "4000000000");
  EXPECT_EQ(obd::ConcreateNumericSensorValue<float>::buildObject(1, 1.0F, 3)->textualValue(), "1.000");
}

TEST(SensorValue, RoundsHalvesUpwardInSinglePrecision) {
  const std::tuple<float, int, const char*> cases[] = {
      {2.5F, 0, "3"},
      {-2.5F, 0, "-2"},
      {-2.6F, 0, "-3"},
      {0.25F, 1, "0.3"},
      {-0.04F, 1, "0.0"},
      {1.005F, 2, "1.01"},         // 1.00499999, whose product with 100 is 100.5 as a float
      {8388609.0F, 0, "8388610"},  // the half is lost to the nearest even number
      {std::numeric_limits<float>::infinity(), 1, "inf"},
  };
  for (const auto& [value, precision, text] : cases) {
    EXPECT_EQ(obd::TypedValueFormater(precision).toString(value), text) << value << " " << precision;
  }
}

// What an application has made its global locale concerns its own texts.
TEST(Texts, DoNotFollowTheGlobalLocale) {
  const ForeignLocale foreign;
  EXPECT_EQ(obd::ConcreateNumericSensorValue<float>::buildObject(1, 12345.67F, 1)->textualValue(), "12345.7");
  EXPECT_EQ(obd::ConcreateNumericSensorValue<unsigned int>::buildObject(1, 12345, 1)->textualValue(),
            "12345");
  EXPECT_EQ(LinearScaling(1, 1.0F, 1, Unit::NoUnit, nullptr).toString(12345.0F), "12345.0");
  EXPECT_EQ(obd::DummyScaling().toString(12345.0F), "12345");
  EXPECT_EQ(ParameterIdentifier(0x12345).toString(), "$12345");
  const auto ecu = std::make_shared<fake::Ecu>(12345);
  const auto distance = make(0x21);
  EXPECT_TRUE(reply(*distance, ecu, "41 21 30 39"));
  EXPECT_EQ(texts(*distance, *ecu), "12345");
  fake::Log log;
  EXPECT_FALSE(reply(*distance, ecu, "7F 01 12"));
  EXPECT_EQ(log.take().at(0), "2 ECU with ID 12345 received NACK:  0x7f 0x1 0x12");
}

TEST(UnitScaling, TextsOfNumbersBeyondTheRange) {
  // Same numbers, other width: double for test results, float for sensors.
  EXPECT_EQ(LinearScaling(1, 1.0F, 2, Unit::NoUnit, nullptr).toString(1.005F), "1.00");
  EXPECT_EQ(LinearScaling(1, 1.0F, 0, Unit::NoUnit, nullptr).toString(-2.5F), "-2");
  EXPECT_EQ(LinearScaling(1, 1.0F, 0, Unit::NoUnit, nullptr).toString(8388609.0F), "8388609");
  const obd::BoolScaling flag;
  EXPECT_EQ(flag.scale(0xFFFF), 65535.0F);
  EXPECT_EQ(flag.toString(0.0F) + flag.toString(0.5F), "falsetrue");
  const obd::DummyScaling dummy;
  EXPECT_EQ(dummy.scale(0xFFFF), 65535.0F);
  for (const auto& [value, text] : {std::pair(70000.0F, "4464"),
                                    {12.9F, "12"},
                                    {-1.0F, "65535"},
                                    {1.0e30F, "0"},  // a multiple of 65536
                                    {std::nanf(""), "0"}}) {
    EXPECT_EQ(dummy.toString(value), text);
  }
}

TEST(ParameterIdentifier, NotationAndUid) {
  for (const auto& [id, text] : {std::pair(5, "$05"), {12, "$0C"}, {0xF4, "$F4"}, {0x1234, "$1234"}}) {
    EXPECT_EQ(ParameterIdentifier(id).toString(), text);
  }
  EXPECT_EQ(ParameterIdentifier(0x1234).toOid(), 0x34);
  EXPECT_EQ(obd::Uid2Pid(Pid2Uid(104, 5)), 104);
  EXPECT_EQ(Pid2Uid(ParameterIdentifier::FuelConsumption), 2400);
  EXPECT_EQ(obd::Uid2Pid(-15), -1);
}

TEST(ParameterFactory, OffersExactlyTheKnownIdentifiers) {
  obd::ParameterFactory factory;
  const fake::Ecu ecu(0x7E8);
  int count = 0;
  for (int id = -1; id <= 300; ++id) {
    SCOPED_TRACE(id);
    const auto inRange = [id](int first, int last) { return id >= first && id <= last; };
    const bool registered = inRange(0x03, 0x1F) || inRange(0x21, 0x3F) || inRange(0x42, 0x4E) ||
                            inRange(0x51, 0x5F) || inRange(0x61, 0x7F);
    const auto pid = ParameterIdentifier(id).id();
    const auto live = factory.createParameter(pid);
    const auto frozen = factory.createFreezeFrameParameter(pid, 7);
    EXPECT_EQ(live != nullptr, registered || id == 0x01 || inRange(244, 247));
    EXPECT_EQ(frozen != nullptr, registered);
    EXPECT_TRUE(!live || (live->pid() == id && !live->description(ecu).empty()));
    if (live && frozen) {
      ++count;
      EXPECT_TRUE(std::ranges::all_of(live->sensorInfo(ecu), [id](auto& info) { return info->pid() == id; }));
      fake::Bytes request = fake::bytes("FF");
      frozen->requestData(request);
      EXPECT_EQ(request, (fake::Bytes{0x02, static_cast<unsigned char>(id), 7}));
      live->requestData(request);
      EXPECT_EQ(request, (fake::Bytes{0x01, static_cast<unsigned char>(id)}));
    }
  }
  EXPECT_EQ(count, 119);
  EXPECT_TRUE(std::dynamic_pointer_cast<obd::MonitorStatus>(make(1)));
  EXPECT_TRUE(std::dynamic_pointer_cast<obd::Torque>(make(246)));
}

TEST(ParameterDescriptor, BindsUnitAndUnitSystem) {
  const auto ecu = std::make_shared<fake::Ecu>(0x7E8);
  ecu->pressureMax = 400;
  const obd::ParameterDescriptor pressure(make(0x0B), ecu, UnitSystem::Imperial);
  EXPECT_EQ(pressure.description(), "Intake Manifold Absolute Pressure");
  EXPECT_EQ(pressure.pid(), 0x0B);
  EXPECT_TRUE(pressure.hasNumericSensors());
  const auto sensor = pressure.sensors().at(0);
  EXPECT_EQ(std::pair(sensor->uid(), sensor->unit()), std::pair(110, Unit::InchOfMercury));
  EXPECT_FLOAT_EQ(sensor->maxValue(), 118.12023F);
  const obd::ParameterDescriptor fuel(make(0x03), ecu, UnitSystem::Metric);
  EXPECT_FALSE(fuel.hasNumericSensors());
  EXPECT_TRUE(obd::ParameterDescriptor(make(0x70), ecu, UnitSystem::Metric).hasNumericSensors()) << "some";
  EXPECT_EQ(fuel.sensors().size(), 2U);
}

}  // namespace
