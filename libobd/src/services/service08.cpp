#include <map>
#include <memory>

#include <tavrix/tracelog.h>

#include "core/identifiers.h"
#include "dispatch/fetcher.h"
#include "parameters/onboardtest.h"
#include "services/facade.h"
#include "services/iservice08.h"
#include "services/service.h"

namespace obd {

using tavrix::LogStream;

namespace {

constexpr const char* Source = "src\\service08";
constexpr unsigned char LastKnownTid = 3;
constexpr int LargestTid = 0xFF;

std::shared_ptr<TestRoutineDataModel> makeModel(const IEcu& ecu, const OnBoardTest& test) {
  const OnBoardTest::TestResult result = test.result(ecu);
  auto model =
      std::make_shared<TestRoutineDataModel>(test.tid(), static_cast<TestRoutineDataModel::Result>(result));
  if (result == OnBoardTest::Refused) {
    model->setNackReason(test.nack());
  }
  return model;
}

class Service08 final : public RefreshingService<IService08, IService08Observer> {
 public:
  using RefreshingService::RefreshingService;

  void init() {
    if (isConnected()) {
      buildTests();
    }
  }

  bool isSupported() override { return isConnected() && !m_tests.empty(); }
  Tests tests() override { return models(true); }
  bool startTest(int tid) override;
  Tests availableTests() override { return models(false); }
  std::shared_ptr<TestRoutineDataModel> runTest(int tid) override;

 protected:
  void onConnected() override {
    forgetTests();
    buildTests();
  }
  void onDisconnected() override {
    forgetTests();
    dropRetired();
  }
  void onEcuChanged() override {
    forgetTests();
    buildTests();
    fireEvent(&IService08Observer::onInvalidated);
  }
  void onAllFinished() override { fireEvent(&IService08Observer::onRefreshDone); }

 private:
  Tests models(bool withResults);
  void buildTests();
  void forgetTests() {
    Refreshers refreshers;
    for (auto& [tid, test] : m_tests) {
      refreshers.push_back(std::move(test.refresher));
    }
    retire(refreshers);
    m_tests.clear();
    silenceBatch();
  }

  struct Test {
    std::shared_ptr<OnBoardTest> query;
    RefresherPtr refresher;
  };
  std::map<int, Test> m_tests;  // by test id
};

void Service08::buildTests() {
  if (!ecu()) {
    return;
  }
  const auto tell = [this](unsigned int, bool success, const auto& subject) {
    fireEvent(&IService08Observer::onTestUpdated, success, ecu() ? makeModel(*ecu(), *subject) : nullptr);
  };
  for (const unsigned char tid : supportedIdentifiers(*ecu(), ObdMode::Mode08)) {
    if (tid <= LastKnownTid) {
      const auto query = std::make_shared<OnBoardTest>(tid, ecu()->protocol());
      m_tests.insert_or_assign(tid, Test{query, makeRefresherOn(query, tell)});
    }
  }
}

// Of the tests on offer.
IService08::Tests Service08::models(bool withResults) {
  Tests models;
  if (hasUnit()) {
    for (const auto& [tid, test] : m_tests) {
      const OnBoardTest fresh(test.query->tid(), ecu()->protocol());
      models.push_back(makeModel(*ecu(), withResults ? *test.query : fresh));
    }
  }
  return models;
}

bool Service08::startTest(int tid) {
  if (!isConnected()) {
    return false;
  }
  const auto found = m_tests.find(tid);
  if (found == m_tests.end()) {
    LogStream(Source, __LINE__, 2) << "Failed to find test for TID " << tid;
    return false;
  }
  return refreshIfConnected(found->second.refresher);
}

std::shared_ptr<TestRoutineDataModel> Service08::runTest(int tid) {
  // A number that is no byte must not be cut down to the test of another.
  if (!hasUnit() || tid < 0 || tid > LargestTid) {
    return nullptr;
  }
  const auto test = std::make_shared<OnBoardTest>(static_cast<unsigned char>(tid), ecu()->protocol());
  fetch(test);  // the test itself knows how it fared
  return makeModel(*ecu(), *test);
}

}  // namespace

std::shared_ptr<IService08> Service08Builder::createService08() {
  return makeService<Service08>();
}

}  // namespace obd
