#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <functional>

#include <hostos/time.h>

#include "core/fakevehicle.h"
#include "core/iquery.h"
#include "dispatch/dispatcher.h"

using CapturedLog = fake::Log;

/// A proxy without a vehicle.
struct FakeProxy : fake::Proxy {
  FakeProxy() { result = obd::RequestUnusable; }
};

/// A query that does what the test tells it.
class FakeQuery : public obd::IQuery {
 public:
  UpdateStatus update(const std::shared_ptr<obd::IObdProxy>& /*proxy*/) override {
    ++updates;
    values.push_back(updates);
    hostos::CTime::msleep(takes);
    return onUpdate ? onUpdate() : status;
  }
  void clear() override {
    ++clears;
    values.clear();
  }
  unsigned int timeout() const { return 1500; }

  std::uint32_t takes = 0;  // ms
  UpdateStatus status = Updated;
  std::function<UpdateStatus()> onUpdate;
  std::vector<int> values;  // not atomic on purpose: shows who touches the subject when
  std::atomic<int> updates{0};
  std::atomic<int> clears{0};
};

/// Counts the calls; `dispatch` is the test's own affair.
class CountingRunner : public obd::IDispatchRunner {
 public:
  CountingRunner() { obd::Dispatcher::getInstance().attach(this); }
  CountingRunner(const CountingRunner&) = delete;
  CountingRunner& operator=(const CountingRunner&) = delete;
  ~CountingRunner() override { obd::Dispatcher::getInstance().detach(this); }
  void runDispatch() override { ++calls; }

  std::atomic<int> calls{0};
};
