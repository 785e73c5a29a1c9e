#pragma once

#include <cstddef>
#include <memory>
#include <set>
#include <span>
#include <vector>

#include "core/iquery.h"
#include "powertrain/groupreply.h"
#include "powertrain/powertrainparameter.h"

namespace obd {

class SharedReplies;

/// One request of service 01 for up to six PIDs, and the calculated values that are worked out from its
/// reply. Each part of the reply goes the way of a reply of its own.
///
/// What to ask for is set before a run, and what came of it is looked at after it, on the front end's thread.
class SensorGroup final : public IQuery {
 public:
  using Parameter = std::shared_ptr<PowertrainParameter>;

  struct Calculated {
    Parameter parameter;
    bool read = false;
    std::set<unsigned char> needs;  ///< the PIDs that it asked for, if it was read
  };

  /// `ecuId` is the selected unit.
  explicit SensorGroup(unsigned int ecuId) : m_ecuId(ecuId) {}

  /// Nothing is to be asked for and worked out any more.
  void reset();
  /// Adds a PID with its parameter, null for what only calculated values need.
  void ask(const PidLength& pid, const Parameter& parameter);
  /// Adds a value to be worked out.
  void calculate(const Parameter& parameter) { m_calculated.push_back({parameter, false, {}}); }

  std::span<const PidLength> asked() const { return m_asked; }
  const Parameter& parameter(unsigned char pid) const;
  const std::vector<Calculated>& calculated() const { return m_calculated; }
  /// PIDs that the selected unit has told in the latest run.
  const std::vector<unsigned char>& told() const { return m_told; }
  /// Those of them whose data could be used.
  const std::vector<unsigned char>& read() const { return m_read; }
  /// Of the reply of the selected unit for a single PID; see `obd::ownLength`.
  std::size_t ownLength() const { return m_ownLength; }

  UpdateStatus update(const std::shared_ptr<IObdProxy>& proxy) override;
  void clear() override;

 private:
  void askOne(const std::shared_ptr<SharedReplies>& replies);
  void askAll(const std::shared_ptr<IObdProxy>& proxy, SharedReplies* replies);
  void take(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& reply,
            SharedReplies* replies);
  void note(unsigned char pid, bool accepted);

  const unsigned int m_ecuId;
  std::vector<PidLength> m_asked;
  std::vector<PidLength> m_askedOthers;  // the same; no length is proven for other control units
  std::vector<Parameter> m_parameters;   // of these, in the same order
  std::vector<Calculated> m_calculated;
  std::vector<unsigned char> m_told;
  std::vector<unsigned char> m_read;
  std::size_t m_ownLength = 0;
  std::vector<unsigned char> m_bytes;  // of a request, and of a reply as if for one PID
  std::vector<GroupPart> m_parts;
};

}  // namespace obd
