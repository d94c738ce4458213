// Random numbers drawn from OpenSSL.
#pragma once

#include "support/Vectors.h"

#include <gtest/gtest.h>
#include <openssl/rand.h>

#include <set>

namespace krTest {

inline Bytes draw(int length = 32) {
  Bytes bytes(static_cast<std::size_t>(length));
  return RAND_bytes(bytes.data(), length) == 1 ? bytes : Bytes{};
}

// Piece by piece, so that a draw that begins with the rest of a known block is found too.
inline void expectNoPieceTwice(const std::vector<Bytes> &draws) {
  std::set<Bytes> pieces;
  for (const Bytes &bytes : draws) {
    ASSERT_EQ(bytes.size(), 32U);
    for (auto at = bytes.begin(); at != bytes.end(); at += 8) {
      EXPECT_TRUE(pieces.emplace(at, at + 8).second);
    }
  }
}

} // namespace krTest
