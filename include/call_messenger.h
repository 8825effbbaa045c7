// The call-control protocol between call control and a signalling process.
#ifndef LIBMESSAGING_CALL_MESSENGER_H_
#define LIBMESSAGING_CALL_MESSENGER_H_

#include <list>
#include <string>

#include "call_records.h"
#include "transport.h"

// CallMessenger carries the call dialogue — set-up, ringing, answer, media
// negotiation, transfer, forward, refer and clearing — between call control
// and a signalling process, each call named by a 64-bit call id. One class
// serves both ends: each side sends with the operations and receives with the
// On... handlers, which the application overrides (seven are pure).
//
// Every body ends with the sender's ProtocolType; handlers get it as their
// last argument. Send operations return whether the message was queued
// (false when the peer is not online, the buffer is full, or there is no
// queue). Optional records passed as null travel as their defaults:
// CallExtraParams (0, 0) and CallAttachment (-1, -1, ""). The dispatcher
// ignores handler results; the defaults do nothing and return 0.
//
// One thread drives a messenger, with BeginMessageLoop (blocks until reading
// fails) or ProcessMessageFromQueue (never blocks); handlers run on it and may
// send. Subclasses add their own codes above 0x10 and send operations and
// handlers after these, in their own slot order.
class CallMessenger {
 public:
  // Builds CyclicMessageQueue(id, "/bin/ping", size, link); a borrowed link
  // must outlive the messenger. Only a failed allocation leaves it without a
  // queue ("No memory to construct object."); a channel that could not be set
  // up shows as operator bool false.
  CallMessenger(int id, Link* link, unsigned int size);
  virtual ~CallMessenger();

  virtual bool MakeCall(CallParams const& from, CallParams const& to, unsigned long long const& callId,
                        std::list<MediaParams> const& media, std::string const& text,
                        CallExtraParams const* extra, CallAttachment const* attachment);
  virtual bool Ringing(unsigned long long const& callId, std::list<MediaParams> const& media,
                       CallExtraParams const* extra);
  virtual bool Accept(unsigned long long const& callId, std::list<MediaParams> const& media,
                      CallExtraParams const* extra, CallAttachment const* attachment);
  virtual bool Done(unsigned long long const& callId, std::list<MediaParams> const& media,
                    CallExtraParams const* extra);
  virtual bool CloseCall(unsigned long long const& callId, CallExtraParams const* extra,
                         std::string const& text);
  virtual bool ReportError(unsigned long long const& callId, CallErrorCode error,
                           CallExtraParams const* extra, std::string const& text);
  virtual bool ChangeMedia(unsigned long long const& callId, std::list<MediaParams> const& media,
                           CallExtraParams const* extra);
  virtual bool OfferMedia(unsigned long long const& callId, std::list<MediaParams> const& media,
                          CallExtraParams const* extra);
  virtual bool AnswerMedia(unsigned long long const& callId, std::list<MediaParams> const& media,
                           CallExtraParams const* extra);
  virtual bool CallTransfer(unsigned long long const& callId, CallParams const& target,
                            CallExtraParams const* extra);
  virtual bool CallForward(unsigned long long const& callId, std::list<CallParams> const& targets,
                           CallExtraParams const* extra);
  virtual bool UpdateUserInfo(unsigned long long const& callId, CallParams const& user,
                              CallExtraParams const* extra);
  virtual bool RequestMedia(unsigned long long const& callId, CallParams const& party,
                            CallExtraParams const* extra);
  virtual bool ResponseMedia(unsigned long long const& callId, std::list<MediaParams> const& media,
                             CallExtraParams const* extra);
  virtual bool InCallRefer(unsigned long long const& callId, CallParams const& target,
                           unsigned long long const& otherCallId, CallExtraParams const& extra);
  virtual bool IsAcceptRefer(unsigned long long const& callId, unsigned long value,
                             CallExtraParams const& extra);
  virtual bool ReferResponse(unsigned long long const& callId, ReferResponseType response,
                             CallExtraParams const& extra);

  // Blocks reading and handling messages; returns (false) only when reading
  // fails, e.g. when the wait is interrupted by a signal.
  virtual bool BeginMessageLoop();
  // Handles at most n pending messages without blocking; true if any was.
  virtual bool ProcessMessageFromQueue(int n);
  // A fresh call id, unique in the process and unlikely to collide across
  // processes.
  virtual unsigned long long GenerateCallID() const;
  // The queue's IsPartyOnline, IsQueueEmpty, ResetBuffers and operator bool;
  // without a queue each reports "No transport queue." and is false.
  virtual bool IsPartyOnline();
  virtual bool IsQueueEmpty();
  virtual bool ResetQueue();
  virtual operator bool();

  virtual int OnMakeCall(CallParams const& from, CallParams const& to, unsigned long long const& callId,
                          std::list<MediaParams> const& media, std::string const& text,
                          CallExtraParams const& extra, CallAttachment const& attachment,
                          ProtocolType sender) = 0;
  virtual int OnRinging(unsigned long long const& callId, std::list<MediaParams> const& media,
                         CallExtraParams const& extra, ProtocolType sender) = 0;
  virtual int OnAccept(unsigned long long const& callId, std::list<MediaParams> const& media,
                        CallExtraParams const& extra, CallAttachment const& attachment,
                        ProtocolType sender) = 0;
  virtual int OnDone(unsigned long long const& callId, std::list<MediaParams> const& media,
                      CallExtraParams const& extra, ProtocolType sender) = 0;
  virtual int OnCloseCall(unsigned long long const& callId, CallExtraParams const& extra,
                           std::string const& text, ProtocolType sender) = 0;
  virtual int OnReportError(unsigned long long const& callId, CallErrorCode error,
                             CallExtraParams const& extra, std::string const& text, ProtocolType sender) = 0;
  virtual int OnChangeMedia(unsigned long long const& callId, std::list<MediaParams> const& media,
                             CallExtraParams const& extra, ProtocolType sender) = 0;
  virtual int OnOfferMedia(unsigned long long const& callId, std::list<MediaParams> const& media,
                            CallExtraParams const& extra, ProtocolType sender);
  virtual int OnAnswerMedia(unsigned long long const& callId, std::list<MediaParams> const& media,
                             CallExtraParams const& extra, ProtocolType sender);
  virtual int OnCallTransfer(unsigned long long const& callId, CallParams const& target,
                              CallExtraParams const& extra, ProtocolType sender);
  virtual int OnCallForward(unsigned long long const& callId, std::list<CallParams> const& targets,
                             CallExtraParams const& extra, ProtocolType sender);
  virtual int OnUpdateUserInfo(unsigned long long const& callId, CallParams const& user,
                                CallExtraParams const& extra, ProtocolType sender);
  virtual int OnRequestMedia(unsigned long long const& callId, CallParams const& party,
                              CallExtraParams const& extra, ProtocolType sender);
  virtual int OnResponseMedia(unsigned long long const& callId, std::list<MediaParams> const& media,
                               CallExtraParams const& extra, ProtocolType sender);
  virtual int OnInCallRefer(unsigned long long const& callId, CallParams const& target,
                             unsigned long long const& otherCallId, CallExtraParams const& extra,
                             ProtocolType sender);
  virtual int OnIsAcceptRefer(unsigned long long const& callId, unsigned long value,
                               CallExtraParams const& extra, ProtocolType sender);
  // The body's CallExtraParams is decoded but not passed on.
  virtual int OnReferResponse(unsigned long long const& callId, ReferResponseType response,
                               ProtocolType sender);
  // The peer came online (true) or went offline; sender is derived from the
  // channel id (4..11 give 1..8, anything else 0).
  virtual int OnPartyStateChanged(bool online, ProtocolType sender);

  // Appends this messenger's ProtocolType and queues the message.
  virtual bool SendMessage(int const* code, std::string* body);
  // Decodes a message of the base codes and calls its handler. True when the
  // message was consumed (including malformed ones, which are reported);
  // false for codes above the base range, so a subclass may take them. A
  // subclass calls this first and decodes its own codes when it is false.
  virtual bool DispatchMessage(int const* code, std::string const* body);
  // Turns an online/offline notice (body: the channel id) into
  // OnPartyStateChanged; false, calling nothing, for a body under 4 bytes.
  virtual bool DoPartyStateChanged(bool online, std::string const* body);
  // Writes the text framed by line ends to the standard error stream.
  virtual void Error(char const* text);

 protected:
  ProtocolType mProtocolType;  // written by the concrete subclass
  CyclicMessageQueue* mQueue;  // owned; null when construction failed

 private:
  CallMessenger(CallMessenger const&) = delete;
  CallMessenger& operator=(CallMessenger const&) = delete;
};

#endif  // LIBMESSAGING_CALL_MESSENGER_H_
