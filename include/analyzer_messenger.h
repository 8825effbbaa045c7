// The protocol between the call analyser and the call-control side.
#ifndef LIBMESSAGING_ANALYZER_MESSENGER_H_
#define LIBMESSAGING_ANALYZER_MESSENGER_H_

#include "transport.h"

// Why the analyser could not do what it was asked. Travels as 4 bytes and is
// passed through unchecked; the values belong to the analyser application.
enum AnalyzerErrorCode : int {
  ANALYZER_ERROR_NONE = 0,
  ANALYZER_ERROR_UNKNOWN_CALL = 1,
  ANALYZER_ERROR_NO_STREAM = 2,
  ANALYZER_ERROR_BAD_FILTER = 3,
  ANALYZER_ERROR_INTERNAL = 4,
};

static_assert(sizeof(AnalyzerErrorCode) == 4, "AnalyzerErrorCode travels as 4 bytes");

// AnalyzerMessenger asks for calls to be made, connected, closed and ended,
// starts RTP streams, carries SIP messages and error reports, and starts and
// stops a capture filter. One class serves both ends.
//
// Its bodies are packed byte layouts, not the codec of codec.h: numbers in
// the host's byte order at unaligned offsets, texts as a 1-byte length and
// that many bytes. A body's length is 16 bits and is computed modulo 65536,
// so a longer message goes out cut to that length: callers keep SIP texts
// and RTP data short enough. Sends return whether the message was queued.
//
// Handlers get pointers into the received body (valid during the call only)
// and trust its layout. The receive loops make that safe for any body: the
// bytes behind the last received one read as zero up to at least
// kAnalyzerReadableBytes, so a handler that walks a layout, MakeCall's ten
// counted texts included, never leaves the buffer; and a SIP message's text
// length is cut to the bytes received. Only what has no length on the wire
// (RTP data, a filter) is the application's to bound.
//
// Nothing is reported on the standard error stream: without a queue every
// operation is false. One thread drives the messenger, with
// BeginMessageLoop or ProcessMessageFromQueue; handlers run on it.
class AnalyzerMessenger {
 public:
  // Builds CyclicMessageQueue(id, "/bin/ping", 32768, link); a borrowed
  // link must outlive the messenger.
  AnalyzerMessenger(int id, Link* link);
  virtual ~AnalyzerMessenger();

  // Ten (text, length) pairs in two groups of five, each group followed by
  // a number; then the call id and a kind byte. A null text needs length 0.
  bool MakeCall(char const* text1, unsigned char length1, char const* text2, unsigned char length2,
                char const* text3, unsigned char length3, char const* text4, unsigned char length4,
                char const* text5, unsigned char length5, unsigned long number1, char const* text6,
                unsigned char length6, char const* text7, unsigned char length7, char const* text8,
                unsigned char length8, char const* text9, unsigned char length9, char const* text10,
                unsigned char length10, unsigned long number2, unsigned long long const& callId, char kind);
  bool CloseCall(unsigned long long const& callId);
  bool Connect(unsigned long long const& callId);
  bool StartRTPStream(unsigned long long const& callId, unsigned char const* data, unsigned long length);
  bool ReportError(unsigned long long const& callId, AnalyzerErrorCode code);
  bool SendSipMessage(unsigned long long const& callId, char const* text, unsigned short length, char kind);
  // Sends the filter bytes as they are.
  bool StartFilter(unsigned char* filter, unsigned short length);
  bool StopFilter();
  bool EndCall(unsigned long long const& callId);

  // Blocks reading and handling messages; returns (false) only when reading
  // fails.
  virtual bool BeginMessageLoop();
  // Handles at most n pending messages without blocking; true if any was.
  virtual bool ProcessMessageFromQueue(int n);
  virtual bool IsPartyOnline();
  // The peer came online (true) or went offline.
  virtual int OnPartyStateChanged(bool online);

  // Handlers; the defaults do nothing and return 0.
  // The whole MakeCall body, laid out as MakeCall's arguments.
  virtual int OnMakeCall(unsigned char const* body);
  // `data` is what follows the call id; its length is not passed.
  virtual int OnStartRTPStream(unsigned long long const& callId, unsigned char const* data);
  virtual int OnConnect(unsigned long long const& callId);
  virtual int OnCloseCall(unsigned long long const& callId);
  virtual int OnEndCall(unsigned long long const& callId);
  virtual int OnReportError(unsigned long long const& callId, AnalyzerErrorCode code);
  // `text` is not terminated. `reply` and `replyLength` are always null and
  // 0 here; they belong to the application.
  virtual int OnSipMessage(unsigned long long const& callId, char const* text, unsigned short length, char kind,
                            char* reply, unsigned short replyLength);
  // The whole body.
  virtual int OnStartFilter(unsigned char const* filter);
  virtual int OnStopFilter();

  // Queues the bytes as they are.
  virtual bool SendMessage(int code, unsigned char* data, unsigned short length);
  // Calls the handler of the code; always true (a code it does not know is
  // consumed unanswered). `data` must be readable, zero past the body, for
  // at least kAnalyzerReadableBytes, as the loops pass it.
  virtual bool DispatchMessage(int code, unsigned char* data);

 protected:
  CyclicMessageQueue* mQueue;  // owned; null when its allocation failed

 private:
  AnalyzerMessenger(AnalyzerMessenger const&) = delete;
  AnalyzerMessenger& operator=(AnalyzerMessenger const&) = delete;
};

// The furthest a reader following any layout of this protocol can reach
// (MakeCall with ten 255-byte texts: 10 * 256 + 4 + 4 + 8 + 1), plus the
// terminating zero: every body reaches DispatchMessage at least this long.
constexpr unsigned kAnalyzerReadableBytes = 10 * 256 + 4 + 4 + 8 + 1 + 1;

#endif  // LIBMESSAGING_ANALYZER_MESSENGER_H_
