// Finding the token, logging in.
#include "Token.h"

#include "Pin.h"
#include "ReturnValue.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace krHolder::pkcs11 {
namespace {

constexpr std::array kPinRefusals{CKR_PIN_INCORRECT, CKR_PIN_INVALID, CKR_PIN_LEN_RANGE, CKR_PIN_EXPIRED,
                                  CKR_PIN_LOCKED};

constexpr std::size_t kSessionsAtOnce = 8;
constexpr std::chrono::seconds kPatience{5};
constexpr std::size_t kMostSlots = 4096;

constexpr std::array kSessionLost{CKR_SESSION_HANDLE_INVALID, CKR_SESSION_CLOSED,     CKR_DEVICE_REMOVED,
                                  CKR_TOKEN_NOT_PRESENT,      CKR_USER_NOT_LOGGED_IN, CKR_KEY_HANDLE_INVALID,
                                  CKR_OBJECT_HANDLE_INVALID};

bool isSessionLost(CK_RV value) { return std::ranges::find(kSessionLost, value) != kSessionLost.end(); }

struct LabelledSlot {
  CK_SLOT_ID slot;
  std::string label;
};

std::vector<CK_SLOT_ID> slotsWithToken(const Module &module) {
  CK_ULONG count = 0;
  require(module->C_GetSlotList(CK_TRUE, nullptr, &count), "the module does not list its slots");
  std::vector<CK_SLOT_ID> slots(std::min<std::size_t>(count, kMostSlots));
  count = slots.size();
  require(module->C_GetSlotList(CK_TRUE, slots.data(), &count), "the module does not list its slots");
  slots.resize(std::min<std::size_t>(count, slots.size()));
  return slots;
}

/// The label, which the standard fills up with blanks.
std::string labelOf(const CK_TOKEN_INFO &info) {
  const std::string_view field(reinterpret_cast<const char *>(info.label), sizeof info.label);
  return std::string(field.substr(0, field.find_last_not_of(' ') + 1));
}

std::vector<LabelledSlot> labelledSlots(const Module &module) {
  std::vector<LabelledSlot> tokens;
  for (const CK_SLOT_ID slot : slotsWithToken(module)) {
    CK_TOKEN_INFO info{};
    if (module->C_GetTokenInfo(slot, &info) == CKR_OK && (info.flags & CKF_TOKEN_INITIALIZED) != 0) {
      tokens.push_back({slot, labelOf(info)});
    }
  }
  return tokens;
}

std::string quotedLabels(const std::vector<LabelledSlot> &tokens) {
  std::string list;
  for (const LabelledSlot &token : tokens) {
    list += (list.empty() ? "'" : ", '") + token.label + "'";
  }
  return list.empty() ? "none" : list;
}

} // namespace

Token::Token(const TokenOptions &options)
    : options_(options), module_(SharedModule::at(options.module)),
      pool_([this] { return openSession(); }, sessionsAtOnce(), kPatience) {}

std::shared_ptr<Token> Token::of(const TokenOptions &options) {
  static std::mutex mutex;
  static std::map<TokenOptions, std::weak_ptr<Token>> tokens;
  const std::scoped_lock lock(mutex);
  std::weak_ptr<Token> &known = tokens[options];
  std::shared_ptr<Token> token = known.lock();
  if (!token) {
    known = token = std::make_shared<Token>(options);
  }
  return token;
}

Bytes Token::inSession(const std::function<Bytes(SessionPool::Lease &)> &work) {
  const auto once = [&] {
    SessionPool::Lease lease(pool_);
    Bytes result = work(lease);
    lease.giveBack();
    return result;
  };
  std::string loss;
  try {
    return once();
  } catch (const TokenFailure &failure) {
    if (!isSessionLost(failure.value)) {
      throw;
    }
    loss = failure.what();
  }
  noteLoss();
  try {
    return once();
  } catch (const Failure &failure) {
    throw Failure(loss + "; and in a new session: " + failure.what());
  }
}

void Token::noteLoss() {
  pool_.closeIdle();
  const std::scoped_lock lock(module_->mutex());
  module_->setLost(true);
}

KeySession Token::openSession() {
  const std::scoped_lock lock(module_->mutex());
  if (pinRefused_) {
    throw Failure("the token '" + options_.label +
                  "' refused the PIN, which is not tried again: start anew with the right one");
  }
  module_->startAnewIfLost();
  module_->setLost(true); // unless what follows succeeds
  auto session = std::make_unique<Session>(module_->module(), slot());
  if (!session->loggedIn()) {
    login(*session);
  }
  module_->setLost(false);
  KeySession opened;
  opened.session = std::move(session);
  return opened;
}

bool Token::has(CK_MECHANISM_TYPE mechanism, CK_FLAGS use) const {
  const std::scoped_lock lock(module_->mutex());
  CK_MECHANISM_INFO info{};
  return (*module_->module())->C_GetMechanismInfo(slot(), mechanism, &info) == CKR_OK && (info.flags & use) == use;
}

std::size_t Token::sessionsAtOnce() const {
  const std::scoped_lock lock(module_->mutex());
  CK_TOKEN_INFO info{};
  require((*module_->module())->C_GetTokenInfo(slot(), &info), "the token does not tell about itself");
  const CK_ULONG most = info.ulMaxSessionCount;
  // That it does not tell is the highest number.
  return most == CK_EFFECTIVELY_INFINITE ? kSessionsAtOnce : std::min<std::size_t>(kSessionsAtOnce, most);
}

CK_SLOT_ID Token::slot() const {
  const std::vector<LabelledSlot> tokens = labelledSlots(*module_->module());
  switch (std::ranges::count(tokens, options_.label, &LabelledSlot::label)) {
  case 0:
    throw Failure("no token is labelled '" + options_.label +
                  "'; labels of the module's tokens: " + quotedLabels(tokens));
  case 1:
    return std::ranges::find(tokens, options_.label, &LabelledSlot::label)->slot;
  default:
    throw Failure("more than one token is labelled '" + options_.label + "'");
  }
}

void Token::login(const Session &session) {
  Bytes pin = readPin(options_.pinFile);
  const CK_RV returned = session.login(pin);
  if (std::ranges::find(kPinRefusals, returned) != kPinRefusals.end()) {
    pinRefused_ = true;
    throw TokenFailure("the token '" + options_.label + "' refused the PIN in '" + options_.pinFile + "'", returned);
  }
  if (returned != CKR_USER_ALREADY_LOGGED_IN) {
    require(returned, "the token does not log in");
  }
}

} // namespace krHolder::pkcs11
