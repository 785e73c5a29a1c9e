#include <memory>
#include <set>
#include <string>

#include "parameters/dtcparameter.h"
#include "parameters/freezeframetroublecode.h"
#include "powertrain/monitorstatus.h"
#include "services/facade.h"
#include "services/isummaryservice.h"
#include "services/service.h"

namespace obd {

namespace {

// A code that several makes define has several records, and still is one code.
unsigned int countDistinct(const std::vector<std::shared_ptr<DtcDataModel>>& codes) {
  std::set<std::string> distinct;
  for (const std::shared_ptr<DtcDataModel>& code : codes) {
    if (code) {
      distinct.insert(code->code());
    }
  }
  return static_cast<unsigned int>(distinct.size());
}

using Observer = ISummaryServiceObserver;

class SummaryService final : public RefreshingService<ISummaryService, Observer> {
 public:
  using RefreshingService::RefreshingService;

  void init();
  bool refresh() override { return refreshIfConnected(m_refreshers); }

 protected:
  void onConnected() override {}
  void onDisconnected() override { clearAll(); }
  void onEcuChanged() override { clearAll(); }
  void onAllFinished() override { fireEvent(&Observer::refreshDone); }

 private:
  // Tells of the codes, which `count` counts.
  auto tellerOf(unsigned int& count) {
    return [this, &count](unsigned int, bool success, const auto& subject) {
      count = success && ecu() ? countDistinct(subject->getTroubleCodes(*ecu())) : 0;
      fireEvent(&Observer::onCodeCountsUpdated, success, m_confirmedCount, m_pendingCount);
    };
  }
  void tellMonitors(bool success, const MonitorStatus& subject);

  // Another connection or unit starts from the beginning: no run of before counts any more.
  void clearAll() {
    for (const RefresherPtr& refresher : m_refreshers) {
      refresher->forget();
    }
    m_confirmedCount = 0;
    m_pendingCount = 0;
    resetCount();
  }

  Refreshers m_refreshers;
  unsigned int m_confirmedCount = 0;
  unsigned int m_pendingCount = 0;
};

void SummaryService::init() {
  constexpr unsigned char FirstFrame = 0;
  const auto tellFrame = [this](unsigned int, bool success, const auto& subject) {
    const std::shared_ptr<DtcDataModel> code = success && ecu() ? subject->getTroubleCode(*ecu()) : nullptr;
    fireEvent(&Observer::onFreezeFrameUpdated, success, code && !code->code().empty());
  };
  m_refreshers = {makeRefresher<ConfirmedTroubleCodes>(tellerOf(m_confirmedCount)),
                  makeRefresher<PendingTroubleCodes>(tellerOf(m_pendingCount)),
                  makeRefresher<MonitorStatus>([this](unsigned int, bool success, const auto& subject) {
                    tellMonitors(success, *subject);
                  }),
                  makeRefresher<FreezeFrameTroubleCode>(tellFrame, FirstFrame)};
}

void SummaryService::tellMonitors(bool success, const MonitorStatus& subject) {
  unsigned int complete = 0;
  unsigned int incomplete = 0;
  if (success) {
    for (const ObdTest test : applicableTests(subject, ecu().get())) {
      if (subject.isTestAvailable(*ecu(), test)) {
        ++(subject.isTestComplete(*ecu(), test) ? complete : incomplete);
      }
    }
  }
  fireEvent(&Observer::onMonitorCountsUpdated, success, complete, incomplete);
}

}  // namespace

std::shared_ptr<ISummaryService> SummaryServiceBuilder::createSummaryService() {
  return makeService<SummaryService>();
}

}  // namespace obd
