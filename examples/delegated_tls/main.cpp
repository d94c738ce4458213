// delegated_tls: TLS handshakes with private keys that OpenSSL does not have.
#include "Demo.h"
#include "Failure.h"
#include "Service.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <iostream>
#include <span>
#include <string_view>

namespace {

using namespace delegated_tls;

bool isHelp(std::string_view argument) { return argument == "--help" || argument == "-h"; }

/// The arguments after the command, taken from the front.
class Arguments {
public:
  explicit Arguments(std::span<char *> rest) : rest_(rest) {}

  bool empty() const { return rest_.empty(); }
  bool askForHelp() const { return std::ranges::any_of(rest_, isHelp); }
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

HolderKind holderKind(std::string_view name, const std::string &choices) {
  if (name == "process") {
    return HolderKind::process;
  }
  if (name == "memory") {
    return HolderKind::memory;
  }
  throw UsageFailure("--holder is " + choices + ", not '" + std::string(name) + "'");
}

std::uint16_t number(std::string_view text, const std::string &option, std::uint16_t most) {
  std::uint16_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || value > most) {
    throw UsageFailure(option + " is a number from 0 to " + std::to_string(most) + ", not '" + std::string(text) + "'");
  }
  return value;
}

/// What serve was given, before it is known which holder it is for.
struct ServeValues {
  std::string_view certificateChain, privateKey, clientAuthorities, port = "0", threads = "0", holder, module,
                                                                    tokenLabel, pinFile;
};
struct ServeOption {
  std::string_view name;
  std::string_view ServeValues::*value;
};
constexpr std::array kServeOptions{
    ServeOption{"--cert", &ServeValues::certificateChain},
    ServeOption{"--key", &ServeValues::privateKey},
    ServeOption{"--client-ca", &ServeValues::clientAuthorities},
    ServeOption{"--port", &ServeValues::port},
    ServeOption{"--threads", &ServeValues::threads},
    ServeOption{"--holder", &ServeValues::holder},
    ServeOption{"--module", &ServeValues::module},
    ServeOption{"--token-label", &ServeValues::tokenLabel},
    ServeOption{"--pin-file", &ServeValues::pinFile},
};

ServeValues serveValues(Arguments arguments) {
  ServeValues values;
  while (!arguments.empty()) {
    const std::string_view name = arguments.next();
    const auto option = std::ranges::find(kServeOptions, name, &ServeOption::name);
    if (option == kServeOptions.end()) {
      throw UsageFailure("unknown option '" + std::string(name) + "'");
    }
    values.*option->value = arguments.valueOf(name);
  }
  return values;
}

void useToken(const ServeValues &values, ServeOptions &options) {
  if (!values.privateKey.empty()) {
    throw UsageFailure("--key is not for --holder pkcs11: the key is the token's that belongs to the certificate");
  }
  if (values.certificateChain.empty() || values.module.empty() || values.tokenLabel.empty() || values.pinFile.empty()) {
    throw UsageFailure("serve with --holder pkcs11 needs --cert, --module, --token-label and --pin-file");
  }
  options.token = TokenOptions{std::string(values.module), std::string(values.tokenLabel), std::string(values.pinFile)};
}

void useKeyFile(const ServeValues &values, ServeOptions &options) {
  if (!values.module.empty() || !values.tokenLabel.empty() || !values.pinFile.empty()) {
    throw UsageFailure("--module, --token-label and --pin-file are for --holder pkcs11 only");
  }
  if (values.certificateChain.empty() || values.privateKey.empty()) {
    throw UsageFailure("serve needs --cert and --key");
  }
  options.privateKey = values.privateKey;
  if (!values.holder.empty()) {
    options.holder = holderKind(values.holder, "process, memory or pkcs11");
  }
}

int runServe(Arguments arguments) {
  const ServeValues values = serveValues(arguments);
  ServeOptions options;
  options.certificateChain = values.certificateChain;
  options.clientAuthorities = values.clientAuthorities;
  options.port = number(values.port, "--port", 65535);
  options.threads = number(values.threads, "--threads", 256);
  values.holder == "pkcs11" ? useToken(values, options) : useKeyFile(values, options);
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
      options.holder = holderKind(arguments.valueOf(option), "process or memory");
    } else {
      throw UsageFailure("unknown option '" + std::string(option) + "'");
    }
  }
  return runDemo(options) ? 0 : 1;
}

/// What the program can be asked to do.
struct Verb {
  std::string_view name;
  std::string_view usage;
  std::string_view help;
  int (*run)(Arguments arguments);
};

constexpr std::array kVerbs{
    Verb{"serve",
         "delegated_tls serve --cert CHAIN.pem --key KEY.pem [--port N] [--holder process|memory]\n"
         "       delegated_tls serve --cert CHAIN.pem --holder pkcs11 --module MODULE.so --token-label LABEL\n"
         "                           --pin-file FILE [--port N]\n"
         "       either with [--client-ca FILE.pem] [--threads N]\n",
         "a TLS server on 127.0.0.1 whose private key stays with a key holder: a process of its own\n"
         "       (process), an object in this one (memory) or a PKCS#11 token (pkcs11). The token's key is the one\n"
         "       that belongs to the certificate: an RSA key is found by its modulus, an EC key by its public key\n"
         "       object on the token, whose CKA_ID the private key shares. Without --port it takes a free one.\n"
         "       With --client-ca clients need a certificate from one of the file's authorities. One thread serves "
         "them\n"
         "       all (where the program is built without an event loop, 16), or as many as --threads says.\n",
         runServe},
    Verb{"demo", "delegated_tls demo [--quiet] [--holder process|memory]\n",
         "a handshake for each way of signing, with throw-away keys. With --quiet the library's trace goes to a\n"
         "       file in the temporary directory, which stays only when a handshake fails.\n",
         runDemoCommand},
};

std::string usageOf(std::span<const Verb> verbs) {
  std::string text;
  for (const Verb &verb : verbs) {
    text.append(text.empty() ? "usage: " : "       ").append(verb.usage);
  }
  text += '\n';
  for (const Verb &verb : verbs) {
    text.append(verb.name).append(7 - verb.name.size(), ' ').append(verb.help);
  }
  return text + "\nThe library's trace lines go to standard output, unless the environment says KR_TRACE=off. The "
                "program's own\n"
                "lines go to standard error.\n";
}

int help(std::span<const Verb> verbs) {
  std::cout << usageOf(verbs);
  return 0;
}

int run(Arguments arguments) {
  const std::string_view command = arguments.empty() ? "" : arguments.next();
  if (isHelp(command)) {
    return help(kVerbs);
  }
  const auto verb = std::ranges::find(kVerbs, command, &Verb::name);
  if (verb == kVerbs.end()) {
    throw UsageFailure(command.empty() ? "a command is missing" : "unknown command '" + std::string(command) + "'");
  }
  return arguments.askForHelp() ? help({verb, 1}) : verb->run(arguments);
}

} // namespace

int main(int argc, char **argv) {
  try {
    return run(Arguments({argv + 1, static_cast<std::size_t>(argc > 0 ? argc - 1 : 0)}));
  } catch (const UsageFailure &failure) {
    std::cerr << "delegated_tls: " << failure.what() << "\n\n" << usageOf(kVerbs);
    return 2;
  } catch (const std::exception &failure) {
    std::cerr << "delegated_tls: " << failure.what() << '\n';
    return 1;
  }
}
