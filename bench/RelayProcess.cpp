#include "RelayProcess.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <list>
#include <vector>

#include "platform/linux/FileDescriptor.h"

namespace tovi::bench {

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kKeepalive = std::chrono::seconds(45);  // as the public relay sends it

class Relay {
 public:
  Relay() : listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const plain = reinterpret_cast<sockaddr*>(&address);
    if (::bind(listener_.get(), plain, size) == 0 && ::listen(listener_.get(), 64) == 0 &&
        ::getsockname(listener_.get(), plain, &size) == 0) {
      port_ = ntohs(address.sin_port);
    }
  }

  void run() {
    for (;;) {
      std::vector<pollfd> waits{{STDIN_FILENO, POLLIN, 0}, {listener_.get(), POLLIN, 0}};
      for (const Client& client : clients_) waits.push_back({client.socket.get(), POLLIN, 0});
      if (::poll(waits.data(), waits.size(), untilKeepalive()) < 0) return;
      auto wait = waits.begin() + 2;
      for (Client& client : clients_) {
        if ((wait++)->revents != 0) readFrom(client);
      }
      if (waits[1].revents != 0) {
        clients_.emplace_back().socket = FileDescriptor(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
      }
      keepAlive();
      if (waits[0].revents != 0 && !obey()) return;
      clients_.remove_if([](const Client& client) { return client.gone; });
    }
  }

 private:
  struct Client {
    FileDescriptor socket;
    std::string in = {};
    bool stream = false, gone = false;
    Clock::time_point nextKeepalive = {};

    void write(const std::string& bytes) {
      if (::send(socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(bytes.size()))
        gone = true;
    }
    void tell(const std::string& line) { write(fmt::format("{:x}\r\n{}\n\r\n", line.size() + 1, line)); }
  };

  int untilKeepalive() const {
    int milliseconds = -1;
    for (const Client& client : clients_) {
      if (!client.stream) continue;
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(client.nextKeepalive - Clock::now()).count();
      const int wait = static_cast<int>(std::max<long>(left, 0));
      milliseconds = milliseconds < 0 ? wait : std::min(milliseconds, wait);
    }
    return milliseconds;
  }

  void keepAlive() {
    for (Client& client : clients_) {
      if (!client.stream || Clock::now() < client.nextKeepalive) continue;
      client.tell(R"({"event": "keepalive"})");
      client.nextKeepalive += kKeepalive;
    }
  }

  void readFrom(Client& client) {
    char room[16384];
    const ssize_t count = ::recv(client.socket.get(), room, sizeof room, 0);
    if (count <= 0) {
      client.gone = true;
      return;
    }
    client.in.append(room, static_cast<std::size_t>(count));
    const auto end = client.in.find("\r\n\r\n");
    if (client.stream || end == std::string::npos) return;
    if (client.in.starts_with("GET ")) return open(client);
    const auto length = client.in.find("Content-Length: ");
    if (length == std::string::npos || client.in.size() < end + 4 + std::strtoul(&client.in[length + 16], nullptr, 10))
      return;
    ++replies_;
    client.write(
        "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: 2\r\nConnection: close\r\n\r\n{}");
    client.gone = true;
  }

  void open(Client& client) {
    ++opened_;
    client.stream = true;
    client.nextKeepalive = Clock::now() + kKeepalive;
    client.write("HTTP/1.1 200 OK\r\nContent-Type: application/x-ndjson\r\nTransfer-Encoding: chunked\r\n\r\n");
    client.tell(R"({"event": "open"})");
  }

  // False: the input has ended.
  bool obey() {
    char room[16384];
    const ssize_t count = ::read(STDIN_FILENO, room, sizeof room);
    if (count <= 0) return false;
    orders_.append(room, static_cast<std::size_t>(count));
    for (std::size_t end = 0; (end = orders_.find('\n')) != std::string::npos; orders_.erase(0, end + 1)) {
      const std::string answer = answerTo(orders_.substr(0, end)) + "\n";
      if (::write(STDOUT_FILENO, answer.data(), answer.size()) < 0) return false;
    }
    return true;
  }

  std::string answerTo(const std::string& order) {
    if (order == "url") return port_ == 0 ? "" : fmt::format("http://127.0.0.1:{}", port_);
    if (order == "opened") return std::to_string(opened_);
    if (order == "replies") return std::to_string(replies_);
    if (order == "streams")
      return std::to_string(std::ranges::count_if(clients_, [](const auto& c) { return c.stream && !c.gone; }));
    for (Client& client : clients_) {
      if (!client.stream || client.gone) continue;
      if (order.starts_with("send ")) client.tell(order.substr(5));
      if (order != "end") continue;
      client.write("0\r\n\r\n");
      client.gone = true;
    }
    return "ok";
  }

  FileDescriptor listener_;
  int port_ = 0;
  std::list<Client> clients_;
  std::string orders_;
  int opened_ = 0, replies_ = 0;
};

}  // namespace

RelayProcess::RelayProcess()
    : relay_({std::filesystem::read_symlink("/proc/self/exe").string(), kRelayOption}, {}), url_(relay_.ask("url")) {}

int RelayProcess::number(const std::string& question) {
  const std::string answer = relay_.ask(question);
  return answer.empty() ? -1 : std::atoi(answer.c_str());
}

int serveRelay() {
  Relay().run();
  return 0;
}

std::string pairing(const std::string& relay) {
  return fmt::format(R"({{"enabled": true, "key": "{}", "server": "{}", "panelUrl": ""}})", kPhoneKey, relay);
}

}  // namespace tovi::bench
