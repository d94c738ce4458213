// What the holder has done, counted.
#include "Metrics.h"

#include <array>
#include <cstdio>
#include <fstream>
#include <sstream>

namespace krHolder {

std::string_view nameOf(Operation operation) {
  constexpr std::array<std::string_view, 7> kNames{"none", "hello", "ping", "public", "sign", "decrypt", "raw"};
  return kNames.at(static_cast<std::size_t>(operation));
}

std::string_view nameOf(Status status) {
  constexpr std::array<std::string_view, 7> kNames{"ok",          "refused", "no_key", "wrong_key",
                                                   "bad_request", "busy",    "failed"};
  return kNames.at(static_cast<std::size_t>(status));
}

void Metrics::count(const std::string &key, Operation operation, Status status, std::chrono::nanoseconds took) {
  const std::lock_guard lock(mutex_);
  Cell &cell = cells_[{key, operation, status}];
  ++cell.count;
  cell.time += took;
}

std::string Metrics::text(std::size_t connections) const {
  std::ostringstream out;
  out << "# TYPE krholder_connections gauge\nkrholder_connections " << connections << '\n'
      << "# TYPE krholder_operations_total counter\n";
  const std::lock_guard lock(mutex_);
  const auto line = [&](std::string_view name, const auto &cell, auto value) {
    const auto &[key, operation, status] = cell.first;
    out << name << "{key=\"" << key << "\",operation=\"" << nameOf(operation) << "\",outcome=\"" << nameOf(status)
        << "\"} " << value << '\n';
  };
  for (const auto &cell : cells_) {
    line("krholder_operations_total", cell, cell.second.count);
  }
  out << "# TYPE krholder_operation_seconds_total counter\n";
  for (const auto &cell : cells_) {
    line("krholder_operation_seconds_total", cell, std::chrono::duration<double>(cell.second.time).count());
  }
  return out.str();
}

bool Metrics::write(const std::string &file, std::size_t connections) const {
  const std::string fresh = file + ".new";
  std::ofstream out(fresh, std::ios::trunc);
  out << text(connections);
  out.close();
  return out && std::rename(fresh.c_str(), file.c_str()) == 0;
}

} // namespace krHolder
