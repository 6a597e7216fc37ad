#include "platform/simulated/FolderLaptop.h"

#include <cstdlib>
#include <filesystem>

namespace tovi {

namespace {

Surroundings onFolder(const std::string& folder, Surroundings surroundings) {
  surroundings.sudoersFolder = folder + "/root/private/etc/sudoers.d";
  surroundings.localBin = folder + "/root/usr/local/bin";
  return surroundings;
}

}  // namespace

FolderLaptop::FolderLaptop(std::string folder, Surroundings surroundings, LinuxOptions options)
    : surroundings_(onFolder(folder, std::move(surroundings))),
      fileEvents_(loop_),
      store_(std::move(folder), options.procRoot, surroundings_, files_, loop_, fileEvents_),
      anchor_(surroundings_.stateFolder),
      processes_(options.procRoot, anchor_,
                 [this, watts = std::optional<double>{}]() mutable {
                   // Once: with another figure every energy counter would make a jump.
                   if (!watts) watts = store_.wattsPerCore();
                   return *watts;
                 }),
      others_(surroundings_.executable),
      defaults_(files_, defaultsPath(surroundings_.home)),
      broadcast_(loop_, surroundings_.stateFolder, std::move(options.runtimeFolder)),
      power_(store_),
      displays_(store_),
      assertions_(store_),
      workspace_(store_, processes_, files_, surroundings_.home),
      commands_(store_, others_),
      notices_(store_) {}

Machine FolderLaptop::machine() {
  return Machine{surroundings_, clock_,     loop_,     files_,    fileEvents_, processes_, power_, displays_,
                 assertions_,   workspace_, commands_, defaults_, broadcast_,  notices_,   http_};
}

std::optional<std::string> FolderLaptop::folderFromEnvironment() {
  const char* value = std::getenv("TOVI_MACHINE");
  if (value == nullptr || *value == '\0') return std::nullopt;
  std::error_code error;
  std::string folder = std::filesystem::absolute(value, error).lexically_normal().string();
  if (error) return std::nullopt;
  while (folder.size() > 1 && folder.ends_with('/')) folder.pop_back();
  return folder;
}

}  // namespace tovi
