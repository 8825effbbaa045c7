// Additional call information with the fixed peer on channel 11, on top of
// the call-control protocol. Bodies of its own codes (widths in bytes; CP =
// CallParams, CEP = CallExtraParams); every body then ends with the sender's
// ProtocolType (4). They are SipBaseMessenger's 0x54 and 0x55 bodies:
//
//   0x154 RaiseAddInfo        call id (8), RaiseAddInfoType (4), CP from,
//                             CP to, PackageParam, CEP
//   0x155 AcceptRaiseAddInfo  call id (8), CEP
#include "line_messengers.h"

#include "call/call_family.h"

namespace {

// Message codes: on the wire, shared with every process built against this
// protocol. Never renumber.
enum : unsigned {
  kRaiseAddInfo = 0x154,
  kAcceptRaiseAddInfo = 0x155,
};

}  // namespace

CmCsMessenger::CmCsMessenger() : CallMessenger(ChannelOf(PROTOCOL_CMCS), nullptr, 32768) {
  mProtocolType = PROTOCOL_CMCS;
}

bool CmCsMessenger::RaiseAddInfo(CallId const& callId, RaiseAddInfoType const& type, CallParams const& from,
                                 CallParams const& to, PackageParam const& package, CallExtraParams const& extra) {
  return RaiseAddInfoBody::Send(*this, kRaiseAddInfo, callId, type, from, to, package, extra);
}

bool CmCsMessenger::AcceptRaiseAddInfo(CallId const& callId, CallExtraParams const& extra) {
  return AcceptRaiseAddInfoBody::Send(*this, kAcceptRaiseAddInfo, callId, extra);
}

int CmCsMessenger::OnRaiseAddInfo(CallId const&, RaiseAddInfoType const&, CallParams const&, CallParams const&,
                                   PackageParam const&, CallExtraParams const&, ProtocolType) {
  return false;
}
int CmCsMessenger::OnAcceptRaiseAddInfo(CallId const&, CallExtraParams const&, ProtocolType) { return false; }

bool CmCsMessenger::DispatchMessage(int const* code, std::string const* body) {
  return DispatchAfter<CallMessenger>(*this, code, body, [this](unsigned own, auto const& b, ProtocolType sender) {
    return DeliverAddInfo(*this, own, kRaiseAddInfo, kAcceptRaiseAddInfo, b, sender);
  });
}
