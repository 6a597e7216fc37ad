#include "platform/linux/CurlHttp.h"

#include <arpa/inet.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <cstdlib>
#include <memory>
#include <thread>
#include <utility>

#include "linux/Helpers.h"
#include "relay/LoopbackRelay.h"

namespace tovi {
namespace {

// One answer as it comes.
struct Answer {
  std::optional<HttpHead> head;
  std::string data;
  std::optional<bool> ended;
  Registration reading;

  Http::Reader reader() {
    return {[this](const HttpHead& came) { EXPECT_FALSE(std::exchange(head, came)); },
            [this](std::string_view bytes) {
              EXPECT_TRUE(head);
              data += bytes;
            },
            [this](bool complete) { EXPECT_FALSE(std::exchange(ended, complete)); }};
  }
};

struct CurlHttpTest : testing::Test {
  LoopbackRelay relay;
  EventLoop loop;
  CurlHttp http{loop};

  void SetUp() override {
    for (const char* name : {"http_proxy", "HTTP_PROXY", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"}) {
      ::unsetenv(name);
    }
  }

  void read(Answer& answer, const std::string& url, double silence = 10) {
    answer.reading = http.read({url, {}}, Seconds{silence}, answer.reader());
    EXPECT_FALSE(answer.head || answer.ended) << "told before the operation returned";
  }
  std::optional<int> post(const HttpRequest& request, const std::string& body, double limit = 10) {
    return post(http, request, body, limit);
  }
  std::optional<int> post(CurlHttp& client, const HttpRequest& request, const std::string& body, double limit = 10) {
    std::optional<std::optional<int>> status;
    const Registration posting =
        client.post(request, body, Seconds{limit}, [&](std::optional<int> came) { status = came; });
    EXPECT_TRUE(runUntil(loop, [&] { return status.has_value(); }));
    return status.value_or(std::nullopt);
  }
};

TEST_F(CurlHttpTest, AStreamIsReadAsItComesUntilItEnds) {
  Answer answer;
  read(answer, relay.url() + "/topic/json");
  ASSERT_TRUE(runUntil(loop, [&] { return answer.data.find("open") != std::string::npos; }));
  relay.setPieces(7);
  relay.publish("topic", "hello");
  ASSERT_TRUE(runUntil(loop, [&] { return answer.data.find("\"hello\"") != std::string::npos; }));
  EXPECT_FALSE(answer.ended);
  relay.endStreams();
  ASSERT_TRUE(runUntil(loop, [&] { return answer.ended.has_value(); }));
  EXPECT_TRUE(*answer.ended);
}

TEST_F(CurlHttpTest, EachDeathEndsTheAnswerOnce) {
  Answer cut;
  read(cut, relay.url() + "/topic/json");
  ASSERT_TRUE(runUntil(loop, [&] { return !cut.data.empty(); }));
  relay.cutStreamsInLine();
  ASSERT_TRUE(runUntil(loop, [&] { return cut.ended.has_value(); }));
  EXPECT_FALSE(*cut.ended) << "cut off in a line";

  relay.order({.hangUp = true});
  Answer reset;
  read(reset, relay.url() + "/topic/json");
  ASSERT_TRUE(runUntil(loop, [&] { return reset.ended.has_value(); }));
  EXPECT_FALSE(*reset.ended || reset.head);

  for (const char* url : {"http://127.0.0.1:1/", "file:///etc/passwd", "ftp://127.0.0.1/", "no address", ""}) {
    Answer refused;
    read(refused, url);
    ASSERT_TRUE(runUntil(loop, [&] { return refused.ended.has_value(); })) << url;
    EXPECT_FALSE(*refused.ended || refused.head) << url;
  }
}

TEST_F(CurlHttpTest, SilenceIsCountedFromTheLastByteAndEndsTheStream) {
  relay.order({.silent = true});
  Answer never;
  read(never, relay.url() + "/topic/json", 0.2);
  ASSERT_TRUE(runUntil(loop, [&] { return never.ended.has_value(); }));
  EXPECT_FALSE(*never.ended);

  Answer some;
  const auto begun = std::chrono::steady_clock::now();
  read(some, relay.url() + "/topic/json", 0.4);
  const Registration now = loop.after(Seconds{0.3}, [&] { relay.publish("topic", "still there"); });
  ASSERT_TRUE(runUntil(loop, [&] { return some.ended.has_value(); }));
  EXPECT_GE(std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count(), 0.65);
}

TEST_F(CurlHttpTest, TellsStatusTypeAndHowLongToWait) {
  for (const auto& [status, after, expected] :
       {std::tuple{429, "60", std::optional{60.0}}, {503, "", std::nullopt}, {404, "soon", std::nullopt}}) {
    relay.order({.status = status, .contentType = "text/html", .body = "<html>", .retryAfter = after});
    Answer answer;
    read(answer, relay.url() + "/topic/json");
    ASSERT_TRUE(runUntil(loop, [&] { return answer.ended.has_value(); }));
    EXPECT_EQ(answer.head->status, status);
    EXPECT_EQ(answer.head->contentType, "text/html");
    EXPECT_EQ(answer.head->retryAfter ? std::optional{answer.head->retryAfter->count()} : std::nullopt, expected);
    EXPECT_EQ(answer.data, "<html>");
  }
  // A redirection is an answer like any other.
  relay.order({.status = 302});
  EXPECT_EQ(post({relay.url() + "/topic", {}}, "x"), 302);
}

TEST_F(CurlHttpTest, APostCarriesItsHeadersAndItsBodyAndNothingElse) {
  const std::string body("line\r\n\0\xff ü", 11);
  EXPECT_EQ(post({relay.url() + "/topic", {{"Title", "Grüße\r\nEvil: yes"}, {"Tags", "laptop"}, {"Empty", ""}}}, body),
            200);
  const auto requests = relay.requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].method, "POST");
  EXPECT_EQ(requests[0].body, body);
  auto headers = requests[0].headers;
  EXPECT_EQ(headers["title"], "Grüße  Evil: yes") << "a line break begins no header of its own";
  for (const char* known : {"title", "tags", "empty", "host", "accept", "content-length"}) {
    EXPECT_EQ(headers.erase(known), 1u) << known;
  }
  EXPECT_TRUE(headers.empty()) << headers.begin()->first;

  relay.order({.silent = true});
  EXPECT_EQ(post({relay.url() + "/topic", {}}, "x", 0.2), std::nullopt);
  EXPECT_EQ(post({"http://127.0.0.1:1/topic", {}}, "x"), std::nullopt);
}

TEST_F(CurlHttpTest, ADroppedRequestIsGivenUpAndCallsNobody) {
  Answer answer;
  read(answer, relay.url() + "/topic/json");
  ASSERT_TRUE(runUntil(loop, [&] { return !answer.data.empty(); }));
  EXPECT_EQ(relay.streams(), 1u);
  answer.reading.reset();
  const std::string before = answer.data;
  EXPECT_TRUE(eventually([&] { return relay.streams() == 0; }));
  relay.publish("topic", "nobody hears this");
  runFor(loop, 0.05);
  EXPECT_EQ(answer.data, before);
  EXPECT_FALSE(answer.ended);

  // From inside each of its own calls: head, data, end.
  for (const int last : {1, 2, 3}) {
    Registration reading;
    int calls = 0;
    const auto called = [&](auto&&) {
      if (++calls == last) reading.reset();
    };
    relay.order({});
    reading = http.read({relay.url(), {}}, Seconds{10}, {called, called, called});
    runUntil(loop, [&] { return calls == last; });
    runFor(loop, 0.02);
    EXPECT_EQ(calls, last);
  }
}

TEST_F(CurlHttpTest, WhatIsUnderWayAtTheEndGoesWithoutACall) {
  Answer answer;
  relay.order({.silent = true});
  relay.order({.silent = true});
  {
    CurlHttp shortLived(loop);
    answer.reading = shortLived.read({relay.url() + "/topic/json", {}}, Seconds{0.5}, answer.reader());
    shortLived.send({relay.url() + "/topic", {}}, "x", Seconds{0.5}, [](auto) { ADD_FAILURE() << "called"; });
    EXPECT_TRUE(runUntil(loop, [&] { return relay.requests().size() == 2; }));
  }
  runFor(loop, 0.6);
  answer.reading.reset();
  EXPECT_FALSE(answer.ended);
}

TEST_F(CurlHttpTest, ThePersonsProxyIsUsed) {
  ::setenv("http_proxy", relay.url().c_str(), 1);
  relay.order({});
  EXPECT_EQ(post({"http://relay.invalid/topic", {}}, "through the proxy"), 200);
  ::unsetenv("http_proxy");
  EXPECT_EQ(relay.requests().at(0).target, "http://relay.invalid/topic");
}

TEST_F(CurlHttpTest, AQuietStreamCostsNothing) {
  Answer answer;
  read(answer, relay.url() + "/topic/json", 120);
  ASSERT_TRUE(runUntil(loop, [&] { return !answer.data.empty(); }));
  const Registration end = loop.after(Seconds{1.2}, [&] { loop.stop(); });
  rusage before{}, after{};
  ::getrusage(RUSAGE_THREAD, &before);
  loop.run();
  ::getrusage(RUSAGE_THREAD, &after);
  EXPECT_LE(after.ru_nvcsw - before.ru_nvcsw, 4) << "wake-ups in 1.2 seconds";
}

// A server with a certificate of its own that answers each request with 200.
class SecureServer {
 public:
  explicit SecureServer(const std::string& certificateFile) {
    key_.reset(EVP_EC_gen("P-256"));
    certificate_.reset(X509_new());
    X509* cert = certificate_.get();
    X509_set_version(cert, X509_VERSION_3);
    X509_gmtime_adj(X509_getm_notBefore(cert), -3600);
    X509_gmtime_adj(X509_getm_notAfter(cert), 3600);
    X509_set_pubkey(cert, key_.get());
    X509_NAME_add_entry_by_txt(X509_get_subject_name(cert), "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>("loopback"), -1, -1, 0);
    X509_set_issuer_name(cert, X509_get_subject_name(cert));
    X509_EXTENSION* names = X509V3_EXT_conf_nid(nullptr, nullptr, NID_subject_alt_name, "IP:127.0.0.1");
    X509_add_ext(cert, names, -1);
    X509_EXTENSION_free(names);
    X509_sign(cert, key_.get(), EVP_sha256());
    std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(certificateFile.c_str(), "w"), std::fclose);
    PEM_write_X509(file.get(), cert);

    listener_ = FileDescriptor(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    ::bind(listener_.get(), reinterpret_cast<sockaddr*>(&address), size);
    ::listen(listener_.get(), 8);
    ::getsockname(listener_.get(), reinterpret_cast<sockaddr*>(&address), &size);
    url = "https://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/topic";
    otherName = "https://localhost:" + std::to_string(ntohs(address.sin_port)) + "/topic";
    thread_ = std::thread([this] { run(); });
  }
  ~SecureServer() {
    ::shutdown(listener_.get(), SHUT_RDWR);
    thread_.join();
  }

  std::string url, otherName;

 private:
  void run() {
    const std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)> context(SSL_CTX_new(TLS_server_method()), SSL_CTX_free);
    SSL_CTX_use_certificate(context.get(), certificate_.get());
    SSL_CTX_use_PrivateKey(context.get(), key_.get());
    while (true) {
      const FileDescriptor socket(::accept(listener_.get(), nullptr, nullptr));
      if (!socket) return;
      const std::unique_ptr<SSL, void (*)(SSL*)> session(SSL_new(context.get()), SSL_free);
      SSL_set_fd(session.get(), socket.get());
      char room[4096];
      if (SSL_accept(session.get()) != 1 || SSL_read(session.get(), room, sizeof room) <= 0) continue;
      const std::string_view answer = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";
      SSL_write(session.get(), answer.data(), static_cast<int>(answer.size()));
      SSL_shutdown(session.get());
    }
  }

  std::unique_ptr<EVP_PKEY, void (*)(EVP_PKEY*)> key_{nullptr, EVP_PKEY_free};
  std::unique_ptr<X509, void (*)(X509*)> certificate_{nullptr, X509_free};
  FileDescriptor listener_;
  std::thread thread_;
};

TEST_F(CurlHttpTest, AServerThatCannotProveItsNameIsNotTalkedTo) {
  const TemporaryFolder folder;
  SecureServer server(folder / "own.pem");
  EXPECT_EQ(post({server.url, {}}, "secret"), std::nullopt) << "nobody vouches for it";
  CurlHttp trusting(loop, folder / "own.pem");
  EXPECT_EQ(post(trusting, {server.url, {}}, "secret"), 200);
  EXPECT_EQ(post(trusting, {server.otherName, {}}, "secret"), std::nullopt) << "under another name";
}

}  // namespace
}  // namespace tovi
