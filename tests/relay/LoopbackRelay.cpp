#include "relay/LoopbackRelay.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>

#include "core/Text.h"

namespace tovi {

namespace {

double now() { return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count(); }

std::string chunk(const std::string& bytes) { return fmt::format("{:x}\r\n{}\r\n", bytes.size(), bytes); }

}  // namespace

LoopbackRelay::LoopbackRelay()
    : listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)),
      bell_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  if (::bind(listener_.get(), reinterpret_cast<sockaddr*>(&address), size) != 0 || ::listen(listener_.get(), 64) != 0 ||
      ::getsockname(listener_.get(), reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    throw std::runtime_error("no port on loopback");
  }
  port_ = ntohs(address.sin_port);
  thread_ = std::thread([this] { run(); });
}

LoopbackRelay::~LoopbackRelay() {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  ::eventfd_write(bell_.get(), 1);
  thread_.join();
}

void LoopbackRelay::run() {
  for (;;) {
    std::vector<pollfd> waits{{bell_.get(), POLLIN, 0}, {listener_.get(), POLLIN, 0}};
    int timeout = 50;
    std::vector<Client*> waiting;
    {
      const std::lock_guard lock(mutex_);
      if (stopping_) return;
      for (Client& client : clients_) {
        waits.push_back({client.socket.get(), static_cast<short>(POLLIN | (client.out.empty() ? 0 : POLLOUT)), 0});
        waiting.push_back(&client);
        if (pieces_ > 0 && !client.out.empty()) timeout = 1;
      }
    }
    ::poll(waits.data(), waits.size(), timeout);
    eventfd_t rung = 0;
    ::eventfd_read(bell_.get(), &rung);
    const std::lock_guard lock(mutex_);
    for (std::size_t i = 0; i < waiting.size(); ++i) {
      if (waits[i + 2].revents & (POLLIN | POLLHUP | POLLERR)) readFrom(*waiting[i]);
    }
    while (true) {
      FileDescriptor socket(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
      if (!socket) break;
      clients_.emplace_back().socket = std::move(socket);
    }
    for (Client& client : clients_) writeTo(client);
    clients_.remove_if([](const Client& client) { return client.dead; });
    if (pieces_ > 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

void LoopbackRelay::readFrom(Client& client) {
  char room[16384];
  const ssize_t count = ::recv(client.socket.get(), room, sizeof room, 0);
  if (count == 0 || (count < 0 && errno != EAGAIN)) {
    client.dead = true;
    return;
  }
  if (count < 0 || client.answered) return;
  client.in.append(room, static_cast<std::size_t>(count));
  client.answered = takeRequest(client);
}

bool LoopbackRelay::takeRequest(Client& client) {
  const auto end = client.in.find("\r\n\r\n");
  if (end == std::string::npos) return false;
  Request request;
  const auto lines = text::pieces(std::string_view{client.in}.substr(0, end), "\r\n");
  const auto words = text::pieces(lines.front(), " ");
  request.method = words.at(0);
  request.target = words.at(1);
  for (std::size_t i = 1; i < lines.size(); ++i) {
    const auto colon = lines[i].find(':');
    request.headers[text::lowercased(lines[i].substr(0, colon))] = text::trimmed(lines[i].substr(colon + 1));
  }
  const auto length = request.headers.find("content-length");
  const std::size_t size = length == request.headers.end() ? 0 : std::stoul(length->second);
  if (client.in.size() < end + 4 + size) return false;
  request.body = client.in.substr(end + 4, size);
  requests_.push_back(request);
  answer(client, request);
  return true;
}

void LoopbackRelay::answer(Client& client, const Request& request) {
  if (!orders_.empty()) {
    const Order order = orders_.front();
    orders_.pop_front();
    return answerWith(client, order);
  }
  const std::string& target = request.target;
  const auto query = target.find('?');
  const auto path = text::pieces(std::string_view{target}.substr(0, query), "/");
  const auto since = target.find("since=");
  if (request.method == "GET" && path.size() == 2 && path[1] == "json") {
    return stream(client, std::string{path[0]}, since == std::string::npos ? "" : target.substr(since + 6));
  }
  if (request.method == "POST" && path.size() == 1) return take(client, std::string{path[0]}, request);
  answerWith(client, {.status = 404});
}

void LoopbackRelay::answerWith(Client& client, const Order& order) {
  if (order.silent) return;
  if (order.hangUp) return reset(client);
  client.out += fmt::format("HTTP/1.1 {} As Ordered\r\nContent-Type: {}\r\nContent-Length: {}\r\n", order.status,
                            order.contentType, order.body.size());
  if (!order.retryAfter.empty()) client.out += "Retry-After: " + order.retryAfter + "\r\n";
  client.out += "Connection: close\r\n\r\n" + order.body;
  client.closing = true;
}

void LoopbackRelay::stream(Client& client, const std::string& topic, const std::string& since) {
  client.topic = topic;
  client.out +=
      "HTTP/1.1 200 OK\r\nContent-Type: application/x-ndjson; charset=utf-8\r\nTransfer-Encoding: chunked\r\n\r\n";
  client.out += chunk(model_.openLine(topic, now()));
  for (const std::string& line : model_.past(topic, since, now())) client.out += chunk(line);
}

void LoopbackRelay::take(Client& client, const std::string& topic, const Request& request) {
  if (request.body.size() > RelayModel::kLargestBody) return answerWith(client, {.status = 413});
  const std::string line = RelayModel::line(model_.publish(topic, request.body, now()));
  tell(topic, line);
  answerWith(client, {.body = line});
}

void LoopbackRelay::tell(const std::string& topic, const std::string& bytes) {
  for (Client& client : clients_) {
    if (client.topic == topic && !client.closing) client.out += chunk(bytes);
  }
}

void LoopbackRelay::writeTo(Client& client) {
  if (client.dead) return;
  if (!client.out.empty()) {
    const std::size_t most = pieces_ > 0 ? std::min(pieces_, client.out.size()) : client.out.size();
    const ssize_t count = ::send(client.socket.get(), client.out.data(), most, MSG_NOSIGNAL);
    if (count > 0) client.out.erase(0, static_cast<std::size_t>(count));
    if (count < 0 && errno != EAGAIN) client.dead = true;
  }
  if (client.closing && client.out.empty()) client.dead = true;
}

void LoopbackRelay::reset(Client& client) {
  const linger hard{1, 0};
  ::setsockopt(client.socket.get(), SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
  client.dead = true;
}

void LoopbackRelay::order(Order order) {
  const std::lock_guard lock(mutex_);
  orders_.push_back(std::move(order));
}

void LoopbackRelay::setPieces(std::size_t bytes) {
  const std::lock_guard lock(mutex_);
  pieces_ = bytes;
}

void LoopbackRelay::endStreams() { closeStreams("0\r\n\r\n"); }
void LoopbackRelay::cutStreamsInLine() { closeStreams("100\r\n{\"id\":\"halfOfThis\",\"event\":\"mess"); }

void LoopbackRelay::closeStreams(const std::string& last) {
  const std::lock_guard lock(mutex_);
  for (Client& client : clients_) {
    if (client.topic.empty() || client.closing) continue;
    client.out += last;
    client.closing = true;
  }
  ::eventfd_write(bell_.get(), 1);
}

RelayModel::Message LoopbackRelay::publish(const std::string& topic, const std::string& body) {
  const std::lock_guard lock(mutex_);
  const auto message = model_.publish(topic, body, now());
  tell(topic, RelayModel::line(message));
  ::eventfd_write(bell_.get(), 1);
  return message;
}

std::vector<LoopbackRelay::Request> LoopbackRelay::requests() const {
  const std::lock_guard lock(mutex_);
  return requests_;
}

std::vector<RelayModel::Message> LoopbackRelay::on(const std::string& topic) const {
  const std::lock_guard lock(mutex_);
  return model_.on(topic);
}

std::size_t LoopbackRelay::streams() const {
  const std::lock_guard lock(mutex_);
  return static_cast<std::size_t>(std::ranges::count_if(
      clients_, [](const Client& client) { return !client.topic.empty() && !client.closing && !client.dead; }));
}

}  // namespace tovi
