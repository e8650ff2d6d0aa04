#include "station/web/WebServer.h"

#include <crypt.h>
#include <fmt/format.h>
#include <httplib.h>
#include <openssl/sha.h>

#include <chrono>
#include <future>

#include "host/session/Failure.h"
#include "station/passing/Messages.h"
#include "station/web/Api.h"
#include "station/web/Metrics.h"
#include "station/web/Page.h"

namespace ostrel::station {
namespace {

constexpr std::size_t kMostBodyBytes = 4096;
constexpr int kMostStreams = 32;
/// Streams hold a thread each; the rest are short.
constexpr std::size_t kThreads = kMostStreams + 8;
constexpr std::uint32_t kStreamStepMs = 500;
constexpr int kTimeoutSeconds = 10;

/// In the same time whatever differs.
bool SameText(const std::string& left, const std::string& right) {
  if (left.size() != right.size()) return false;
  unsigned difference = 0;
  for (std::size_t i = 0; i < left.size(); ++i) difference |= static_cast<unsigned char>(left[i] ^ right[i]);
  return difference == 0;
}

std::string Sha256(const std::string& text) {
  std::array<unsigned char, SHA256_DIGEST_LENGTH> digest{};
  SHA256(reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest.data());
  return fmt::format("{:02x}", fmt::join(digest, ""));
}

bool RightPassword(const WebSettings& settings, const std::string& password) {
  crypt_data data{};
  const char* const hash = crypt_r(password.c_str(), settings.passwordHash.c_str(), &data);
  return hash != nullptr && SameText(hash, settings.passwordHash);
}

// Whoever may read from here would otherwise let another page of the same browser send writes with its password.
bool OwnOrigin(const httplib::Request& request) {
  const std::string origin = request.get_header_value("Origin");
  if (origin.empty()) return true;
  const std::size_t host = origin.find("://");
  return host != std::string::npos && origin.substr(host + 3) == request.get_header_value("Host");
}

void Refuse(httplib::Response& response, int status, const std::string& reason) {
  Json json;
  json["error"] = reason;
  response.status = status;
  response.set_content(Dumped(json), "application/json");
}

std::string EventOf(const LiveChange& change) {
  Json json = TagJson(change.tag);
  json["meter"] = change.meter;
  return "data: " + Dumped(json) + "\n\n";
}

}  // namespace

WebServer::WebServer(const WebSettings& settings, WebParts parts) : settings_(settings), parts_(std::move(parts)) {
  if (settings_.certificateFile.empty()) {
    server_ = std::make_unique<httplib::Server>();
  } else {
    server_ = std::make_unique<httplib::SSLServer>(settings_.certificateFile.c_str(), settings_.keyFile.c_str());
  }
  if (!server_->is_valid()) throw host::Failure(host::kExitUsage, "web.certificate_file or key_file cannot be used");
  server_->new_task_queue = [] { return new httplib::ThreadPool(kThreads); };
  server_->set_payload_max_length(kMostBodyBytes);
  server_->set_read_timeout(kTimeoutSeconds);
  server_->set_write_timeout(kTimeoutSeconds);
  server_->set_keep_alive_timeout(kTimeoutSeconds);
  server_->set_tcp_nodelay(true);
  Guard();
  AddPages();
  AddApi();
  AddStream();
  if (!server_->bind_to_port(settings_.host, settings_.port)) {
    throw host::Failure(host::kExitUsage, fmt::format("web.address: {}:{} cannot be used", settings_.host, settings_.port));
  }
  thread_ = std::thread([this] {
    server_->listen_after_bind();
    listened_ = true;
  });
}

WebServer::~WebServer() {
  SignalStop();
  // A stop before the server listens would be forgotten.
  while (!server_->is_running() && !listened_) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  server_->stop();
  thread_.join();
}

void WebServer::SignalStop() {
  ending_ = true;
  parts_.live.WakeAll();
}

void WebServer::Guard() {
  server_->set_default_headers(
      {{"Content-Security-Policy",
        "default-src 'none'; script-src 'unsafe-inline'; style-src 'unsafe-inline'; connect-src 'self'; img-src data:"},
       {"X-Content-Type-Options", "nosniff"},
       {"X-Frame-Options", "DENY"},
       {"Referrer-Policy", "no-referrer"},
       {"Cache-Control", "no-store"}});
  server_->set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
    const bool open = request.path == "/healthz";
    if (open || !settings_.Guarded() || SignedIn(request)) return httplib::Server::HandlerResponse::Unhandled;
    Refuse(response, 401, "sign in");
    if (!settings_.passwordHash.empty()) response.set_header("WWW-Authenticate", "Basic realm=\"ostrel\", charset=\"UTF-8\"");
    return httplib::Server::HandlerResponse::Handled;
  });
  server_->set_exception_handler([](const httplib::Request&, httplib::Response& response, std::exception_ptr failure) {
    try {
      std::rethrow_exception(failure);
    } catch (const host::Failure& wrong) {
      Refuse(response, 400, wrong.what());
    } catch (const DatabaseError& away) {
      Refuse(response, 503, away.what());
    } catch (const std::exception& other) {
      Refuse(response, 500, other.what());
    }
  });
}

bool WebServer::SignedIn(const httplib::Request& request) {
  const std::string header = request.get_header_value("Authorization");
  if (header.empty()) return false;
  {
    const std::lock_guard lock(signedInMutex_);
    if (!signedIn_.empty() && SameText(header, signedIn_)) return true;
  }
  constexpr std::string_view kBearer = "Bearer ";
  bool right = false;
  if (header.starts_with(kBearer)) {
    right = !settings_.tokenHash.empty() && SameText(Sha256(header.substr(kBearer.size())), settings_.tokenHash);
  } else if (!settings_.passwordHash.empty()) {
    const std::optional<std::string> password = BasicPassword(header, settings_.user);
    right = password && RightPassword(settings_, *password);
  }
  if (!right) return false;
  const std::lock_guard lock(signedInMutex_);
  signedIn_ = header;
  return true;
}

void WebServer::AddPages() {
  server_->Get(
      "/", [](const httplib::Request&, httplib::Response& response) { response.set_content(kPage, "text/html; charset=utf-8"); });
  server_->Get("/metrics", [this](const httplib::Request&, httplib::Response& response) {
    response.set_content(MetricsText(parts_), "text/plain; version=0.0.4; charset=utf-8");
  });
  server_->Get("/healthz", [this](const httplib::Request&, httplib::Response& response) {
    const Json health = HealthJson(parts_);
    response.status = health["ok"].get<bool>() ? 200 : 503;
    response.set_content(Dumped(health), "application/json");
  });
}

void WebServer::AddApi() {
  for (const ApiRow& row : ApiRows()) {
    server_->Get(row.path, [this, &row](const httplib::Request& request, httplib::Response& response) {
      const Json answer = row.answer(parts_, [&](const char* key) { return request.get_param_value(key); });
      response.set_content(Dumped(answer), "application/json");
    });
  }
  if (!settings_.writes) return;
  server_->Post("/api/write", [this](const httplib::Request& request, httplib::Response& response) { Write(request, response); });
}

void WebServer::Write(const httplib::Request& request, httplib::Response& response) {
  if (!OwnOrigin(request)) return Refuse(response, 403, "asked by another page");
  const WriteRequest wanted = ParseWriteRequest(request.body);
  const auto answer = std::make_shared<std::promise<std::string>>();
  std::future<std::string> ready = answer->get_future();
  parts_.write(
      {.meter = request.get_param_value("meter"),
       .tag = request.get_param_value("tag"),
       .value = wanted.value,
       .source = "web " + request.remote_addr,
       .done = [answer, id = wanted.id](const host::WriteReport& report) { answer->set_value(WriteAnswer(id, report)); }});
  constexpr auto kWait = std::chrono::seconds(60);
  if (ready.wait_for(kWait) != std::future_status::ready)
    return Refuse(response, 504, "the write is under way; see the log of writes");
  response.set_content(ready.get(), "application/json");
}

void WebServer::AddStream() {
  server_->Get("/api/stream", [this](const httplib::Request& request, httplib::Response& response) {
    if (streams_ >= kMostStreams) return Refuse(response, 503, "too many pages are open");
    ++streams_;
    auto next = std::make_shared<std::uint64_t>(parts_.live.WaitForChanges(0, 0).next);
    const std::string meter = request.get_param_value("meter");
    response.set_chunked_content_provider(
        "text/event-stream",
        [this, next, meter](std::size_t, httplib::DataSink& sink) {
          if (ending_) return false;
          const LiveState::Changes changes = parts_.live.WaitForChanges(*next, kStreamStepMs);
          *next = changes.next;
          std::string text = changes.complete ? ": \n\n" : "event: anew\ndata: {}\n\n";
          for (const LiveChange& change : changes.changes) {
            if (meter.empty() || change.meter == meter) text += EventOf(change);
          }
          return sink.write(text.data(), text.size());
        },
        [this](bool) { --streams_; });
  });
}

}  // namespace ostrel::station
