// Finding the token, logging in.
#include "Token.h"

#include "Pin.h"
#include "ReturnValue.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace delegated_tls::pkcs11 {
namespace {

constexpr std::array kPinRefusals{CKR_PIN_INCORRECT, CKR_PIN_INVALID, CKR_PIN_LEN_RANGE, CKR_PIN_EXPIRED,
                                  CKR_PIN_LOCKED};

struct LabelledSlot {
  CK_SLOT_ID slot;
  std::string label;
};

std::vector<CK_SLOT_ID> slotsWithToken(const Module &module) {
  CK_ULONG count = 0;
  require(module->C_GetSlotList(CK_TRUE, nullptr, &count), "the module does not list its slots");
  std::vector<CK_SLOT_ID> slots(count);
  require(module->C_GetSlotList(CK_TRUE, slots.data(), &count), "the module does not list its slots");
  slots.resize(count);
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

std::unique_ptr<Session> Token::openSession() {
  const std::scoped_lock lock(mutex_);
  if (pinRefused_) {
    throw Failure("the token '" + options_.label +
                  "' refused the PIN, which is not tried again: start anew with the right one");
  }
  startAnewIfLost();
  lost_ = true; // unless what follows succeeds
  auto session = std::make_unique<Session>(module_, slot());
  if (!session->loggedIn()) {
    login(*session);
  }
  lost_ = false;
  return session;
}

void Token::sessionLost() {
  const std::scoped_lock lock(mutex_);
  lost_ = true;
}

// Sessions are opened under the lock only: when no other share is left, none can come.
void Token::startAnewIfLost() {
  if (lost_ && module_.use_count() <= 1) {
    module_.reset();
    module_ = std::make_shared<const Module>(library_);
  }
}

std::size_t Token::sessionLimit(std::size_t wanted) const {
  CK_TOKEN_INFO info{};
  require((*module_)->C_GetTokenInfo(slot(), &info), "the token does not tell about itself");
  const CK_ULONG most = info.ulMaxSessionCount;
  return most == CK_EFFECTIVELY_INFINITE ? wanted : std::min<std::size_t>(wanted, most); // unavailable is the highest
}

CK_SLOT_ID Token::slot() const {
  const std::vector<LabelledSlot> tokens = labelledSlots(*module_);
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

} // namespace delegated_tls::pkcs11
