// The log writer over a platform that the test controls: the text of a line, the order of the steps, and
// what each failure costs.
#include "log/krCustomLogger.h"

#include "log/LogLimit.h"
#include "state/State.h"
#include "support/FakePlatform.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <tuple>

namespace {

namespace fake = krTest::fakePlatform;
using krOpenSSL::platform::AppendFile;
using krOpenSSL::platform::EntryKind;
using Calls = std::vector<std::string>;

const std::string kFolder = "/data/Corvane/Logging";
const std::string kFile = kFolder + "/krOpenSSL.log";
constexpr fake::Entry entryOf(EntryKind target, EntryKind kind, std::uint64_t links = 1, std::uint64_t size = 0) {
  return {{target, kind, links}, size};
}
constexpr fake::Entry kPlain = entryOf(EntryKind::file, EntryKind::file);
constexpr fake::Entry kLink = entryOf(EntryKind::file, EntryKind::link);
constexpr fake::Entry kTwoNames = entryOf(EntryKind::file, EntryKind::file, 2);
constexpr fake::Entry kFull = entryOf(EntryKind::file, EntryKind::file, 1, 1U << 30U);

const Calls kResolve{"programDataFolder", "linkStatus Logging"};
const Calls kCheck{"linkStatus Logging", "inspect krOpenSSL.log"};
const Calls kReplaceFile{"status krOpenSSL.log", "removeEntry krOpenSSL.log", "createFile krOpenSSL.log",
                         "giveToAdministrators krOpenSSL.log", "protect krOpenSSL.log"};

Calls operator+(Calls one, const Calls &other) {
  one.insert(one.end(), other.begin(), other.end());
  return one;
}

Calls inside(const Calls &calls) { return Calls{"prepareProtection"} + calls + Calls{"releaseProtection"}; }

// The calls and the text of one line; an empty text is a line that was dropped.
std::pair<Calls, std::string> line(const char *message = "text") {
  fake::calls.clear();
  fake::written.clear();
  krLogLine(1, 2, message);
  return {fake::calls, fake::written};
}

std::string expected(const std::string &message) {
  return "1, c=2 2031/02/03 04:05:06.007 p0001 tabc krCustomLogger.cpp:363 - '' " + message + " \n";
}

} // namespace

TEST(LogWriter, TakesItsStepsInOrder) {
  fake::entries = {{kFolder, entryOf(EntryKind::folder, EntryKind::folder)}, {kFile, kPlain}};
  fake::entries[kFile].size = 5'000'000'000; // the first line does not look at it
  fake::logSize = "4095";
  const Calls append = Calls{"open krOpenSSL.log"} + inside(kCheck) + Calls{"close"};
  EXPECT_EQ(line(), std::pair(inside(kResolve) + append, expected("text")));

  const Calls rotate =
      kCheck + Calls{"inspect krOpenSSL.log.old", "moveOver 4292870144", "startFileForEveryone krOpenSSL.log",
                     "syncFolder krOpenSSL.log", "size krOpenSSL.log"};
  const Calls sized = {"size krOpenSSL.log"};
  EXPECT_EQ(line(),
            std::pair(sized + Calls{R"(registryText SOFTWARE\Corvane\Logging LogSizeInMB)", "prepareProtection"} +
                          rotate + append,
                      expected("text")));
  EXPECT_EQ(line(), std::pair(sized + rotate + append, expected("text"))); // settings and security are kept
  fake::entries[kFile].size = 4'292'870'143;
  EXPECT_EQ(line(), std::pair(sized + append, expected("text")));
}

TEST(LogWriter, KeepsMessagesLiterallyAndCutsThem) {
  const std::string head = expected("").substr(7, expected("").size() - 9);
  for (const std::string &message : {std::string(), std::string("%s%n 100 %"), std::string("two\nlines"),
                                     std::string(4035 - head.size(), 'x'), std::string(9000, 'y')}) {
    EXPECT_EQ(line(message.c_str()).second, expected(message.substr(0, 4035 - head.size())));
  }
  EXPECT_EQ(line(nullptr).second, expected(""));
}

TEST(LogWriter, WritesFormattedLinesAboveTheThresholdOnly) {
  const std::string longName(5000, 'n');
  const std::array<const char *, 3> rows[]{
      {"a/b\\c/d.cpp", "wolfEngine", "d.cpp:12 - 'wolfEngine' 7 of x \n"},
      {"C:\\src\\e.cpp", "", "e.cpp:12 - '' 7 of x \n"},
      {"f.cpp", nullptr, "f.cpp:12 - 7 of x \n"},
      {nullptr, nullptr, ":12 - 7 of x \n"},
  };
  for (const std::uint32_t threshold : {0U, 3U, 4U, 0xffffffffU}) {
    krLogThreshold.store(threshold);
    for (const auto &[file, component, text] : rows) {
      fake::calls.clear();
      fake::written.clear();
      krLogWrite(file, 12, component, "%d of %s", 7, "x");
      EXPECT_EQ(fake::calls.empty(), threshold <= 3);
      EXPECT_EQ(fake::written, threshold <= 3 ? ""
                                              : std::to_string(static_cast<int>(threshold)) +
                                                    ", c=0 2031/02/03 04:05:06.007 p0001 tabc " + text);
    }
  }
  for (const auto &[file, component] : {std::pair("f", longName.c_str()), std::pair(longName.c_str(), "c")}) {
    fake::written.clear();
    krLogWrite(file, 1, component, "%s", "m");
    EXPECT_EQ(fake::written.size(), std::string("-1, c=0 ").size() + 4035 + 2);
  }
}

TEST(LogWriter, DropsTheLineOnAFailureAndGoesOn) {
  const struct {
    const char *failing;
    fake::Entry file = kPlain;
    bool written = false;
  } rows[]{
      {.failing = "open"},
      {.failing = "prepareProtection"}, // raises, as do the three below
      {.failing = "status", .file = kLink},
      {.failing = "linkStatus"},
      {.failing = "inspect"},
      {.failing = "removeEntry", .file = kLink},
      {.failing = "giveToAdministrators", .file = kLink},
      {.failing = "protect", .file = kLink},
      {.failing = "size", .file = kFull, .written = true},
      {.failing = "moveOver", .file = kFull, .written = true},
      {.failing = "startFileForEveryone", .file = kFull, .written = true},
      {.failing = "linkStatus", .file = kFull},
  };
  fake::entries = {{kFile, kPlain}};
  ASSERT_FALSE(line().second.empty());
  for (const auto &[failing, file, written] : rows) {
    SCOPED_TRACE(failing);
    fake::entries = {{kFile, file}};
    fake::failing = {failing};
    errno = 77;
    EXPECT_EQ(line().second.empty(), !written);
    EXPECT_EQ(errno, 77);
    fake::failing.clear();
    fake::entries = {{kFile, kPlain}};
    EXPECT_FALSE(line().second.empty()); // the lock is free
    EXPECT_EQ(fake::calls.back(), "close");
  }
}

TEST(LogWriter, ReplacesWhatRedirectsTheFile) {
  fake::entries = {{kFile, entryOf(EntryKind::folder, EntryKind::link)}};
  EXPECT_EQ(std::ranges::count(line().first, "createFolder krOpenSSL.log"), 1);
  // A link that came after the check is replaced too, but costs the line.
  fake::entries = {{kFile, kTwoNames}};
  line();
  fake::entries = {{kFile, kPlain}};
  fake::opening = AppendFile::Outcome::redirected;
  const Calls replaced = Calls{"inspect krOpenSSL.log"} + inside(kReplaceFile);
  EXPECT_EQ(line(),
            std::pair(Calls{"size krOpenSSL.log", "open krOpenSSL.log"} + inside(kCheck) + replaced + Calls{"close"},
                      std::string()));
}

TEST(LogWriter, ResolvesThePathUntilThereIsOne) {
  fake::failing = {"programDataFolder"};
  const Calls nowhere = inside({"programDataFolder", "linkStatus"});
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(line().first, nowhere);
  }
  // Once known, the path stays, though the folder was not safe at first.
  fake::failing = {"removeEntry"};
  fake::entries = {{kFolder, kLink}};
  EXPECT_EQ(line().first, inside(kResolve + Calls{"status Logging", "removeEntry Logging"}));
  fake::failing.clear();
  fake::programData = "/elsewhere";
  EXPECT_EQ(line().first.at(0), "open krOpenSSL.log");
  EXPECT_FALSE(fake::written.empty());
}

TEST(LogWriter, NeverMovesTheFileToANameThatHadToBeCut) {
  for (const std::size_t length : {258U, 259U}) {
    const auto rotates = [length] {
      fake::programData = "/" + std::string(length - std::string("//Corvane/Logging/krOpenSSL.log.old").size(), 'd');
      const std::string file = fake::programData + "/Corvane/Logging/krOpenSSL.log";
      fake::entries = {{file, kFull}};
      line();
      const Calls calls = line().first;
      std::exit(!fake::written.empty() && std::ranges::count(calls, "startFileForEveryone krOpenSSL.log") == 1 ? 0 : 1);
    };
    EXPECT_EXIT(rotates(), testing::ExitedWithCode(length == 258 ? 0 : 1), "");
  }
}

TEST(LogLimit, IsTheTextsNumberOfMiB) {
  const std::pair<std::optional<std::string>, std::uint32_t> rows[]{
      {" \t+12 MiB", 12}, {"1", 1},   {"4094", 4094}, {"4095", 4094}, {"99999999999999999999999999", 4094},
      {"0", 25},          {"-3", 25}, {"+-3", 25},    {"MiB 7", 25},  {"", 25},
      {std::nullopt, 25},
  };
  for (const auto &[text, limit] : rows) {
    fake::logSize = text;
    EXPECT_EQ(krOpenSSL::readLogLimit(), limit << 20U) << text.value_or("none");
  }
}
