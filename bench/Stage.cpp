#include "Stage.h"

#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <thread>

namespace tovi::bench {

namespace fs = std::filesystem;

Stage::Stage() {
  std::string pattern = (fs::temp_directory_path() / "tovi-bench-XXXXXX").string();
  if (!::mkdtemp(pattern.data())) std::abort();
  root_ = pattern;
  for (const char* folder : {"home", "run", "tmp", "laptop"}) fs::create_directory(root_ / folder);
  fs::permissions(root_ / "run", fs::perms::owner_all);
  std::ofstream(root_ / "laptop/laptop.json")
      << "{\"applicationsFolder\": \"" << program().parent_path().string() << "/\"}\n";
}

Stage::~Stage() {
  std::error_code ignored;
  fs::remove_all(root_, ignored);
}

Environment Stage::environment() const {
  return {"HOME=" + home(),
          "TMPDIR=" + (root_ / "tmp").string(),
          "XDG_RUNTIME_DIR=" + (root_ / "run").string(),
          "TOVI_MACHINE=" + (root_ / "laptop").string(),
          "PATH=/usr/local/bin:/usr/bin:/bin",
          "LC_ALL=C.UTF-8"};
}

Surroundings Stage::surroundings() const {
  Surroundings result;
  result.home = home();
  result.stateFolder = stateFolder();
  result.temporaryFolder = (root_ / "tmp").string();
  result.uid = ::getuid();
  return result;
}

bool Stage::setUp() const { return run({tool(), "setup"}, environment()).status == 0; }

bool Stage::applicationAnswers() const {
  for (int i = 0; i < 100; ++i) {
    if (run({tool(), "config"}, environment()).status == 0) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  return false;
}

}  // namespace tovi::bench
