// The PIDs of service 01 (SAE J1979) and the values that the library works out: one row each, in ascending
// order. The file is included once for every use that is made of the rows, which defines the macros for what
// it needs of them: identifiers, classes, the factory, the table. So a new PID is a new row here and nothing
// else.
//
//   VELMARA_PID(number, name, text, bytes, rule, sensors...)
//   VELMARA_PID_OF(number, name, family, text, bytes, rule, sensors...)
//   VELMARA_OWN_PID(number, name, text, bytes, rule, sensors...)
//
// `name` is that of the identifier and of the class, `text` what users read, `bytes` how many data bytes a
// reply has at least, `rule` what decides whether sensors have a value. A sensor is `{reading}`, or `{text,
// position of its first byte, reading}` if it is not alone. The words for rules, sensors and readings are
// pidtable.cpp's. The class of a row is made from `PidParameter`, or from the class `family`, which adds to
// it. That of an own row is written out elsewhere, and the factory makes it by other rules or not at all.

#ifndef VELMARA_PID_OF
#define VELMARA_PID_OF(...)
#endif
#ifndef VELMARA_OWN_PID
#define VELMARA_OWN_PID(...)
#endif
#define VELMARA_PID(number, name, ...) VELMARA_PID_OF(number, name, PidParameter, __VA_ARGS__)

VELMARA_OWN_PID(0x01, MonitorStatus, "Monitor status since DTCs cleared", 4, Hidden, {Bits})
VELMARA_OWN_PID(0x02, FreezeFrameTroubleCode, "Freeze Frame Trouble Code", 2, Hidden, {Bits})
VELMARA_PID(0x03, FuelSystem, "Fuel system status", 2, OneOrTwoLoops, {"Fuel system A", 0, Loop},
            {"Fuel system B", 1, Loop})
VELMARA_PID(0x04, CalculatedEngineLoad, "Calculated engine load", 1, Shown, {Percent})
VELMARA_PID(0x05, EngineCoolantTemperature, "Engine Coolant Temperature", 1, Shown, {Degrees})
VELMARA_PID_OF(0x06, ShortTermFuelTrimBank1, FuelTrim, "Short Term Fuel Trim", 2, BothBanks, Bank1, Bank3)
VELMARA_PID_OF(0x07, LongTermFuelTrimBank1, FuelTrim, "Long Term Fuel Trim", 2, BothBanks, Bank1, Bank3)
VELMARA_PID_OF(0x08, ShortTermFuelTrimBank2, FuelTrim, "Short Term Fuel Trim", 2, BothBanks, Bank2, Bank4)
VELMARA_PID_OF(0x09, LongTermFuelTrimBank2, FuelTrim, "Long Term Fuel Trim", 2, BothBanks, Bank2, Bank4)
VELMARA_PID(0x0A, FuelPressure, "Fuel Pressure (gauge)", 1, Shown,
            {pressure(Linear{.multiplier = 3}, {Unit::Kilopascal, 0.0F, 765.0F, 0},
                      {Unit::PoundsPerSquareInch, 0.0F, 110.95F, 1})})
VELMARA_PID(0x0B, ManifoldPressure, "Intake Manifold Absolute Pressure", 1, Shown, {ScaledPressure})
VELMARA_PID_OF(0x0C, EngineRpm, EngineRpmReading, "Engine RPM", 2, Shown,
               {number(quarterWord, {Unit::RevolutionsPerMinute, 0.0F, 16383.75F, 0}, Kind::Unsigned)})
VELMARA_PID(0x0D, VehicleSpeed, "Vehicle Speed Sensor", 1, Shown, {Speed})
VELMARA_PID(0x0E, TimingAdvance, "Ignition Timing Advance for #1 Cylinder", 1, Shown,
            {number(Linear{.offset = -128, .factor = 0.5F}, {Unit::NoUnit, -64.0F, 63.5F, 1})})
VELMARA_PID(0x0F, IntakeAirTemperature, "Intake Air Temperature", 1, Shown, {Degrees})
VELMARA_PID(0x10, AirFlowRate, "Air Flow Rate from Mass Flow Sensor", 2, Shown, {ScaledAirFlow})
VELMARA_PID(0x11, ThrottlePosition, "Absolute Throttle Position", 1, Shown, {Percent})
VELMARA_PID(0x12, SecondaryAirStatus, "Commanded Secondary Air Status", 1, SecondaryAirBits,
            {code(lowestBit, SecondaryAirTexts)})
VELMARA_PID_OF(0x13, OxygenSensorsPresent13, OxygenSensorsPresent, "Location of Oxygen Sensors", 1, Shown,
               {code(PlainByte, {})})
VELMARA_PID_OF(0x14, OxygenSensor1Bank1, OxygenSensor, " (O2S)", 2, TrimIfUsed, SensorVoltage, SensorTrim)
VELMARA_PID_OF(0x15, OxygenSensor2Bank1, OxygenSensor, " (O2S)", 2, TrimIfUsed, SensorVoltage, SensorTrim)
VELMARA_PID_OF(0x16, OxygenSensor3Bank1, OxygenSensor, " (O2S)", 2, TrimIfUsed, SensorVoltage, SensorTrim)
VELMARA_PID_OF(0x17, OxygenSensor4Bank1, OxygenSensor, " (O2S)", 2, TrimIfUsed, SensorVoltage, SensorTrim)
VELMARA_PID_OF(0x18, OxygenSensor1Bank2, OxygenSensor, " (O2S)", 2, TrimIfUsed, SensorVoltage, SensorTrim)
VELMARA_PID_OF(0x19, OxygenSensor2Bank2, OxygenSensor, " (O2S)", 2, TrimIfUsed, SensorVoltage, SensorTrim)
VELMARA_PID_OF(0x1A, OxygenSensor3Bank2, OxygenSensor, " (O2S)", 2, TrimIfUsed, SensorVoltage, SensorTrim)
VELMARA_PID_OF(0x1B, OxygenSensor4Bank2, OxygenSensor, " (O2S)", 2, TrimIfUsed, SensorVoltage, SensorTrim)
VELMARA_PID_OF(0x1C, SaeStandard, SaeStandardReading,
               "OBD requirements to which vehicle or engine is certified", 1, Shown,
               {code(standard, StandardTexts)})
VELMARA_PID_OF(0x1D, OxygenSensorsPresent1d, OxygenSensorsPresent, "Location of Oxygen Sensors", 1, Shown,
               {code(PlainByte, {})})
VELMARA_PID(0x1E, AuxiliaryInputStatus, "Auxiliary Input Status", 1, Shown, {code(lowBit, PowerTakeOffTexts)})
VELMARA_PID(0x1F, EngineRuntime, "Time Since Engine Start", 2, Shown, {counter(Unit::Second)})
VELMARA_PID(0x21, MilDistance, "Distance Traveled While MIL is Activated", 2, Shown, {Distance})
VELMARA_PID(0x22, RelativeFuelRailPressure, "Fuel Pressure relative to manifold vacuum", 2, Shown,
            {pressure(Linear{.raw = Linear::Word, .multiplier = 5178, .divisor = 65535.0F},
                      {Unit::Kilopascal, 0.0F, 5177.27F, 1}, {Unit::PoundsPerSquareInch, 0.0F, 750.90F, 1})})
VELMARA_PID(0x23, FuelRailPressure, "Fuel Rail Pressure", 2, Shown, {RailPressure})
VELMARA_PID_OF(0x24, OxygenSensorErvSensor1, OxygenSensorErv, " (wide range O2S)", 4, Shown, Lambda, Voltage)
VELMARA_PID_OF(0x25, OxygenSensorErvSensor2, OxygenSensorErv, " (wide range O2S)", 4, Shown, Lambda, Voltage)
VELMARA_PID_OF(0x26, OxygenSensorErvSensor3, OxygenSensorErv, " (wide range O2S)", 4, Shown, Lambda, Voltage)
VELMARA_PID_OF(0x27, OxygenSensorErvSensor4, OxygenSensorErv, " (wide range O2S)", 4, Shown, Lambda, Voltage)
VELMARA_PID_OF(0x28, OxygenSensorErvSensor5, OxygenSensorErv, " (wide range O2S)", 4, Shown, Lambda, Voltage)
VELMARA_PID_OF(0x29, OxygenSensorErvSensor6, OxygenSensorErv, " (wide range O2S)", 4, Shown, Lambda, Voltage)
VELMARA_PID_OF(0x2A, OxygenSensorErvSensor7, OxygenSensorErv, " (wide range O2S)", 4, Shown, Lambda, Voltage)
VELMARA_PID_OF(0x2B, OxygenSensorErvSensor8, OxygenSensorErv, " (wide range O2S)", 4, Shown, Lambda, Voltage)
VELMARA_PID(0x2C, CommandedEgr, "Commanded EGR", 1, Shown, {Percent})
VELMARA_PID(0x2D, EgrError, "EGR Error", 1, Shown, {SignedPercent})
VELMARA_PID(0x2E, EvaporativePurge, "Commanded Evaporative Purge", 1, Shown, {Percent})
VELMARA_PID(0x2F, FuelLevelInput, "Fuel Level Input", 1, Shown, {Percent})
VELMARA_PID(0x30, WarmUps, "Number of warm-ups since DTCs cleared", 1, Shown,
            {counter(Unit::NoUnit, PlainByte, 255.0F)})
VELMARA_PID(0x31, DistanceTraveled, "Distance traveled since DTCs cleared", 2, Shown, {Distance})
VELMARA_PID(0x32, VaporPressure, "Evap System Vapor Pressure", 2, Shown,
            {vaporPressure(Linear{.raw = Linear::SignedWord, .factor = 0.25F},
                           {Unit::Pascal, -8192.0F, 8191.75F, 1}, {Unit::InchOfWater, -32.89F, 32.89F, 3})})
VELMARA_PID(0x33, BarometricPressure, "Barometric Pressure", 1, Shown, {AirPressure})
VELMARA_PID_OF(0x34, OxygenSensor1Erc, OxygenSensorErc, " (wide range O2S)", 4, Shown, Lambda, Current)
VELMARA_PID_OF(0x35, OxygenSensor2Erc, OxygenSensorErc, " (wide range O2S)", 4, Shown, Lambda, Current)
VELMARA_PID_OF(0x36, OxygenSensor3Erc, OxygenSensorErc, " (wide range O2S)", 4, Shown, Lambda, Current)
VELMARA_PID_OF(0x37, OxygenSensor4Erc, OxygenSensorErc, " (wide range O2S)", 4, Shown, Lambda, Current)
VELMARA_PID_OF(0x38, OxygenSensor5Erc, OxygenSensorErc, " (wide range O2S)", 4, Shown, Lambda, Current)
VELMARA_PID_OF(0x39, OxygenSensor6Erc, OxygenSensorErc, " (wide range O2S)", 4, Shown, Lambda, Current)
VELMARA_PID_OF(0x3A, OxygenSensor7Erc, OxygenSensorErc, " (wide range O2S)", 4, Shown, Lambda, Current)
VELMARA_PID_OF(0x3B, OxygenSensor8Erc, OxygenSensorErc, " (wide range O2S)", 4, Shown, Lambda, Current)
VELMARA_PID(0x3C, CatalystTemperatureBank1Sensor1, "Catalyst Temperature Bank 1, Sensor 1", 2, Shown,
            {CatalystDegrees})
VELMARA_PID(0x3D, CatalystTemperatureBank2Sensor1, "Catalyst Temperature Bank 2, Sensor 1", 2, Shown,
            {CatalystDegrees})
VELMARA_PID(0x3E, CatalystTemperatureBank1Sensor2, "Catalyst Temperature Bank 1, Sensor 2", 2, Shown,
            {CatalystDegrees})
VELMARA_PID(0x3F, CatalystTemperatureBank2Sensor2, "Catalyst Temperature Bank 2, Sensor 2", 2, Shown,
            {CatalystDegrees})
VELMARA_OWN_PID(0x41, MonitorStatusThisCycle, "Monitor status this driving cycle", 4, Hidden, {Bits})
VELMARA_PID(0x42, ControlModuleVoltage, "Control module voltage", 2, Shown,
            {number(Linear{.raw = Linear::Word, .factor = 0.001F}, {Unit::Volt, 0.0F, 65.535F, 2})})
VELMARA_PID(0x43, AbsoluteLoadValue, "Absolute Load Value", 2, Shown,
            {number(Linear{.raw = Linear::Word, .multiplier = 100, .divisor = 255.0F},
                    {Unit::Percent, 0.0F, 25700.0F, 1})})
VELMARA_PID(0x44, CommandedFar, "Fuel/Air Commanded Equivalence Ratio", 2, Shown, {Ratio})
VELMARA_PID(0x45, RelativeThrottlePosition, "Relative Throttle Position", 1, Shown, {Percent})
VELMARA_PID(0x46, AmbientAirTemperature, "Ambient Air Temperature", 1, Shown, {Degrees})
VELMARA_PID(0x47, AbsoluteThrottlePositionB, "Absolute Throttle Position B", 1, Shown, {Percent})
VELMARA_PID(0x48, AbsoluteThrottlePositionC, "Absolute Throttle Position C", 1, Shown, {Percent})
VELMARA_PID(0x49, AcceleratorPedalPositionD, "Accelerator Pedal Position D", 1, Shown, {Percent})
VELMARA_PID(0x4A, AcceleratorPedalPositionE, "Accelerator Pedal Position E", 1, Shown, {Percent})
VELMARA_PID(0x4B, AcceleratorPedalPositionF, "Accelerator Pedal Position F", 1, Shown, {Percent})
VELMARA_PID(0x4C, CommandedThrottleActuatorControl, "Commanded Throttle Actuator Control", 1, Shown,
            {Percent})
VELMARA_PID(0x4D, EngineRuntimeMil, "Engine run time while MIL activated", 2, Shown, {counter(Unit::Minute)})
VELMARA_PID(0x4E, EngineRuntimeDtc, "Engine run time since DTCs cleared", 2, Shown, {counter(Unit::Minute)})
VELMARA_OWN_PID(0x4F, TestEquipmentConfiguration1, "External Test Equipment Configuration Information #1", 4,
                Hidden, {Bits})
VELMARA_OWN_PID(0x50, TestEquipmentConfiguration2, "External Test Equipment Configuration Information #2", 4,
                Hidden, {Bits})
VELMARA_PID(0x51, FuelTypeParameter, "Fuel type being utilized", 1, KnownFuelType,
            {code(PlainByte, FuelTypeTexts)})
VELMARA_PID(0x52, AlcoholFuelPercentage, "Alcohol Fuel Percentage", 1, Shown, {Percent})
VELMARA_PID(0x53, AbsoluteEvapSystemVaporPressure, "Absolute Evap System Vapor Pressure", 2, Shown,
            {AbsoluteVaporPressure})
VELMARA_PID(0x54, EvapSystemVaporPressure, "Evap System Vapor Pressure", 2, Shown,
            {vaporPressure(Linear{.raw = Linear::SignedWord}, {Unit::Pascal, -32768.0F, 32767.0F, 0},
                           {Unit::InchOfWater, -131.55F, 131.55F, 2})})
VELMARA_PID_OF(0x55, ShortTermSecondaryFuelTrimBank1, FuelTrim, "Short Term Secondary O2 Sensor Fuel Trim", 2,
               BothBanks, Bank1, Bank3)
VELMARA_PID_OF(0x56, LongTermSecondaryFuelTrimBank1, FuelTrim, "Long Term Secondary O2 Sensor Fuel Trim", 2,
               BothBanks, Bank1, Bank3)
VELMARA_PID_OF(0x57, ShortTermSecondaryFuelTrimBank2, FuelTrim, "Short Term Secondary O2 Sensor Fuel Trim", 2,
               BothBanks, Bank2, Bank4)
VELMARA_PID_OF(0x58, LongTermSecondaryFuelTrimBank2, FuelTrim, "Long Term Secondary O2 Sensor Fuel Trim", 2,
               BothBanks, Bank2, Bank4)
VELMARA_PID(0x59, AbsoluteFuelRailPressure, "Absolute Fuel Rail Pressure", 2, Shown, {RailPressure})
VELMARA_PID(0x5A, RelativeAcceleratorPedalPosition, "Relative Accelerator Pedal Position", 1, Shown,
            {Percent})
VELMARA_PID(0x5B, BatteryPackRemainingCharge, "Hybrid/EV Battery Pack Remaining Charge", 1, Shown, {Percent})
VELMARA_PID(0x5C, EngineOilTemperature, "Engine Oil Temperature", 1, Shown, {Degrees})
VELMARA_PID(0x5D, FuelInjectionTiming, "Fuel Injection Timing", 2, Shown,
            {number(Linear{.raw = Linear::Word, .offset = -26880, .factor = 0.0078125F},
                    {Unit::NoUnit, -210.0F, 301.992F, 2})})
VELMARA_PID(0x5E, EngineFuelRate, "Engine Fuel Rate", 2, Shown,
            {number(Linear{.raw = Linear::Word, .divisor = 20.0F}, {Unit::LiterPerHour, 0.0F, 3276.75F, 2})})
VELMARA_PID(0x5F, EmissionStandard, "Emission requirements to which vehicle is designed", 1, Shown,
            {code(emissionStandard, EmissionTexts)})
VELMARA_PID(0x61, RequestedTorque, "Requested Engine Torque", 1, Shown, {TorquePercent})
VELMARA_PID(0x62, ActualTorque, "Actual Engine Torque", 1, Shown, {TorquePercent})
VELMARA_PID(0x63, ReferenceTorque, "Engine Reference Torque", 2, Shown,
            {number(PlainWord, {Unit::NewtonMeter, 0.0F, 65535.0F, 1})})
VELMARA_PID(0x64, EngineTorqueData, "Engine Percent Torque Data", 5, Answered, {"Point 1", 0, TorquePercent},
            {"Point 2", 1, TorquePercent}, {"Point 3", 2, TorquePercent}, {"Point 4", 3, TorquePercent},
            {"Point 5", 4, TorquePercent})
VELMARA_PID(0x65, AuxiliaryIo, "Auxiliary Inputs / Outputs", 2, Answered, {"Power Take Off", 0, PowerTakeOff},
            {"Auto Transmission", 0, Automatic}, {"Manual Transmission", 0, Manual},
            {"Glow Plug Lamp", 0, GlowPlugLamp})
VELMARA_PID(0x66, MassAirFlow, "Air Flow Rate from Mass Flow Sensor", 5, Masked, {"Sensor A", 1, MassFlow},
            {"Sensor B", 3, MassFlow})
VELMARA_PID(0x67, EngineCoolantTemperature2, "Engine Coolant Temperature", 3, Masked,
            {"Sensor 1", 1, Degrees}, {"Sensor 2", 2, Degrees})
VELMARA_PID(0x68, IntakeAirTemperature2, "Intake Air Temperature", 7, Masked,
            {"Bank 1 - Sensor 1", 1, Degrees}, {"Bank 1 - Sensor 2", 2, Degrees},
            {"Bank 1 - Sensor 3", 3, Degrees}, {"Bank 2 - Sensor 1", 4, Degrees},
            {"Bank 2 - Sensor 2", 5, Degrees}, {"Bank 2 - Sensor 3", 6, Degrees})
VELMARA_PID(0x69, Egr, "EGR", 7, Masked, {"Commanded EGR Duty Cycle/Position A", 1, Percent},
            {"Actual EGR Duty Cycle/Position A", 2, Percent}, {"EGR Error A", 3, SignedPercent},
            {"Commanded EGR Duty Cycle/Position B", 4, Percent},
            {"Actual EGR Duty Cycle/Position B", 5, Percent}, {"EGR Error B", 6, SignedPercent})
VELMARA_PID(0x6A, DieselIntakeAirFlow, "Diesel Intake Air Flow", 5, Masked,
            {"Commanded IAF Control A", 1, Percent}, {"Relative IAF Position A", 2, Percent},
            {"Commanded IAF Control B", 3, Percent}, {"Relative IAF Position B", 4, Percent})
VELMARA_PID(0x6B, ExhaustGasRecirculationTemperature, "Exhaust Gas Recirculation Temperature", 5, Masked,
            {"Bank 1 - Sensor 1", 1, RecirculationDegrees}, {"Bank 1 - Sensor 2", 2, RecirculationDegrees},
            {"Bank 2 - Sensor 1", 3, RecirculationDegrees}, {"Bank 2 - Sensor 2", 4, RecirculationDegrees})
VELMARA_PID(0x6C, ThrottleControlPosition, "Throttle", 5, Masked,
            {"Commanded Actuator Control A", 1, Percent}, {"Relative Position A", 2, Percent},
            {"Commanded Actuator Control B", 3, Percent}, {"Relative Position B", 4, Percent})
VELMARA_PID(0x6D, FuelPressureControlSystem, "Fuel Pressure Control", 11, Masked,
            {"Commanded Fuel Rail Pressure A", 1, RailPressure}, {"Fuel Rail Pressure A", 3, RailPressure},
            {"Fuel Temperature A", 5, Degrees}, {"Commanded Fuel Rail Pressure B", 6, RailPressure},
            {"Fuel Rail Pressure B", 8, RailPressure}, {"Fuel Temperature B", 10, Degrees})
VELMARA_PID(0x6E, InjectionPressureControlSystem, "Injection Pressure Control", 9, Masked,
            {"Commanded Injection Control Pressure A", 1, RailPressure},
            {"Injection Pressure A", 3, RailPressure},
            {"Commanded Injection Control Pressure B", 5, RailPressure},
            {"Injection Pressure B", 7, RailPressure})
VELMARA_PID(0x6F, TurbochargerCompressorInletPressure, "Turbocharger Compressor Inlet Pressure", 3, Masked,
            {"Sensor A", 1, InletPressure}, {"Sensor B", 2, InletPressure})
VELMARA_PID(0x70, BoostPressureControl, "Boost Pressure Control", 10, Masked,
            {"Commanded Boost Pressure A", 1, Boost}, {"Boost Pressure A", 3, Boost},
            {"Boost Pressure Control Status A", 9, LoopStatusA}, {"Commanded Boost Pressure B", 5, Boost},
            {"Boost Pressure B", 7, Boost}, {"Boost Pressure Control Status B", 9, LoopStatusB})
VELMARA_PID(0x71, VariableGeometryTurboControl, "Variable Geometry Turbo Control", 6, Masked,
            {"Commanded Variable Geometry Turbo Position A", 1, Percent},
            {"Variable Geometry Turbo Position A", 2, Percent},
            {"Variable Geometry Turbo Control Status A", 5, LoopStatusA},
            {"Commanded Variable Geometry Turbo Position B", 3, Percent},
            {"Variable Geometry Turbo Position B", 4, Percent},
            {"Variable Geometry Turbo Control Status B", 5, LoopStatusB})
VELMARA_PID(0x72, WastegateControl, "Wastegate Control", 5, Masked,
            {"Commanded Wastegate Position A", 1, Percent}, {"Wastegate Position A", 2, Percent},
            {"Commanded Wastegate Position B", 3, Percent}, {"Wastegate Position B", 4, Percent})
VELMARA_PID(0x73, ExhaustPressure, "Exhaust Pressure", 5, Masked, {"Sensor Bank 1", 1, BackPressure},
            {"Sensor Bank 2", 3, BackPressure})
VELMARA_PID(0x74, TurbochargerRpm, "Turbocharger RPM", 5, Masked, {"Turbo A", 1, Rpm}, {"Turbo B", 3, Rpm})
VELMARA_PID(0x75, TurbochargerATemperature, "Turbocharger A Temperature", 7, Masked,
            {"Compressor Inlet Temperature", 1, Degrees}, {"Compressor Outlet Temperature", 2, Degrees},
            {"Turbine Inlet Temperature", 3, TurbineDegrees},
            {"Turbine Outlet Temperature", 5, TurbineDegrees})
VELMARA_PID(0x76, TurbochargerBTemperature, "Turbocharger B Temperature", 7, Masked,
            {"Compressor Inlet Temperature", 1, Degrees}, {"Compressor Outlet Temperature", 2, Degrees},
            {"Turbine Inlet Temperature", 3, TurbineDegrees},
            {"Turbine Outlet Temperature", 5, TurbineDegrees})
VELMARA_PID(0x77, ChargeAirCoolerTemperature, "Charge Air Cooler Temperature", 5, Masked,
            {"Bank 1 - Sensor 1", 1, ChargeAirDegrees}, {"Bank 1 - Sensor 2", 2, ChargeAirDegrees},
            {"Bank 2 - Sensor 1", 3, ChargeAirDegrees}, {"Bank 2 - Sensor 2", 4, ChargeAirDegrees})
VELMARA_PID(0x78, ExhaustGasTemperatureBank1, "Exhaust Gas Temperature Bank 1", 9, Masked,
            {"Sensor 1", 1, ExhaustDegrees}, {"Sensor 2", 3, ExhaustDegrees}, {"Sensor 3", 5, ExhaustDegrees},
            {"Sensor 4", 7, ExhaustDegrees})
VELMARA_PID(0x79, ExhaustGasTemperatureBank2, "Exhaust Gas Temperature Bank 2", 9, Masked,
            {"Sensor 1", 1, ExhaustDegrees}, {"Sensor 2", 3, ExhaustDegrees}, {"Sensor 3", 5, ExhaustDegrees},
            {"Sensor 4", 7, ExhaustDegrees})
VELMARA_PID(0x7A, DieselParticulateFilterBank1, "Diesel Particulate Filter Bank 1", 7, Masked,
            {"Delta Pressure", 1, FilterDelta}, {"Inlet Pressure", 3, FilterPressure},
            {"Outlet Pressure", 5, FilterPressure})
VELMARA_PID(0x7B, DieselParticulateFilterBank2, "Diesel Particulate Filter Bank 2", 7, Masked,
            {"Delta Pressure", 1, FilterDelta}, {"Inlet Pressure", 3, FilterPressure},
            {"Outlet Pressure", 5, FilterPressure})
VELMARA_PID(0x7C, DieselParticulateFilterTemperature, "Diesel Particulate Filter Temperature", 9, Masked,
            {"Inlet Temperature Bank 1", 1, ExhaustDegrees}, {"Outlet Temperature Bank 1", 3, ExhaustDegrees},
            {"Inlet Temperature Bank 2", 5, ExhaustDegrees}, {"Outlet Temperature Bank 2", 7, ExhaustDegrees})
VELMARA_PID(0x7D, NOxControlAreaStatus, "NOx NTE Control Area Status", 1, LatchedArea,
            {"NOx NTE Control Area Status", 0, AreaStatus})
VELMARA_PID(0x7E, PmControlAreaStatus, "PM NTE Control Area Status", 1, LatchedArea,
            {"PM NTE Control Area Status", 0, AreaStatus})
VELMARA_PID(0x7F, EngineRuntime2, "Engine Run Time", 13, Masked, {"Total Engine Run Time", 1, RunTime},
            {"Total Idle Run Time", 5, RunTime}, {"Total Run Time With PTO Active", 9, RunTime})
VELMARA_OWN_PID(240, FuelConsumption, "Fuel consumption", 0, Hidden,
                {calculated({Unit::ConsumptionMetric, 0.0F, 500.0F, 1},
                            {Unit::ConsumptionImperial, 0.0F, 500.0F, 1})})
VELMARA_OWN_PID(244, BatteryVoltage, "Battery voltage", 0, Hidden,
                {calculated({Unit::Volt, 0.0F, 24.0F, 1}, {Unit::Volt, 0.0F, 24.0F, 1})})
VELMARA_OWN_PID(245, EnginePower, "Engine power", 0, Hidden,
                {calculated({Unit::PowerMetric, 0.0F, 1000.0F, 0}, {Unit::PowerImperial, 0.0F, 1300.0F, 0})})
VELMARA_OWN_PID(246, Torque, "Engine torque", 0, Hidden,
                {calculated({Unit::NewtonMeter, 0.0F, 2000.0F, 0}, {Unit::NewtonMeter, 0.0F, 2000.0F, 0})})
VELMARA_OWN_PID(247, BoostPressure, "Boost pressure", 0, Hidden,
                {calculated({Unit::Kilopascal, 0.0F, 255.0F, 1},
                            {Unit::PoundsPerSquareInch, 0.0F, 36.98461F, 1})})

#undef VELMARA_PID
#undef VELMARA_PID_OF
#undef VELMARA_OWN_PID
