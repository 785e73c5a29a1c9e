#pragma once

#include <simulator/elmadapter.h>

namespace simulator {

/// What an adapter lacks or has of its own.
enum Trait : unsigned {
  NoTraits = 0,
  NoBaudrateChange = 1,
  DiamexCommands = 2,
  SpeedByScs = 4,  // ATSCS instead of ATBRD
  FewCommands = 8,
  StnCommands = 16,
  LinefeedsAtStart = 32
};

struct Character {
  Personality personality;
  const char* banner;       // ATI
  const char* description;  // AT@1
  const char* identifier;   // AT@2; none: nothing stored
  int version;              // of the command set, 13 for 1.3
  unsigned traits;
};

const Character& characterOf(Personality personality);

}  // namespace simulator
