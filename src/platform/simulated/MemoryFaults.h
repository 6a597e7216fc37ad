// Faults on order for the laptop in memory: one count over everything that changes the machine, at any number of
// which it can fail, or the process die.
#pragma once

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tovi {

// Thrown out of the operation at which the process was to die. Not a std::exception, so that no handler for those
// keeps the dead alive.
struct Crash {
  std::int64_t operation = 0;
};

class MemoryFaults {
 public:
  enum class When { before, after };

  // Operations so far; the first has number 1. Counted are the changes that the machine would make: of files (create,
  // write, rename, remove, mkdir, sync, touch, chmod), processes, switches, screens. What can't change anything,
  // such as the removal of a missing file, isn't.
  std::int64_t operations() const { return count_; }

  void failOperation(std::int64_t number) { failing_.insert(number); }  // once, without effect
  void failNext() { failOperation(count_ + 1); }

  // The process dies at this operation, which has then happened or not. From there until restart nothing that the
  // dead process asks for has an effect or is counted.
  void crashAt(std::int64_t number, When when);
  bool dead() const { return dead_; }

  void forgetOrders();  // no more failures and crashes
  void revive() { dead_ = false; }

  // Readable lines such as "write /home/anna/x" and "kill STOP 123", the oldest first, and without the oldest when
  // they are very many. `from` is the first number wanted.
  std::vector<std::string> log(std::int64_t from = 1) const;

  // Called after each operation that was done, before a death on order.
  std::function<void()> afterEach;

  // For the parts of the machine. False: it failed, by order or because `act` gave false. `verb` must be a literal.
  template <class Act>
  bool perform(std::string_view verb, std::string_view subject, Act&& act) {
    if (uncounted_ > 0) return act();
    if (!begin(verb, subject)) return false;
    const bool done = act();
    end();
    return done;
  }

  // What happens meanwhile is none of the process's own doing: not counted, never fails.
  class Uncounted {
   public:
    explicit Uncounted(MemoryFaults& faults) : faults_(faults) { ++faults_.uncounted_; }
    ~Uncounted() { --faults_.uncounted_; }
    Uncounted(const Uncounted&) = delete;
    Uncounted& operator=(const Uncounted&) = delete;

   private:
    MemoryFaults& faults_;
  };

 private:
  struct Entry {
    std::string_view verb;
    std::string subject;
  };

  std::int64_t count_ = 0;
  std::set<std::int64_t> failing_;
  std::int64_t crash_ = 0;  // number; 0 is none
  When when_ = When::before;
  bool dead_ = false;
  int uncounted_ = 0;
  std::vector<Entry> log_;
  std::int64_t firstLogged_ = 1;

  bool begin(std::string_view verb, std::string_view subject);
  void end();
  [[noreturn]] void die();
};

}  // namespace tovi
