#pragma once

#include <iterator>

// Texts of the codes that PIDs carry (SAE J1979-DA), by number.

namespace obd {

inline constexpr const char* LoopTexts[] = {
    "Open loop (0)",   "Closed loop (1)", "Open loop (2)", "Open loop (3)",
    "Closed loop (4)", "Open loop (5)",   "Open loop (6)", "Open loop (7)",
};

inline constexpr const char* SecondaryAirTexts[] = {
    "Upstream of first catalytic converter",
    "Downstream of first catalytic converter inlet",
    "Atmosphere / off",
    "Pump commanded on for diagnostics",
};

// The standards that a vehicle is certified to.
inline constexpr const char* StandardTexts[] = {
    "Invalid OBD standard",
    "OBD II (California ARB)",
    "OBD (Federal EPA)",
    "OBD and OBD II",
    "OBD I",
    "NO OBD (Not OBD compliant)",
    "EOBD",
    "EOBD and OBD II",
    "EOBD and OBD",
    "EOBD, OBD and OBD II",
    "JOBD",
    "JOBD and OBD II",
    "JOBD and EOBD",
    "JOBD, EOBD, and OBD II",
    "OBD, EOBD and KOBD",
    "OBD, OBD II, EOBD and KOBD",
    "SAE/ISO reserved",
    "EMD (Engine Manufacturer Diagnostics)",
    "EMD+ (Engine Manufacturer Diagnostics Enhanced)",
    "HD OBD-C (Heavy Duty On-Board Diagnostics, Child/Partial)",
    "HD OBD (Heavy Duty On-Board Diagnostics)",
    "WWH OBD (World Wide Harmonized OBD)",
    "SAE/ISO reserved",
    "HD EOBD-I (Heavy Duty Euro OBD Stage I without NOx Control)",
    "HD EOBD-I N (Heavy Duty Euro OBD Stage I with NOx Control)",
    "HD EOBD-II (Heavy Duty Euro OBD Stage II without NOx Control)",
    "HD EOBD-II N (Heavy Duty Euro OBD Stage II with NOx Control)",
    "HD-ZEV (Heavy Duty ZEV)",
    "OBDBr-1 (Brazil OBD Phase 1)",
    "OBDBr-2 (Brazil OBD Phase 2 and Phase 2+)",
    "KOBD (Korean OBD)",
    "IOBD-I-BS4 (India BS4 OBD I)",
    "IOBD-II-BS4 (India BS4 OBD II)",
    "HD EOBD-VI (Euro VI)",
    "OBD, OBD II and HD OBD",
    "OBDBr-3 (Brazil OBD Phase 3)",
    "MC EOBD-I (Motorcycle, Euro OBD-I)",
    "MC EOBD-II (Motorcycle, Euro OBD-II)",
    "MC COBD-I (Motorcycle, China OBD-I)",
    "MC TOBD-I (Motorcycle, Taiwan OBD-I)",
    "MC JOBD-I (Motorcycle, Japan OBD-I)",
    "CN-OBD-6 (China Nationwide Stage 6)",
    "OBDBr-P7 (Brazil OBD Phase 7)",
    "CN-HDOBD-VI (China Heavy Duty VI)",
    "IOBD-I-BS6 (India BS6 OBD I)",
    "IOBD-II-BS6 (India BS6 OBD II)",
    "IHDOBD-BSVI (India BSVI HD OBD)",
    "OBDBr-P8 (Brazil OBD Phase 8)",
    "HD-JOBD-II (Japan Heavy Duty OBD-II)",
    "HD-KOBD-II (Korea Heavy Duty OBD-II)",
    "CN-OROBD-IV (China Off-Road IV OBD)",
    "ZEV Placeholder",
    "MC JOBD-II (Motorcycle, Japan OBD-II)",
};
static_assert(std::size(StandardTexts) == 53);

inline constexpr const char* FuelTypeTexts[] = {
    "Not available",
    "Gasoline/Petrol",
    "Methanol",
    "Ethanol",
    "Diesel",
    "Liquefied Petroleum Gas",
    "Compressed Natural Gas",
    "Propane",
    "Battery/Electric",
    "Bi-fuel; Gasoline",
    "Bi-fuel; Methanol",
    "Bi-fuel; Ethanol",
    "Bi-fuel; Liquefied Petroleum Gas",
    "Bi-fuel; Compressed Natural Gas",
    "Bi-fuel; Propage",  // front ends look for this spelling
    "Bi-fuel; Battery",
    "Bi-fuel; Battery and combustion engine",
    "Hybrid; Gasoline engine",
    "Hybrid; Gasoline engine on ethanol",
    "Hybrid; Diesel engine",
    "Hybrid; Battery",
    "Hybrid; Battery and combustion engine",
    "Hybrid; Regeneration mode",
};
static_assert(std::size(FuelTypeTexts) == 23);

inline constexpr unsigned char FirstEmissionStandard = 14;
inline constexpr const char* EmissionTexts[] = {
    "ISO/SAE reserved",
    "EURO IV B1 - Heavy Duty Vehicles (EURO IV) B1",
    "EURO V B2 - Heavy Duty Vehicles (EURO V) B2",
    "EURO C - Heavy Duty Vehicles (EURO EEV) C",
    "EURO VI - Heavy Duty Vehicles (Euro VI)",
};

inline constexpr const char* PowerTakeOffTexts[] = {"Power Take Off: Not active", "Power Take Off: Active"};

inline constexpr const char* LoopStatusTexts[] = {"Not defined", "Open loop", "Closed loop", "Fault present"};

inline constexpr const char* AreaTexts[] = {"", "Inside control area", "Outside control area",
                                            "Inside NTE carve-out area", "NTE deficiency"};

// Inputs of PID 0x65: not supported, state bit clear, state bit set.
inline constexpr const char* SwitchTexts[] = {"Not supported", "Off", "On"};
inline constexpr const char* AutomaticTexts[] = {"Not supported", "Park/Neutral", "Gear/Drive"};
inline constexpr const char* ManualTexts[] = {"Not supported", "Clutch/Neutral", "Gear"};

}  // namespace obd
