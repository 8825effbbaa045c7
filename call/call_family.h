// What the messengers derived from CallMessenger share: the dispatch frame of
// a subclass, and the bodies that more than one of them carries under its own
// code. Private to the library.
#ifndef LIBMESSAGING_CALL_CALL_FAMILY_H_
#define LIBMESSAGING_CALL_CALL_FAMILY_H_

#include <list>
#include <string>
#include <type_traits>

#include "call_messenger.h"
#include "messaging/messenger.h"

// A body layout that several messengers send under different codes. Its field
// types are listed once, so the senders and the receivers of every messenger
// that carries it cannot drift apart.
template <typename... Fields>
struct SharedBody {
  template <typename Messenger>
  static bool Send(Messenger& messenger, int code, Fields const&... fields) {
    return ::Send(messenger, code, fields...);
  }
  template <typename Handle>
  static bool Deliver(std::string const& body, Handle&& handle) {
    return ::Deliver<Fields...>(body, handle);
  }
};

using CallId = unsigned long long;
using Media = std::list<MediaParams>;

// The fixed channel of a kind of sender. Call control tells its peers apart
// by channel (4 to 11 are kinds 1 to 8), so a messenger with a fixed channel
// must sit on the one its ProtocolType maps from.
constexpr int ChannelOf(ProtocolType kind) { return kind + 3; }

// ConfigChanged: 0x100 on the line messengers, 0x60 on SipMessenger.
using ConfigChangedBody = SharedBody<CfgChangeType, std::list<std::string>>;
// RaiseAddInfo and AcceptRaiseAddInfo: 0x54/0x55 on SipBaseMessenger,
// 0x154/0x155 on CmCsMessenger.
using RaiseAddInfoBody = SharedBody<CallId, RaiseAddInfoType, CallParams, CallParams, PackageParam, CallExtraParams>;
using AcceptRaiseAddInfoBody = SharedBody<CallId, CallExtraParams>;

// Receives the additional-information exchange for a messenger that carries
// it under the codes `raise` and `accept`; false for any other code.
template <typename Messenger>
bool DeliverAddInfo(Messenger& messenger, unsigned code, unsigned raise, unsigned accept, std::string const& body,
                    ProtocolType sender) {
  if (code == raise) {
    return RaiseAddInfoBody::Deliver(body, [&](auto&... f) { messenger.OnRaiseAddInfo(f..., sender); });
  }
  if (code == accept) {
    return AcceptRaiseAddInfoBody::Deliver(body, [&](auto&... f) { messenger.OnAcceptRaiseAddInfo(f..., sender); });
  }
  return false;
}

// The dispatch frame of a subclass: `Base` (named explicitly; deducing it
// from *this would recurse) keeps its own codes and every malformed body. A
// code it declines reaches own(code, body, sender), the sender already
// checked by CallMessenger; own returns false for a code it does not know.
template <typename Base, typename Own>
bool DispatchAfter(std::remove_reference_t<Base>& self, int const* code, std::string const* body, Own&& own) {
  if (self.Base::DispatchMessage(code, body)) return true;
  if (!code || !body) return false;
  return own(static_cast<unsigned>(*code), *body, static_cast<ProtocolType>(TrailingWord(*body)));
}

#endif  // LIBMESSAGING_CALL_CALL_FAMILY_H_
