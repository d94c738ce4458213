// Handshakes of a server of OpenSSL 3 with a key reference against those with the key file that it stands for:
// processor time of the server's side and of the holder together, with one core for everything, and with all; and how
// many are made in a second. Uses the system's OpenSSL 3, not the library.
#include <benchmark/benchmark.h>

#include <openssl/pem.h>
#include <openssl/provider.h>
#include <openssl/ssl.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <sched.h>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

template <auto free> struct Free {
  template <class T> void operator()(T *object) const { static_cast<void>(free(object)); }
};
using KeyPtr = std::unique_ptr<EVP_PKEY, Free<EVP_PKEY_free>>;
using CertificatePtr = std::unique_ptr<X509, Free<X509_free>>;
using ContextPtr = std::unique_ptr<SSL_CTX, Free<SSL_CTX_free>>;
using ConnectionPtr = std::unique_ptr<SSL, Free<SSL_free>>;
using FilePtr = std::unique_ptr<std::FILE, Free<std::fclose>>;

void require(bool good, const char *what) {
  if (!good) {
    throw std::runtime_error(what);
  }
}

double secondsOf(clockid_t clock) {
  timespec time{};
  require(clock_gettime(clock, &time) == 0, "a processor clock cannot be read");
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

class Folder {
public:
  Folder() { require(mkdtemp(path_.data()) != nullptr, "no temporary folder"); }
  ~Folder() { std::filesystem::remove_all(path_); }
  Folder(const Folder &) = delete;
  Folder &operator=(const Folder &) = delete;
  std::string operator/(const std::string &name) const { return path_ + "/" + name; }

private:
  std::string path_ = "/tmp/references.XXXXXX";
};

pid_t start(const std::vector<std::string> &words) {
  std::vector<char *> arguments;
  arguments.reserve(words.size() + 1);
  for (const auto &word : words) {
    arguments.push_back(const_cast<char *>(word.c_str()));
  }
  arguments.push_back(nullptr);
  const pid_t process = fork();
  require(process >= 0, "no process");
  if (process == 0) {
    if (std::freopen("/dev/null", "w", stderr) != nullptr) {
      execv(arguments[0], arguments.data());
    }
    _exit(EXIT_FAILURE);
  }
  return process;
}

bool run(const std::vector<std::string> &words) {
  int status = 0;
  return waitpid(start(words), &status, 0) > 0 && status == 0;
}

cpu_set_t coresOfProgram() {
  cpu_set_t cores;
  require(sched_getaffinity(0, sizeof cores, &cores) == 0, "the cores cannot be read");
  return cores;
}

cpu_set_t oneOf(const cpu_set_t &cores) {
  std::size_t first = 0;
  while (CPU_ISSET(first, &cores) == 0) {
    ++first;
  }
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(first, &one);
  return one;
}

// All threads of a process; those to come are made by one of them.
void confine(pid_t process, const cpu_set_t &cores) {
  for (const auto &thread : std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
    sched_setaffinity(std::stoi(thread.path().filename()), sizeof cores, &cores);
  }
}

// A holder of both keys, as long as this lives.
class Holder {
public:
  explicit Holder(const Folder &folder) {
    std::ofstream config(folder / "config");
    config << "socket = \"" << folder / "socket"
           << "\"\n";
    for (const std::string key : {"rsa", "ec"}) {
      config << "[keys." << key << "]\nfile = \"" << folder / key << ".pem\"\nusers = [" << getuid() << "]\n";
    }
    config.close();
    process_ = start({KR_HOLDER, folder / "config"});
    for (int trials = 0; !run({KR_REF, "make", "rsa", folder / "rsa.ref"}); ++trials) {
      require(trials < 1000, "the holder does not start");
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    require(run({KR_REF, "make", "ec", folder / "ec.ref"}), "no reference");
    require(clock_getcpuclockid(process_, &clock_) == 0, "the holder has no processor clock");
  }
  ~Holder() {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }
  Holder(const Holder &) = delete;
  Holder &operator=(const Holder &) = delete;
  double seconds() const { return secondsOf(clock_); }
  pid_t process() const { return process_; }

private:
  pid_t process_ = 0;
  clockid_t clock_{};
};

void makeKey(const Folder &folder, const std::string &name, const KeyPtr &key) {
  const CertificatePtr certificate(X509_new());
  X509_gmtime_adj(X509_getm_notBefore(certificate.get()), 0);
  X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 86400);
  X509_set_pubkey(certificate.get(), key.get());
  X509_sign(certificate.get(), key.get(), EVP_sha256());
  umask(S_IRWXG | S_IRWXO);
  const FilePtr keyFile(std::fopen((folder / (name + ".pem")).c_str(), "w"));
  const FilePtr certificateFile(std::fopen((folder / (name + ".crt")).c_str(), "w"));
  require(PEM_write_PrivateKey(keyFile.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr) == 1 &&
              PEM_write_X509(certificateFile.get(), certificate.get()) == 1,
          "no key");
}

struct Case {
  const char *name;
  int version;
  const char *key;
};
constexpr std::array kCases{Case{"TLS 1.2 RSA-2048", TLS1_2_VERSION, "rsa"},
                            Case{"TLS 1.2 ECDSA P-256", TLS1_2_VERSION, "ec"},
                            Case{"TLS 1.3 ECDSA P-256", TLS1_3_VERSION, "ec"}};

ContextPtr makeContext(const SSL_METHOD *method, int version) {
  ContextPtr context(SSL_CTX_new(method));
  SSL_CTX_set_min_proto_version(context.get(), version);
  SSL_CTX_set_max_proto_version(context.get(), version);
  return context;
}

class Scene {
public:
  Scene(const Case &row, const Folder &folder, const char *keyFile, const Holder &holder)
      : server_(makeContext(TLS_server_method(), row.version)), client_(makeContext(TLS_client_method(), row.version)),
        holder_(holder) {
    const std::string name = folder / row.key;
    require(SSL_CTX_use_certificate_file(server_.get(), (name + ".crt").c_str(), SSL_FILETYPE_PEM) == 1 &&
                SSL_CTX_use_PrivateKey_file(server_.get(), (name + keyFile).c_str(), SSL_FILETYPE_PEM) == 1,
            "the server does not take its key");
  }

  void confineTo(const cpu_set_t &cores) const {
    confine(getpid(), cores);
    confine(holder_.process(), cores);
  }

  // A full handshake: what its server's side and the holder took.
  double play() const {
    const double holderBefore = holder_.seconds();
    double server = -secondsOf(CLOCK_THREAD_CPUTIME_ID);
    const ConnectionPtr served(SSL_new(server_.get()));
    SSL_set_accept_state(served.get());
    server += secondsOf(CLOCK_THREAD_CPUTIME_ID);
    const ConnectionPtr client(SSL_new(client_.get()));
    SSL_set_connect_state(client.get());
    connectBoth(served.get(), client.get());
    for (int turn = 0; turn < 10 && SSL_is_init_finished(served.get()) == 0; ++turn) {
      SSL_do_handshake(client.get());
      server -= secondsOf(CLOCK_THREAD_CPUTIME_ID);
      SSL_do_handshake(served.get());
      server += secondsOf(CLOCK_THREAD_CPUTIME_ID);
    }
    require(SSL_is_init_finished(served.get()) != 0, "a handshake failed");
    return server + holder_.seconds() - holderBefore;
  }

private:
  static void connectBoth(SSL *server, SSL *client) {
    BIO *serverSide = nullptr;
    BIO *clientSide = nullptr;
    require(BIO_new_bio_pair(&serverSide, 0, &clientSide, 0) == 1, "no memory");
    SSL_set_bio(server, serverSide, serverSide);
    SSL_set_bio(client, clientSide, clientSide);
  }

  ContextPtr server_;
  ContextPtr client_;
  const Holder &holder_;
};

using SharedScene = std::shared_ptr<const Scene>;

benchmark::internal::Benchmark *add(const std::string &name, const SharedScene &scene, const cpu_set_t &cores) {
  return benchmark::RegisterBenchmark(name.c_str(), [scene, cores](benchmark::State &state) {
    scene->confineTo(cores);
    for ([[maybe_unused]] auto round : state) {
      state.SetIterationTime(scene->play());
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
  });
}

void measureAll() {
  const Folder folder;
  setenv("KRHOLDER_SOCKET", (folder / "socket").c_str(), 1); // NOLINT(concurrency-mt-unsafe): there is one thread
  makeKey(folder, "rsa", KeyPtr(EVP_RSA_gen(2048)));
  makeKey(folder, "ec", KeyPtr(EVP_EC_gen("P-256")));
  const Holder holder(folder);
  OSSL_PROVIDER_set_default_search_path(nullptr, KR_PROVIDER_DIR);
  require(OSSL_PROVIDER_load(nullptr, "default") != nullptr && OSSL_PROVIDER_load(nullptr, "krprovider") != nullptr,
          "the provider cannot be loaded");
  const cpu_set_t all = coresOfProgram();
  for (const Case &row : kCases) {
    const std::string name = std::string("reference/") + row.name;
    const std::array<std::pair<std::string, SharedScene>, 2> ways{
        {{name + "/key file", std::make_shared<const Scene>(row, folder, ".pem", holder)},
         {name + "/reference", std::make_shared<const Scene>(row, folder, ".ref", holder)}}};
    for (const auto &[way, scene] : ways) {
      add(way + "/one core", scene, oneOf(all))->UseManualTime();
    }
    for (const auto &[way, scene] : ways) {
      add(way + "/all cores", scene, all)->UseManualTime();
    }
    for (const auto &[way, scene] : ways) {
      add(way, scene, all)->UseRealTime()->Threads(4);
    }
  }
  benchmark::ConsoleReporter reporter(benchmark::ConsoleReporter::OO_Tabular);
  reporter.SetOutputStream(&std::cerr);
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::ClearRegisteredBenchmarks();
}

} // namespace

int main(int argc, char **argv) {
  try {
    benchmark::Initialize(&argc, argv);
    measureAll();
    return EXIT_SUCCESS;
  } catch (const std::exception &failure) {
    std::cerr << "bench_references: " << failure.what() << '\n';
    return EXIT_FAILURE;
  }
}
