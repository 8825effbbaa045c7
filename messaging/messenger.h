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

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <list>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "codec.h"
#include "transport.h"

// The channel's own pseudo messages: the peer came online / went offline.
// Their body is the 4-byte channel id. No send operation uses these codes.
constexpr int kPeerOnlineCode = static_cast<int>(0x80000000u);
constexpr int kPeerOfflineCode = static_cast<int>(0x80000001u);

inline bool IsPartyStateCode(int code) { return code == kPeerOnlineCode || code == kPeerOfflineCode; }

// The messengers' body codec. Three cursors walk the same fields with Pass():
// BodySize counts the bytes, BodyWriter writes them into a body grown once to
// that size, BodyReader reads them where they lie. Encoding so avoids some
// eighty appends per call set-up, each with its own capacity check and copy
// call; decoding avoids taking each field off the front of a string (what the
// exported >> operators do), which moves the rest of the body every time and
// made decoding quadratic in its size. Bytes and values are those of the
// operators, also for short and forged bodies: a field the body is too short
// for keeps its value and leaves nothing to read, so every later field keeps
// its value too.

template <typename Record>
Record& Mutable(Record const& record) {  // field lists are written for mutable records
  return const_cast<Record&>(record);
}

// A text cannot say it is longer than its prefix can count (never the case
// on 32-bit hosts).
inline std::uint32_t TextLength(std::string const& text) {
  return text.size() > UINT32_MAX ? UINT32_MAX : static_cast<std::uint32_t>(text.size());
}

struct BodySize {
  std::size_t bytes = 0;
};

class BodyWriter {
 public:
  explicit BodyWriter(char* at) : at_(at) {}
  void Put(void const* data, std::size_t size) {
    std::memcpy(at_, data, size);
    at_ += size;
  }

 private:
  char* at_;
};

class BodyReader {
 public:
  BodyReader(char const* data, std::size_t size) : at_(data), end_(data + size) {}
  explicit BodyReader(std::string const& body) : BodyReader(body.data(), body.size()) {}

  std::size_t Left() const { return static_cast<std::size_t>(end_ - at_); }
  // Copies `size` bytes off the front; when fewer are left, nothing is
  // copied and nothing stays to read.
  bool Take(void* out, std::size_t size) {
    if (Left() < size) {
      at_ = end_;
      return false;
    }
    std::memcpy(out, at_, size);
    at_ += size;
    return true;
  }
  char const* At() const { return at_; }
  void Skip(std::size_t size) { at_ += size; }
  void Exhaust() { at_ = end_; }

 private:
  char const* at_;
  char const* end_;
};

template <typename T>
std::enable_if_t<IsFixedWidthValue<T> > Pass(BodySize& size, T const&) {
  size.bytes += sizeof(typename WireType<T>::type);
}
inline void Pass(BodySize& size, std::string const& text) { size.bytes += sizeof(std::uint32_t) + TextLength(text); }

template <typename T>
std::enable_if_t<IsFixedWidthValue<T> > Pass(BodyWriter& writer, T const& value) {
  using Wire = typename WireType<T>::type;
  Wire const wire = static_cast<Wire>(value);
  writer.Put(&wire, sizeof wire);
}
inline void Pass(BodyWriter& writer, std::string const& text) {
  std::uint32_t const length = TextLength(text);
  writer.Put(&length, sizeof length);
  writer.Put(text.data(), length);
}

template <typename T>
std::enable_if_t<IsFixedWidthValue<T> > Pass(BodyReader& reader, T& value) {
  typename WireType<T>::type wire;
  if (!reader.Take(&wire, sizeof wire)) return;
  if constexpr (std::is_same<T, bool>::value) {
    value = reinterpret_cast<unsigned char const&>(wire) != 0;
  } else {
    value = static_cast<T>(wire);
  }
}
inline void Pass(BodyReader& reader, std::string& text) {
  std::uint32_t length;
  if (!reader.Take(&length, sizeof length)) return;
  if (reader.Left() < length) {
    reader.Exhaust();
    return;
  }
  // Targets start empty; appending to an empty string skips assign's
  // overlap handling, which is most of the cost of a short text.
  if (text.empty()) {
    text.append(reader.At(), length);
  } else {
    text.assign(reader.At(), length);
  }
  reader.Skip(length);
}

// A record is its field list (its Fields overload), walked with the cursor.
template <typename Cursor>
struct FieldWalk {
  Cursor& cursor;
  template <typename... Values>
  void operator()(Values&... values) const {
    (Pass(cursor, values), ...);
  }
};
template <typename Cursor, typename Record>
auto Pass(Cursor& cursor, Record& record)
    -> decltype(Fields(Mutable(record), std::declval<FieldWalk<Cursor> >()), void()) {
  Fields(Mutable(record), FieldWalk<Cursor>{cursor});
}

// A sequence is its count and its elements; reading one follows the rules
// of UnpackTemplate, bounds included.
template <typename Cursor, typename Container>
void PassSequence(Cursor& cursor, Container const& items) {
  Pass(cursor, static_cast<unsigned int>(items.size()));
  for (auto const& item : items) Pass(cursor, item);
}
template <typename Container>
void PassSequence(BodyReader& reader, Container& items) {
  unsigned int count = 0;
  Pass(reader, count);
  if (count > kMaxSequenceElements) count = kMaxSequenceElements;
  typename Container::value_type scratch{};
  if (!items.empty()) items.clear();
  std::size_t madeUp = 0;
  while (items.size() < count) {
    if (reader.Left() == 0) {
      BodySize copy;
      Pass(copy, scratch);
      madeUp += copy.bytes;
      if (madeUp > kMaxMadeUpBytes) break;
    }
    Pass(reader, scratch);
    items.push_back(scratch);
  }
}
template <typename T>
struct IsSequence : std::false_type {};
template <typename T>
struct IsSequence<std::list<T> > : std::true_type {};
template <typename T>
struct IsSequence<std::vector<T> > : std::true_type {};
template <typename Cursor, typename Container>
std::enable_if_t<IsSequence<std::remove_const_t<Container> >::value> Pass(Cursor& cursor, Container& items) {
  PassSequence(cursor, items);
}

template <typename... Values>
void AppendFields(std::string& body, Values const&... values) {
  std::size_t const at = body.size();
  if (body.capacity() < kInitialBodyReserve) body.reserve(kInitialBodyReserve);
  BodySize size;
  (Pass(size, values), ...);
  body.resize(at + size.bytes);
  BodyWriter writer(&body[0] + at);
  (Pass(writer, values), ...);
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

// Decodes the listed types, in order, from `body` into value-initialised
// targets, then calls `handle` with them as lvalues; the handler's result is
// ignored. A short body leaves the remaining targets at their defaults.
// Always true: the message was ours.
template <typename... Fields, typename Handle>
bool Deliver(std::string const& body, Handle&& handle) {
  std::tuple<Fields...> fields{};
  BodyReader reader(body);
  std::apply(FieldWalk<BodyReader>{reader}, fields);
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
