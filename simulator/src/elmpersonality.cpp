// The adapters that there are to be.

#include "elmpersonality.h"

#include <algorithm>
#include <array>

namespace simulator {

namespace {

constexpr std::array<Character, 11> Characters = {{
    {Personality::Elm10, "ELM327 v1.0", "OBDII to RS232 Interpreter", "", 10, LinefeedsAtStart},
    {Personality::Elm12, "ELM327 v1.2", "OBDII to RS232 Interpreter", "", 12, LinefeedsAtStart},
    {Personality::Elm15, "ELM327 v1.5", "OBDII to RS232 Interpreter", "", 14, NoTraits},
    {Personality::Elm21, "ELM327 v2.1", "OBDII to RS232 Interpreter", "SIM000002100", 21, NoTraits},
    {Personality::Elm22, "ELM327 v2.2", "OBDII to RS232 Interpreter", "SIM000002200", 22, NoTraits},
    {Personality::Stn, "ELM327 v1.3a", "OBDII to RS232 Interpreter", "SIM-STN-0001", 14, StnCommands},
    {Personality::ObdKey, "OBDKEY v1.40", "OBDKey interface", "SIMKEY014000", 14, NoBaudrateChange},
    {Personality::Diamex, "DIAMEX DX 1.4", "DIAMEX interface", "SIMDX0000014", 14, DiamexCommands},
    {Personality::ObdPro, "ELM327 v1.3", "OBDPro interface", "SIMPRO000013", 14, SpeedByScs},
    {Personality::Kiwi, "PLXKiwi v1.4", "PLX Kiwi interface", "SIMKIWI00014", 14, NoTraits},
    {Personality::Unknown, "OBD interface", "", "", 12, FewCommands | NoBaudrateChange},
}};

}  // namespace

const Character& characterOf(Personality personality) {
  const auto* found = std::find_if(Characters.begin(), Characters.end(), [personality](const Character& row) {
    return row.personality == personality;
  });
  return found == Characters.end() ? Characters[2] : *found;
}

const std::vector<PersonalityName>& personalities() {
  static const std::vector<PersonalityName> names = {
      {Personality::Elm10, "elm10", "ELM327 v1.0, an old firmware with few commands"},
      {Personality::Elm12, "elm12", "ELM327 v1.2, without the spaces command"},
      {Personality::Elm15, "elm15", "ELM327 v1.5, as clones call themselves"},
      {Personality::Elm21, "elm21", "ELM327 v2.1"},
      {Personality::Elm22, "elm22", "ELM327 v2.2"},
      {Personality::Stn, "stn", "an STN chip"},
      {Personality::ObdKey, "obdkey", "OBDKey, whose baud rate is fixed"},
      {Personality::Diamex, "diamex", "a DIAMEX chip with a command set of its own"},
      {Personality::ObdPro, "obdpro", "OBDPro, which changes its baud rate by ATSCS"},
      {Personality::Kiwi, "kiwi", "PLX Kiwi"},
      {Personality::Unknown, "unknown", "a nameless clone that lacks half of the commands"}};
  return names;
}

std::optional<Personality> personalityByName(std::string_view name) {
  for (const PersonalityName& row : personalities()) {
    if (row.name == name) {
      return row.personality;
    }
  }
  return std::nullopt;
}

}  // namespace simulator
