// Numbers on their way to the FIPS module and back: any number, room and claim of what was written.
#include "Fuzz.h"

#include "fipsbridge/BigNumbers.h"
#include "fipsbridge/KeyCells.h"

#include <array>
#include <limits>

namespace {

using namespace krFuzz;
using namespace krOpenSSL;

constexpr std::int64_t kMost = 3000;

BIGNUMPtr takeNumber(FuzzedDataProvider &input) {
  const Bytes bytes = takeBytes(input, kMost);
  BIGNUMPtr number(input.ConsumeBool() ? BN_new() : BN_secure_new());
  BN_bin2bn(bytes.data(), static_cast<int>(bytes.size()), number.get());
  BN_set_negative(number.get(), input.ConsumeBool() ? 1 : 0);
  BN_set_flags(number.get(), input.ConsumeBool() ? BN_FLG_CONSTTIME : 0);
  return number;
}

std::int64_t takeLength(FuzzedDataProvider &input, std::int64_t room) {
  return input.PickValueInArray({room, room, room + 1, room - 1, std::int64_t{0}, std::int64_t{-1},
                                 input.ConsumeIntegral<std::int64_t>(), std::numeric_limits<std::int64_t>::min(),
                                 std::numeric_limits<std::int64_t>::max(), (std::int64_t{1} << 32U) + 1});
}

void checkExport(const BIGNUM *number) {
  ExportedNumber first;
  ExportedNumber absent;
  ExportedNumber last;
  const int code = exportNumbers({{first, number}, {absent, nullptr}, {last, number}});
  require(code == (BN_is_zero(number) ? kNothingToLoad : 0), "a number without bytes is refused, and no other");
  require(absent.bytes() == nullptr && absent.length() == 0, "no number is null and 0");
  const auto size = static_cast<std::size_t>(BN_num_bytes(number));
  Bytes bytes(size);
  BN_bn2bin(number, bytes.data());
  for (const ExportedNumber *exported : {&first, &last}) {
    require(exported->length() == BN_num_bytes(number), "the length is the number's");
    require(Bytes(exported->bytes(), exported->bytes() + size) == bytes, "the bytes are the number's");
  }
}

void checkReturn(FuzzedDataProvider &input, const BIGNUM *like) {
  const auto room = input.ConsumeIntegralInRange<std::int64_t>(-2, kMost);
  const std::int64_t claim = takeLength(input, room);
  Bytes bytes = input.ConsumeRemainingBytes<unsigned char>();
  bytes.resize(static_cast<std::size_t>(std::max<std::int64_t>(room, 0)));

  ReturnedNumber returned;
  require(returned.allocate(room) == (room > 0), "there is room for what has a size");
  require(*returned.length() == room, "the module is told the room");
  std::copy(bytes.begin(), bytes.end(), returned.buffer());
  *returned.length() = claim;
  const BIGNUMPtr number = returned.number(like);
  const bool possible = claim >= 0 && claim <= static_cast<std::int64_t>(bytes.size());
  require((number != nullptr) == possible, "a claim beyond the room gives no number");
  require(reportedLength(claim, room) == (claim >= 0 && claim <= room ? claim : -1), "and is no length");
  if (possible) {
    const BIGNUMPtr expected(BN_bin2bn(bytes.data(), static_cast<int>(claim), nullptr));
    constexpr int kProtection = BN_FLG_SECURE | BN_FLG_CONSTTIME;
    require(BN_cmp(number.get(), expected.get()) == 0, "the number is what was written");
    require(BN_get_flags(number.get(), kProtection) == BN_get_flags(like, kProtection), "the protection is kept");
  }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  const BIGNUMPtr number = takeNumber(input);
  checkExport(number.get());
  checkReturn(input, number.get());
  return 0;
}
