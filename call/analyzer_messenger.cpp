// Analyser protocol. Bodies are packed, not codec-built: numbers in host
// byte order at unaligned offsets (widths in bytes), "ctext" a 1-byte length
// and that many bytes. No sender kind follows.
//
//   0 MakeCall        ctext x5, unsigned long (4), ctext x5, unsigned long (4),
//                     call id (8), char (1)            length: texts + 27
//   1 CloseCall       call id (8)
//   2 Connect         call id (8)
//   3 StartRTPStream  call id (8), data (n)            length: n + 8
//   4 ReportError     call id (8), AnalyzerErrorCode (4)
//   5 SipMessage      call id (8), n (2), text (n), kind (1)
//                                                      length: n + 11
//   6 StartFilter     filter (n), as given
//   7 StopFilter      one zero byte
//   8 EndCall         call id (8)
//
// A length is 16 bits, taken modulo 65536: a longer body is cut to it.
#include "analyzer_messenger.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <string>

#include "messaging/messenger.h"

namespace {

// Message codes: on the wire, shared with every process built against this
// protocol. Never renumber.
enum : unsigned {
  kMakeCall = 0,
  kCloseCall = 1,
  kConnect = 2,
  kStartRTPStream = 3,
  kReportError = 4,
  kSipMessage = 5,
  kStartFilter = 6,
  kStopFilter = 7,
  kEndCall = 8,
};

using CallId = unsigned long long;

// Offsets within the bodies that start with a call id.
constexpr std::size_t kAfterCallId = 8;
constexpr std::size_t kSipLengthAt = 8;
constexpr std::size_t kSipTextAt = 10;

// Raw bytes, copied as they are.
struct Bytes {
  void const* data;
  std::size_t size;
};

// A counted text: a 1-byte length, then the bytes.
struct Counted {
  char const* text;
  unsigned char size;
};

template <typename T>
std::size_t WireSize(T const&) {
  return sizeof(typename WireType<T>::type);
}
std::size_t WireSize(Bytes const& bytes) { return bytes.size; }
std::size_t WireSize(Counted const& text) { return 1 + text.size; }

// Fills a body of fixed length front to back. What would pass the end is
// dropped: that is how a message longer than 65535 bytes comes out cut to
// its 16-bit length.
class RawWriter {
 public:
  RawWriter(unsigned char* body, std::size_t size) : at_(body), left_(size) {}

  void Put(void const* data, std::size_t size) {
    std::size_t const n = std::min(size, left_);
    if (n == 0) return;
    std::memcpy(at_, data, n);
    at_ += n;
    left_ -= n;
  }
  template <typename T>
  void Put(T const& value) {
    auto const wire = static_cast<typename WireType<T>::type>(value);
    Put(&wire, sizeof wire);
  }
  void Put(Bytes const& bytes) { Put(bytes.data, bytes.size); }
  void Put(Counted const& text) {
    Put(text.size);
    Put(text.text, text.size);
  }

 private:
  unsigned char* at_;
  std::size_t left_;
};

// Builds the body in the thread's scratch buffer (the wire sees the same
// bytes as from a buffer allocated per message) and hands it to the virtual
// SendMessage.
template <typename... Fields>
bool SendRaw(AnalyzerMessenger& messenger, int code, Fields const&... fields) {
  auto const length = static_cast<unsigned short>((WireSize(fields) + ...));
  ScratchBody body;
  body->resize(length);
  auto* data = reinterpret_cast<unsigned char*>(&(*body)[0]);
  RawWriter writer(data, length);
  (writer.Put(fields), ...);
  return messenger.SendMessage(code, data, length);
}

template <typename T>
T Take(unsigned char const* at) {
  typename WireType<T>::type wire;
  std::memcpy(&wire, at, sizeof wire);
  return static_cast<T>(wire);
}

// DispatchMessage gets no length: the layouts trust the sender. So that a
// short or forged body cannot send a handler past the received bytes, the
// loop zero-fills the buffer behind the body up to kAnalyzerReadableBytes
// (the body's terminating zero included), and cuts a SIP message's text
// length to the text received, so its kind byte is the terminating zero.
// The buffer is the loop's scratch: once warmed up this does not allocate.
unsigned char* Readable(int code, std::string& body) {
  std::size_t const received = body.size();
  body.resize(std::max<std::size_t>(received + 1, kAnalyzerReadableBytes));
  auto* data = reinterpret_cast<unsigned char*>(&body[0]);
  if (static_cast<unsigned>(code) == kSipMessage) {
    std::size_t const text = received > kSipTextAt ? received - kSipTextAt : 0;
    if (Take<unsigned short>(data + kSipLengthAt) > text) {
      auto const cut = static_cast<unsigned short>(text);
      std::memcpy(data + kSipLengthAt, &cut, sizeof cut);
    }
  }
  return data;
}

auto Dispatcher(AnalyzerMessenger& messenger) {
  return [&messenger](int code, std::string& body) { messenger.DispatchMessage(code, Readable(code, body)); };
}

auto PartyStateHook(AnalyzerMessenger& messenger) {
  return [&messenger](bool online, std::string const&) { messenger.OnPartyStateChanged(online); };
}

}  // namespace

AnalyzerMessenger::AnalyzerMessenger(int id, Link* link)
    : mQueue(new (std::nothrow) CyclicMessageQueue(id, "/bin/ping", 32768, link)) {}

AnalyzerMessenger::~AnalyzerMessenger() {
  delete mQueue;
  mQueue = nullptr;
}

bool AnalyzerMessenger::MakeCall(char const* text1, unsigned char length1, char const* text2,
                                 unsigned char length2, char const* text3, unsigned char length3,
                                 char const* text4, unsigned char length4, char const* text5,
                                 unsigned char length5, unsigned long number1, char const* text6,
                                 unsigned char length6, char const* text7, unsigned char length7,
                                 char const* text8, unsigned char length8, char const* text9,
                                 unsigned char length9, char const* text10, unsigned char length10,
                                 unsigned long number2, CallId const& callId, char kind) {
  return SendRaw(*this, kMakeCall, Counted{text1, length1}, Counted{text2, length2}, Counted{text3, length3},
                 Counted{text4, length4}, Counted{text5, length5}, number1, Counted{text6, length6},
                 Counted{text7, length7}, Counted{text8, length8}, Counted{text9, length9},
                 Counted{text10, length10}, number2, callId, kind);
}

bool AnalyzerMessenger::CloseCall(CallId const& callId) { return SendRaw(*this, kCloseCall, callId); }

bool AnalyzerMessenger::Connect(CallId const& callId) { return SendRaw(*this, kConnect, callId); }

bool AnalyzerMessenger::StartRTPStream(CallId const& callId, unsigned char const* data, unsigned long length) {
  return SendRaw(*this, kStartRTPStream, callId, Bytes{data, length});
}

bool AnalyzerMessenger::ReportError(CallId const& callId, AnalyzerErrorCode code) {
  return SendRaw(*this, kReportError, callId, code);
}

bool AnalyzerMessenger::SendSipMessage(CallId const& callId, char const* text, unsigned short length, char kind) {
  return SendRaw(*this, kSipMessage, callId, length, Bytes{text, length}, kind);
}

bool AnalyzerMessenger::StartFilter(unsigned char* filter, unsigned short length) {
  return SendMessage(kStartFilter, filter, length);
}

bool AnalyzerMessenger::StopFilter() { return SendRaw(*this, kStopFilter, static_cast<unsigned char>(0)); }

bool AnalyzerMessenger::EndCall(CallId const& callId) { return SendRaw(*this, kEndCall, callId); }

bool AnalyzerMessenger::BeginMessageLoop() {
  return mQueue && RunMessageLoop(*mQueue, Dispatcher(*this), PartyStateHook(*this));
}

bool AnalyzerMessenger::ProcessMessageFromQueue(int n) {
  return mQueue && DrainMessages(*mQueue, n, Dispatcher(*this), PartyStateHook(*this));
}

bool AnalyzerMessenger::IsPartyOnline() { return mQueue && mQueue->IsPartyOnline(); }

int AnalyzerMessenger::OnPartyStateChanged(bool) { return false; }
int AnalyzerMessenger::OnMakeCall(unsigned char const*) { return false; }
int AnalyzerMessenger::OnStartRTPStream(CallId const&, unsigned char const*) { return false; }
int AnalyzerMessenger::OnConnect(CallId const&) { return false; }
int AnalyzerMessenger::OnCloseCall(CallId const&) { return false; }
int AnalyzerMessenger::OnEndCall(CallId const&) { return false; }
int AnalyzerMessenger::OnReportError(CallId const&, AnalyzerErrorCode) { return false; }
int AnalyzerMessenger::OnSipMessage(CallId const&, char const*, unsigned short, char, char*, unsigned short) {
  return false;
}
int AnalyzerMessenger::OnStartFilter(unsigned char const*) { return false; }
int AnalyzerMessenger::OnStopFilter() { return false; }

bool AnalyzerMessenger::SendMessage(int code, unsigned char* data, unsigned short length) {
  return mQueue && mQueue->SendMessage(&code, reinterpret_cast<char const*>(data), length) != 0;
}

// Call ids are copied out to aligned temporaries: they sit at any offset.
bool AnalyzerMessenger::DispatchMessage(int code, unsigned char* data) {
  if (!data) return true;
  switch (static_cast<unsigned>(code)) {
    case kMakeCall:
      OnMakeCall(data);
      break;
    case kCloseCall:
      OnCloseCall(Take<CallId>(data));
      break;
    case kConnect:
      OnConnect(Take<CallId>(data));
      break;
    case kStartRTPStream:
      OnStartRTPStream(Take<CallId>(data), data + kAfterCallId);
      break;
    case kReportError:
      OnReportError(Take<CallId>(data), Take<AnalyzerErrorCode>(data + kAfterCallId));
      break;
    case kSipMessage: {
      auto const length = Take<unsigned short>(data + kSipLengthAt);
      auto const* text = reinterpret_cast<char const*>(data + kSipTextAt);
      OnSipMessage(Take<CallId>(data), text, length, text[length], nullptr, 0);
      break;
    }
    case kStartFilter:
      OnStartFilter(data);
      break;
    case kStopFilter:
      OnStopFilter();
      break;
    case kEndCall:
      OnEndCall(Take<CallId>(data));
      break;
    default:
      break;  // a code this end does not know is consumed unanswered
  }
  return true;
}
