// Test doubles for CallMessenger and the messengers derived from it.
//
// Probe<M> is an M whose handlers record their name and the re-encoded values
// they received, so two calls compare equal only if every decoded field does.
// Capture() makes its sends land in a list instead of on a channel (the real
// SendMessage still appends the ProtocolType).
#pragma once

#include <list>
#include <memory>
#include <vector>

#include "libmessaging.h"
#include "messaging/messenger.h"
#include "support/capturing_link.h"
#include "support/golden.h"
#include "support/process.h"

namespace test {

using CallId = unsigned long long;
using Media = std::list<MediaParams>;
using CP = CallParams;
using CEP = CallExtraParams;
using PT = ProtocolType;
// Handler parameters.
using IdRef = CallId const&;
using MediaRef = Media const&;
using ExtraRef = CEP const&;
using PartyRef = CP const&;
using TextRef = std::string const&;

struct Notes {
  std::vector<std::string> calls;
  template <typename... Fields>
  bool Note(char const* name, Fields const&... fields) {
    calls.push_back(std::string(name) + ":" + Hex(MakeBody(fields...)));
    return true;
  }
};

template <typename Messenger>
class Probe : public Messenger, public Notes {
 public:
  template <typename... Args>
  explicit Probe(Args... args) : Messenger(args...) {}
  ~Probe() override { DropQueue(); }  // before link_ goes
  Sent& Capture() {
    DropQueue();
    this->mQueue = new CyclicMessageQueue(0, "/bin/ping", 32768, &link_);
    return link_.sent;
  }
  // As a messenger whose queue could not be allocated.
  void DropQueue() {
    delete this->mQueue;
    this->mQueue = nullptr;
  }
  Sent& sent() { return link_.sent; }
  std::vector<int> Codes() const {
    std::vector<int> codes;
    for (auto const& message : link_.sent) codes.push_back(message.first);
    return codes;
  }
  // Hands the captured messages to `receiver`; true if it took them all.
  template <typename Receiver>
  bool DeliverTo(Receiver& receiver) {
    bool all = true;
    for (auto& message : link_.sent) all = receiver.DispatchMessage(&message.first, &message.second) && all;
    link_.sent.clear();
    return all;
  }
  int OnMakeCall(PartyRef a, PartyRef b, IdRef c, MediaRef d, TextRef e, ExtraRef f, CallAttachment const& g,
                  PT p) override {
    return Note("MakeCall", a, b, c, d, e, f, g, p);
  }
  int OnRinging(IdRef a, MediaRef b, ExtraRef c, PT p) override { return Note("Ringing", a, b, c, p); }
  int OnAccept(IdRef a, MediaRef b, ExtraRef c, CallAttachment const& d, PT p) override {
    return Note("Accept", a, b, c, d, p);
  }
  int OnDone(IdRef a, MediaRef b, ExtraRef c, PT p) override { return Note("Done", a, b, c, p); }
  int OnCloseCall(IdRef a, ExtraRef b, TextRef c, PT p) override { return Note("CloseCall", a, b, c, p); }
  int OnReportError(IdRef a, CallErrorCode b, ExtraRef c, TextRef d, PT p) override {
    return Note("ReportError", a, b, c, d, p);
  }
  int OnChangeMedia(IdRef a, MediaRef b, ExtraRef c, PT p) override { return Note("ChangeMedia", a, b, c, p); }
  int OnOfferMedia(IdRef a, MediaRef b, ExtraRef c, PT p) override { return Note("OfferMedia", a, b, c, p); }
  int OnAnswerMedia(IdRef a, MediaRef b, ExtraRef c, PT p) override { return Note("AnswerMedia", a, b, c, p); }
  int OnCallTransfer(IdRef a, PartyRef b, ExtraRef c, PT p) override { return Note("CallTransfer", a, b, c, p); }
  int OnCallForward(IdRef a, std::list<CP> const& b, ExtraRef c, PT p) override {
    return Note("CallForward", a, b, c, p);
  }
  int OnUpdateUserInfo(IdRef a, PartyRef b, ExtraRef c, PT p) override { return Note("UpdateUserInfo", a, b, c, p); }
  int OnRequestMedia(IdRef a, PartyRef b, ExtraRef c, PT p) override { return Note("RequestMedia", a, b, c, p); }
  int OnResponseMedia(IdRef a, MediaRef b, ExtraRef c, PT p) override { return Note("ResponseMedia", a, b, c, p); }
  int OnInCallRefer(IdRef a, PartyRef b, IdRef c, ExtraRef d, PT p) override {
    return Note("InCallRefer", a, b, c, d, p);
  }
  int OnIsAcceptRefer(IdRef a, unsigned long b, ExtraRef c, PT p) override { return Note("IsAcceptRefer", a, b, c, p); }
  int OnReferResponse(IdRef a, ReferResponseType b, PT p) override { return Note("ReferResponse", a, b, p); }
  int OnPartyStateChanged(bool online, PT p) override { return Note("PartyState", online, p); }

 private:
  CapturingLink link_;
};

inline CP Party(char const* user, char const* host) {
  CP p;
  p.user = user;
  p.host = host;
  p.info = std::string("with\0zero", 9);
  p.port = 0xA1B2C3D4;
  return p;
}

inline Media OneStream() { return {SampleMedia()}; }

}  // namespace test
