#pragma once

#include <span>
#include <vector>

#include "core/obdparameter.h"

namespace velmara {

/// Asks what a query of the library asks, and keeps the replies of all control units as they came.
class RawRequest : public obd::IQuery {
 public:
  explicit RawRequest(const obd::ObdParameter& query) : m_timeout(query.timeout()) {
    query.requestData(m_request);
  }

  UpdateStatus update(const std::shared_ptr<obd::IObdProxy>& proxy) override {
    clear();
    return proxy->sendRequest(m_request, m_replies, m_timeout) == obd::RequestAnswered ? Updated : NoData;
  }
  void clear() override { m_replies.clear(); }

  /// Empty for a unit that did not answer.
  std::span<const unsigned char> replyOf(unsigned int unit) const {
    const auto reply = m_replies.find(static_cast<int>(unit));
    return reply == m_replies.end() ? std::span<const unsigned char>() : reply->second;
  }

 private:
  std::vector<unsigned char> m_request;
  const unsigned int m_timeout;
  obd::ResponseMap m_replies;
};

}  // namespace velmara
