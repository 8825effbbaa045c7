// Registration, refer calls and additional call information on top of the
// call-control protocol. Bodies of its own codes (widths in bytes; CP =
// CallParams, RP = RegisterParams, CEP = CallExtraParams, media = list of
// MediaParams); every body then ends with the sender's ProtocolType (4):
//
//   0x50 RegisterUser        RP before, RP after
//   0x51 RegisterUsers       list of RP
//   0x52 ConfirmRegister     CP, CEP, bool (1)
//   0x53 MakeReferCall       CP from, CP to, call id (8), media,
//                            referred call id (8), text, CEP
//   0x54 RaiseAddInfo        call id (8), RaiseAddInfoType (4), CP from,
//                            CP to, PackageParam, CEP
//   0x55 AcceptRaiseAddInfo  call id (8), CEP
#include "sip_messengers.h"

#include "call/call_family.h"

namespace {

// Message codes: on the wire, shared with every process built against this
// protocol. Never renumber.
enum : unsigned {
  kRegisterUser = 0x50,
  kRegisterUsers = 0x51,
  kConfirmRegister = 0x52,
  kMakeReferCall = 0x53,
  kRaiseAddInfo = 0x54,
  kAcceptRaiseAddInfo = 0x55,
};

}  // namespace

SipBaseMessenger::SipBaseMessenger(int id, Link* link, unsigned int size) : CallMessenger(id, link, size) {}

bool SipBaseMessenger::RegisterUser(RegisterParams const& before, RegisterParams const& after) {
  return Send(*this, kRegisterUser, before, after);
}

bool SipBaseMessenger::RegisterUsers(std::list<RegisterParams> const& users) {
  return Send(*this, kRegisterUsers, users);
}

bool SipBaseMessenger::ConfirmRegister(CallParams const& user, CallExtraParams const& extra, bool activated) {
  return Send(*this, kConfirmRegister, user, extra, activated);
}

bool SipBaseMessenger::MakeReferCall(CallParams const& from, CallParams const& to, CallId const& callId,
                                     Media const& media, CallId const& referredCallId, std::string const& text,
                                     CallExtraParams const& extra) {
  return Send(*this, kMakeReferCall, from, to, callId, media, referredCallId, text, extra);
}

bool SipBaseMessenger::RaiseAddInfo(CallId const& callId, RaiseAddInfoType const& type, CallParams const& from,
                                    CallParams const& to, PackageParam const& package,
                                    CallExtraParams const& extra) {
  return RaiseAddInfoBody::Send(*this, kRaiseAddInfo, callId, type, from, to, package, extra);
}

bool SipBaseMessenger::AcceptRaiseAddInfo(CallId const& callId, CallExtraParams const& extra) {
  return AcceptRaiseAddInfoBody::Send(*this, kAcceptRaiseAddInfo, callId, extra);
}

int SipBaseMessenger::OnRegisterUser(RegisterParams const&, RegisterParams const&, ProtocolType) { return false; }
int SipBaseMessenger::OnRegisterUsers(std::list<RegisterParams> const&, ProtocolType) { return false; }
int SipBaseMessenger::OnConfirmRegister(CallParams const&, CallExtraParams const&, bool, ProtocolType) {
  return false;
}
int SipBaseMessenger::OnMakeReferCall(CallParams const&, CallParams const&, CallId const&, Media const&,
                                       CallId const&, std::string const&, CallExtraParams const&, ProtocolType) {
  return false;
}
int SipBaseMessenger::OnRaiseAddInfo(CallId const&, RaiseAddInfoType const&, CallParams const&,
                                      CallParams const&, PackageParam const&, CallExtraParams const&,
                                      ProtocolType) {
  return false;
}
int SipBaseMessenger::OnAcceptRaiseAddInfo(CallId const&, CallExtraParams const&, ProtocolType) { return false; }
void SipBaseMessenger::PeerConnected() {}
void SipBaseMessenger::PeerDisconnected() {}

bool SipBaseMessenger::DispatchMessage(int const* code, std::string const* body) {
  return DispatchAfter<CallMessenger>(*this, code, body, [this](unsigned own, auto const& b, ProtocolType sender) {
    switch (own) {
      case kRegisterUser:
        return Deliver<RegisterParams, RegisterParams>(b, [&](auto&... f) { OnRegisterUser(f..., sender); });
      case kRegisterUsers:
        return Deliver<std::list<RegisterParams>>(b, [&](auto&... f) { OnRegisterUsers(f..., sender); });
      case kConfirmRegister:
        return Deliver<CallParams, CallExtraParams, bool>(b, [&](auto&... f) { OnConfirmRegister(f..., sender); });
      case kMakeReferCall:
        return Deliver<CallParams, CallParams, CallId, Media, CallId, std::string, CallExtraParams>(
            b, [&](auto&... f) { OnMakeReferCall(f..., sender); });
      case kRaiseAddInfo:
      case kAcceptRaiseAddInfo:
        return DeliverAddInfo(*this, own, kRaiseAddInfo, kAcceptRaiseAddInfo, b, sender);
      default:
        return false;
    }
  });
}
