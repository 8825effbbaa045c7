// The call-control protocol as spoken by the processes that drive telephone
// lines and trunks: channel-associated signalling, analogue exchange lines,
// ISDN, and the fixed peer that exchanges additional call information.
#ifndef LIBMESSAGING_LINE_MESSENGERS_H_
#define LIBMESSAGING_LINE_MESSENGERS_H_

#include <list>
#include <string>

#include "call_messenger.h"

// Each of the four messengers below is a CallMessenger on a 32768-byte
// channel of its own, with a few codes above the base range. A message goes
// to CallMessenger::DispatchMessage first; a subclass decodes only the codes
// the base declines, and DispatchMessage returns false for a code neither
// knows. Like the base operations, every send returns whether the message
// was queued and every handler defaults to doing nothing (false).
//
// ConfigChanged (code 0x100) tells a line process that part of its
// configuration changed; CasMessenger, FxoMessenger and IsdnMessenger carry
// it alike.

// Channel-associated signalling trunks. Sends as ProtocolType 0.
class CasMessenger : public CallMessenger {
 public:
  explicit CasMessenger(int id);

  bool ConfigChanged(CfgChangeType type, std::list<std::string> const& items);

  // A signalling event on the call's trunk. The body carries the event text
  // before the call id, and the handler gets no ProtocolType.
  virtual bool CasEventRaise(unsigned long long const& callId, std::string const& event);
  virtual int OnConfigChanged(CfgChangeType type, std::list<std::string> const& items, ProtocolType sender);
  virtual int OnCasEventRaise(unsigned long long const& callId, std::string const& event);

  bool DispatchMessage(int const* code, std::string const* body) override;
};

// Analogue exchange lines, on channel 4. Sends as ProtocolType 1.
class FxoMessenger : public CallMessenger {
 public:
  FxoMessenger();

  bool ConfigChanged(CfgChangeType type, std::list<std::string> const& items);
  // A hook flash on the call's line; a null extra travels as (0, 0).
  bool GenerateFlash(unsigned long long const& callId, CallExtraParams const* extra);

  virtual int OnConfigChanged(CfgChangeType type, std::list<std::string> const& items, ProtocolType sender);
  virtual int OnGenerateFlash(unsigned long long const& callId, CallExtraParams const& extra,
                               ProtocolType sender);

  bool DispatchMessage(int const* code, std::string const* body) override;
};

// ISDN. Sends as ProtocolType 0.
class IsdnMessenger : public CallMessenger {
 public:
  explicit IsdnMessenger(int id);

  bool ConfigChanged(CfgChangeType type, std::list<std::string> const& items);

  virtual int OnConfigChanged(CfgChangeType type, std::list<std::string> const& items, ProtocolType sender);

  bool DispatchMessage(int const* code, std::string const* body) override;
};

// The fixed peer on channel 11 that exchanges additional call information.
// Sends as ProtocolType 8. Its two messages have the bodies of
// SipBaseMessenger's RaiseAddInfo and AcceptRaiseAddInfo, under codes 0x154
// and 0x155.
class CmCsMessenger : public CallMessenger {
 public:
  CmCsMessenger();

  bool RaiseAddInfo(unsigned long long const& callId, RaiseAddInfoType const& type, CallParams const& from,
                    CallParams const& to, PackageParam const& package, CallExtraParams const& extra);
  bool AcceptRaiseAddInfo(unsigned long long const& callId, CallExtraParams const& extra);

  virtual int OnRaiseAddInfo(unsigned long long const& callId, RaiseAddInfoType const& type,
                              CallParams const& from, CallParams const& to, PackageParam const& package,
                              CallExtraParams const& extra, ProtocolType sender);
  virtual int OnAcceptRaiseAddInfo(unsigned long long const& callId, CallExtraParams const& extra,
                                    ProtocolType sender);

  bool DispatchMessage(int const* code, std::string const* body) override;
};

#endif  // LIBMESSAGING_LINE_MESSENGERS_H_
