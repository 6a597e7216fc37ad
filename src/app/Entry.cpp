#include "app/Entry.h"

#include <malloc.h>

#include <clocale>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

#include "app/AppDelegate.h"
#include "commands/CLI.h"
#include "commands/Output.h"
#include "platform/MainQueue.h"
#include "platform/linux/EventLoop.h"
#include "platform/linux/LinuxMachine.h"
#include "platform/simulated/FolderLaptop.h"

namespace tovi {

namespace {

// This computer, or the simulated laptop that the environment names. Made at the first question.
class ChosenMachine {
 public:
  ChosenMachine(int argc, char** argv) : argc_(argc), argv_(argv) {}

  const Machine& get() {
    if (!machine_) make();
    return *machine_;
  }

 private:
  void make() {
    Surroundings surroundings = surroundingsFromEnvironment(argc_, argv_);
    LinuxOptions options{.runtimeFolder = runtimeFolderFromEnvironment()};
    if (auto folder = FolderLaptop::folderFromEnvironment()) {
      laptop_ = std::make_unique<FolderLaptop>(std::move(*folder), std::move(surroundings), std::move(options));
      machine_.emplace(laptop_->machine());
    } else {
      computer_ = std::make_unique<LinuxMachine>(std::move(surroundings), std::move(options));
      machine_.emplace(computer_->machine());
    }
  }

  int argc_;
  char** argv_;
  std::unique_ptr<LinuxMachine> computer_;
  std::unique_ptr<FolderLaptop> laptop_;
  std::optional<Machine> machine_;
};

// Requests to terminate wait until the main queue takes them: one that came while the engine starts would otherwise
// end the process with sleep switched off.
void holdTerminationBack() {
  sigset_t requests;
  sigemptyset(&requests);
  sigaddset(&requests, SIGTERM);
  sigaddset(&requests, SIGINT);
  if (hangUpCounts()) sigaddset(&requests, SIGHUP);
  sigprocmask(SIG_BLOCK, &requests, nullptr);
}

bool isPreview() {
  const char* running = std::getenv("XCODE_RUNNING_FOR_PREVIEWS");
  const char* inserted = std::getenv("DYLD_INSERT_LIBRARIES");
  return (running != nullptr && std::string_view{running} == "1") ||
         (inserted != nullptr && std::string_view{inserted}.find("__preview") != std::string_view::npos);
}

int runApplication(const Machine& machine) {
  std::signal(SIGPIPE, SIG_IGN);  // a reader that went away is no reason to die
  holdTerminationBack();
  AppDelegate delegate(machine, nullptr);
  delegate.didFinishLaunching(isPreview());
  malloc_trim(0);  // the start reads much that is never needed again
  machine.queue.run();
  delegate.willTerminate();
  return 0;
}

}  // namespace

int enter(int argc, char** argv) {
  // A resident process with one busy thread gains nothing from an arena for each.
  mallopt(M_ARENA_MAX, 1);
  std::setlocale(LC_TIME, "");
  ChosenMachine machine(argc, argv);
  const CLI::Words arguments(argv, argv + argc);
  if (!CLI::shouldRun(arguments)) return runApplication(machine.get());
  StandardOutput output;
  const int status =
      CLI::main(CLI::wordsOf(arguments), {.machine = [&]() -> const Machine& { return machine.get(); },
                                          .sleep = [](Seconds span) { std::this_thread::sleep_for(span); },
                                          .output = output});
  if (output.complete() || status != 0) return status;
  output.errorLine("tovi: couldn't write its output");
  return 1;
}

}  // namespace tovi
