// A handful of threads, each taking one connection after the other.
#include "Failure.h"
#include "Service.h"
#include "StopSignals.h"
#include "threads/Connection.h"

#include <mutex>
#include <set>
#include <thread>
#include <vector>

namespace delegated_tls {
namespace {

constexpr unsigned kConnectionsAtOnce = 16;

/// The connections being served, so that stopping the server does not wait for slow clients.
class LiveConnections {
public:
  class Entry {
  public:
    Entry(LiveConnections &all, const Descriptor &connection) : all_(all), descriptor_(connection.get()) {
      const std::scoped_lock lock(all_.mutex_);
      all_.descriptors_.insert(descriptor_);
      if (all_.stopped_) { // accepted just before
        stopConnection(descriptor_);
      }
    }
    ~Entry() {
      const std::scoped_lock lock(all_.mutex_);
      all_.descriptors_.erase(descriptor_);
    }
    Entry(const Entry &) = delete;
    Entry &operator=(const Entry &) = delete;

  private:
    LiveConnections &all_;
    int descriptor_;
  };

  void stopAll() {
    const std::scoped_lock lock(mutex_);
    stopped_ = true;
    for (const int descriptor : descriptors_) {
      stopConnection(descriptor);
    }
  }

private:
  std::mutex mutex_;
  std::set<int> descriptors_;
  bool stopped_ = false;
};

class ThreadServer {
public:
  ThreadServer(Service &service, Descriptor listener) : service_(service), listener_(std::move(listener)) {}

  void run(unsigned count, const StopSignals &stopSignals) {
    std::vector<std::jthread> threads;
    for (unsigned i = 0; i < count; ++i) {
      threads.emplace_back([this] { acceptConnections(); });
    }
    stopSignals.wait();
    stopListening(listener_);
    live_.stopAll();
  }

private:
  void acceptConnections() {
    while (const Descriptor socket = acceptConnection(listener_)) {
      const std::string client = peerOf(socket);
      try {
        const LiveConnections::Entry entry(live_, socket);
        Connection connection(service_.connection(), socket);
        serveConnection(connection);
      } catch (const std::exception &failure) {
        report(std::string("connection failed: ") + failure.what() + " (client " + client + ')');
      }
    }
  }

  void serveConnection(Connection &connection) {
    connection.shakeHands();
    const std::string agreed = service_.describe(connection.ssl());
    report("handshake: " + agreed);
    if (const std::string request = connection.readRequest(); !request.empty()) {
      connection.write(Service::answerTo(request, agreed));
    }
    connection.close();
  }

  Service &service_;
  Descriptor listener_;
  LiveConnections live_;
};

} // namespace

void serve(const ServeOptions &options) {
  const StopSignals stopSignals;
  Service service(options, waitForHolder);
  Descriptor listener = listenOnLoopback(options.port);
  report("listening on 127.0.0.1:" + std::to_string(portOf(listener)) + ", the private key is held by " +
         service.holderName());
  ThreadServer(service, std::move(listener))
      .run(options.threads != 0 ? options.threads : kConnectionsAtOnce, stopSignals);
}

} // namespace delegated_tls
