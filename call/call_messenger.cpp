// Call-control protocol. Body of each code, fields in order (widths in
// bytes; CP = CallParams, CEP = CallExtraParams, CA = CallAttachment, media =
// list of MediaParams, all as laid out in call_records.h). Every body then
// ends with the sender's ProtocolType (4).
//
//   0x00 MakeCall        CP from, CP to, call id (8), media, text, CEP, CA
//   0x01 CloseCall       call id (8), CEP, text
//   0x02 CallTransfer    call id (8), CP, CEP
//   0x03 Ringing         call id (8), media, CEP
//   0x04 Accept          call id (8), media, CEP, CA
//   0x05 ChangeMedia     call id (8), media, CEP
//   0x06 OfferMedia      call id (8), media, CEP
//   0x07 AnswerMedia     call id (8), media, CEP
//   0x08 ReportError     call id (8), CallErrorCode (4), CEP, text
//   0x09 Done            call id (8), media, CEP
//   0x0A CallForward     call id (8), list of CP, CEP
//   0x0B UpdateUserInfo  call id (8), CP, CEP
//   0x0C RequestMedia    call id (8), CP, CEP
//   0x0D ResponseMedia   call id (8), media, CEP
//   0x0E InCallRefer     call id (8), CP, second call id (8), CEP
//   0x0F IsAcceptRefer   call id (8), unsigned long (4), CEP
//   0x10 ReferResponse   call id (8), ReferResponseType (4), CEP
#include "call_messenger.h"

#include <new>

#include "messaging/messenger.h"

namespace {

// Message codes: on the wire, shared with every process built against this
// protocol. Never renumber.
enum : unsigned {
  kMakeCall = 0x00,
  kCloseCall = 0x01,
  kCallTransfer = 0x02,
  kRinging = 0x03,
  kAccept = 0x04,
  kChangeMedia = 0x05,
  kOfferMedia = 0x06,
  kAnswerMedia = 0x07,
  kReportError = 0x08,
  kDone = 0x09,
  kCallForward = 0x0A,
  kUpdateUserInfo = 0x0B,
  kRequestMedia = 0x0C,
  kResponseMedia = 0x0D,
  kInCallRefer = 0x0E,
  kIsAcceptRefer = 0x0F,
  kReferResponse = 0x10,
};

// The highest ProtocolType a sender may carry.
constexpr unsigned kLastProtocolType = 8;

// The call-control channels 4..11 report their peers as sender kinds 1..8.
constexpr int kFirstCallChannel = 4;
constexpr int kLastCallChannel = 11;

using CallId = unsigned long long;
using Media = std::list<MediaParams>;

// The class named in every error text of the family, subclasses included.
char const kClass[] = "CallMessenger";
char const kNoQueue[] = "No transport queue.";

}  // namespace

CallMessenger::CallMessenger(int id, Link* link, unsigned int size)
    : mProtocolType(PROTOCOL_DEFAULT),
      mQueue(new (std::nothrow) CyclicMessageQueue(id, "/bin/ping", size, link)) {
  if (!mQueue) Report(*this, kClass, "No memory to construct object.");
}

CallMessenger::~CallMessenger() {
  delete mQueue;
  mQueue = nullptr;
}

bool CallMessenger::MakeCall(CallParams const& from, CallParams const& to, CallId const& callId,
                             Media const& media, std::string const& text, CallExtraParams const* extra,
                             CallAttachment const* attachment) {
  return Send(*this, kMakeCall, from, to, callId, media, text, OrDefault(extra), OrDefault(attachment));
}

bool CallMessenger::Ringing(CallId const& callId, Media const& media, CallExtraParams const* extra) {
  return Send(*this, kRinging, callId, media, OrDefault(extra));
}

bool CallMessenger::Accept(CallId const& callId, Media const& media, CallExtraParams const* extra,
                           CallAttachment const* attachment) {
  return Send(*this, kAccept, callId, media, OrDefault(extra), OrDefault(attachment));
}

bool CallMessenger::Done(CallId const& callId, Media const& media, CallExtraParams const* extra) {
  return Send(*this, kDone, callId, media, OrDefault(extra));
}

bool CallMessenger::CloseCall(CallId const& callId, CallExtraParams const* extra, std::string const& text) {
  return Send(*this, kCloseCall, callId, OrDefault(extra), text);
}

bool CallMessenger::ReportError(CallId const& callId, CallErrorCode error, CallExtraParams const* extra,
                                std::string const& text) {
  return Send(*this, kReportError, callId, error, OrDefault(extra), text);
}

bool CallMessenger::ChangeMedia(CallId const& callId, Media const& media, CallExtraParams const* extra) {
  return Send(*this, kChangeMedia, callId, media, OrDefault(extra));
}

bool CallMessenger::OfferMedia(CallId const& callId, Media const& media, CallExtraParams const* extra) {
  return Send(*this, kOfferMedia, callId, media, OrDefault(extra));
}

bool CallMessenger::AnswerMedia(CallId const& callId, Media const& media, CallExtraParams const* extra) {
  return Send(*this, kAnswerMedia, callId, media, OrDefault(extra));
}

bool CallMessenger::CallTransfer(CallId const& callId, CallParams const& target, CallExtraParams const* extra) {
  return Send(*this, kCallTransfer, callId, target, OrDefault(extra));
}

bool CallMessenger::CallForward(CallId const& callId, std::list<CallParams> const& targets,
                                CallExtraParams const* extra) {
  return Send(*this, kCallForward, callId, targets, OrDefault(extra));
}

bool CallMessenger::UpdateUserInfo(CallId const& callId, CallParams const& user, CallExtraParams const* extra) {
  return Send(*this, kUpdateUserInfo, callId, user, OrDefault(extra));
}

bool CallMessenger::RequestMedia(CallId const& callId, CallParams const& party, CallExtraParams const* extra) {
  return Send(*this, kRequestMedia, callId, party, OrDefault(extra));
}

bool CallMessenger::ResponseMedia(CallId const& callId, Media const& media, CallExtraParams const* extra) {
  return Send(*this, kResponseMedia, callId, media, OrDefault(extra));
}

bool CallMessenger::InCallRefer(CallId const& callId, CallParams const& target, CallId const& otherCallId,
                                CallExtraParams const& extra) {
  return Send(*this, kInCallRefer, callId, target, otherCallId, extra);
}

bool CallMessenger::IsAcceptRefer(CallId const& callId, unsigned long value, CallExtraParams const& extra) {
  return Send(*this, kIsAcceptRefer, callId, value, extra);
}

bool CallMessenger::ReferResponse(CallId const& callId, ReferResponseType response, CallExtraParams const& extra) {
  return Send(*this, kReferResponse, callId, response, extra);
}

bool CallMessenger::BeginMessageLoop() {
  if (!mQueue) {
    Report(*this, kClass, kNoQueue);
    return false;
  }
  return RunMessageLoop(
      *mQueue, [this](int code, std::string const& body) { DispatchMessage(&code, &body); },
      [this](bool online, std::string const& body) { DoPartyStateChanged(online, &body); });
}

bool CallMessenger::ProcessMessageFromQueue(int n) {
  if (!mQueue) {
    Report(*this, kClass, kNoQueue);
    return false;
  }
  return DrainMessages(
      *mQueue, n, [this](int code, std::string const& body) { DispatchMessage(&code, &body); },
      [this](bool online, std::string const& body) { DoPartyStateChanged(online, &body); });
}

CallId CallMessenger::GenerateCallID() const { return Utility::GenerateUniqueNumber(); }

bool CallMessenger::IsPartyOnline() {
  if (mQueue) return mQueue->IsPartyOnline();
  Report(*this, kClass, kNoQueue);
  return false;
}

bool CallMessenger::IsQueueEmpty() {
  if (mQueue) return mQueue->IsQueueEmpty();
  Report(*this, kClass, kNoQueue);
  return false;
}

bool CallMessenger::ResetQueue() {
  if (mQueue) return mQueue->ResetBuffers();
  Report(*this, kClass, kNoQueue);
  return false;
}

CallMessenger::operator bool() {
  if (mQueue) return static_cast<bool>(*mQueue);
  Report(*this, kClass, kNoQueue);
  return false;
}

// The defaulted handlers: an application overrides those it needs.
int CallMessenger::OnOfferMedia(CallId const&, Media const&, CallExtraParams const&, ProtocolType) { return false; }
int CallMessenger::OnAnswerMedia(CallId const&, Media const&, CallExtraParams const&, ProtocolType) { return false; }
int CallMessenger::OnCallTransfer(CallId const&, CallParams const&, CallExtraParams const&, ProtocolType) {
  return false;
}
int CallMessenger::OnCallForward(CallId const&, std::list<CallParams> const&, CallExtraParams const&, ProtocolType) {
  return false;
}
int CallMessenger::OnUpdateUserInfo(CallId const&, CallParams const&, CallExtraParams const&, ProtocolType) {
  return false;
}
int CallMessenger::OnRequestMedia(CallId const&, CallParams const&, CallExtraParams const&, ProtocolType) {
  return false;
}
int CallMessenger::OnResponseMedia(CallId const&, Media const&, CallExtraParams const&, ProtocolType) { return false; }
int CallMessenger::OnInCallRefer(CallId const&, CallParams const&, CallId const&, CallExtraParams const&,
                                  ProtocolType) {
  return false;
}
int CallMessenger::OnIsAcceptRefer(CallId const&, unsigned long, CallExtraParams const&, ProtocolType) {
  return false;
}
int CallMessenger::OnReferResponse(CallId const&, ReferResponseType, ProtocolType) { return false; }
int CallMessenger::OnPartyStateChanged(bool, ProtocolType) { return false; }

bool CallMessenger::SendMessage(int const* code, std::string* body) {
  if (!mQueue) {
    Report(*this, kClass, kNoQueue);
    return false;
  }
  *body << mProtocolType;
  return mQueue->SendMessage(code, body) != 0;
}

bool CallMessenger::DispatchMessage(int const* code, std::string const* body) {
  if (!code || !body) return false;
  if (body->size() < 4) {
    Report(*this, kClass, "Wrong message format, sender doesn't belong to CallMessenger's hierarchy.");
    return true;
  }
  std::int32_t word = TrailingWord(*body);
  if (static_cast<unsigned>(word) > kLastProtocolType) {
    Report(*this, kClass, "Wrong sender ID.");
    return true;
  }
  ProtocolType const sender = static_cast<ProtocolType>(word);
  std::string const& b = *body;
  switch (static_cast<unsigned>(*code)) {
    case kMakeCall:
      return Deliver<CallParams, CallParams, CallId, Media, std::string, CallExtraParams, CallAttachment>(
          b, [&](auto&... f) { OnMakeCall(f..., sender); });
    case kCloseCall:
      return Deliver<CallId, CallExtraParams, std::string>(b, [&](auto&... f) { OnCloseCall(f..., sender); });
    case kCallTransfer:
      return Deliver<CallId, CallParams, CallExtraParams>(b, [&](auto&... f) { OnCallTransfer(f..., sender); });
    case kRinging:
      return Deliver<CallId, Media, CallExtraParams>(b, [&](auto&... f) { OnRinging(f..., sender); });
    case kAccept:
      return Deliver<CallId, Media, CallExtraParams, CallAttachment>(b, [&](auto&... f) { OnAccept(f..., sender); });
    case kChangeMedia:
      return Deliver<CallId, Media, CallExtraParams>(b, [&](auto&... f) { OnChangeMedia(f..., sender); });
    case kOfferMedia:
      return Deliver<CallId, Media, CallExtraParams>(b, [&](auto&... f) { OnOfferMedia(f..., sender); });
    case kAnswerMedia:
      return Deliver<CallId, Media, CallExtraParams>(b, [&](auto&... f) { OnAnswerMedia(f..., sender); });
    case kReportError:
      return Deliver<CallId, CallErrorCode, CallExtraParams, std::string>(
          b, [&](auto&... f) { OnReportError(f..., sender); });
    case kDone:
      return Deliver<CallId, Media, CallExtraParams>(b, [&](auto&... f) { OnDone(f..., sender); });
    case kCallForward:
      return Deliver<CallId, std::list<CallParams>, CallExtraParams>(
          b, [&](auto&... f) { OnCallForward(f..., sender); });
    case kUpdateUserInfo:
      return Deliver<CallId, CallParams, CallExtraParams>(b, [&](auto&... f) { OnUpdateUserInfo(f..., sender); });
    case kRequestMedia:
      return Deliver<CallId, CallParams, CallExtraParams>(b, [&](auto&... f) { OnRequestMedia(f..., sender); });
    case kResponseMedia:
      return Deliver<CallId, Media, CallExtraParams>(b, [&](auto&... f) { OnResponseMedia(f..., sender); });
    case kInCallRefer:
      return Deliver<CallId, CallParams, CallId, CallExtraParams>(
          b, [&](auto&... f) { OnInCallRefer(f..., sender); });
    case kIsAcceptRefer:
      return Deliver<CallId, unsigned long, CallExtraParams>(b, [&](auto&... f) { OnIsAcceptRefer(f..., sender); });
    case kReferResponse:
      return Deliver<CallId, ReferResponseType, CallExtraParams>(
          b, [&](auto& id, auto& response, auto&) { OnReferResponse(id, response, sender); });
    default:
      return false;
  }
}

bool CallMessenger::DoPartyStateChanged(bool online, std::string const* body) {
  if (!body || body->size() < 4) return false;
  std::int32_t channel = TrailingWord(*body);
  ProtocolType sender = channel >= kFirstCallChannel && channel <= kLastCallChannel
                            ? static_cast<ProtocolType>(channel - kFirstCallChannel + 1)
                            : PROTOCOL_DEFAULT;
  OnPartyStateChanged(online, sender);
  return true;
}

void CallMessenger::Error(char const* text) { WriteMessengerError(text); }
