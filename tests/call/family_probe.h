// Test doubles for the messengers derived from CallMessenger.
//
// Probe<M> is an M whose handlers record their name and the re-encoded values
// they received, so two calls compare equal only if every decoded field does.
// Capture() makes its sends land in a list instead of on a channel (the real
// SendMessage still appends the ProtocolType).
#pragma once

#include <deque>
#include <list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "libmessaging.h"
#include "messaging/messenger.h"
#include "support/golden.h"
#include "support/process.h"

namespace test {

using CallId = unsigned long long;
using Media = std::list<MediaParams>;
using CP = CallParams;
using CEP = CallExtraParams;
using PT = ProtocolType;
using Sent = std::deque<std::pair<int, std::string>>;

class CapturingLink : public Link {
 public:
  Sent sent;
  bool Create() override { return true; }
  unsigned Write(int const* code, std::string const* body) override {
    sent.emplace_back(*code, *body);
    return static_cast<unsigned>(body->size()) + 4;
  }
  unsigned Read(int*, std::string*, bool) override { return 0; }
  unsigned Write(int const*, char const*, unsigned) override { return 0; }
  unsigned Read(int*, char*, unsigned, bool) override { return 0; }
  void Error(char const*) override {}
  bool ResetBuffers() override { return true; }
  bool IsPartyOnline() const override { return true; }
  bool IsQueueEmpty() const override { return sent.empty(); }
  operator bool() const override { return true; }
};

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
  ~Probe() override {
    delete this->mQueue;  // before link_ goes
    this->mQueue = nullptr;
  }

  Sent& Capture() {
    delete this->mQueue;
    this->mQueue = new CyclicMessageQueue(0, "/bin/ping", 32768, &link_);
    return link_.sent;
  }
  // The codes captured so far.
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

  int OnMakeCall(CP const& a, CP const& b, CallId const& c, Media const& d, std::string const& e, CEP const& f,
                  CallAttachment const& g, PT p) override {
    return Note("MakeCall", a, b, c, d, e, f, g, p);
  }
  int OnRinging(CallId const& a, Media const& b, CEP const& c, PT p) override { return Note("Ringing", a, b, c, p); }
  int OnAccept(CallId const& a, Media const& b, CEP const& c, CallAttachment const& d, PT p) override {
    return Note("Accept", a, b, c, d, p);
  }
  int OnDone(CallId const& a, Media const& b, CEP const& c, PT p) override { return Note("Done", a, b, c, p); }
  int OnCloseCall(CallId const& a, CEP const& b, std::string const& c, PT p) override {
    return Note("CloseCall", a, b, c, p);
  }
  int OnReportError(CallId const& a, CallErrorCode b, CEP const& c, std::string const& d, PT p) override {
    return Note("ReportError", a, b, c, d, p);
  }
  int OnChangeMedia(CallId const& a, Media const& b, CEP const& c, PT p) override {
    return Note("ChangeMedia", a, b, c, p);
  }
  int OnPartyStateChanged(bool online, PT p) override { return Note("PartyState", online, p); }

 private:
  CapturingLink link_;
};

// Call control on a real channel hears from a peer process: the peer,
// made by makePeer() in a child once `control` has announced itself, comes
// online and runs sendAll(peer); `control` must see exactly `expected`. The
// child stays until then, and its exit code names its failing step.
template <typename Control, typename MakePeer, typename SendAll>
void ExpectFromPeer(Control& control, std::vector<std::string> const& expected, MakePeer makePeer, SendAll sendAll) {
  Pipe ready, done;
  pid_t child = Spawn([&]() {
    int go = 0;
    if (!ready.Receive(&go)) return 10;
    auto peer = makePeer();
    peer->ProcessMessageFromQueue(1);  // announces this end
    if (!peer->IsPartyOnline()) return 11;
    sendAll(*peer);
    return done.Receive(&go) ? 0 : 12;
  });
  EXPECT_FALSE(control.ProcessMessageFromQueue(1));  // announces this end
  ready.Send(1);
  EXPECT_TRUE(WaitUntil([&] {
    control.ProcessMessageFromQueue(10);
    return control.calls.size() >= expected.size();
  }));
  EXPECT_EQ(control.calls, expected);
  done.Send(1);
  ChildResult r = Wait(child);
  EXPECT_TRUE(r.exited && r.code == 0) << r.Describe();
}

inline CP Party(char const* user, char const* host) {
  CP p;
  p.user = user;
  p.host = host;
  p.info = std::string("with\0zero", 9);
  p.port = 0xA1B2C3D4;
  return p;
}

inline Media OneStream() {
  MediaParams audio;
  audio.type = MediaParams::kAudio;
  audio.codec = "PCMA";
  audio.port = 40000;
  return {audio};
}

}  // namespace test
