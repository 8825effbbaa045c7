// The call-control protocol as spoken by the SIP signalling processes, and
// the text format in which they carry a server configuration.
#ifndef LIBMESSAGING_SIP_MESSENGERS_H_
#define LIBMESSAGING_SIP_MESSENGERS_H_

#include <list>
#include <string>

#include "call_messenger.h"

// SipBaseMessenger adds user registration, refer calls and the exchange of
// additional call information to the call-control protocol. As with every
// messenger of the family, a message goes to the base class's dispatcher
// first and a subclass decodes only the codes the base declines;
// DispatchMessage returns false for a code no class in the chain knows.
// Sends return whether the message was queued; handlers default to doing
// nothing (false).
class SipBaseMessenger : public CallMessenger {
 public:
  // As CallMessenger(id, link, size); the link, when given, is borrowed.
  SipBaseMessenger(int id, Link* link, unsigned int size);

  // A user's registration changed from `before` to `after`.
  bool RegisterUser(RegisterParams const& before, RegisterParams const& after);
  bool RegisterUsers(std::list<RegisterParams> const& users);
  bool ConfirmRegister(CallParams const& user, CallExtraParams const& extra, bool activated);
  // A call set up on behalf of a refer received in call `referredCallId`.
  bool MakeReferCall(CallParams const& from, CallParams const& to, unsigned long long const& callId,
                     std::list<MediaParams> const& media, unsigned long long const& referredCallId,
                     std::string const& text, CallExtraParams const& extra);
  bool RaiseAddInfo(unsigned long long const& callId, RaiseAddInfoType const& type, CallParams const& from,
                    CallParams const& to, PackageParam const& package, CallExtraParams const& extra);
  bool AcceptRaiseAddInfo(unsigned long long const& callId, CallExtraParams const& extra);

  virtual int OnRegisterUser(RegisterParams const& before, RegisterParams const& after, ProtocolType sender);
  virtual int OnRegisterUsers(std::list<RegisterParams> const& users, ProtocolType sender);
  virtual int OnConfirmRegister(CallParams const& user, CallExtraParams const& extra, bool activated,
                                 ProtocolType sender);
  virtual int OnMakeReferCall(CallParams const& from, CallParams const& to, unsigned long long const& callId,
                               std::list<MediaParams> const& media, unsigned long long const& referredCallId,
                               std::string const& text, CallExtraParams const& extra, ProtocolType sender);
  virtual int OnRaiseAddInfo(unsigned long long const& callId, RaiseAddInfoType const& type,
                              CallParams const& from, CallParams const& to, PackageParam const& package,
                              CallExtraParams const& extra, ProtocolType sender);
  virtual int OnAcceptRaiseAddInfo(unsigned long long const& callId, CallExtraParams const& extra,
                                    ProtocolType sender);
  // Hooks for applications; the library never calls them.
  virtual void PeerConnected();
  virtual void PeerDisconnected();

  bool DispatchMessage(int const* code, std::string const* body) override;
};

// The SIP signalling process's end: configuration-change notices and instant
// messaging. Sends as ProtocolType 2 on a 32768-byte channel. Note the
// argument order, the reverse of its base's; the link, when given, is
// borrowed.
//
// The instant-messaging handlers, unlike every other handler of the family,
// are not given the sender's ProtocolType.
class SipMessenger : public SipBaseMessenger {
 public:
  SipMessenger(Link* link, int id);

  // The body of the line messengers' ConfigChanged, under code 0x60.
  bool ConfigChanged(CfgChangeType type, std::list<std::string> const& items);
  bool IMUserSet(std::list<CallParams> const& users);
  bool IMRequest(unsigned long long const& callId, CallParams const& from, CallParams const& to,
                 PackageParam const& package, CallExtraParams const& extra);
  bool IMResponse(unsigned long long const& callId, long status, CallErrorCode error,
                  CallExtraParams const& extra);

  virtual int OnConfigChanged(CfgChangeType type, std::list<std::string> const& items, ProtocolType sender);
  virtual int OnIMUserSet(std::list<CallParams> const& users);
  virtual int OnIMRequest(unsigned long long const& callId, CallParams const& from, CallParams const& to,
                           PackageParam const& package, CallExtraParams const& extra);
  virtual int OnIMResponse(unsigned long long const& callId, long status, CallErrorCode error,
                            CallExtraParams const& extra);

  bool DispatchMessage(int const* code, std::string const* body) override;
};

// The media-gateway side of SIP: alert calls, voice-mail indication, and a
// configuration bridge over the base's registration messages. Sends as
// ProtocolType 2 on a 32768-byte channel of its own.
//
// The management side calls SetConfiguration and ConfigurationChanged; they
// travel as RegisterUsers and RegisterUser, each user converted to a
// RegisterParams that is not registered. On the receiving side a
// RegisterUsers reaches OnSetConfiguration with an EMPTY list (the
// registrations themselves are not passed on) and a ConfirmRegister reaches
// OnUserActivated.
class SPMGMessenger : public SipBaseMessenger {
 public:
  explicit SPMGMessenger(int id);

  bool VMIndication(std::string const& user, unsigned long newMessages, unsigned long oldMessages);
  bool MakeAlertCall(CallParams const& from, CallParams const& to, unsigned long long const& callId,
                     std::list<MediaParams> const& media, AlertInfo const& alert, CallExtraParams const& extra);
  bool SetConfiguration(std::list<CallParams> const& users);
  bool ConfigurationChanged(CallParams const& before, CallParams const& after);

  virtual int OnMakeAlertCall(CallParams const& from, CallParams const& to, unsigned long long const& callId,
                               std::list<MediaParams> const& media, AlertInfo const& alert,
                               CallExtraParams const& extra, ProtocolType sender);
  virtual int OnSetConfiguration(std::list<CallParams> const& users, ProtocolType sender);
  virtual int OnUserActivated(CallParams const& user, bool activated, ProtocolType sender);
  virtual int OnVMIndication(std::string const& user, unsigned long newMessages, unsigned long oldMessages,
                              ProtocolType sender);

  int OnRegisterUser(RegisterParams const& before, RegisterParams const& after, ProtocolType sender) override;
  // Returns OnSetConfiguration(empty list, sender).
  int OnRegisterUsers(std::list<RegisterParams> const& users, ProtocolType sender) override;
  // Returns OnUserActivated(user, activated, sender).
  int OnConfirmRegister(CallParams const& user, CallExtraParams const& extra, bool activated,
                         ProtocolType sender) override;
  int OnPartyStateChanged(bool online, ProtocolType sender) override;

  bool DispatchMessage(int const* code, std::string const* body) override;
};

// Server parameters in one text field, as up to seven bracketed items in
// this order:
//
//   [OP#main:second]  [BP#main:second]  [BO#main:second]  [NP#flag:number]
//   [SP#main:second]  [URIP#text]  [BND#text]
//
// Every argument is optional (null = not given). A pair item is written only
// when its main text is given and not empty, its ":second" part only when the
// second text is given and not empty; a text item only when its text is given
// and not empty. The need-ping item is written whenever `needPing` is given:
// flag "1" or "0", then ":" and the number in decimal when `pingNumber` is
// given. The items are appended to `out`.
void packServerParams(std::string& out, std::string const* opMain, std::string const* opSecond,
                      std::string const* bpMain, std::string const* bpSecond, std::string const* boMain,
                      std::string const* boSecond, bool const* needPing, unsigned int const* pingNumber,
                      std::string const* spMain, std::string const* spSecond, std::string const* urip,
                      std::string const* bnd);

// Reads back what packServerParams writes, each non-null output on its own:
// an item is found wherever it stands in `in`. An absent item, or one with no
// closing "]", leaves its outputs unchanged; a pair item without ":" leaves
// its second text unchanged. `needPing` is always set to false first, and
// only an item of the full form [NP#flag:number] sets it (true unless the
// flag is "0") and `pingNumber` (0 when the number does not fit). So an item
// written without a number, [NP#1], reads back as false with the number
// unchanged: the reading side has always required the number.
void unpackServerParams(std::string const& in, std::string* opMain, std::string* opSecond, std::string* bpMain,
                        std::string* bpSecond, std::string* boMain, std::string* boSecond, bool* needPing,
                        unsigned int* pingNumber, std::string* spMain, std::string* spSecond,
                        std::string* urip, std::string* bnd);

// Writes the decimal digits of `value` ("0" for zero) and a terminating zero
// byte into `buffer`, which must hold 11 bytes. Returns `buffer`, or the
// position of the terminator when `returnEnd` is true.
char* itoad(unsigned int value, char* buffer, bool returnEnd);

#endif  // LIBMESSAGING_SIP_MESSENGERS_H_
