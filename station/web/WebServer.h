// The page, what it asks for, metrics and the state for a supervisor, over HTTP or HTTPS. Read-only but for writes where they
// are allowed; what it serves is made here, there is no folder behind it.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "station/archive/Readers.h"
#include "station/archive/Writer.h"
#include "station/collect/ChannelWorker.h"
#include "station/settings/Settings.h"

namespace httplib {
class Server;
struct Request;
struct Response;
}  // namespace httplib

namespace ostrel::station {

struct WebParts {
  std::string station;
  LiveState& live;
  Readers& readers;
  Writer& writer;
  std::function<bool()> alive;
  std::function<std::optional<bool>()> brokerConnected;  // nothing without a broker
  std::function<void(const WriteOrder&)> write;
};

class WebServer {
 public:
  /// Throws host::Failure when the address cannot be used.
  WebServer(const WebSettings& settings, WebParts parts);
  ~WebServer();
  WebServer(const WebServer&) = delete;
  WebServer& operator=(const WebServer&) = delete;

  void SignalStop();

 private:
  void AddPages();
  void AddApi();
  void AddStream();
  void Guard();
  [[nodiscard]] bool SignedIn(const httplib::Request& request);
  void Write(const httplib::Request& request, httplib::Response& response);

  WebSettings settings_;
  WebParts parts_;
  std::unique_ptr<httplib::Server> server_;
  std::atomic<bool> ending_{false};
  std::atomic<bool> listened_{false};  // and has ended
  std::atomic<int> streams_{0};
  std::mutex signedInMutex_;
  std::string signedIn_;  // the last header that was right: password hashes are slow on purpose
  std::thread thread_;
};

}  // namespace ostrel::station
