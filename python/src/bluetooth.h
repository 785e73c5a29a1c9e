#pragma once

#include <string>

#include <pybind11/pybind11.h>

namespace velmara::python {

/// Looks for Bluetooth devices, at most so long. Gives a list of tuples (link, name, address), and the reason
/// in words why the search failed; empty if it did not.
pybind11::tuple findBluetooth(double seconds);

}  // namespace velmara::python
