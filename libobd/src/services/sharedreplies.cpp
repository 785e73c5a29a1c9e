#include "services/sharedreplies.h"

namespace obd {

const std::vector<unsigned char>* SharedReplies::find(unsigned char pid, unsigned int ecuId) const {
  const auto replies = m_replies.find(pid);
  if (replies == m_replies.end()) {
    return nullptr;
  }
  const auto reply = replies->second.find(static_cast<int>(ecuId));
  return reply == replies->second.end() ? nullptr : &reply->second;
}

int SharedReplies::sendRequest(const std::vector<unsigned char>& request, ResponseMap& responses,
                               unsigned int timeout) {
  constexpr unsigned char LiveData = 0x01;
  if (request.size() != 2 || request.front() != LiveData) {
    return m_proxy->sendRequest(request, responses, timeout);
  }
  const unsigned char pid = request.back();
  const bool fresh = m_asked.insert(pid).second;
  if (fresh && find(pid, m_ecuId) != nullptr) {
    responses = m_replies.at(pid);
    return RequestAnswered;
  }
  const int result = m_proxy->sendRequest(request, responses, timeout);
  if (result == RequestAnswered) {
    m_replies[pid] = responses;
  }
  return result;
}

}  // namespace obd
