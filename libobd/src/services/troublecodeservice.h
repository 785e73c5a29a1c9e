#pragma once

#include <memory>
#include <vector>

#include "parameters/cleartroublecodes.h"
#include "parameters/dtcparameter.h"
#include "parameters/freezeframetroublecode.h"
#include "powertrain/monitorstatus.h"
#include "powertrain/pidparameters.h"
#include "services/freezeframeconfigurationquery.h"
#include "services/freezeframewalk.h"
#include "services/itroublecodeservice.h"
#include "services/service.h"

namespace obd {

class TroubleCodeService final
    : public RefreshingService<ITroubleCodeService, ITroubleCodeServiceObserver, ConfirmedTroubleCodes,
                               PendingTroubleCodes, PermanentTroubleCodes, ClearTroubleCodes,
                               FreezeFrameTroubleCode, PowertrainParameter, MonitorStatus, DistanceTraveled,
                               EngineRuntimeDtc, MilDistance, EngineRuntimeMil,
                               FreezeFrameConfigurationQuery> {
 public:
  using RefreshingService::RefreshingService;
  ~TroubleCodeService() override;

  /// Makes the refreshers, which need a shared owner of this object.
  void init();

  bool refreshMilStatus() override;
  bool refreshConfirmedCodes() override;
  bool refreshPendingCodes() override;
  bool refreshPermanentCodes() override;
  bool clearCodes() override;
  unsigned int refreshFreezeFrames() override;

  Codes readConfirmedCodes() override;
  Codes readPendingCodes() override;
  Codes readPermanentCodes() override;
  std::shared_ptr<MilStatus> readMilStatus() override;
  std::shared_ptr<SensorDataModel> readDistance(bool sinceFault) override;
  std::shared_ptr<SensorDataModel> readRuntime(bool sinceFault) override;
  std::shared_ptr<DtcDataModel> readFreezeFrameCode() override;
  std::vector<int> readFreezeFrameIdentifiers() override;
  std::vector<std::shared_ptr<SensorDataModel>> readFreezeFrameSensors(int identifier) override;
  bool clearCodesNow() override;

  void onUpdateDone(unsigned int id, bool success,
                    const std::shared_ptr<ConfirmedTroubleCodes>& subject) override;
  void onUpdateDone(unsigned int id, bool success,
                    const std::shared_ptr<PendingTroubleCodes>& subject) override;
  void onUpdateDone(unsigned int id, bool success,
                    const std::shared_ptr<PermanentTroubleCodes>& subject) override;
  void onUpdateDone(unsigned int id, bool success,
                    const std::shared_ptr<ClearTroubleCodes>& subject) override;
  void onUpdateDone(unsigned int id, bool success,
                    const std::shared_ptr<FreezeFrameTroubleCode>& subject) override;
  void onUpdateDone(unsigned int id, bool success,
                    const std::shared_ptr<PowertrainParameter>& subject) override;
  void onUpdateDone(unsigned int id, bool success, const std::shared_ptr<MonitorStatus>& subject) override;
  void onUpdateDone(unsigned int id, bool success, const std::shared_ptr<DistanceTraveled>& subject) override;
  void onUpdateDone(unsigned int id, bool success, const std::shared_ptr<EngineRuntimeDtc>& subject) override;
  void onUpdateDone(unsigned int id, bool success, const std::shared_ptr<MilDistance>& subject) override;
  void onUpdateDone(unsigned int id, bool success, const std::shared_ptr<EngineRuntimeMil>& subject) override;
  void onUpdateDone(unsigned int id, bool success,
                    const std::shared_ptr<FreezeFrameConfigurationQuery>& subject) override;

 protected:
  void onConnected() override {}
  void onDisconnected() override;
  void onEcuChanged() override;
  void onUnitSystemChanged() override;
  void onAllFinished() override;

 private:
  using SensorEvent = void (ITroubleCodeServiceObserver::*)(bool, const std::shared_ptr<SensorDescriptor>&,
                                                            const std::shared_ptr<SensorValue>&);
  using CodesEvent = void (ITroubleCodeServiceObserver::*)(bool, const Codes&);

  void refreshIfSupported(unsigned char pid, const RefresherPtr& refresher);
  void fireCodes(CodesEvent event, bool success, const DtcParameter& subject);
  void fireSensor(SensorEvent event, bool success, const std::shared_ptr<PowertrainParameter>& subject);
  template <typename T>
  Codes readCodes();
  std::shared_ptr<SensorDataModel> readSensor(const std::shared_ptr<PowertrainParameter>& parameter);
  void codesCleared();
  void cancelAll();

  RefresherPtr m_confirmedRefresher;
  RefresherPtr m_pendingRefresher;
  RefresherPtr m_permanentRefresher;
  RefresherPtr m_clearRefresher;
  RefresherPtr m_milRefresher;
  FreezeFrameWalk m_walk;
  RefresherPtr m_distanceSinceResetRefresher;
  RefresherPtr m_runtimeSinceResetRefresher;
  RefresherPtr m_distanceSinceFaultRefresher;
  RefresherPtr m_runtimeSinceFaultRefresher;
};

}  // namespace obd
