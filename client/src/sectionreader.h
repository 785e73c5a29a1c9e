#pragma once

#include <memory>

#include "answers.h"
#include "services/iobdvelmara.h"

namespace velmara {

using EcuPtr = std::shared_ptr<obd::IEcu>;

/// Selects a control unit and gives the library's object for it. Throws `Failure` if there is none.
EcuPtr selectEcu(Session& session, const ControlUnit& unit);

/// Listens to a service of its own about a control unit, which it selects. The road is clear when it is made,
/// so that what it asks fits into the queue.
template <typename Service, typename Observer>
class SectionReader : protected Observer {
 public:
  using CreateService = std::shared_ptr<Service> (*)();

  SectionReader(Session& itsSession, const ControlUnit& unit, const ReadOptions& options, const char* section,
                CreateService create)
      : m_session(itsSession), m_ecu(selectEcu(itsSession, unit)), m_answers(itsSession, options, section) {
    m_answers.clearRoad();
    m_service = create();
    m_service->attach(this);
  }
  ~SectionReader() override { m_service->detach(this); }
  SectionReader(const SectionReader&) = delete;
  SectionReader& operator=(const SectionReader&) = delete;

 protected:
  Session& session() const { return m_session; }
  const obd::IEcu& ecu() const { return *m_ecu; }
  Service& service() { return *m_service; }
  Answers& answers() { return m_answers; }
  const Answers& answers() const { return m_answers; }

 private:
  Session& m_session;
  EcuPtr m_ecu;
  Answers m_answers;
  std::shared_ptr<Service> m_service;
};

}  // namespace velmara
