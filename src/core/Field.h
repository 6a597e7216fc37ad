// A value that tells its observers when it really changes: an assignment of an equal value is silent.
#pragma once

#include <algorithm>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "platform/Types.h"

namespace tovi {

template <class T>
class Field {
 public:
  Field() = default;
  explicit Field(T value) : value_(std::move(value)) {}
  Field(const Field&) = delete;
  Field& operator=(const Field&) = delete;

  Field& operator=(T value) {
    if (!(value_ == value)) {
      value_ = std::move(value);
      notify();
    }
    return *this;
  }

  void clear() { *this = T{}; }

  const T& get() const { return value_; }
  operator const T&() const { return value_; }
  const T& operator*() const { return value_; }
  const T* operator->() const { return &value_; }

  // Changes a copy and assigns it.
  template <class Change>
  void update(Change&& change) {
    T copy = value_;
    change(copy);
    *this = std::move(copy);
  }

  // Calls after each change, until the registration ends. The field must outlive the registration.
  Registration observe(std::function<void()> call) {
    if (!observers_) observers_ = std::make_unique<Observers>();
    const int id = observers_->next++;
    observers_->calls.emplace_back(id, std::move(call));
    return Registration(
        [this, id] { std::erase_if(observers_->calls, [id](const auto& c) { return c.first == id; }); });
  }

 private:
  struct Observers {
    int next = 0;
    std::vector<std::pair<int, std::function<void()>>> calls;
  };

  void notify() {
    if (!observers_ || observers_->calls.empty()) return;
    const auto calls = observers_->calls;  // an observer may leave, or add others, while it is called
    for (const auto& [id, call] : calls) call();
  }

  T value_{};
  std::unique_ptr<Observers> observers_;
};

}  // namespace tovi
