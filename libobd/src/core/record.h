#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "core/ecumap.h"
#include "core/obdparameter.h"
#include "core/request.h"
#include "core/saeframes.h"

namespace obd {

/// Notes in the log, as `source`, that a reply has a wrong size. Always false.
VELMARA_EXPORT bool refuseByteCount(const char* source, int level, std::size_t count);

/// A query whose replies make records, in one layout on CAN and mostly in another one, of frames, before it.
class VELMARA_EXPORT RecordQuery : public ObdParameter {
 protected:
  /// `source` is the name of log lines; not copied.
  RecordQuery(const Request& request, const char* source) : ObdParameter(request), m_source(source) {}

  const char* source() const { return m_source; }

  bool fromBytes(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) override;
  /// Digests the reply of a unit on CAN, signature included. True if it was usable.
  virtual bool fromCan(unsigned int ecuId, const std::vector<unsigned char>& reply) = 0;
  /// Likewise before CAN; the same as on CAN unless a class says otherwise.
  virtual bool fromFrames(unsigned int ecuId, const std::vector<unsigned char>& reply) {
    return fromCan(ecuId, reply);
  }

  /// The frames of a reply, with or without checksums as its size and signatures tell. Nothing, with a line
  /// in the log, for a reply that is none; one that is too short is logged as `shortText` and its size.
  std::optional<SaeFrames> findFrames(const std::vector<unsigned char>& reply, int shortLevel,
                                      const char* shortText = "Invalid number of data bytes: ") const;
  /// The frames of a reply in which each item takes `perItem` frames; the size alone tells of checksums.
  /// Nothing, with a line in the log, for one that has not whole items or not the signature everywhere.
  std::optional<SaeFrames> findFramesOfItems(const std::vector<unsigned char>& reply, std::size_t perItem,
                                             int sizeLevel) const;

 private:
  const char* m_source;
};

/// Such a query with one `T` by control unit.
template <typename T>
class VELMARA_EXPORT Record : public RecordQuery {
 public:
  void clear() override { m_records.clear(); }

 protected:
  using RecordQuery::RecordQuery;

  EcuMap<T>& records() { return m_records; }
  const EcuMap<T>& records() const { return m_records; }
  /// What is known of a unit; `T()`, with a line in the log, if nothing is.
  T recordOf(const IEcu& ecu) const { return m_records.findOrLog(ecu.id(), source()).value_or(T()); }

 private:
  EcuMap<T> m_records;
};

}  // namespace obd
