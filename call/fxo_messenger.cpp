// Analogue exchange lines on top of the call-control protocol. Bodies of its
// own codes (widths in bytes; CEP = CallExtraParams); every body then ends
// with the sender's ProtocolType (4):
//
//   0x100 ConfigChanged   CfgChangeType (4), list of texts
//   0x101 GenerateFlash   call id (8), CEP
#include "line_messengers.h"

#include "call/call_family.h"

namespace {

// Message codes: on the wire, shared with every process built against this
// protocol. Never renumber.
enum : unsigned {
  kConfigChanged = 0x100,
  kGenerateFlash = 0x101,
};

}  // namespace

FxoMessenger::FxoMessenger() : CallMessenger(ChannelOf(PROTOCOL_FXO), nullptr, 32768) {
  mProtocolType = PROTOCOL_FXO;
}

bool FxoMessenger::ConfigChanged(CfgChangeType type, std::list<std::string> const& items) {
  return ConfigChangedBody::Send(*this, kConfigChanged, type, items);
}

bool FxoMessenger::GenerateFlash(CallId const& callId, CallExtraParams const* extra) {
  return Send(*this, kGenerateFlash, callId, OrDefault(extra));
}

int FxoMessenger::OnConfigChanged(CfgChangeType, std::list<std::string> const&, ProtocolType) { return false; }
int FxoMessenger::OnGenerateFlash(CallId const&, CallExtraParams const&, ProtocolType) { return false; }

bool FxoMessenger::DispatchMessage(int const* code, std::string const* body) {
  return DispatchAfter<CallMessenger>(*this, code, body, [this](unsigned own, auto const& b, ProtocolType sender) {
    switch (own) {
      case kConfigChanged:
        return ConfigChangedBody::Deliver(b, [&](auto&... f) { OnConfigChanged(f..., sender); });
      case kGenerateFlash:
        return Deliver<CallId, CallExtraParams>(b, [&](auto&... f) { OnGenerateFlash(f..., sender); });
      default:
        return false;
    }
  });
}
