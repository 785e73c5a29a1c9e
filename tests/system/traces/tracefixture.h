#pragma once

#include <algorithm>
#include <cctype>
#include <memory>
#include <string>
#include <vector>

#include <simulator/bus.h>

#include "client/clientfixture.h"
#include "report/jsonreport.h"
#include "support/temporaryfolder.h"
#include "velmara/client/tracewriter.h"
#include "velmara/client/vehiclereader.h"

namespace velmara {

/// All simulated vehicles, the odd ones as well.
inline std::vector<std::string> allVehicles() {
  std::vector<std::string> names = simulator::vehicleNames();
  const std::vector<std::string> odd = simulator::oddVehicleNames();
  names.insert(names.end(), odd.begin(), odd.end());
  return names;
}

/// Traces and reports, by a clock of its own. Files go with the test.
class TraceTest : public ClientTest, protected TemporaryFolder {
 protected:
  /// A name that no trace had yet, and what writes it.
  ConnectOptions recording() {
    ConnectOptions options;
    traceFile = path(std::to_string(++m_traces) + ".trace");
    options.trace = std::make_shared<TraceWriter>(traceFile);
    return options;
  }

  /// Everything that the vehicle of the present connection tells. The link is left out, as a bus of a test
  /// has none.
  Json report() {
    VehicleReport report;
    report.link = readLink(session);
    for (const ControlUnit& one : session.units()) {
      UnitReport& own = report.units.emplace_back();
      own.identity = readIdentity(session, one);
      readUnit(session, one, {}, true, own);
      own.summary = readSummary(session, one);
    }
    return toJson(report);
  }

  /// The report over a link, or the kind of failure that it ended in.
  template <typename Connect>
  std::string outcome(const Connect& connectAll) {
    std::string text;
    const auto failed = failureOf([&] {
      connectAll();
      text = report().dump(1);
    });
    session.disconnect();
    return failed ? "failure " + std::to_string(static_cast<int>(*failed)) : text;
  }
  std::string outcomeOf(const std::string& link, const ConnectOptions& options = {}) {
    return outcome([&] { session.connect(parseLink(link), options); });
  }

  std::string traceFile;

 private:
  int m_traces = 0;
};

/// The name of a test by its vehicle or trace, of letters, digits and "_".
inline std::string testName(const testing::TestParamInfo<std::string>& parameter) {
  std::string name = parameter.param;
  std::replace_if(
      name.begin(), name.end(), [](unsigned char c) { return std::isalnum(c) == 0; }, '_');
  return name;
}

}  // namespace velmara
