#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "core/iecu.h"
#include "core/unitreply.h"
#include "marker.h"
#include "question.h"
#include "stopwatch.h"
#include "velmara/client/vehiclereader.h"

namespace velmara {

/// Waits for the answers of one section, and says at the end how complete it is.
class Answers {
 public:
  /// `section` is what people call it.
  Answers(Session& session, const ReadOptions& options, const char* section);

  /// So many answers are to come.
  void expect(std::size_t answers) { m_expected = answers; }
  /// The answer to a question has come, or the word that there is none.
  void heard(bool success);
  void heard(const Outcome& outcome);
  /// Something has come that does not count.
  void alive();
  /// No more will come.
  void finish() { m_finished = true; }

  /// Waits until the queue holds nothing of what was asked before, so that new questions fit in.
  void clearRoad();
  /// Waits until `finish`, or until it is plain that no more will come.
  void wait();
  /// Asks these, a few at a time, and waits for all of them. `onAnswer` is told of each, in their order.
  void ask(const std::vector<std::shared_ptr<obd::IQuery>>& queries,
           const std::function<void(std::size_t index, bool success)>& onAnswer);
  /// Runs the event loop until `done`. Gives up as the options say, which the section's reason will tell.
  void waitUntil(const std::function<bool()>& done);

  bool gaveUp() const { return !m_givenUp.empty(); }
  /// Sets state and reason. Throws what `expectAdapter` throws if nothing of use came at the end.
  void conclude(Section& section) const;

 private:
  bool roadIsQuiet();
  bool tooLong();
  std::string reasonOf(std::size_t missing, std::size_t wanted) const;
  void tellProgress() const;

  Session& m_session;
  const ReadOptions& m_options;
  const char* m_section;
  std::size_t m_expected = 0;
  std::size_t m_heard = 0;
  std::size_t m_succeeded = 0;
  std::size_t m_refused = 0;
  std::size_t m_unusable = 0;
  bool m_endsInVain = true;  // nothing, or nothing of use, came of the last question
  std::string m_refusal;     // the reason of the last one
  std::size_t m_signs = 0;   // of life
  bool m_finished = false;
  std::string m_givenUp;
  Stopwatch m_begin;
  Stopwatch m_latest;

  const std::shared_ptr<Marker> m_marker = std::make_shared<Marker>();
  bool m_markerSent = false;
  std::size_t m_signsBefore = 0;  // when the marker was sent
  unsigned m_quietRounds = 0;
};

/// What came of a control unit, in words. An answer that was accepted and has no content is unusable.
Outcome outcomeOf(const obd::UnitReply& reply, bool hasContent = true);

/// Ends a section about a service of which the control unit has shown nothing to ask for. A unit without any
/// list of the service's identifiers is asked for it once more: it may have refused, or been silent. For
/// services 06, 08 and 09.
void setNotListed(Session& session, const obd::IEcu& ecu, obd::ObdMode mode, Answers& answers,
                  Section& section, const std::string& what);

/// Marks a section that the control unit does not have: "The control unit offers no " and these words.
/// Without a link a unit offers nothing: then it throws what `Session::expectNoLoss` throws.
void setNotOffered(const Session& session, Section& section, const std::string& what);

}  // namespace velmara
