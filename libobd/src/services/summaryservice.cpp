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

class SummaryService final
    : public RefreshingService<ISummaryService, ISummaryServiceObserver, ConfirmedTroubleCodes,
                               PendingTroubleCodes, MonitorStatus, FreezeFrameTroubleCode> {
 public:
  using RefreshingService::RefreshingService;

  void init() {
    constexpr unsigned char FirstFrame = 0;
    m_refreshers = {makeRefresher<ConfirmedTroubleCodes>(), makeRefresher<PendingTroubleCodes>(),
                    makeRefresher<MonitorStatus>(), makeRefresher<FreezeFrameTroubleCode>(FirstFrame)};
  }

  bool refresh() override { return refreshIfConnected(m_refreshers); }

  void onUpdateDone(unsigned int /*id*/, bool success,
                    const std::shared_ptr<ConfirmedTroubleCodes>& subject) override {
    tellCodes(success, *subject, m_confirmedCount);
  }
  void onUpdateDone(unsigned int /*id*/, bool success,
                    const std::shared_ptr<PendingTroubleCodes>& subject) override {
    tellCodes(success, *subject, m_pendingCount);
  }
  void onUpdateDone(unsigned int id, bool success, const std::shared_ptr<MonitorStatus>& subject) override;
  void onUpdateDone(unsigned int /*id*/, bool success,
                    const std::shared_ptr<FreezeFrameTroubleCode>& subject) override {
    const std::shared_ptr<DtcDataModel> code = success && ecu() ? subject->getTroubleCode(*ecu()) : nullptr;
    fireEvent(&ISummaryServiceObserver::onFreezeFrameUpdated, success, code && !code->code().empty());
  }

 protected:
  void onConnected() override {}
  void onDisconnected() override { clearAll(); }
  void onEcuChanged() override { clearAll(); }
  void onAllFinished() override { fireEvent(&ISummaryServiceObserver::refreshDone); }

 private:
  void tellCodes(bool success, const DtcParameter& subject, unsigned int& count) {
    count = success && ecu() ? countDistinct(subject.getTroubleCodes(*ecu())) : 0;
    fireEvent(&ISummaryServiceObserver::onCodeCountsUpdated, success, m_confirmedCount, m_pendingCount);
  }

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

void SummaryService::onUpdateDone(unsigned int /*id*/, bool success,
                                  const std::shared_ptr<MonitorStatus>& subject) {
  unsigned int complete = 0;
  unsigned int incomplete = 0;
  if (success) {
    for (const ObdTest test : applicableTests(*subject, ecu().get())) {
      if (subject->isTestAvailable(*ecu(), test)) {
        ++(subject->isTestComplete(*ecu(), test) ? complete : incomplete);
      }
    }
  }
  fireEvent(&ISummaryServiceObserver::onMonitorCountsUpdated, success, complete, incomplete);
}

}  // namespace

std::shared_ptr<ISummaryService> SummaryServiceBuilder::createSummaryService() {
  return makeService<SummaryService>();
}

}  // namespace obd
