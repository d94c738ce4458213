// The holder's configuration: every word in the file is one of these, or an error with its place.
#include "Config.h"

#include "Failure.h"

#include <toml++/toml.h>

#include <algorithm>
#include <array>
#include <grp.h>
#include <limits>
#include <pwd.h>
#include <sstream>

namespace krHolder {

namespace {

template <class Value> struct Word {
  std::string_view word;
  Value value;
};
constexpr std::array<Word<Scheme>, 3> kSchemes{
    {{"pkcs1", Scheme::pkcs1}, {"pss", Scheme::pss}, {"ecdsa", Scheme::ecdsa}}};
constexpr std::array<Word<Digest>, 6> kDigests{{{"md5-sha1", Digest::md5Sha1},
                                                {"sha1", Digest::sha1},
                                                {"sha224", Digest::sha224},
                                                {"sha256", Digest::sha256},
                                                {"sha384", Digest::sha384},
                                                {"sha512", Digest::sha512}}};
constexpr std::array<Word<Use>, 2> kUses{{{"tls", Use::tls}, {"everything", Use::everything}}};

// An error at a place of the file.
std::string placeOf(const toml::source_region &place) {
  std::ostringstream text;
  text << *place.path << ':' << place.begin.line << ':' << place.begin.column;
  return text.str();
}
[[noreturn]] void fail(const toml::source_region &place, const std::string &what) {
  throw Unusable(placeOf(place) + ": " + what);
}
[[noreturn]] void fail(const toml::node &node, const std::string &what) { fail(node.source(), what); }

std::string textOf(const toml::node &node) {
  const auto text = node.value<std::string>();
  if (!node.is_string() || text->empty() || text->find('\0') != std::string::npos) {
    fail(node, "a text is needed here");
  }
  return *text;
}

bool truthOf(const toml::node &node) {
  if (!node.is_boolean()) {
    fail(node, "true or false is needed here");
  }
  return *node.value<bool>();
}

std::int64_t numberOf(const toml::node &node, std::int64_t least, std::int64_t most) {
  const auto number = node.is_integer() ? node.value<std::int64_t>() : std::nullopt;
  if (!number || *number < least || *number > most) {
    fail(node, "a whole number from " + std::to_string(least) + " to " + std::to_string(most) + " is needed here");
  }
  return *number;
}

template <class Take> void forEach(const toml::node &node, Take take) {
  const auto *const all = node.as_array();
  if (all == nullptr || all->empty()) {
    fail(node, "a list of one at least is needed here");
  }
  for (const toml::node &each : *all) {
    take(each);
  }
}

template <class Words> auto wordOf(const Words &words, const toml::node &node) {
  const std::string text = textOf(node);
  for (const auto &[word, value] : words) {
    if (word == text) {
      return value;
    }
  }
  std::string known;
  for (const auto &each : words) {
    known += (known.empty() ? "" : ", ") + std::string(each.word);
  }
  fail(node, "\"" + text + "\" is none of " + known);
}

// Users and groups: by name, or as a number.
template <class Id, class Find> std::set<Id> idsOf(const toml::node &node, const char *kind, Find find) {
  std::set<Id> ids;
  forEach(node, [&](const toml::node &each) {
    if (each.is_integer()) {
      ids.insert(static_cast<Id>(numberOf(each, 0, std::numeric_limits<Id>::max() - 1)));
      return;
    }
    const std::string name = textOf(each);
    const auto *const entry = find(name.c_str());
    if (entry == nullptr) {
      fail(each, std::string("there is no ") + kind + " \"" + name + "\"");
    }
    if constexpr (requires { entry->pw_uid; }) {
      ids.insert(entry->pw_uid);
    } else {
      ids.insert(entry->gr_gid);
    }
  });
  return ids;
}

template <class Value, class Words> std::set<Value> wordsOf(const Words &words, const toml::node &node) {
  std::set<Value> values;
  forEach(node, [&](const toml::node &each) { values.insert(wordOf(words, each)); });
  return values;
}

// What a table may have, and what is done with it.
template <class Target> struct Setter {
  std::string_view word;
  void (*set)(Target &, const toml::node &);
};

// @param otherwise  takes a word and its node; false for a word that it does not know either
template <class Target, std::size_t Count, class Otherwise>
void read(const toml::table &table, const std::array<Setter<Target>, Count> &setters, Target &target,
          Otherwise otherwise) {
  for (const auto &[key, node] : table) {
    const auto setter = std::ranges::find(setters, key.str(), &Setter<Target>::word);
    if (setter != setters.end()) {
      setter->set(target, node);
    } else if (!otherwise(key, node)) {
      fail(key.source(), "\"" + std::string(key.str()) + "\" is not known here");
    }
  }
}

constexpr std::array<Setter<KeyConfig>, 8> kKeySetters{{
    {"users", [](auto &key, const auto &node) { key.policy.users = idsOf<uid_t>(node, "user", getpwnam); }},
    {"groups", [](auto &key, const auto &node) { key.policy.groups = idsOf<gid_t>(node, "group", getgrnam); }},
    {"schemes", [](auto &key, const auto &node) { key.policy.schemes = wordsOf<Scheme>(kSchemes, node); }},
    {"digests", [](auto &key, const auto &node) { key.policy.digests = wordsOf<Digest>(kDigests, node); }},
    {"use", [](auto &key, const auto &node) { key.policy.use = wordOf(kUses, node); }},
    {"decrypt", [](auto &key, const auto &node) { key.policy.decrypt = truthOf(node); }},
    {"raw", [](auto &key, const auto &node) { key.policy.raw = truthOf(node); }},
    {"per_second",
     [](auto &key, const auto &node) { key.perSecond = static_cast<double>(numberOf(node, 1, 1'000'000)); }},
}};

// The one whose word stands in a key's table.
const BackEnd &backEndOf(const toml::table &table, const BackEnds &backEnds) {
  const BackEnd *found = nullptr;
  std::string all;
  for (const BackEnd &each : backEnds) {
    all += (all.empty() ? "\"" : ", \"") + each.word + "\"";
    if (!table.contains(each.word)) {
      continue;
    }
    if (found != nullptr && found->word != each.word) {
      fail(table.find(each.word)->second, "the key has \"" + found->word + "\" already");
    }
    found = found != nullptr ? found : &each;
  }
  if (found == nullptr) {
    fail(table, "the key has none of " + all);
  }
  return *found;
}

KeyConfig readKey(const toml::node &node, const BackEnds &backEnds) {
  const auto *const table = node.as_table();
  if (table == nullptr) {
    fail(node, "a table is needed here");
  }
  KeyConfig key;
  const BackEnd &backEnd = backEndOf(*table, backEnds);
  key.place = placeOf(table->find(backEnd.word)->second.source());
  key.open = backEnd.open;
  read(*table, kKeySetters, key, [&](const toml::key &word, const toml::node &value) {
    const bool known = word.str() == backEnd.word || std::ranges::count(backEnd.more, word.str()) != 0;
    if (known) {
      key.settings.emplace(word.str(), textOf(value));
    }
    return known;
  });
  if (key.policy.users.empty() && key.policy.groups.empty()) {
    fail(node, "nobody may use the key: \"users\" or \"groups\" is needed");
  }
  return key;
}

void readKeys(Config &config, const toml::node &node, const BackEnds &backEnds) {
  const auto *const table = node.as_table();
  if (table == nullptr) {
    fail(node, "a table is needed here");
  }
  for (const auto &[name, key] : *table) {
    if (!isName(name.str())) {
      fail(name.source(), "a name has 1 to 64 letters, digits, \".\", \"_\" and \"-\"");
    }
    config.keys.emplace(name.str(), readKey(key, backEnds));
  }
}

constexpr std::array<Setter<Config>, 3> kSetters{{
    {"socket", [](auto &config, const auto &node) { config.socket = textOf(node); }},
    {"metrics", [](auto &config, const auto &node) { config.metrics = textOf(node); }},
    {"connections",
     [](auto &config, const auto &node) { config.connections = static_cast<std::size_t>(numberOf(node, 1, 10'000)); }},
}};

} // namespace

Config readConfig(const std::string &file, const BackEnds &backEnds) {
  try {
    const toml::table all = toml::parse_file(file);
    Config config;
    read(all, kSetters, config, [&](const toml::key &word, const toml::node &value) {
      const bool isKeys = word.str() == "keys";
      if (isKeys) {
        readKeys(config, value, backEnds);
      }
      return isKeys;
    });
    if (config.keys.empty()) {
      throw Unusable(file + ": there is no key");
    }
    return config;
  } catch (const toml::parse_error &error) {
    fail(error.source(), std::string(error.description()));
  }
}

} // namespace krHolder
