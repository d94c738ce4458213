// The holder as a whole: takes connections until it is told to stop.
#pragma once

#include "Connections.h"
#include "Dialogue.h"

namespace krHolder {

class Server {
public:
  /// @param configFile  is read now, and anew with each reload
  /// @throws Unusable for a configuration, a key or a socket that cannot be used
  Server(std::string configFile, BackEnds backEnds);

  /// Serves until SIGTERM or SIGINT, which have the answers under way finished. SIGHUP reads configuration and keys
  /// anew; what is wrong with them is logged, and the old ones stay.
  void run();

private:
  static Descriptor signalsOfInterest();
  void accept();
  void reload();
  void writeMetrics();
  std::shared_ptr<const Service> current() const;

  const Descriptor signals_ = signalsOfInterest(); // before a key's back end may begin threads
  const std::string configFile_;
  const BackEnds backEnds_;
  Config config_;
  Metrics metrics_;
  Clock::time_point metricsDue_ = Clock::now();
  mutable std::mutex mutex_; // of service_
  std::shared_ptr<const Service> service_;
  Descriptor listening_;
  Connections connections_;
};

} // namespace krHolder
