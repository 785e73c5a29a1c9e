#pragma once

#include <string>

#include <simulator/trace.h>

#include "velmara/client/trace.h"

namespace velmara {

/// What trace.h offers, of traces that have been read. `file` is for messages.
TraceSummary summaryOf(const simulator::Trace& trace);
std::string anonymized(simulator::Trace trace);
std::string vehicleOf(const simulator::Trace& trace, const std::string& file, const std::string& name);

/// Throws `Failure` (Unusable).
simulator::Trace loadTrace(const std::string& file);

}  // namespace velmara
