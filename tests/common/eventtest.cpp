#include <gmock/gmock.h>
#include <tavrix/eventproducer.h>
#include <tavrix/notifier.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using testing::ElementsAre;

struct IReader {
  virtual ~IReader() = default;
  virtual void onBegin() = 0;
  virtual void onText(bool success, const std::string& text) = 0;
};

class Reader : public IReader {
 public:
  Reader(std::string name, std::vector<std::string>& calls) : m_name(std::move(name)), m_calls(calls) {}
  void onBegin() override {
    m_calls.push_back(m_name);
    if (action) {
      action();
    }
  }
  void onText(bool success, const std::string& text) override {
    m_calls.push_back(m_name + (success ? "+" : "-") + text);
  }
  std::function<void()> action;

 private:
  std::string m_name;
  std::vector<std::string>& m_calls;
};

class Service : public tavrix::Notifier<IReader> {
 public:
  using Notifier::dispatchEvent;
  using Notifier::fireEvent;
};

class NotifierTest : public testing::Test {
 protected:
  std::vector<std::string> calls;
  Reader a{"a", calls};
  Reader b{"b", calls};
  Reader c{"c", calls};
  Service service;
};

TEST_F(NotifierTest, CallsInOrderOnceForEachAttachment) {
  service.fireEvent(&IReader::onBegin);
  EXPECT_TRUE(calls.empty());
  service.attach(&b);
  service.attach(nullptr);
  service.attach(&a);
  service.attach(&b);
  service.fireEvent(&IReader::onText, true, "x");
  EXPECT_THAT(calls, ElementsAre("b+x", "a+x", "b+x"));
  service.detach(&b);
  service.detach(&c);
  calls.clear();
  service.fireEvent(&IReader::onBegin);
  EXPECT_THAT(calls, ElementsAre("a"));
}

TEST_F(NotifierTest, ListMayChangeDuringTheWalk) {
  service.attach(&a);
  service.attach(&b);
  service.attach(&c);
  a.action = [this] { service.detach(&a); };
  service.fireEvent(&IReader::onBegin);
  EXPECT_THAT(calls, ElementsAre("a", "c")) << "b moved up into the place of a and is passed over once";
  calls.clear();
  b.action = [this] {
    b.action = nullptr;
    service.attach(&a);
  };
  a.action = nullptr;
  service.fireEvent(&IReader::onBegin);
  EXPECT_THAT(calls, ElementsAre("b", "c", "a"));
}

TEST_F(NotifierTest, AnObserverMayDestroyTheNotifier) {
  auto gone = std::make_unique<Service>();
  a.action = [&] { gone.reset(); };
  gone->attach(&a);
  gone->attach(&b);
  gone->fireEvent(&IReader::onBegin);
  EXPECT_THAT(calls, ElementsAre("a"));
}

TEST_F(NotifierTest, EventKeepsItsOwnCopies) {
  service.attach(&a);
  std::string text = "first";
  const auto copied = tavrix::makeEvent(&IReader::onText, false, text);
  text = "other";
  const auto fromPointer = tavrix::makeEvent(&IReader::onText, true, text.c_str());
  text = "third";
  service.dispatchEvent(copied);
  service.dispatchEvent(fromPointer);
  EXPECT_THAT(calls, ElementsAre("a-first", "a+other"));
}

// Observer interfaces may inherit a part of their operations.
struct IBookReader : IReader {};
struct BookReader : IBookReader {
  void onBegin() override { ++begun; }
  void onText(bool, const std::string&) override {}
  int begun = 0;
};
struct Library : tavrix::Notifier<IBookReader> {
  using Notifier::fireEvent;
};

TEST(Notifier, InheritedOperation) {
  BookReader reader;
  Library library;
  library.attach(&reader);
  library.fireEvent(&IBookReader::onBegin);
  EXPECT_EQ(reader.begun, 1);
}

enum class Change { Names, Values };

class Listener : public tavrix::IEventListener<Change> {
 public:
  void onEvent(const Change& change) override {
    events.push_back(change);
    if (failing) {
      throw std::runtime_error("listener");
    }
  }
  std::vector<Change> events;
  bool failing = false;
};

class Producer : public tavrix::EventProducer<Change, tavrix::IEventListener<Change>> {
 public:
  using EventProducer::fire;
};

class Log : public tavrix::ITraceLogger {
 public:
  Log() { tavrix::traceLogger() = this; }
  ~Log() override { tavrix::traceLogger() = nullptr; }
  void log(const char* file, int /*line*/, int level, const std::string& message) override {
    lines.push_back(std::string(file) + "|" + std::to_string(level) + "|" + message);
  }
  std::vector<std::string> lines;
};

TEST(EventProducer, ThrowingListenerEndsTheWalkAndIsLogged) {
  Log log;
  Producer producer;
  Listener listeners[3];
  for (Listener& listener : listeners) {
    producer.attach(&listener);
  }
  producer.fire(Change::Names);
  listeners[1].failing = true;
  producer.fire(Change::Values);
  EXPECT_THAT(listeners[0].events, ElementsAre(Change::Names, Change::Values));
  EXPECT_THAT(listeners[1].events, ElementsAre(Change::Names, Change::Values));
  EXPECT_THAT(listeners[2].events, ElementsAre(Change::Names));
  EXPECT_THAT(log.lines, ElementsAre("common\\eventproducer|3|Listener threw an exception"));

  // The lock is free again, and a double entry goes out whole.
  producer.detach(&listeners[1]);
  producer.attach(&listeners[2]);
  producer.detach(&listeners[2]);
  producer.fire(Change::Names);
  EXPECT_EQ(listeners[0].events.size(), 3U);
  EXPECT_EQ(listeners[2].events.size(), 1U);
}

TEST(EventProducer, ListMayChangeWhileOthersFire) {
  struct Counter : tavrix::IEventListener<Change> {
    void onEvent(const Change&) override { ++events; }
    std::atomic<int> events{0};
  };
  Producer producer;
  Counter steady;
  Counter passing;
  producer.attach(&steady);
  std::vector<std::thread> threads;
  for (int i = 0; i < 2; ++i) {
    threads.emplace_back([&] {
      for (int n = 0; n < 500; ++n) {
        producer.fire(Change::Values);
      }
    });
  }
  for (int n = 0; n < 500; ++n) {
    producer.attach(&passing);
    producer.detach(&passing);
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(steady.events, 1000);
}

TEST(EventProducer, AListenerMayAttachDetachAndFireFromWithin) {
  struct Acting : tavrix::IEventListener<Change> {
    void onEvent(const Change& change) override {
      ++events;
      if (action && change == Change::Names) {
        action();
      }
    }
    std::function<void()> action;
    int events = 0;
  };
  Producer producer;
  Acting acting;
  Acting added;
  Acting dropped;
  acting.action = [&] {
    producer.attach(&added);
    producer.detach(&dropped);
    producer.fire(Change::Values);
    producer.detach(&acting);
  };
  producer.attach(&acting);
  producer.attach(&dropped);
  producer.fire(Change::Names);
  EXPECT_EQ(acting.events, 2);
  EXPECT_EQ(dropped.events, 0);
  EXPECT_EQ(added.events, 1);  // of the inner event
  producer.fire(Change::Names);
  EXPECT_EQ(acting.events, 2);
  EXPECT_EQ(added.events, 2);
}

// Taken out by a listener while another thread is just telling it.
TEST(EventProducer, DetachWaitsForTheCallOfAnotherThread) {
  struct Slow : tavrix::IEventListener<Change> {
    void onEvent(const Change&) override {
      if (!entered.exchange(true)) {
        while (!leave) {
          std::this_thread::yield();
        }
        left = true;
      }
    }
    std::atomic<bool> entered{false};
    std::atomic<bool> leave{false};
    std::atomic<bool> left{false};
  };
  struct Detaching : tavrix::IEventListener<Change> {
    void onEvent(const Change& change) override {
      if (change == Change::Names) {
        producer.detach(&slow);
        waited = slow.left;
      }
    }
    Detaching(Producer& itsProducer, Slow& itsSlow) : producer(itsProducer), slow(itsSlow) {}
    Producer& producer;
    Slow& slow;
    bool waited = false;
  };
  Producer producer;
  Slow slow;
  Detaching detaching(producer, slow);
  producer.attach(&detaching);
  producer.attach(&slow);
  std::thread teller([&] { producer.fire(Change::Values); });
  while (!slow.entered) {
    std::this_thread::yield();
  }
  std::thread taker([&] { producer.fire(Change::Names); });
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  slow.leave = true;
  teller.join();
  taker.join();
  EXPECT_TRUE(detaching.waited);
}

// Each of two producers tells a listener that changes the list of the other, on two threads at once.
TEST(EventProducer, ListenersMayChangeEachOthersProducers) {
  struct Crossing : tavrix::IEventListener<Change> {
    explicit Crossing(Producer& itsOther) : other(itsOther) {}
    void onEvent(const Change&) override {
      other.attach(&passing);
      other.detach(&passing);
    }
    struct Nobody : tavrix::IEventListener<Change> {
      void onEvent(const Change&) override {}
    };
    Producer& other;
    Nobody passing;
  };
  Producer left;
  Producer right;
  Crossing fromLeft(right);
  Crossing fromRight(left);
  left.attach(&fromLeft);
  right.attach(&fromRight);
  std::thread another([&] {
    for (int n = 0; n < 2000; ++n) {
      right.fire(Change::Values);
    }
  });
  for (int n = 0; n < 2000; ++n) {
    left.fire(Change::Values);
  }
  another.join();
}

}  // namespace
