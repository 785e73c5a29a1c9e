#include <gmock/gmock.h>
#include <tavrix/eventproducer.h>
#include <tavrix/notifier.h>

#include <atomic>
#include <stdexcept>
#include <thread>

namespace {

using testing::ElementsAre;

struct IBegin {
  virtual ~IBegin() = default;
  virtual void onBegin() = 0;
};
// Observer interfaces may inherit a part of their operations.
struct IReader : IBegin {
  virtual void onText(bool success, const std::string& text) = 0;
};

struct Reader : IReader {
  Reader(std::string itsName, std::vector<std::string>& itsCalls)
      : name(std::move(itsName)), calls(itsCalls) {}
  void onBegin() override { calls.push_back(name); }
  void onText(bool success, const std::string& text) override {
    calls.push_back(name + (success ? "+" : "-") + text);
  }
  std::string name;
  std::vector<std::string>& calls;
};

struct Service : tavrix::Notifier<IReader> {
  using Notifier::dispatchEvent;
  using Notifier::fireEvent;
};

TEST(Notifier, CallsInOrderOnceForEachAttachment) {
  std::vector<std::string> calls;
  Reader a{"a", calls}, b{"b", calls}, c{"c", calls};
  Service service;
  service.fireEvent(&IReader::onBegin);
  EXPECT_TRUE(calls.empty());
  for (Reader* reader : {&b, static_cast<Reader*>(nullptr), &a, &b}) {
    service.attach(reader);
  }
  service.fireEvent(&IReader::onText, true, "x");
  EXPECT_THAT(calls, ElementsAre("b+x", "a+x", "b+x"));
  service.detach(&b);
  service.detach(&c);
  calls.clear();
  service.fireEvent(&IReader::onBegin);
  EXPECT_THAT(calls, ElementsAre("a"));
  // An event keeps copies of its own.
  std::string text = "first";
  const auto copied = tavrix::makeEvent(&IReader::onText, false, text);
  text = "other";
  const auto fromPointer = tavrix::makeEvent(&IReader::onText, true, text.c_str());
  text = "third";
  calls.clear();
  service.dispatchEvent(copied);
  service.dispatchEvent(fromPointer);
  EXPECT_THAT(calls, ElementsAre("a-first", "a+other"));
}

enum class Change { Names, Values };

struct Listener : tavrix::IEventListener<Change> {
  explicit Listener(std::function<void(Change)> itsAction = {}) : action(std::move(itsAction)) {}
  void onEvent(const Change& change) override {
    ++events;
    if (action) {
      action(change);
    }
  }
  std::atomic<int> events{0};
  std::function<void(Change)> action;
};

struct Producer : tavrix::EventProducer<Change, tavrix::IEventListener<Change>> {
  using EventProducer::fire;
};

struct Log : tavrix::ITraceLogger {
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
  Listener first, last;
  Listener throwing([](Change change) {
    if (change == Change::Values) {
      throw std::runtime_error("listener");
    }
  });
  for (Listener* listener : {&first, &throwing, &last}) {
    producer.attach(listener);
  }
  producer.fire(Change::Names);
  producer.fire(Change::Values);
  EXPECT_EQ(first.events, 2);
  EXPECT_EQ(throwing.events, 2);
  EXPECT_EQ(last.events, 1);
  EXPECT_THAT(log.lines, ElementsAre("common\\eventproducer|3|Listener threw an exception"));
  // The lock is free again, and a double entry goes out whole.
  producer.detach(&throwing);
  producer.attach(&last);
  producer.detach(&last);
  producer.fire(Change::Names);
  EXPECT_EQ(first.events, 3);
  EXPECT_EQ(last.events, 1);
}

TEST(EventProducer, AListenerMayAttachDetachAndFireFromWithin) {
  Producer producer;
  Listener added, dropped, acting;
  acting.action = [&](Change change) {
    if (change == Change::Names) {
      producer.attach(&added);
      producer.detach(&dropped);
      producer.fire(Change::Values);
      producer.detach(&acting);
    }
  };
  producer.attach(&acting);
  producer.attach(&dropped);
  producer.fire(Change::Names);
  EXPECT_EQ(added.events, 1) << "of the inner event";
  producer.fire(Change::Names);
  EXPECT_EQ(acting.events, 2);
  EXPECT_EQ(dropped.events, 0);
  EXPECT_EQ(added.events, 2);
}

// Taken out by a listener while another thread is just telling it.
TEST(EventProducer, DetachWaitsForTheCallOfAnotherThread) {
  std::atomic<bool> entered{false}, leave{false}, left{false};
  bool waited = false;
  Producer producer;
  Listener slow([&](Change) {
    if (!entered.exchange(true)) {
      while (!leave) {
        std::this_thread::yield();
      }
      left = true;
    }
  });
  Listener detaching([&](Change change) {
    if (change == Change::Names) {
      producer.detach(&slow);
      waited = left;
    }
  });
  producer.attach(&detaching);
  producer.attach(&slow);
  std::thread teller([&] { producer.fire(Change::Values); });
  while (!entered) {
    std::this_thread::yield();
  }
  std::thread taker([&] { producer.fire(Change::Names); });
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  leave = true;
  teller.join();
  taker.join();
  EXPECT_TRUE(waited);
}

// Each of two producers tells a listener that changes the list of the other, on two threads at once.
TEST(EventProducer, ListenersMayChangeEachOthersProducers) {
  Producer left, right;
  Listener passing;
  const auto changing = [&passing](Producer& other) {
    return [&passing, &other](Change) {
      other.attach(&passing);
      other.detach(&passing);
    };
  };
  Listener fromLeft(changing(right));
  Listener fromRight(changing(left));
  left.attach(&fromLeft);
  right.attach(&fromRight);
  const auto fireOften = [](Producer& producer) {
    for (int i = 0; i < 2000; ++i) {
      producer.fire(Change::Values);
    }
  };
  std::thread another([&] { fireOften(right); });
  fireOften(left);
  another.join();
}

}  // namespace
