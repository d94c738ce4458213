// delegated_tls: TLS handshakes with private keys that OpenSSL does not have.
#include "Demo.h"
#include "Failure.h"
#include "Server.h"

#include <charconv>
#include <iostream>
#include <span>
#include <string_view>

namespace {

using namespace delegated_tls;

constexpr std::string_view kUsage =
    "usage: delegated_tls serve --cert CHAIN.pem --key KEY.pem [--port N] [--holder process|memory]\n"
    "       delegated_tls demo [--quiet] [--holder process|memory]\n"
    "\n"
    "serve  a TLS server on 127.0.0.1 whose private key stays with a key holder: a process of its own\n"
    "       (process) or an object in this one (memory)\n"
    "demo   a handshake for each way of signing, with throw-away keys\n"
    "\n"
    "The library's trace lines go to standard output, everything else to standard error.\n";

/// The arguments after the command, taken from the front.
class Arguments {
public:
  explicit Arguments(std::span<char *> rest) : rest_(rest) {}

  bool empty() const { return rest_.empty(); }
  std::string_view next() {
    const std::string_view argument = rest_.front();
    rest_ = rest_.subspan(1);
    return argument;
  }
  std::string_view valueOf(std::string_view option) {
    if (empty()) {
      throw UsageFailure(std::string(option) + " needs a value");
    }
    return next();
  }

private:
  std::span<char *> rest_;
};

HolderKind holderKind(std::string_view name) {
  if (name == "process") {
    return HolderKind::process;
  }
  if (name == "memory") {
    return HolderKind::memory;
  }
  throw UsageFailure("--holder is process or memory, not '" + std::string(name) + "'");
}

std::uint16_t portNumber(std::string_view text) {
  std::uint16_t port = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
  if (error != std::errc() || end != text.data() + text.size()) {
    throw UsageFailure("--port is a number from 0 to 65535, not '" + std::string(text) + "'");
  }
  return port;
}

int runServe(Arguments arguments) {
  ServeOptions options;
  while (!arguments.empty()) {
    const std::string_view option = arguments.next();
    if (option == "--cert") {
      options.certificateChain = arguments.valueOf(option);
    } else if (option == "--key") {
      options.privateKey = arguments.valueOf(option);
    } else if (option == "--port") {
      options.port = portNumber(arguments.valueOf(option));
    } else if (option == "--holder") {
      options.holder = holderKind(arguments.valueOf(option));
    } else {
      throw UsageFailure("unknown option '" + std::string(option) + "'");
    }
  }
  if (options.certificateChain.empty() || options.privateKey.empty()) {
    throw UsageFailure("serve needs --cert and --key");
  }
  serve(options);
  return 0;
}

int runDemoCommand(Arguments arguments) {
  DemoOptions options;
  while (!arguments.empty()) {
    const std::string_view option = arguments.next();
    if (option == "--quiet") {
      options.quiet = true;
    } else if (option == "--holder") {
      options.holder = holderKind(arguments.valueOf(option));
    } else {
      throw UsageFailure("unknown option '" + std::string(option) + "'");
    }
  }
  return runDemo(options) ? 0 : 1;
}

int run(Arguments arguments) {
  const std::string_view command = arguments.empty() ? "" : arguments.next();
  if (command == "serve") {
    return runServe(arguments);
  }
  if (command == "demo") {
    return runDemoCommand(arguments);
  }
  if (command == "--help" || command == "-h") {
    std::cerr << kUsage;
    return 0;
  }
  throw UsageFailure(command.empty() ? "a command is missing" : "unknown command '" + std::string(command) + "'");
}

} // namespace

int main(int argc, char **argv) {
  try {
    return run(Arguments({argv + 1, static_cast<std::size_t>(argc > 0 ? argc - 1 : 0)}));
  } catch (const UsageFailure &failure) {
    std::cerr << "delegated_tls: " << failure.what() << "\n\n" << kUsage;
    return 2;
  } catch (const std::exception &failure) {
    std::cerr << "delegated_tls: " << failure.what() << '\n';
    return 1;
  }
}
