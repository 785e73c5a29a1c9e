#include "services/sensorgroup.h"

#include <algorithm>

#include "services/sharedreplies.h"

namespace obd {

namespace {

constexpr unsigned char LiveData = 0x01;
constexpr unsigned char LiveDataReply = LiveData + 0x40;
constexpr unsigned int Timeout = 1500;  // ms, as for one PID

}  // namespace

void SensorGroup::reset() {
  m_asked.clear();
  m_askedOthers.clear();
  m_parameters.clear();
  m_calculated.clear();
}

void SensorGroup::ask(const PidLength& pid, const Parameter& parameter) {
  m_asked.push_back(pid);
  m_askedOthers.push_back({pid.pid, pid.bytes, false});
  m_parameters.push_back(parameter);
}

const SensorGroup::Parameter& SensorGroup::parameter(unsigned char pid) const {
  const auto found = std::ranges::find(m_asked, pid, &PidLength::pid);
  return m_parameters[static_cast<std::size_t>(found - m_asked.begin())];
}

void SensorGroup::clear() {
  m_told.clear();
  m_read.clear();
  m_ownLength = 0;
  for (const Parameter& parameter : m_parameters) {
    if (parameter) {
      parameter->clear();
    }
  }
  for (const Calculated& calculated : m_calculated) {
    calculated.parameter->clear();
  }
}

IQuery::UpdateStatus SensorGroup::update(const std::shared_ptr<IObdProxy>& proxy) {
  // Without calculated values nobody looks at replies a second time.
  const bool single = m_asked.size() == 1;
  const auto replies =
      single || !m_calculated.empty() ? std::make_shared<SharedReplies>(proxy, m_ecuId) : nullptr;
  if (single) {
    askOne(replies);
  } else if (!m_asked.empty()) {
    askAll(proxy, replies.get());
  }
  bool any = !m_told.empty();
  for (Calculated& calculated : m_calculated) {
    replies->beginReader();
    calculated.read = calculated.parameter->update(replies) == Updated;
    calculated.needs = replies->asked();
    any = any || calculated.read;
  }
  return any ? Updated : NoData;
}

// Nothing but the very request that is made without groups.
void SensorGroup::askOne(const std::shared_ptr<SharedReplies>& replies) {
  const unsigned char pid = m_asked.front().pid;
  const Parameter& parameter = m_parameters.front();
  bool accepted = true;
  if (parameter) {
    accepted = parameter->update(replies) == Updated;
  } else {
    ResponseMap responses;
    replies->sendRequest({LiveData, pid}, responses, Timeout);
  }
  const std::vector<unsigned char>* const reply = replies->find(pid, m_ecuId);
  if (reply != nullptr && reply->size() > 2 && (*reply)[0] == LiveDataReply && (*reply)[1] == pid) {
    note(pid, accepted);
    m_ownLength = obd::ownLength(pid, *reply);
  }
}

void SensorGroup::askAll(const std::shared_ptr<IObdProxy>& proxy, SharedReplies* replies) {
  m_bytes = {LiveData};
  for (const PidLength& one : m_asked) {
    m_bytes.push_back(one.pid);
  }
  ResponseMap responses;
  if (proxy->sendRequest(m_bytes, responses, Timeout) != RequestAnswered) {
    return;
  }
  for (const auto& [id, reply] : responses) {
    if (const std::shared_ptr<IEcu> ecu = proxy->ecu(static_cast<unsigned int>(id))) {
      take(ecu, reply, replies);
    }
  }
}

void SensorGroup::take(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& reply,
                       SharedReplies* replies) {
  const bool isSelected = ecu->id() == m_ecuId;
  if (!takeApart(isSelected ? m_asked : m_askedOthers, reply, m_parts)) {
    return;
  }
  for (const GroupPart& part : m_parts) {
    m_bytes = {LiveDataReply, part.pid};
    m_bytes.insert(m_bytes.end(), part.data.begin(), part.data.end());
    const Parameter& itsParameter = parameter(part.pid);
    const bool accepted = !itsParameter || itsParameter->setResponseData(ecu, m_bytes);
    if (isSelected) {
      note(part.pid, accepted);
    }
    if (replies != nullptr) {
      replies->put(part.pid, ecu->id(), m_bytes);
    }
  }
}

void SensorGroup::note(unsigned char pid, bool accepted) {
  m_told.push_back(pid);
  if (accepted) {
    m_read.push_back(pid);
  }
}

}  // namespace obd
