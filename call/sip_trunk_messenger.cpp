// SIP trunk user list. Body of each code, fields in order (widths in bytes;
// CP = CallParams as laid out in call_records.h). Nothing follows the last
// field.
//
//   0 SetUsersList      list of CP, bool (1), bool (1)
//   1 ChangeUserParams  CP before, CP after, bool (1)
//   2 ConfirmUserState  CP, bool (1), unsigned long (4), bool (1)
#include "sip_trunk_messenger.h"

#include <new>

#include "messaging/messenger.h"

namespace {

// Message codes: on the wire, shared with every process built against this
// protocol. Never renumber.
enum : unsigned {
  kSetUsersList = 0,
  kChangeUserParams = 1,
  kConfirmUserState = 2,
};

constexpr int kTrunkChannel = 116;

using Users = std::list<CallParams>;

}  // namespace

CSIPTrunkMessenger::CSIPTrunkMessenger()
    : mQueue(new (std::nothrow) CyclicMessageQueue(kTrunkChannel, "/bin/ping", 32768, nullptr)) {}

CSIPTrunkMessenger::~CSIPTrunkMessenger() {
  delete mQueue;
  mQueue = nullptr;
}

bool CSIPTrunkMessenger::SetUsersList(Users const& users, bool first, bool second) {
  return Send(*this, kSetUsersList, users, first, second);
}

bool CSIPTrunkMessenger::ChangeUserParams(CallParams const& before, CallParams const& after, bool flag) {
  return Send(*this, kChangeUserParams, before, after, flag);
}

bool CSIPTrunkMessenger::ConfirmUserState(CallParams const& user, bool state, unsigned long value, bool flag) {
  return Send(*this, kConfirmUserState, user, state, value, flag);
}

bool CSIPTrunkMessenger::ProcessMessageFromQueue(int const& n) {
  return mQueue && DrainMessages(
                       *mQueue, n, [this](int code, std::string const& body) { DispatchMessage(&code, &body); },
                       [this](bool online, std::string const&) { OnPartyStateChanged(online); });
}

bool CSIPTrunkMessenger::IsPartyOnline() { return mQueue && mQueue->IsPartyOnline(); }

int CSIPTrunkMessenger::OnSetUsersList(Users const&, bool, bool) { return false; }
int CSIPTrunkMessenger::OnChangeUserParams(CallParams const&, CallParams const&, bool) { return false; }
int CSIPTrunkMessenger::OnConfirmUserState(CallParams const&, bool, unsigned long, bool) { return false; }
int CSIPTrunkMessenger::OnPartyStateChanged(bool const&) { return false; }

bool CSIPTrunkMessenger::SendMessage(int const* code, std::string* body) {
  return mQueue && mQueue->SendMessage(code, body) != 0;
}

bool CSIPTrunkMessenger::DispatchMessage(int const* code, std::string const* body) {
  if (!code || !body) return false;
  std::string const& b = *body;
  switch (static_cast<unsigned>(*code)) {
    case kSetUsersList:
      return Deliver<Users, bool, bool>(b, [&](auto&... f) { OnSetUsersList(f...); });
    case kChangeUserParams:
      return Deliver<CallParams, CallParams, bool>(b, [&](auto&... f) { OnChangeUserParams(f...); });
    case kConfirmUserState:
      return Deliver<CallParams, bool, unsigned long, bool>(b, [&](auto&... f) { OnConfirmUserState(f...); });
    default:
      return false;
  }
}
