// Channel-associated signalling on top of the call-control protocol. Bodies
// of its own codes (widths in bytes); every body then ends with the sender's
// ProtocolType (4):
//
//   0x100 ConfigChanged   CfgChangeType (4), list of texts
//   0x200 CasEventRaise   text, call id (8)    (text first: the reverse of the
//                                               operation's arguments)
#include "line_messengers.h"

#include "call/call_family.h"

namespace {

// Message codes: on the wire, shared with every process built against this
// protocol. Never renumber.
enum : unsigned {
  kConfigChanged = 0x100,
  kCasEventRaise = 0x200,
};

}  // namespace

CasMessenger::CasMessenger(int id) : CallMessenger(id, nullptr, 32768) {}

bool CasMessenger::ConfigChanged(CfgChangeType type, std::list<std::string> const& items) {
  return ConfigChangedBody::Send(*this, kConfigChanged, type, items);
}

bool CasMessenger::CasEventRaise(CallId const& callId, std::string const& event) {
  return Send(*this, kCasEventRaise, event, callId);
}

int CasMessenger::OnConfigChanged(CfgChangeType, std::list<std::string> const&, ProtocolType) { return false; }
int CasMessenger::OnCasEventRaise(CallId const&, std::string const&) { return false; }

bool CasMessenger::DispatchMessage(int const* code, std::string const* body) {
  return DispatchAfter<CallMessenger>(*this, code, body, [this](unsigned own, auto const& b, ProtocolType sender) {
    switch (own) {
      case kConfigChanged:
        return ConfigChangedBody::Deliver(b, [&](auto&... f) { OnConfigChanged(f..., sender); });
      case kCasEventRaise:
        return Deliver<std::string, CallId>(b, [&](auto& event, auto& id) { OnCasEventRaise(id, event); });
      default:
        return false;
    }
  });
}
