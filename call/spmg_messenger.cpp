// The media-gateway side of SIP call control. Bodies of its own codes (widths
// in bytes; CP = CallParams, CEP = CallExtraParams, media = list of
// MediaParams); every body then ends with the sender's ProtocolType (4):
//
//   0x80 VMIndication    text, unsigned long (4), unsigned long (4)
//   0x81 MakeAlertCall   CP from, CP to, call id (8), media, AlertInfo, CEP
//
// The configuration bridge sends the base's 0x50 and 0x51.
#include "sip_messengers.h"

#include "call/call_family.h"

namespace {

// Message codes: on the wire, shared with every process built against this
// protocol. Never renumber.
enum : unsigned {
  kVMIndication = 0x80,
  kMakeAlertCall = 0x81,
};

}  // namespace

SPMGMessenger::SPMGMessenger(int id) : SipBaseMessenger(id, nullptr, 32768) {
  mProtocolType = PROTOCOL_SIP;
}

bool SPMGMessenger::VMIndication(std::string const& user, unsigned long newMessages, unsigned long oldMessages) {
  return Send(*this, kVMIndication, user, newMessages, oldMessages);
}

bool SPMGMessenger::MakeAlertCall(CallParams const& from, CallParams const& to, CallId const& callId,
                                  Media const& media, AlertInfo const& alert, CallExtraParams const& extra) {
  return Send(*this, kMakeAlertCall, from, to, callId, media, alert, extra);
}

bool SPMGMessenger::SetConfiguration(std::list<CallParams> const& users) {
  std::list<RegisterParams> const registrations(users.begin(), users.end());  // none registered
  return RegisterUsers(registrations);
}

bool SPMGMessenger::ConfigurationChanged(CallParams const& before, CallParams const& after) {
  return RegisterUser(RegisterParams(before, false), RegisterParams(after, false));
}

int SPMGMessenger::OnMakeAlertCall(CallParams const&, CallParams const&, CallId const&, Media const&,
                                    AlertInfo const&, CallExtraParams const&, ProtocolType) {
  return false;
}
int SPMGMessenger::OnSetConfiguration(std::list<CallParams> const&, ProtocolType) { return false; }
int SPMGMessenger::OnUserActivated(CallParams const&, bool, ProtocolType) { return false; }
int SPMGMessenger::OnVMIndication(std::string const&, unsigned long, unsigned long, ProtocolType) { return false; }
int SPMGMessenger::OnRegisterUser(RegisterParams const&, RegisterParams const&, ProtocolType) { return false; }

// Deliberately an empty list, not the received registrations: applications
// built against the bridge depend on it.
int SPMGMessenger::OnRegisterUsers(std::list<RegisterParams> const&, ProtocolType sender) {
  return OnSetConfiguration(std::list<CallParams>(), sender);
}

int SPMGMessenger::OnConfirmRegister(CallParams const& user, CallExtraParams const&, bool activated,
                                      ProtocolType sender) {
  return OnUserActivated(user, activated, sender);
}

int SPMGMessenger::OnPartyStateChanged(bool, ProtocolType) { return false; }

bool SPMGMessenger::DispatchMessage(int const* code, std::string const* body) {
  return DispatchAfter<SipBaseMessenger>(*this, code, body, [this](unsigned own, auto const& b, ProtocolType sender) {
    switch (own) {
      case kVMIndication:
        return Deliver<std::string, unsigned long, unsigned long>(b, [&](auto&... f) { OnVMIndication(f..., sender); });
      case kMakeAlertCall:
        return Deliver<CallParams, CallParams, CallId, Media, AlertInfo, CallExtraParams>(
            b, [&](auto&... f) { OnMakeAlertCall(f..., sender); });
      default:
        return false;
    }
  });
}
