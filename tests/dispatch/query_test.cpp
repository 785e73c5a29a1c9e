#include "dispatch/query.h"

#include "dispatch/fakes.h"
#include "dispatch/fetcher.h"
#include "dispatch/refresher.h"
#include "support/allocations.h"
#include "support/virtualclock.h"

namespace {

using hostos::CTime;
using obd::Dispatcher;
using obd::IQuery;
using FakeRefresher = obd::Refresher<FakeQuery>;
constexpr unsigned int Automatic = obd::IRefresher::AutomaticId;

struct Observer : obd::IRefreshObserver {
  void tell(unsigned int id, bool success, const std::shared_ptr<FakeQuery>& subject) {
    events +=
        "done" + std::to_string(id) + (success ? "+" : "-") + std::to_string(subject->values.size()) + " ";
    onDone();
  }
  void onUpdateStarted() override { events += "started "; }
  void onUpdateFinished() override { events += "finished "; }
  void onUpdateDropped() override { events += "dropped "; }

  std::string take() { return std::exchange(events, std::string()); }

  std::string events;
  std::function<void()> onDone = [] {};
};

class QueryTest : public testing::Test {
 protected:
  QueryTest() { dispatcher.setProxy(std::make_shared<FakeProxy>()); }
  ~QueryTest() override {
    dispatcher.cancel();
    dispatcher.setProxy(nullptr);
  }

  void pump(std::uint32_t time = 100) {
    const std::uint32_t start = CTime::milliseconds();
    while (CTime::milliseconds() - start < time) {
      CTime::msleep(1);
      dispatcher.dispatch();
    }
  }

  std::unique_ptr<FakeRefresher> makeRefresher(const std::shared_ptr<FakeQuery>& query) {
    return std::make_unique<FakeRefresher>(
        query, observer, [to = observer.get()](unsigned int id, bool success, const auto& read) {
          to->tell(id, success, read);
        });
  }

  // Gives the worker something to do, so that it takes up nothing else until time passes.
  void occupyWorker() {
    const auto busy = std::make_shared<FakeQuery>();
    busy->takes = 20;
    m_occupying = std::make_unique<obd::Query<FakeQuery>>(busy);
    m_occupying->dispatch([](bool, const std::shared_ptr<FakeQuery>&) {});
  }

  // What the observer hears of a refresh.
  std::string heard(unsigned int id = Automatic, std::uint32_t time = 100) {
    refresher->refresh(id);
    pump(time);
    return observer->take();
  }

  VirtualClock clock;
  Dispatcher& dispatcher = Dispatcher::getInstance();
  fake::Log log;
  std::shared_ptr<FakeQuery> subject = std::make_shared<FakeQuery>();
  std::shared_ptr<Observer> observer = std::make_shared<Observer>();
  std::unique_ptr<FakeRefresher> refresher = makeRefresher(subject);

 private:
  std::unique_ptr<obd::Query<FakeQuery>> m_occupying;
};

TEST_F(QueryTest, RefreshTellsStartOutcomeAndEndAndCountsFinishedRuns) {
  EXPECT_EQ(refresher->refresh(Automatic), 0U);
  EXPECT_EQ(refresher->refresh(Automatic), 0U);  // absorbed by the run that is on its way
  EXPECT_EQ(refresher->refresh(17), 17U);
  EXPECT_EQ(observer->take(), "started ");
  pump();
  EXPECT_EQ(observer->take(), "done0+1 finished ");
  EXPECT_EQ(subject->updates, 1);
  EXPECT_EQ(heard(17), "started done17+1 finished ");
  EXPECT_EQ(refresher->refresh(Automatic), 2U);
  EXPECT_EQ(subject->clears, 3);
}

TEST_F(QueryTest, ARunThatThrowsOrGetsNothingHasFailed) {
  subject->status = IQuery::NoData;
  EXPECT_EQ(heard(), "started done0-1 finished ");
  subject->onUpdate = []() -> IQuery::UpdateStatus { throw 1; };
  EXPECT_EQ(heard(), "started done1-1 finished ");
  // Who waits for it hears at once, too.
  const std::uint32_t start = CTime::milliseconds();
  EXPECT_FALSE(obd::fetch(subject));
  EXPECT_LT(CTime::milliseconds() - start, 100U);
  EXPECT_EQ(log.count("src\\query 3 Query threw an exception"), 2);
  EXPECT_EQ(log.count("src\\fetcher 2 Future not ready"), 0);
  subject->onUpdate = nullptr;
  subject->status = IQuery::Updated;
  EXPECT_EQ(heard(), "started done2+1 finished ");
  dispatcher.setProxy(nullptr);
  EXPECT_EQ(heard(), "started done3+0 finished ") << "without a proxy the old outcome";
  EXPECT_FALSE(obd::fetch(subject));
  EXPECT_EQ(subject->updates, 4);
}

TEST_F(QueryTest, NothingIsToldAfterCancelOrToADeadObserver) {
  occupyWorker();
  refresher->refresh(Automatic);
  refresher->cancel();
  pump();
  EXPECT_EQ(observer->take(), "started dropped ");
  EXPECT_EQ(subject->updates, 0);

  refresher->refresh(Automatic);
  observer.reset();
  pump();
  EXPECT_EQ(refresher->refresh(Automatic), 0U);  // a run that nobody heard of does not count
}

TEST_F(QueryTest, CancelledAndBegunAnewItIsToldOnceAndEndsTwice) {
  occupyWorker();
  refresher->refresh(1);
  refresher->cancel();
  refresher->refresh(2);
  EXPECT_TRUE(refresher->underWay());
  CTime::msleep(200);
  pump();
  EXPECT_EQ(observer->take(), "started started finished done2+1 finished ");
  EXPECT_EQ(subject->updates, 1) << "the vehicle was asked for what nobody wants";
  EXPECT_FALSE(refresher->underWay());
}

TEST_F(QueryTest, BegunAnewWhileRunningDeliversTheFreshRunOnly) {
  subject->takes = 500;
  refresher->refresh(1);
  pump(50);
  ASSERT_EQ(subject->updates, 1);
  for (unsigned int id = 2; id <= 4; ++id) {
    refresher->cancel();
    refresher->refresh(id);
  }
  EXPECT_EQ(subject->clears, 1);  // the worker has it, so it clears it
  pump(2000);
  EXPECT_EQ(observer->take(), "started started started started finished finished finished done4+1 finished ");
  EXPECT_EQ(subject->updates, 2);
  EXPECT_EQ(subject->clears, 2);
}

TEST_F(QueryTest, ForgottenItEndsForNobodyEvenWhileItIsBeingTold) {
  occupyWorker();
  refresher->refresh(1);
  refresher->cancel();
  refresher->refresh(2);
  refresher->forget();
  refresher->refresh(3);
  pump();
  EXPECT_EQ(observer->take(), "started started started done3+1 finished ");
  observer->onDone = [&, told = 0]() mutable {
    if (++told == 1) {
      refresher->forget();
      refresher->refresh(5);
    }
  };
  EXPECT_EQ(heard(4, 200), "started done4+1 started done5+1 finished ");
}

TEST_F(QueryTest, PollingAllocatesNothing) {
#ifdef VELMARA_SANITIZED
  GTEST_SKIP() << "allocations are not counted";
#endif
  obd::Query<FakeQuery> query(subject);
  subject->values.reserve(1);
  int told = 0;
  for (int i = 0; i < 10; ++i) {
    allocations = 0;
    query.dispatch([&told](bool, const std::shared_ptr<FakeQuery>&) { ++told; });
    int used = allocations;
    CTime::msleep(100);
    allocations = 0;
    dispatcher.dispatch();
    used += allocations;
    EXPECT_TRUE(used == 0 || i == 0) << used;
  }
  EXPECT_EQ(told, 10);
}

TEST_F(QueryTest, ASuccessHoldsTheWorkerForThirtyMilliseconds) {
  const std::tuple<std::uint32_t, IQuery::UpdateStatus, std::uint32_t> paces[] = {
      {12, IQuery::Updated, 30},
      {12, IQuery::NoData, 12},
      {40, IQuery::Updated, 40},
      {0, IQuery::AdapterRefused, 0}};
  for (const auto& [takes, status, holds] : paces) {
    subject->takes = takes;
    subject->status = status;
    const std::uint32_t start = CTime::milliseconds();
    EXPECT_EQ(obd::updateAtPace(*subject, std::make_shared<FakeProxy>()), status == IQuery::Updated);
    EXPECT_EQ(CTime::milliseconds() - start, holds);
  }
}

TEST_F(QueryTest, FetchGivesTheOutcomeOrGivesUpInTime) {
  struct : obd::IDispatchRunner {
    void runDispatch() override { Dispatcher::getInstance().dispatch(); }
  } runner;  // on the worker, where it meets the fetch before that is over
  dispatcher.attach(&runner);
  EXPECT_TRUE(obd::fetch(subject));
  CTime::msleep(1);
  dispatcher.cancel();
  dispatcher.detach(&runner);
  EXPECT_EQ(subject->values.size(), 1U);
  subject->status = IQuery::NoData;
  EXPECT_FALSE(obd::fetch(subject));

  const auto slow = std::make_shared<FakeQuery>();
  slow->takes = 5000;
  const std::uint32_t start = CTime::milliseconds();
  EXPECT_FALSE(obd::fetch(slow));
  EXPECT_EQ(CTime::milliseconds() - start, 1550U);
  EXPECT_EQ(log.count("src\\fetcher 2 Future not ready"), 1);
  // Behind the slow one: never run, although its turn comes.
  EXPECT_FALSE(obd::fetch(subject));
  CTime::msleep(10000);
  EXPECT_EQ(subject->updates, 2);
}

// For ThreadSanitizer: the worker runs while the front end cancels, begins anew, reads and destroys.
TEST_F(QueryTest, SurvivesCancelRefreshAndDestructionAtAnyMoment) {
  subject->onUpdate = [this] {
    for (int i = 0; i < 5; ++i) {
      subject->values.push_back(i);
      std::this_thread::yield();
    }
    return IQuery::NoData;
  };
  for (std::uint32_t i = 0; i < 300; ++i) {
    refresher->refresh(Automatic);
    CTime::msleep(i % 4);
    if (i % 2 == 0) {
      refresher->cancel();
    }
    if (i % 17 == 0) {
      refresher.reset();
      dispatcher.cancel();  // the old run is over, so the subject may have a new owner
      refresher = makeRefresher(subject);
    }
    dispatcher.dispatch();
  }
  EXPECT_NE(observer->take().find("finished"), std::string::npos);
}

}  // namespace
