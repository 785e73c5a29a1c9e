#pragma once

#include <pybind11/pybind11.h>

namespace velmara::python {

/// Serial ports, and with `bluetooth` the devices that show up in so many seconds, of either kind. Where
/// Bluetooth cannot be used, one device without a link tells why. Throws what a signal's handler raises.
pybind11::list findDevices(bool bluetooth, double seconds);

}  // namespace velmara::python
