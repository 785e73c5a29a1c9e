#pragma once

#include <memory>

#include "core/iquery.h"

namespace obd {

/// Lets a control unit find out what a freeze frame holds.
class FreezeFrameConfigurationQuery final : public IQuery {
 public:
  FreezeFrameConfigurationQuery(unsigned int ecuId, unsigned char frame) : m_ecuId(ecuId), m_frame(frame) {}

  UpdateStatus update(const std::shared_ptr<IObdProxy>& proxy) override {
    const std::shared_ptr<IEcu> ecu = proxy->ecu(m_ecuId);
    return ecu && ecu->detectFreezeFrameConfiguration(m_frame) ? Updated : NoData;
  }
  void clear() override {}

  unsigned char frame() const { return m_frame; }

 private:
  unsigned int m_ecuId;
  unsigned char m_frame;
};

}  // namespace obd
