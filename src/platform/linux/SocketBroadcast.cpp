#include "platform/linux/SocketBroadcast.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <openssl/evp.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>

#include "platform/linux/EventLoop.h"
#include "platform/linux/FileDescriptor.h"

namespace tovi {
namespace {

constexpr auto kPatience = std::chrono::seconds{1};

// The folder, if it is a real one, ours, and nobody else's to enter. With -1 inside, errno says why not.
FileDescriptor ownFolder(const std::string& path) {
  FileDescriptor folder{::open(path.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)};
  struct stat about;
  if (!folder || ::fstat(folder.get(), &about) != 0) return {};
  if (about.st_uid != ::getuid() || (about.st_mode & 077) != 0) {
    errno = EPERM;
    return {};
  }
  return folder;
}

// By way of the open folder: it can't be exchanged after the check, and its path may be longer than the 107 bytes
// that an address holds.
sockaddr_un addressIn(const FileDescriptor& folder, const std::string& name) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string path = fmt::format("/proc/self/fd/{}/{}", folder.get(), name);
  std::memcpy(address.sun_path, path.c_str(), std::min(path.size(), sizeof address.sun_path - 1));
  return address;
}

Broadcast::Sent outcomeOf(int error) {
  switch (error) {
    case ENOENT:
    case ECONNREFUSED:
      return Broadcast::Sent::nobodyListens;
    case EMSGSIZE:
    case ENOBUFS:
      return Broadcast::Sent::tooLarge;
    default:
      return Broadcast::Sent::failed;
  }
}

struct Ear : std::enable_shared_from_this<Ear> {
  FileDescriptor folder, socket;
  std::string name;
  ino_t inode = 0;
  std::function<void(std::string)> call;
  EventSource source;

  void close() {
    source.reset();
    socket.reset();
    // Not the socket of a successor.
    struct stat about;
    if (::fstatat(folder.get(), name.c_str(), &about, AT_SYMLINK_NOFOLLOW) == 0 && about.st_ino == inode) {
      ::unlinkat(folder.get(), name.c_str(), 0);
    }
  }

  // One datagram, if it is whole and from a process of the same person.
  std::optional<std::string> receive() const {
    char probe = 0;
    const ssize_t size = ::recv(socket.get(), &probe, 1, MSG_PEEK | MSG_TRUNC | MSG_DONTWAIT);
    if (size < 0) return {};
    std::string text(static_cast<std::size_t>(size), '\0');
    iovec piece{text.data(), text.size()};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(ucred))> control{};
    msghdr message{};
    message.msg_iov = &piece;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    const ssize_t got = ::recvmsg(socket.get(), &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    if (got != size || (message.msg_flags & MSG_TRUNC) != 0) return {};
    const cmsghdr* header = CMSG_FIRSTHDR(&message);
    if (header == nullptr || header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_CREDENTIALS) return {};
    ucred sender{};
    std::memcpy(&sender, CMSG_DATA(header), sizeof sender);
    if (sender.uid != ::getuid()) return {};
    return text;
  }

  static int readable(sd_event_source*, int, std::uint32_t, void* data) {
    const auto self = static_cast<Ear*>(data)->shared_from_this();  // the call may end its own registration
    if (auto text = self->receive()) self->call(std::move(*text));
    return 0;
  }
};

}  // namespace

SocketBroadcast::SocketBroadcast(EventLoop& loop, std::string stateFolder, std::optional<std::string> runtimeFolder)
    : loop_(loop), stateFolder_(std::move(stateFolder)), runtimeFolder_(std::move(runtimeFolder)) {}

std::string SocketBroadcast::folder() const {
  return runtimeFolder_ ? *runtimeFolder_ + "/tovi" : fmt::format("/tmp/tovi-{}", ::getuid());
}

std::string SocketBroadcast::socketName() const {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  std::size_t size = 0;
  EVP_Q_digest(nullptr, "SHA256", nullptr, stateFolder_.data(), stateFolder_.size(), digest.data(), &size);
  std::string name;
  for (std::size_t i = 0; i < 8; ++i) name += fmt::format("{:02x}", digest[i]);
  return name + ".sock";
}

Broadcast::Sent SocketBroadcast::post(std::string_view text) {
  const FileDescriptor folder = ownFolder(this->folder());
  if (!folder) return outcomeOf(errno);
  const FileDescriptor socket{::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
  if (!socket) return Sent::failed;

  int room = 0;
  socklen_t length = sizeof room;
  ::getsockopt(socket.get(), SOL_SOCKET, SO_SNDBUF, &room, &length);
  if (const int wanted = static_cast<int>(std::min<std::size_t>(text.size(), 16 << 20)) + 4096; wanted > room) {
    ::setsockopt(socket.get(), SOL_SOCKET, SO_SNDBUF, &wanted, sizeof wanted);  // as far as the system allows
  }
  // Connected, so that poll() knows of the listener's queue.
  const sockaddr_un address = addressIn(folder, socketName());
  if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    return outcomeOf(errno);
  }
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (true) {
    if (::send(socket.get(), text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT) >= 0) return Sent::yes;
    if (errno == EINTR) continue;
    if (errno != EAGAIN) return outcomeOf(errno);
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) return Sent::failed;
    pollfd wait{socket.get(), POLLOUT, 0};
    ::poll(&wait, 1, static_cast<int>(left.count()));
  }
}

Registration SocketBroadcast::listen(std::function<void(std::string)> call) {
  if (loop_.event() == nullptr) return {};
  if (runtimeFolder_) ::mkdir(runtimeFolder_->c_str(), 0700);
  ::mkdir(folder().c_str(), 0700);
  const auto ear = std::make_shared<Ear>();
  ear->folder = ownFolder(folder());
  if (!ear->folder) return {};
  ear->name = socketName();
  ear->call = std::move(call);
  ear->socket = FileDescriptor{::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
  const int on = 1;
  if (!ear->socket || ::setsockopt(ear->socket.get(), SOL_SOCKET, SO_PASSCRED, &on, sizeof on) != 0) return {};

  const sockaddr_un address = addressIn(ear->folder, ear->name);
  ::unlinkat(ear->folder.get(), ear->name.c_str(), 0);  // what a crash left behind
  struct stat about;
  if (::bind(ear->socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      ::fstatat(ear->folder.get(), ear->name.c_str(), &about, AT_SYMLINK_NOFOLLOW) != 0) {
    return {};
  }
  ear->inode = about.st_ino;
  sd_event_source* added = nullptr;
  if (sd_event_add_io(loop_.event(), &added, ear->socket.get(), EPOLLIN, Ear::readable, ear.get()) < 0) {
    ear->close();
    return {};
  }
  ear->source.reset(added);
  return Registration{[ear] { ear->close(); }};
}

}  // namespace tovi
