#include "link/bluetoothsearch.h"

#include <gtest/gtest.h>

namespace {

using Calls = std::vector<std::string>;

// A stack whose inquiry does only what the test says; `calls` collects what it is asked for.
struct FakeStack : hostos::IBluetoothStack {
  struct Search : hostos::IDeviceSearch {
    explicit Search(FakeStack& owner) : stack(owner) {}
    ~Search() override { stack.calls.emplace_back("delete"); }
    void setListener(hostos::IBluetoothListener* its) override {
      stack.listener = its;
      stack.calls.emplace_back(its != nullptr ? "listen" : "detach");
    }
    bool start() override {
      stack.calls.emplace_back("start");
      return stack.starts;
    }
    void stop() override { stack.calls.emplace_back("stop"); }
    void cancel() override { stack.calls.emplace_back("cancel"); }
    FakeStack& stack;
  };

  hostos::IDeviceSearch* createDeviceSearch() override { return new Search(*this); }
  void find(const std::string& name) const { listener->onDeviceFound(name, "00:1D:A5:68:98:8B", 1); }
  Calls taken() { return std::exchange(calls, {}); }

  bool starts = true;
  hostos::IBluetoothListener* listener = nullptr;
  Calls calls;
};

struct Observer : obd::IBluetoothObserver {
  Observer(std::string mark, Calls& target) : name(std::move(mark)), calls(target) {}
  void onSearchStarted() override { calls.push_back(name + " started"); }
  void onDeviceFound(const std::string& device, const std::string& address, int port) override {
    calls.push_back(name + " found " + device + " " + address + " " + std::to_string(port));
  }
  void onSearchDone() override { calls.push_back(name + " done"); }
  std::string name;
  Calls& calls;
};

class BluetoothSearch : public testing::Test {
 protected:
  BluetoothSearch() {
    search->attachObserver(&a);
    search->attachObserver(&b);
    stack.taken();
  }

  FakeStack stack;
  Observer a{"a", stack.calls};
  Observer b{"b", stack.calls};
  std::unique_ptr<obd::BluetoothSearch> search = std::make_unique<obd::BluetoothSearch>(&stack);
};

TEST_F(BluetoothSearch, passesOnWhatTheInquiryFinds) {
  stack.find("early");  // nobody has asked yet
  EXPECT_TRUE(search->startScan());
  EXPECT_EQ(stack.taken(), (Calls{"start", "a started", "b started"}));
  stack.find("V-LINK");
  stack.find("V-LINK");  // as often as it is reported
  const std::string found = " found V-LINK 00:1D:A5:68:98:8B 1";
  EXPECT_EQ(stack.taken(), (Calls{"a" + found, "b" + found, "a" + found, "b" + found}));
  search->attachObserver(&a);
  search->detachObserver(&a);  // the first of the two
  stack.listener->onSearchDone();
  EXPECT_EQ(stack.taken(), (Calls{"b done", "a done"}));
  EXPECT_TRUE(search->startScan());  // the inquiry is over, so there is a new one
  EXPECT_EQ(stack.taken(), (Calls{"start", "b started", "a started"}));
}

TEST_F(BluetoothSearch, staysSilentIfTheInquiryDoesNotStart) {
  stack.starts = false;
  EXPECT_FALSE(search->startScan());
  EXPECT_FALSE(search->startScan());  // tried again, as none is under way
  search.reset();
  EXPECT_EQ(stack.taken(), (Calls{"start", "start", "detach", "delete"}));
}

TEST_F(BluetoothSearch, dropsResultsAfterStop) {
  search->detachObserver(&b);
  search->startScan();
  EXPECT_TRUE(search->startScan());
  search->stopScan();
  stack.find("late");
  EXPECT_EQ(stack.taken(), (Calls{"start", "a started", "a started", "stop", "a done"}));
  EXPECT_TRUE(search->startScan());  // still the same inquiry, and wanted again
  stack.find("V-LINK");
  EXPECT_EQ(stack.taken(), (Calls{"a started", "a found V-LINK 00:1D:A5:68:98:8B 1"}));
  search.reset();
  EXPECT_EQ(stack.taken(), (Calls{"detach", "cancel", "delete"}));
}

}  // namespace
