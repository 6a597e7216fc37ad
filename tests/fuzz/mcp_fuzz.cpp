// What agents send to the MCP server: every request gets one line of JSON-RPC under its own id, nothing else gets any,
// and whose holds a tool may end is never the agent's to say.

#include "commands/MCPServer.h"

#include <sys/mman.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <string>

#include "commands/LineService.h"
#include "core/Json.h"
#include "fuzz/Fuzz.h"
#include "platform/Utf8.h"

using namespace tovi;
using fuzz::must;
using Json = nlohmann::json;

namespace {

constexpr Pid kAgent = 4711;

// Stands in for the application.
Json application(const std::string& command, const Json& args, Seconds timeout) {
  must(!command.empty() && args.is_object(), "a tool is a command with an object of arguments");
  must(timeout > Seconds{0} && timeout <= Seconds{60}, "an agent waits a while, and not for ever");
  if (command == "hold") must(args.value("owner", Json()) == kAgent, "a hold belongs to the session");
  if (command == "release_own" || command == "release_pid") {
    must(args.value("pid", Json()) == kAgent, "a session ends only its own holds");
  }
  return {{"ok", !args.contains("remove")}, {"said", args}};
}

const MCPServer& server() {
  static const MCPServer theServer({.agent = kAgent, .send = application});
  return theServer;
}

void isAnAnswer(const std::string& line, const Json& id) {
  must(line.find('\n') == std::string::npos && isUtf8(line), "an answer is one line of UTF-8");
  const auto answer = json::parseObject(line);
  must(answer.has_value(), "an answer is a JSON object");
  must(answer->value("jsonrpc", "") == "2.0", "an answer says which protocol it speaks");
  must(answer->contains("id") && json::compact(answer->at("id")) == json::compact(id),
       "an answer has the request's id");
  must(answer->contains("result") != answer->contains("error"), "an answer has a result or an error");
  must(answer->size() == 3, "an answer has nothing else");
}

// A memory file, read and written from its start.
class File {
 public:
  File() : fd_(::memfd_create("fuzz", MFD_CLOEXEC)) {}
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  ~File() { ::close(fd_); }
  int begin() const {
    ::lseek(fd_, 0, SEEK_SET);
    return fd_;
  }
  void fill(std::string_view bytes) {
    must(::ftruncate(fd_, 0) == 0, "there is memory");
    must(::pwrite(fd_, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()), "there is memory");
  }
  std::string content() const {
    std::string bytes(static_cast<std::size_t>(::lseek(fd_, 0, SEEK_END)), '\0');
    must(::pread(fd_, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()), "there is memory");
    return bytes;
  }

 private:
  int fd_;
};

std::string served(std::string_view input, const LineService::Answer& answer) {
  static File in, out;
  in.fill(input);
  out.fill("");
  LineService::serve(in.begin(), out.begin(), answer);
  return out.content();
}

// Input that begins with "#" and a number is led by blanks, so many bytes short of the longest line, and only its lines
// are looked at.
void longLinesAreDropped(std::string_view text) {
  std::size_t shortBy = 0;
  for (const char c : fuzz::takeUpTo(text, ' ')) shortBy = (shortBy * 10 + static_cast<unsigned char>(c) % 10) % 4096;
  const std::string input = std::string(LineService::kLongestLine - shortBy, ' ') + std::string{text};
  const auto sizeOf = [](std::string_view line) { return std::optional{std::to_string(line.size())}; };
  std::string expected;
  for (std::string_view rest = input; !rest.empty();) {
    const std::string_view line = fuzz::takeUpTo(rest, '\n');
    if (line.size() <= LineService::kLongestLine) expected += *sizeOf(line) + "\n";
  }
  must(served(input, sizeOf) == expected, "a line that is too long is passed over, and no other");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input = fuzz::textOf(data, size);
  if (input.starts_with('#')) {
    longLinesAreDropped(input.substr(1));
    return 0;
  }
  std::string expected;
  for (std::string_view rest = input; !rest.empty();) {
    const std::string_view line = fuzz::takeUpTo(rest, '\n');
    const auto request = json::parseObject(line);
    const auto answer = server().answer(line);
    must(answer.has_value() == (request && request->contains("id")), "requests are answered, and nothing else is");
    if (!answer) continue;
    isAnAnswer(*answer, request->at("id"));
    expected += *answer + "\n";
  }
  const auto answer = [](std::string_view line) { return server().answer(line); };
  must(served(input, answer) == expected, "the stream says the same as line by line");
  return 0;
}
