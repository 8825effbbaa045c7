// The frame every messenger shares: building a body from a send operation's
// arguments, decoding a body into a handler's arguments, the receive loops,
// and the error line. Private to the library.
//
// A messenger's source then reads like its code table:
//
//   bool CallMessenger::Ringing(CallId const& id, Media const& media, CallExtraParams const* extra) {
//     return Send(*this, kRinging, id, media, OrDefault(extra));
//   }
//   ...
//   case kRinging:
//     return Deliver<CallId, Media, CallExtraParams>(*body, [&](auto&... f) { OnRinging(f..., sender); });
//
//   return RunMessageLoop(*mQueue, [this](int code, std::string const& body) { DispatchMessage(&code, &body); },
//                         [this](bool online, std::string const& body) { DoPartyStateChanged(online, &body); });
//
// Fields appear once on each side, in wire order; the decode-into-defaults
// rule lives only in Deliver, the online/offline routing only in Route.
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
// Their body is the 4-byte channel id. No send operation uses these codes.
constexpr int kPeerOnlineCode = static_cast<int>(0x80000000u);
constexpr int kPeerOfflineCode = static_cast<int>(0x80000001u);

inline bool IsPartyStateCode(int code) { return code == kPeerOnlineCode || code == kPeerOfflineCode; }

// One field onto / off a body: sequences through PackTemplate and
// UnpackTemplate, so that they fold like scalars; everything else through its
// own operator.
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
void AppendFields(std::string& body, Fields const&... fields) {
  (PutField(body, fields), ...);
}

// A fresh body holding `fields` (for code outside the send path; a send
// builds in a ScratchBody).
template <typename... Fields>
std::string MakeBody(Fields const&... fields) {
  std::string body;
  body.reserve(kInitialBodyReserve);
  AppendFields(body, fields...);
  return body;
}

// A per-thread body buffer that keeps its capacity from one message to the
// next, so that sending and receiving do not allocate once warmed up. Each
// live ScratchBody has a string of its own: a handler that sends, or runs a
// nested loop, while an outer body is in use gets the next one of the
// thread's pool (and past its depth, a plain string). Only for scoped locals:
// they must be released in reverse order of construction.
class ScratchBody {
 public:
  ScratchBody();  // empty, capacity kept from earlier use
  ~ScratchBody();
  std::string& operator*() { return *body_; }
  std::string* operator->() { return body_; }
  std::string* get() { return body_; }

 private:
  ScratchBody(ScratchBody const&) = delete;
  ScratchBody& operator=(ScratchBody const&) = delete;

  std::string* body_;
  std::string own_;  // used when the pool is exhausted
};

// Builds the body and hands it to the messenger's virtual SendMessage, so an
// application that overrides SendMessage sees every send. Returns what
// SendMessage returns.
template <typename Messenger, typename... Fields>
auto Send(Messenger& messenger, int code, Fields const&... fields) {
  ScratchBody body;
  AppendFields(*body, fields...);
  return messenger.SendMessage(&code, body.get());
}

// An optional record passed by pointer travels as its value-initialised
// default when absent.
template <typename Record>
Record const& OrDefault(Record const* record) {
  static Record const kDefault{};
  return record ? *record : kDefault;
}

// Decodes the listed types, in order, from a private copy of `body`
// (decoding consumes its input) into value-initialised targets, then calls
// `handle` with them as lvalues; the handler's result is ignored. A short
// body leaves the remaining targets at their defaults. Always true: the
// message was ours.
template <typename... Fields, typename Handle>
bool Deliver(std::string const& body, Handle&& handle) {
  std::tuple<Fields...> fields{};
  {
    ScratchBody rest;
    rest->assign(body);
    std::apply([&rest](auto&... field) { (TakeField(*rest, field), ...); }, fields);
  }
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

// "Class: text", the form of every messenger's error text.
std::string MessengerErrorText(char const* className, char const* text);

// Reports "Class: text" through the messenger's virtual Error, so that an
// application overriding Error sees every report.
template <typename Messenger>
void Report(Messenger& messenger, char const* className, char const* text) {
  messenger.Error(MessengerErrorText(className, text).c_str());
}

// Writes a messenger's error line to the standard error stream: line end,
// carriage return, text, carriage return, line end, as one write.
void WriteMessengerError(char const* text);

// The receive side shared by every messenger. Each message goes to
// `partyState(online, body)` for the channel's online/offline notices and to
// `dispatch(code, body)` otherwise; the body is the loop's scratch and may be
// modified.
template <typename Dispatch, typename PartyState>
void Route(int code, std::string& body, Dispatch& dispatch, PartyState& partyState) {
  if (IsPartyStateCode(code)) {
    partyState(code == kPeerOnlineCode, body);
  } else {
    dispatch(code, body);
  }
}

// Blocks on the queue, handling every message; returns (false) only when
// reading fails.
template <typename Queue, typename Dispatch, typename PartyState>
bool RunMessageLoop(Queue& queue, Dispatch&& dispatch, PartyState&& partyState) {
  ScratchBody body;
  int code = 0;
  while (queue.GetMessage(&code, body.get())) Route(code, *body, dispatch, partyState);
  return false;
}

// Handles at most `count` pending messages without blocking, stopping at the
// first read that finds none; true if any was handled.
template <typename Queue, typename Dispatch, typename PartyState>
bool DrainMessages(Queue& queue, int count, Dispatch&& dispatch, PartyState&& partyState) {
  if (count <= 0) return false;
  ScratchBody body;
  int code = 0;
  bool handled = false;
  for (int i = 0; i < count && queue.PeekMessage(&code, body.get()); ++i) {
    Route(code, *body, dispatch, partyState);
    handled = true;
  }
  return handled;
}

#endif  // LIBMESSAGING_MESSAGING_MESSENGER_H_
