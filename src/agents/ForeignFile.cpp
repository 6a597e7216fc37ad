#include "agents/ForeignFile.h"

#include "core/Text.h"
#include "platform/Files.h"
#include "platform/Machine.h"

namespace tovi {

ForeignFile::ForeignFile(const Machine& machine, std::string path)
    : files_(machine.files), state_(machine), path_(std::move(path)), target_(path_) {
  const auto status = files_.status(path_);
  if (!status) {
    readable_ = !files_.linkStatus(path_);
    return;
  }
  exists_ = true;
  mode_ = status->mode & 0777;
  const auto target = files_.resolve(path_);
  auto text = files_.read(path_);
  readable_ = target && text && status->kind == FileStatus::Kind::file;
  if (!readable_) return;
  target_ = *target;
  text_ = std::move(*text);
}

std::string ForeignFile::name() const { return std::string{text::lastPathComponent(path_)}; }

bool ForeignFile::backUp() const { return state_.writeDurably(text_, path_ + ".tovi-backup", mode_); }

std::optional<std::string> ForeignFile::replace(std::string_view bytes) const {
  if (readOnly()) return "it is read-only";
  if (files_.read(target_) != (exists_ ? std::optional{text_} : std::nullopt)) return "it has just changed";
  if (!files_.exists(target_.substr(0, target_.rfind('/')))) return "its folder doesn't exist";
  if (!state_.writeDurably(bytes, target_, mode_)) return "the disk is full or the folder can't be written";
  return std::nullopt;
}

}  // namespace tovi
