// The frame every messenger shares: building a body from a send operation's
// arguments, decoding a body into a handler's arguments, the receive loops,
// and the error line. Private to the library.
//
// A messenger's source then reads like its code table:
//
//   bool CallMessenger::Ringing(CallId const& id, MediaList const& media, CallExtraParams const* extra) {
//     return Send(*this, kRinging, id, media, OrDefault(extra));
//   }
//   ...
//   case kRinging:
//     return Deliver<CallId, MediaList, CallExtraParams>(*body, [&](auto&... f) { OnRinging(f..., sender); });
//
// Fields appear once on each side, in wire order; the decode-into-defaults
// rule lives only in Deliver.
#ifndef LIBMESSAGING_MESSAGING_MESSENGER_H_
#define LIBMESSAGING_MESSAGING_MESSENGER_H_

#include <cstdint>
#include <cstring>
#include <list>
#include <string>
#include <tuple>
#include <vector>

#include "codec.h"
#include "transport.h"

// The channel's own pseudo messages: the peer came online / went offline.
// Their body is the 4-byte channel id.
constexpr int kPeerOnlineCode = static_cast<int>(0x80000000u);
constexpr int kPeerOfflineCode = static_cast<int>(0x80000001u);

inline bool IsPartyStateCode(int code) { return code == kPeerOnlineCode || code == kPeerOfflineCode; }

// One send argument onto the body: sequences through PackTemplate, so that
// they fold like scalars; everything else through its operator<<.
template <typename T>
void PutField(std::string& body, T const& value) {
  body << value;
}
template <typename T>
void PutField(std::string& body, std::list<T> const& list) {
  PackTemplate(body, list);
}
template <typename T>
void PutField(std::string& body, std::vector<T> const& vector) {
  PackTemplate(body, vector);
}

template <typename T>
void TakeField(std::string& body, T& value) {
  body >> value;
}
template <typename T>
void TakeField(std::string& body, std::list<T>& list) {
  UnpackTemplate(body, list);
}
template <typename T>
void TakeField(std::string& body, std::vector<T>& vector) {
  UnpackTemplate(body, vector);
}

template <typename... Fields>
std::string MakeBody(Fields const&... fields) {
  std::string body;
  body.reserve(kInitialBodyReserve);
  (PutField(body, fields), ...);
  return body;
}

// Builds the body and hands it to the messenger's virtual SendMessage, so an
// application that overrides SendMessage sees every send.
template <typename Messenger, typename... Fields>
bool Send(Messenger& messenger, int code, Fields const&... fields) {
  std::string body = MakeBody(fields...);
  return messenger.SendMessage(&code, &body) != 0;
}

// An optional record passed by pointer travels as its default when absent.
template <typename Record>
Record const& OrDefault(Record const* record) {
  static Record const kDefault{};
  return record ? *record : kDefault;
}

// Decodes the listed types, in order, from a private copy of `body` (decoding
// consumes its input) into value-initialised targets, then calls `handle`
// with them. A short body leaves the remaining targets at their defaults;
// sequences stop at kMaxSequenceElements. Always true: the message was ours.
template <typename... Fields, typename Handle>
bool Deliver(std::string const& body, Handle&& handle) {
  std::string rest(body);
  std::tuple<Fields...> fields{};
  std::apply([&rest](auto&... field) { (TakeField(rest, field), ...); }, fields);
  std::apply(handle, fields);
  return true;
}

// The last 4 bytes of a body as an int (a call-control sender's
// ProtocolType, or the channel id of an online/offline message). The caller
// has checked that the body holds at least 4 bytes.
inline std::int32_t TrailingWord(std::string const& body) {
  std::int32_t word;
  std::memcpy(&word, body.data() + body.size() - sizeof word, sizeof word);
  return word;
}

// Writes a messenger's error line: line end, carriage return, text, carriage
// return, line end, unbuffered so that it survives a crash that follows.
void WriteMessengerError(char const* text);

// The receive loops every messenger drives its queue with. `handle(code,
// body)` sees every message, the online/offline pseudo messages included.
// The body string is reused from message to message, so a loop allocates only
// when a message is larger than any before it.
template <typename Queue, typename Handle>
bool RunMessageLoop(Queue& queue, Handle&& handle) {
  int code = 0;
  std::string body;
  while (queue.GetMessage(&code, &body)) handle(code, body);
  return false;
}

template <typename Queue, typename Handle>
bool DrainMessages(Queue& queue, int count, Handle&& handle) {
  bool handled = false;
  int code = 0;
  std::string body;
  for (int i = 0; i < count && queue.PeekMessage(&code, &body); ++i) {
    handle(code, body);
    handled = true;
  }
  return handled;
}

#endif  // LIBMESSAGING_MESSAGING_MESSENGER_H_
