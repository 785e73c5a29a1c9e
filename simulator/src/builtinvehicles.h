#pragma once

#include <string_view>
#include <vector>

namespace simulator {

/// A vehicle file built into the library.
struct BuiltinVehicle {
  std::string_view name;
  std::string_view text;
};

/// All of them, sorted by name. Generated from the vehicles folder.
const std::vector<BuiltinVehicle>& builtinVehicles();

}  // namespace simulator
