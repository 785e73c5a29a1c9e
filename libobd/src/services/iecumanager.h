#pragma once

#include <memory>
#include <string>
#include <vector>

#include <tavrix/eventproducer.h>
#include <tavrix/export.h>

#include "core/iecu.h"
#include "powertrain/parameterdescriptor.h"

namespace obd {

enum class EcuManagerEvent : int { EcuListChanged = 0, SelectedEcuChanged = 1 };

/// The control units of the connection, the selected one, and what sensors each offers: what is known since
/// the connection opened, so that no call waits for the vehicle. For the front end's thread.
class VELMARA_EXPORT IEcuManager
    : public virtual tavrix::IEventProducer<EcuManagerEvent, tavrix::IEventListener<EcuManagerEvent>> {
 public:
  /// Selects a control unit; an unknown identifier selects none. Listeners are told in every case, and with
  /// them the observers of services, before it returns.
  virtual void selectEcu(unsigned int id) = 0;
  /// Appends the identifier of each control unit, in list order.
  virtual void ecuIds(std::vector<unsigned int>& ids) = 0;
  virtual std::vector<std::shared_ptr<IEcu>> ecus() = 0;
  /// Empty for an unknown identifier.
  virtual std::string ecuName(unsigned int id) = 0;
  virtual std::string ecuDescription(unsigned int id) = 0;
  /// What the control unit offers: its own sensors in ascending order, then the calculated ones.
  virtual std::vector<std::shared_ptr<ParameterDescriptor>> sensors(unsigned int id) = 0;
  /// The selected control unit; null if there is none.
  virtual std::shared_ptr<IEcu> currentEcu() = 0;
};

}  // namespace obd
