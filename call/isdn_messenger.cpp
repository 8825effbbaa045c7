// ISDN on top of the call-control protocol. Body of its own code (widths in
// bytes); it then ends with the sender's ProtocolType (4):
//
//   0x100 ConfigChanged   CfgChangeType (4), list of texts
#include "line_messengers.h"

#include "call/call_family.h"

namespace {

// Message code: on the wire, shared with every process built against this
// protocol. Never renumber.
enum : unsigned {
  kConfigChanged = 0x100,
};

}  // namespace

IsdnMessenger::IsdnMessenger(int id) : CallMessenger(id, nullptr, 32768) {}

bool IsdnMessenger::ConfigChanged(CfgChangeType type, std::list<std::string> const& items) {
  return ConfigChangedBody::Send(*this, kConfigChanged, type, items);
}

int IsdnMessenger::OnConfigChanged(CfgChangeType, std::list<std::string> const&, ProtocolType) { return false; }

bool IsdnMessenger::DispatchMessage(int const* code, std::string const* body) {
  return DispatchAfter<CallMessenger>(*this, code, body, [this](unsigned own, auto const& b, ProtocolType sender) {
    if (own != kConfigChanged) return false;
    return ConfigChangedBody::Deliver(b, [&](auto&... f) { OnConfigChanged(f..., sender); });
  });
}
