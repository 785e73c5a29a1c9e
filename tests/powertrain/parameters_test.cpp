#include "powertrain/fueltrim.h"
#include "powertrain/monitorstatus.h"
#include "powertrain/pidparameters.h"
#include "powertrain/testequipmentconfiguration.h"
#include "texts.h"

namespace {

using obd::ObdMode;
using obd::ObdTest;
using obd::UnitSystem;

class Parameters : public testing::Test {
 protected:
  const std::shared_ptr<fake::Ecu> ecu = std::make_shared<fake::Ecu>(0x7E8);
  const fake::Ecu silent{0x7E9};
};

TEST_F(Parameters, TestEquipmentTellsLimits) {
  obd::TestEquipmentConfiguration1 first(ObdMode::Mode01, 0);
  obd::TestEquipmentConfiguration2 second(ObdMode::Mode01, 0);
  const auto limits = [&] {
    return std::tuple(first.equivalenceRatioMax(0x7E8), first.oxygenSensorVoltageMax(0x7E8),
                      first.oxygenSensorCurrentMax(0x7E8), first.intakeManifoldAbsolutePressureMax(0x7E8),
                      second.airFlowRateMax(0x7E8));
  };
  const std::tuple standard(2U, 8U, 128U, 255U, 655.35F);
  EXPECT_EQ(limits(), standard);
  EXPECT_TRUE(reply(first, ecu, "41 4F 04 05 C8 28") && reply(second, ecu, "41 50 0C 00 00 00"));
  EXPECT_FALSE(reply(first, ecu, "41 4F 01 01 01"));
  EXPECT_EQ(limits(), std::tuple(4U, 5U, 200U, 400U, 120.0F));
  EXPECT_TRUE(reply(first, ecu, "41 4F 00 00 00 00") && reply(second, ecu, "41 50 00 FF FF FF"));
  EXPECT_EQ(limits(), standard);
  EXPECT_EQ(texts(first, *ecu), "none");
}

// The flag is process-wide, so that one test walks through both states.
TEST_F(Parameters, FuelTrimOfOneBankOrTwo) {
  struct Restore {
    ~Restore() { obd::FuelTrim::setByteBInUse(false); }
  } restore;
  for (int i = 0; i < 4; ++i) {
    const std::string term = i % 2 == 0 ? "Short Term " : "Long Term ";
    const std::string bank = i < 2 ? "Fuel Trim - Bank 1" : "Fuel Trim - Bank 2";
    EXPECT_EQ(make(0x06 + i)->description(*ecu), term + bank);
    EXPECT_EQ(make(0x55 + i)->description(*ecu), term + "Secondary O2 Sensor " + bank);
  }
  obd::LongTermFuelTrimBank2 parameter(ObdMode::Mode01, 0);
  EXPECT_EQ(parameter.sensorInfo(*ecu).size(), 1U);
  EXPECT_EQ(texts(parameter, silent), "0.0");
  EXPECT_TRUE(reply(parameter, ecu, "41 09 C0"));

  obd::FuelTrim::setByteBInUse(true);
  EXPECT_EQ(texts(parameter, *ecu) + " " + texts(parameter, silent), "50.0 0.0|0.0") << "decoded before";
  const auto infos = parameter.sensorInfo(*ecu);
  ASSERT_EQ(infos.size(), 2U);
  EXPECT_EQ(parameter.description(*ecu) + infos[0]->description() + infos[1]->description(),
            "Long Term Fuel TrimBank 2Bank 4");
  EXPECT_EQ(infos[1]->uid(), 91);
  EXPECT_FLOAT_EQ(infos[1]->maxValue(UnitSystem::Metric), 99.22F);
  EXPECT_FALSE(reply(parameter, ecu, "41 09 C0"));
  for (const auto& [bytes, text] :
       {std::pair("00 FF", "-100.0|99.2"), {"80 80", "0.0|0.0"}, {"FF 00", "99.2"}}) {
    EXPECT_TRUE(reply(parameter, ecu, std::string("41 09 ") + bytes));
    EXPECT_EQ(texts(parameter, *ecu), text);
  }
}

TEST_F(Parameters, OxygenSensorsAreNamedByTheirPlaces) {
  for (const int first : {0x14, 0x24, 0x34}) {
    const std::string kind = first == 0x14 ? " (O2S)" : " (wide range O2S)";
    for (int i = 0; i < 8; ++i) {
      for (const auto& [banks, sensorsOfABank] : {std::pair(obd::OxygenSensorBank::NoBanks, 4),
                                                  {obd::OxygenSensorBank::TwoBanks, 4},
                                                  {obd::OxygenSensorBank::FourBanks, 2}}) {
        ecu->banks = banks;
        EXPECT_EQ(make(first + i)->description(*ecu), "Bank " + std::to_string(i / sensorsOfABank + 1) +
                                                          " - Sensor " +
                                                          std::to_string(i % sensorsOfABank + 1) + kind);
      }
    }
  }
}

TEST_F(Parameters, MonitorStatusOfAUnit) {
  obd::MonitorStatus status;
  EXPECT_EQ(status.timeout(), 2500U);
  EXPECT_EQ(status.description(*ecu), "Monitor status since DTCs cleared");
  EXPECT_TRUE(reply(status, ecu, "41 01 81 07 65 00"));
  EXPECT_FALSE(reply(status, ecu, "41 01 00 00 00"));
  EXPECT_TRUE(status.isMalfunctionIndicatorLightOn(*ecu) && status.getNumberOfErrors(*ecu) == 1);
  EXPECT_FALSE(status.isTestAvailable(*ecu, ObdTest::HeatedCatalyst) ||
               status.isTestComplete(*ecu, ObdTest::HeatedCatalyst));
  EXPECT_FALSE(status.isMalfunctionIndicatorLightOn(silent) || status.getNumberOfErrors(silent) != 0 ||
               status.isTestAvailable(silent, ObdTest::Misfire));
  EXPECT_EQ(status.getIgnitionType(silent), obd::IgnitionType::SparkIgnition);
  EXPECT_TRUE(reply(status, ecu, "41 01 FF FF FF 00"));
  EXPECT_EQ(status.getNumberOfErrors(*ecu), 127);
  EXPECT_FALSE(status.isTestAvailable(*ecu, static_cast<ObdTest>(17)));
  EXPECT_EQ(texts(status, *ecu), "none");
  status.clear();
  EXPECT_FALSE(status.isMalfunctionIndicatorLightOn(*ecu));
}

TEST_F(Parameters, MonitorsHaveBitsAndNames) {
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {"00 01 00 00", "00 11 00 00", "Misfire"},
      {"00 02 00 00", "00 22 00 00", "Fuel System"},
      {"00 04 00 00", "00 44 00 00", "Comprehensive Component"},
      {"00 00 01 00", "00 00 01 01", "Catalyst"},
      {"00 00 02 00", "00 00 02 02", "Heated Catalyst"},
      {"00 00 04 00", "00 00 04 04", "Evaporative System"},
      {"00 00 08 00", "00 00 08 08", "Secondary Air System"},
      {"00 00 20 00", "00 00 20 20", "Oxygen Sensor"},
      {"00 00 40 00", "00 00 40 40", "Oxygen Sensor Heater"},
      {"00 00 80 00", "00 00 80 80", "EGR and/or VVT System"},
      {"00 08 01 00", "00 08 01 01", "NMHC Catalyst"},
      {"00 08 02 00", "00 08 02 02", "NOx/SCR Aftertreatment"},
      {"00 08 08 00", "00 08 08 08", "Boost Pressure"},
      {"00 08 20 00", "00 08 20 20", "Exhaust Gas Sensor"},
      {"00 08 40 00", "00 08 40 40", "PM filter"},
      {"00 08 80 00", "00 08 80 80", "EGR and/or VVT System"},
  };
  int number = 0;
  for (const auto& [available, incomplete, name] : cases) {
    SCOPED_TRACE(number);
    const bool diesel = number >= 10;
    const auto test = static_cast<ObdTest>(number++);
    obd::MonitorStatusThisCycle status;
    EXPECT_TRUE(reply(status, ecu, std::string("41 41 ") + available));
    EXPECT_TRUE(status.isTestEnabled(*ecu, test) && status.isTestComplete(*ecu, test));
    EXPECT_TRUE(reply(status, ecu, std::string("41 41 ") + incomplete));
    EXPECT_TRUE(status.isTestEnabled(*ecu, test) && !status.isTestComplete(*ecu, test));
    EXPECT_EQ(obd::MonitorStatus::getTestDescription(test), name);
    EXPECT_EQ(status.getIgnitionType(*ecu) == obd::IgnitionType::CompressionIgnition, diesel);
    EXPECT_EQ(status.isTestAvailable(*ecu, ObdTest::Ignition), diesel);
  }
  for (const int other : {16, 17, -1}) {
    EXPECT_EQ(obd::MonitorStatus::getTestDescription(static_cast<ObdTest>(other)), "NA");
  }
}

}  // namespace
