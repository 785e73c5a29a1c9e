#include "powertrain/parameteridentifier.h"

#include <cstdio>

namespace obd {

std::string ParameterIdentifier::toString() const {
  char text[16];
  std::snprintf(text, sizeof(text), "$%02X", static_cast<unsigned int>(m_id));
  return text;
}

}  // namespace obd
