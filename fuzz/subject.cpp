#include "subject.h"

#include "parameters/calibrationitems.h"
#include "parameters/cleartroublecodes.h"
#include "parameters/dtcparameter.h"
#include "parameters/ecuname.h"
#include "parameters/freezeframetroublecode.h"
#include "parameters/identificationnumber.h"
#include "parameters/monitortestresult.h"
#include "parameters/onboardtest.h"
#include "parameters/oxygensensortestresult.h"
#include "parameters/performancetracking.h"
#include "parameters/supportedoids.h"
#include "powertrain/parameterfactory.h"
#include "target.h"

namespace fuzz {

namespace {

using obd::UnitSystem;
using EcuPtr = std::shared_ptr<obd::IEcu>;

void lookAtValues(obd::PowertrainParameter& parameter, const EcuPtr& ecu) {
  parameter.description(*ecu);
  const std::size_t sensors = parameter.sensorInfo(*ecu).size();
  for (const UnitSystem system : {UnitSystem::Metric, UnitSystem::Imperial}) {
    const auto values = parameter.values(*ecu, system);
    fuzz::require(values.size() <= sensors, "no more values than sensors");
    for (const auto& value : values) {
      fuzz::require(value != nullptr, "a value is there");
      value->textualValue();
    }
  }
}

template <typename T, typename... Arguments>
Subject make(void (*look)(const T&, const EcuPtr&), Arguments... arguments) {
  auto query = std::make_shared<T>(arguments...);
  return {query, [query, look](const EcuPtr& ecu) { look(*query, ecu); }};
}

template <typename T>
Subject codes() {
  return make<T>([](const T& query, const EcuPtr& ecu) {
    for (const auto& code : query.getTroubleCodes(*ecu)) {
      code->code();
      code->description();
    }
  });
}

template <typename T, typename... Arguments>
Subject oids(Arguments... arguments) {
  return make<T>([](const T& query, const EcuPtr& ecu) { query.ids(*ecu); }, arguments...);
}

template <typename T>
Subject counters() {
  return make<T>([](const T& query, const EcuPtr& ecu) {
    for (const auto counter : query.supportedCounters(*ecu)) {
      fuzz::require(query.counterValue(*ecu, counter) != 0, "a counter that is listed counts");
      query.counterDescription(counter);
    }
  });
}

Subject powertrain(const std::shared_ptr<obd::PowertrainParameter>& parameter) {
  return {parameter, [parameter](const EcuPtr& ecu) { lookAtValues(*parameter, ecu); }};
}

Subject record(unsigned int which, unsigned char id, obd::ObdProtocol protocol) {
  switch (which) {
    case 0:
      return codes<obd::ConfirmedTroubleCodes>();
    case 1:
      return codes<obd::PendingTroubleCodes>();
    case 2:
      return codes<obd::PermanentTroubleCodes>();
    case 3:
      return make<obd::ClearTroubleCodes>(
          [](const auto& query, const EcuPtr& ecu) { query.isCleared(*ecu); });
    case 4:
      return powertrain(std::make_shared<obd::FreezeFrameTroubleCode>(id));
    case 5:
      return make<obd::VehicleIdentificationNumber>([](const auto& query, const EcuPtr& ecu) {
        query.vehicleIdentificationNumber(ecu);
        query.vehicleModelYear(ecu);
      });
    case 6:
      return make<obd::EngineSerialNumber>([](const auto& q, const EcuPtr& e) { q.engineSerialNumber(e); });
    case 7:
      return make<obd::Erotan>([](const auto& query, const EcuPtr& ecu) { query.erotan(ecu); });
    case 8:
      return make<obd::CalibrationIds>(
          [](const auto& query, const EcuPtr& ecu) { query.calibrationIds(ecu); });
    case 9:
      return make<obd::CalibrationVerificationNumbers>(
          [](const auto& query, const EcuPtr& ecu) { query.verificationNumbers(ecu); });
    case 10:
      return make<obd::EcuName>([](const auto& query, const EcuPtr& ecu) {
        query.ecuAcronym(*ecu);
        query.ecuText(*ecu);
        query.ecuDescription(*ecu);
      });
    case 11:
      return counters<obd::PerformanceTrackingSpark>();
    case 12:
      return counters<obd::PerformanceTrackingCompression>();
    case 13:
      return make<obd::MonitorTestResult>(
          [](const obd::MonitorTestResult& query, const EcuPtr& ecu) {
            for (const auto& item : query.getItems(*ecu)) {
              item->description();
              for (const UnitSystem system : {UnitSystem::Metric, UnitSystem::Imperial}) {
                for (const auto& test : item->items(system)) {
                  test->description();
                  test->value();
                  test->minLimit();
                  test->maxLimit();
                  test->result();
                  test->unit();
                }
              }
            }
          },
          id);
    case 14:
      return make<obd::OxygenSensorTestResult>(
          [](const obd::OxygenSensorTestResult& query, const EcuPtr& ecu) {
            if (const auto item = query.getResult(ecu)) {
              item->description();
              item->value();
            }
          },
          id, static_cast<obd::OxygenSensorLocation>(id % 13));
    case 15:
      return make<obd::OnBoardTest>(
          [](const obd::OnBoardTest& query, const EcuPtr& ecu) { query.result(*ecu); }, id, protocol);
    case 16:
      return oids<obd::Service01Oids>(id);
    case 17:
      return oids<obd::Service02Oids>(id, static_cast<unsigned char>(id / 32));
    case 18:
      return oids<obd::Service05Oids>(id, static_cast<unsigned char>(1U << (id % 8U)));
    case 19:
      return oids<obd::Service06Oids>(id);
    case 20:
      return oids<obd::Service08Oids>(id, protocol);
    default:
      return oids<obd::Service09Oids>(id);
  }
}

constexpr unsigned int Records = 22;

}  // namespace

Subject chooseSubject(unsigned char kind, unsigned char id, obd::ObdProtocol protocol) {
  obd::ParameterFactory factory;
  if (kind < 0x80) {
    const auto pid = static_cast<obd::ParameterIdentifier::Id>(id % 0x80U);
    const auto parameter =
        kind < 0x60 ? factory.createParameter(pid)
                    : factory.createFreezeFrameParameter(pid, static_cast<unsigned char>(kind - 0x60));
    if (parameter) {
      return powertrain(parameter);
    }
  }
  return record(kind % Records, id, protocol);
}

}  // namespace fuzz
