#pragma once

#include "services/iobdvelmara.h"

namespace obd {

/// The facade of the process; null while there is none. Builders of services ask here and give null in turn.
IObdVelmara* currentFacade();

}  // namespace obd
