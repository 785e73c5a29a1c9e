#pragma once

#include <cstddef>
#include <memory>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include <tavrix/export.h>

namespace tavrix {

/// An object that implements the observer interface `T`.
template <typename T>
using Observer = T;

/// Where observers of type `T` sign on. Always inherited virtually. For one thread: the one that calls
/// `Dispatcher::dispatch`.
template <typename T>
class VELMARA_EXPORT INotifier {
 public:
  virtual ~INotifier() = default;
  /// Adds an observer, which stays the caller's. An observer attached twice is called twice.
  virtual void attach(Observer<T>* observer) = 0;
  /// Takes out every entry of this observer; unknown observers are ignored.
  virtual void detach(Observer<T>* observer) = 0;
};

/// One call to an observer, kept with copies of its arguments.
template <typename T>
class AbstractEvent {
 public:
  virtual ~AbstractEvent() = default;
  virtual void apply(Observer<T>* observer) const = 0;
};

/// A member function of `T` with the arguments to call it with. Arguments are held by value, so that an
/// event may outlive what it was made from.
template <typename T, typename Method, typename... Arguments>
class Event : public AbstractEvent<T> {
 public:
  template <typename... Values>
  explicit Event(Method method, Values&&... values)
      : m_method(method), m_arguments(std::forward<Values>(values)...) {}

  void apply(Observer<T>* observer) const override {
    if (observer == nullptr) {
      return;
    }
    call(*observer, std::index_sequence_for<Arguments...>());
  }

 private:
  template <std::size_t... I>
  void call(Observer<T>& observer, std::index_sequence<I...> /*indices*/) const {
    (observer.*m_method)(std::get<I>(m_arguments)...);
  }

  Method m_method;
  std::tuple<Arguments...> m_arguments;
};

/// The event type of a member function that is called on a `T`: arguments are kept as the function takes
/// them, so that text given as a plain pointer is copied too.
template <typename T, typename Method>
struct EventOf;
template <typename T, typename C, typename R, typename... A>
struct EventOf<T, R (C::*)(A...)> {
  using Class = C;
  using Type = Event<T, R (C::*)(A...), std::decay_t<A>...>;
};

/// Makes an event of `method`: `makeEvent(&IObserver::onDone, true, text)`.
template <typename Method, typename... Values>
auto makeEvent(Method method, Values&&... values) {
  using Class = typename EventOf<void, Method>::Class;
  return typename EventOf<Class, Method>::Type(method, std::forward<Values>(values)...);
}

/// A list of observers for one thread; it has no lock.
template <typename T>
class VELMARA_EXPORT Notifier : public virtual INotifier<T> {
 public:
  void attach(Observer<T>* observer) override { m_observers->push_back(observer); }
  void detach(Observer<T>* observer) override { std::erase(*m_observers, observer); }

 protected:
  Notifier() = default;
  ~Notifier() override { m_observers->clear(); }
  Notifier(const Notifier&) = delete;
  Notifier& operator=(const Notifier&) = delete;

  /// Calls every observer in order of attachment. The list may change during the walk: an observer added is
  /// still reached, and one that takes itself out makes its successor miss this event. An observer may also
  /// destroy the notifier, which ends the walk.
  void dispatchEvent(const AbstractEvent<T>& event) {
    const std::shared_ptr<std::vector<Observer<T>*>> observers = m_observers;
    for (std::size_t i = 0; i < observers->size(); ++i) {
      event.apply(observers->at(i));
    }
  }

  /// Shorthand: makes the event and calls every observer.
  template <typename Method, typename... Values>
  void fireEvent(Method method, Values&&... values) {
    if (!m_observers->empty()) {
      dispatchEvent(typename EventOf<T, Method>::Type(method, std::forward<Values>(values)...));
    }
  }

 private:
  // Shared with a walk in progress, which outlives this object if an observer destroys it.
  std::shared_ptr<std::vector<Observer<T>*>> m_observers = std::make_shared<std::vector<Observer<T>*>>();
};

}  // namespace tavrix
