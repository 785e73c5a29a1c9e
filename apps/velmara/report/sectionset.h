#pragma once

#include <string_view>
#include <vector>

#include "report/json.h"
#include "velmara/client/vehiclereader.h"

namespace velmara {

/// One section of a vehicle report, whatever its type.
struct SectionRow {
  void (*read)(Session&, const ControlUnit&, const ReadOptions&, UnitReport&);
  void (*print)(Output&, const UnitReport&);
  Json (*json)(const UnitReport&);
  const Section& (*state)(const UnitReport&);
};

/// The sections that go together under one name: "codes", "freeze", "info", "monitors", "summary", "tests".
struct SectionSet {
  const char* name;
  bool codeTexts;  ///< whether trouble codes are explained
  bool identity;   ///< whether name and standard of the unit are shown, too
  std::vector<SectionRow> sections;

  /// Identity and sections. Throws `Failure` like the readers.
  UnitReport read(Session& session, const ControlUnit& unit, const ReadOptions& options) const;
  Json json(const ControlUnit& unit, const UnitReport& report) const;
};

const std::vector<SectionSet>& sectionSets();
/// Null if there is none of this name.
const SectionSet* findSectionSet(std::string_view name);

/// What was read of several units as one document.
Json sectionsDocument(const Session& session, const Json& units);

}  // namespace velmara
