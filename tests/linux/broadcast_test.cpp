#include "platform/linux/SocketBroadcast.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cstring>

#include "linux/Helpers.h"

namespace tovi {
namespace {

using Sent = Broadcast::Sent;

class RealBroadcast : public ::testing::Test {
 protected:
  Registration listen() {
    return road.listen([this](std::string text) { heard.push_back(std::move(text)); });
  }
  std::string socketPath() { return road.folder() + "/" + road.socketName(); }

  TemporaryFolder runtime;
  EventLoop loop;
  SocketBroadcast road{loop, "/home/me/state", runtime.path()};
  std::vector<std::string> heard;
};

TEST_F(RealBroadcast, TheSocketLiesWhereEveryProcessLooksForIt) {
  EXPECT_EQ(road.folder(), runtime / "tovi");
  // The first digits of: printf %s /home/me/state | sha256sum
  EXPECT_EQ(road.socketName(), "fa45de4d414f2c0d.sock");
  SocketBroadcast without{loop, "/home/me/state", std::nullopt};
  EXPECT_EQ(without.folder(), "/tmp/tovi-" + std::to_string(::getuid()));
}

TEST_F(RealBroadcast, TextsArriveWholeAndInOrder) {
  const Registration listening = listen();
  ASSERT_TRUE(listening);
  struct stat about;
  ASSERT_EQ(::stat(road.folder().c_str(), &about), 0);
  EXPECT_EQ(about.st_mode & 07777, 0700u);
  const std::string big(100'000, 'b');
  for (const std::string& text : {std::string("{\"id\": \"1\"}"), std::string("a\0b", 3), std::string(), big}) {
    EXPECT_EQ(road.post(text), Sent::yes);
  }
  EXPECT_TRUE(runUntil(loop, [&] { return heard.size() == 4; }));
  EXPECT_EQ(heard, (std::vector<std::string>{"{\"id\": \"1\"}", std::string("a\0b", 3), "", big}));
}

TEST_F(RealBroadcast, NoListenerMeansSilenceAndOneThatCrashedIsNone) {
  EXPECT_EQ(road.post("x"), Sent::nobodyListens);
  EXPECT_FALSE(std::filesystem::exists(road.folder())) << "asking made the folder";
  Child crashed{[&] { static Registration held = listen(); }};
  crashed.end();
  ASSERT_TRUE(std::filesystem::exists(socketPath()));
  EXPECT_EQ(road.post("x"), Sent::nobodyListens);
  Registration listening = listen();
  EXPECT_EQ(road.post("y"), Sent::yes);
  EXPECT_TRUE(runUntil(loop, [&] { return heard.size() == 1; }));
  listening.reset();
  EXPECT_FALSE(std::filesystem::exists(socketPath())) << "the socket was left behind";
  EXPECT_EQ(road.post("x"), Sent::nobodyListens);
}

TEST_F(RealBroadcast, AnEndingListenerLeavesItsSuccessorsSocket) {
  Registration first = listen();
  const Registration second = listen();
  first.reset();
  EXPECT_EQ(road.post("x"), Sent::yes);
  EXPECT_TRUE(runUntil(loop, [&] { return heard.size() == 1; }));
}

TEST_F(RealBroadcast, AListenerThatDoesNotReadHoldsNobodyUpForLong) {
  const Registration listening = listen();
  Sent sent = Sent::yes;
  auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < 5000 && sent == Sent::yes; ++i) {
    start = std::chrono::steady_clock::now();
    sent = road.post("x");
  }
  EXPECT_EQ(sent, Sent::failed);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(900))
      << "a busy listener gets a moment";
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

TEST_F(RealBroadcast, AFolderThatOthersCanEnterOrOwnIsNotUsed) {
  for (const unsigned mode : {0755u, 0770u, 0701u, 0720u}) {
    std::filesystem::create_directories(road.folder());
    ::chmod(road.folder().c_str(), mode);
    EXPECT_FALSE(listen()) << std::oct << mode;
    EXPECT_EQ(road.post("x"), Sent::failed) << std::oct << mode;
  }
  std::filesystem::remove(road.folder());
  std::filesystem::create_directories(runtime / "elsewhere");
  ::chmod((runtime / "elsewhere").c_str(), 0700);
  std::filesystem::create_directory_symlink("elsewhere", road.folder());
  EXPECT_FALSE(listen()) << "a link to a folder";
  EXPECT_EQ(road.post("x"), Sent::failed);
  std::filesystem::remove(road.folder());
  put(road.folder(), "a file");
  EXPECT_FALSE(listen());
  std::filesystem::remove(road.folder());
  if (::getuid() == 0) {
    std::filesystem::create_directories(road.folder());
    ::chmod(road.folder().c_str(), 0700);
    ASSERT_EQ(::chown(road.folder().c_str(), 65534, 65534), 0);
    EXPECT_FALSE(listen()) << "somebody else's folder";
    EXPECT_EQ(road.post("x"), Sent::failed);
  }
}

TEST_F(RealBroadcast, ADatagramOfSomebodyElseIsDropped) {
  if (::getuid() != 0) GTEST_SKIP() << "only root can be somebody else";
  const Registration listening = listen();
  const pid_t stranger = ::fork();
  if (stranger == 0) {
    // Through a socket that was open before: the folder itself keeps strangers out.
    const int socket = ::socket(AF_UNIX, SOCK_DGRAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ::strncpy(address.sun_path, socketPath().c_str(), sizeof address.sun_path - 1);
    if (::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) ::_exit(1);
    if (::setgid(65534) != 0 || ::setuid(65534) != 0) ::_exit(2);
    ::_exit(::send(socket, "stranger", 8, 0) == 8 ? 0 : 3);
  }
  int status = 0;
  ::waitpid(stranger, &status, 0);
  ASSERT_EQ(WEXITSTATUS(status), 0);
  EXPECT_EQ(road.post("me"), Sent::yes);
  EXPECT_TRUE(runUntil(loop, [&] { return !heard.empty(); }));
  EXPECT_EQ(heard, std::vector<std::string>{"me"});
}

TEST_F(RealBroadcast, ALongRuntimePathWorks) {
  const std::string longRuntime = runtime / std::string(150, 'r');
  std::filesystem::create_directories(longRuntime);
  SocketBroadcast far{loop, "/home/me/state", longRuntime};
  const Registration listening = far.listen([this](std::string text) { heard.push_back(std::move(text)); });
  ASSERT_TRUE(listening);
  EXPECT_EQ(far.post("x"), Sent::yes);
  EXPECT_TRUE(runUntil(loop, [&] { return heard.size() == 1; }));
}

}  // namespace
}  // namespace tovi
