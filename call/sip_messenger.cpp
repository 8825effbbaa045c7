// The SIP signalling process's end of call control: configuration-change
// notices and instant messaging. Bodies of its own codes (widths in bytes; CP
// = CallParams, CEP = CallExtraParams); every body then ends with the
// sender's ProtocolType (4):
//
//   0x60 ConfigChanged   CfgChangeType (4), list of texts
//   0x61 IMUserSet       list of CP
//   0x62 IMRequest       call id (8), CP from, CP to, PackageParam, CEP
//   0x63 IMResponse      call id (8), long (4), CallErrorCode (4), CEP
#include "sip_messengers.h"

#include "call/call_family.h"

namespace {

// Message codes: on the wire, shared with every process built against this
// protocol. Never renumber.
enum : unsigned {
  kConfigChanged = 0x60,
  kIMUserSet = 0x61,
  kIMRequest = 0x62,
  kIMResponse = 0x63,
};

}  // namespace

SipMessenger::SipMessenger(Link* link, int id) : SipBaseMessenger(id, link, 32768) {
  mProtocolType = PROTOCOL_SIP;
}

bool SipMessenger::ConfigChanged(CfgChangeType type, std::list<std::string> const& items) {
  return ConfigChangedBody::Send(*this, kConfigChanged, type, items);
}

bool SipMessenger::IMUserSet(std::list<CallParams> const& users) { return Send(*this, kIMUserSet, users); }

bool SipMessenger::IMRequest(CallId const& callId, CallParams const& from, CallParams const& to,
                             PackageParam const& package, CallExtraParams const& extra) {
  return Send(*this, kIMRequest, callId, from, to, package, extra);
}

bool SipMessenger::IMResponse(CallId const& callId, long status, CallErrorCode error, CallExtraParams const& extra) {
  return Send(*this, kIMResponse, callId, status, error, extra);
}

int SipMessenger::OnConfigChanged(CfgChangeType, std::list<std::string> const&, ProtocolType) { return false; }
int SipMessenger::OnIMUserSet(std::list<CallParams> const&) { return false; }
int SipMessenger::OnIMRequest(CallId const&, CallParams const&, CallParams const&, PackageParam const&,
                               CallExtraParams const&) {
  return false;
}
int SipMessenger::OnIMResponse(CallId const&, long, CallErrorCode, CallExtraParams const&) { return false; }

bool SipMessenger::DispatchMessage(int const* code, std::string const* body) {
  return DispatchAfter<SipBaseMessenger>(*this, code, body, [this](unsigned own, auto const& b, ProtocolType sender) {
    switch (own) {
      case kConfigChanged:
        return ConfigChangedBody::Deliver(b, [&](auto&... f) { OnConfigChanged(f..., sender); });
      case kIMUserSet:
        return Deliver<std::list<CallParams>>(b, [&](auto&... f) { OnIMUserSet(f...); });
      case kIMRequest:
        return Deliver<CallId, CallParams, CallParams, PackageParam, CallExtraParams>(
            b, [&](auto&... f) { OnIMRequest(f...); });
      case kIMResponse:
        return Deliver<CallId, long, CallErrorCode, CallExtraParams>(b, [&](auto&... f) { OnIMResponse(f...); });
      default:
        return false;
    }
  });
}
