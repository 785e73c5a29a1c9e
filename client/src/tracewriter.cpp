#include "velmara/client/tracewriter.h"

#include <utility>

#include <hostos/time.h>
#include <simulator/trace.h>

#include "velmara/client/failure.h"

namespace velmara {

using Kind = simulator::TraceEvent::Kind;

TraceWriter::TraceWriter(const std::string& file) : m_file(file, false) {}

TraceWriter::~TraceWriter() = default;

void TraceWriter::sent(const std::vector<unsigned char>& bytes) {
  write(static_cast<int>(Kind::Sent), {bytes.begin(), bytes.end()});
}

void TraceWriter::received(const std::vector<unsigned char>& bytes) {
  write(static_cast<int>(Kind::Received), {bytes.begin(), bytes.end()});
}

void TraceWriter::opened(const std::string& link) {
  write(static_cast<int>(Kind::Opened), link);
}

void TraceWriter::failed(const std::string& why) {
  write(static_cast<int>(Kind::Failed), why);
}

void TraceWriter::closed() {
  write(static_cast<int>(Kind::Closed), {});
}

void TraceWriter::lost(const std::string& how) {
  write(static_cast<int>(Kind::Lost), how);
}

void TraceWriter::baudrate(int rate) {
  write(static_cast<int>(Kind::Baud), std::to_string(rate));
}

std::string TraceWriter::failure() const {
  const std::lock_guard guard(m_mutex);
  return m_failure;
}

// The time is read under the lock, so that it never goes back from line to line.
void TraceWriter::write(int kind, std::string text) {
  const std::lock_guard guard(m_mutex);
  if (!m_failure.empty()) {
    return;
  }
  try {
    if (!m_start) {
      begin();
    }
    m_file.write(simulator::traceLine(
        {static_cast<Kind>(kind), hostos::CTime::microseconds() - *m_start, std::move(text)}));
  } catch (const Failure& failure) {
    m_failure = failure.what();
  }
}

void TraceWriter::begin() {
  m_start = hostos::CTime::microseconds();
  m_file.open();
  m_file.write(simulator::traceHead() + "# Begun on " + hostos::CDateTime::currentDateTime().toString() +
               " by velmara " VELMARA_VERSION "\n");
}

}  // namespace velmara
