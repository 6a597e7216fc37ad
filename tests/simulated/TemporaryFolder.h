// A folder of a test's own, gone with the test.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace tovi {

class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "tovi-laptop-XXXXXX").string();
    path_ = ::mkdtemp(name.data());
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

  std::string read(const std::string& name) const {
    std::ifstream file(path_ + "/" + name);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
  }
  void write(const std::string& name, const std::string& text) const {
    std::filesystem::create_directories(std::filesystem::path(path_ + "/" + name).parent_path());
    std::ofstream(path_ + "/" + name) << text;
  }

 private:
  std::string path_;
};

}  // namespace tovi
