#include "HostileModule.h"

#include "Encoding.h"

#include <openssl/err.h>

#include <algorithm>
#include <limits>

namespace krFuzz::hostileModule {
namespace {

using krOpenSSL::FipsModule;
using krOpenSSL::KeyHandleCell;

int answer() {
  ERR_put_error(ERR_LIB_USER, 0, 1, __FILE__, __LINE__);
  failed = failed || input->ConsumeIntegral<unsigned char>() % 16 == 1;
  return failed ? 7 : 0;
}

template <class... Rest> void take(FipsModule::Bytes bytes, Length length, Rest... rest) {
  require((bytes == nullptr) == (length == 0), "no number is null and 0");
  loaded.push_back(bytes != nullptr ? Number(Bytes(bytes, bytes + length)) : std::nullopt);
  if constexpr (sizeof...(rest) > 0) {
    take(rest...);
  }
}

constexpr auto load = [](void * /*context*/, KeyHandleCell *cell, Length cellBytes, void * /*generator*/,
                         auto... numbers) {
  require(cell->handle == nullptr && cellBytes == sizeof *cell, "the key before was freed");
  loaded.clear();
  take(numbers...);
  cell->handle = &loaded;
  return answer();
};

int letGo(KeyHandleCell *cell) {
  cell->handle = nullptr;
  return 0;
}

/// Fills the room and claims to have written anything.
void give(unsigned char *out, Length room, Length *written, Bytes bytes = {}) {
  const auto size = static_cast<std::size_t>(room);
  if (bytes.empty()) {
    bytes = input->ConsumeBytes<unsigned char>(size);
  }
  bytes.resize(size);
  std::copy(bytes.begin(), bytes.end(), out);
  const Length other = input->PickValueInArray({room + 1, room - 1, Length{0}, Length{-1}, Length{1} << 32U,
                                                input->ConsumeIntegral<Length>(), std::numeric_limits<Length>::min()});
  *written = input->ConsumeIntegral<unsigned char>() % 4 == 1 ? other : room;
  given.push_back({std::move(bytes), *written});
}

/// Fills a room that has no claim beside it.
void fill(unsigned char *out, Length room) {
  Bytes bytes = input->ConsumeBytes<unsigned char>(static_cast<std::size_t>(room));
  bytes.resize(static_cast<std::size_t>(room));
  std::copy(bytes.begin(), bytes.end(), out);
  given.push_back({std::move(bytes), room});
}

template <class... Rest> void giveAll(unsigned char *out, Length *length, Rest... rest) {
  if (out != nullptr) {
    give(out, *length, length);
  }
  if constexpr (sizeof...(rest) > 0) {
    giveAll(rest...);
  }
}

constexpr auto exportKey = [](KeyHandleCell * /*cell*/, auto... numbers) {
  giveAll(numbers...);
  return answer();
};

int rsaStep(KeyHandleCell * /*cell*/, const unsigned char * /*in*/, Length /*length*/, Length padding,
            unsigned char *out, Length *written) {
  ++steps;
  require(*written == 0 && padding >= 0 && padding <= 3, "the arguments are the operation's");
  give(out, static_cast<Length>(loaded.at(0)->size()), written);
  return answer();
}

} // namespace

const FipsModule table = [] {
  FipsModule module{};
  module.RngInstantiate = [](auto...) { return 0; };
  module.RsaLoadPublicKey = load;
  module.RsaLoadPrivateKey = load;
  module.RsaPublicEncrypt = module.RsaPrivateDecrypt = module.RsaPrivateEncrypt = module.RsaPublicDecrypt = rsaStep;
  module.RsaGenerateKey = [](void *, KeyHandleCell *, Length, void *, Length, std::uint32_t) { return answer(); };
  module.RsaExportKey = exportKey;
  module.RsaGenerateKeyDone = [](KeyHandleCell *) { return ++steps; };
  module.RsaFree = module.DsaFree = module.DhFree = letGo;
  module.DsaLoadKey = load;
  module.DsaGenerateKey = [](KeyHandleCell *) { return answer(); };
  module.DsaExportKey = exportKey;
  module.DsaSign = [](KeyHandleCell *, const unsigned char *, Length, unsigned char *der, Length *length, void *,
                      Length) {
    ++steps;
    give(der, *length, length, input->ConsumeBool() ? encodedSignature(takeBytes(*input, 20)) : Bytes{});
    return answer();
  };
  module.DsaGenerateParameters = [](void *, KeyHandleCell *, Length, void *, Length bits, FipsModule::Bytes, Length,
                                    void *, std::int32_t *counter, unsigned char *h) {
    *counter = 105;
    fill(h, (bits + 7) / 8);
    return answer();
  };
  module.DhGetPrime = [](KeyHandleCell *, unsigned char *out, Length length) {
    fill(out, length);
    return answer();
  };
  module.DhCreate = [](void *context, KeyHandleCell *cell, Length cellBytes, void *generator, FipsModule::Bytes g,
                       Length gLength, FipsModule::Bytes p, Length pLength) {
    return load(context, cell, cellBytes, generator, g, gLength, p, p != nullptr ? pLength : 0);
  };
  module.DhGenerateKey = [](KeyHandleCell *, unsigned char *out, Length *length, Length room, FipsModule::Bytes key,
                            Length keyLength) {
    take(key, keyLength);
    give(out, room, length);
    return answer();
  };
  module.DhComputeKey = [](KeyHandleCell *, unsigned char *out, Length *written, Length room, FipsModule::Bytes peer,
                           Length peerLength) {
    ++steps;
    take(peer, peerLength);
    give(out, room, written);
    return answer();
  };
  return module;
}();

void startOver() {
  loaded.clear();
  given.clear();
  steps = 0;
  failed = false;
}

} // namespace krFuzz::hostileModule
