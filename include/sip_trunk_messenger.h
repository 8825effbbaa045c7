// The user list of a SIP trunk, between the configuration side and the trunk
// process.
#ifndef LIBMESSAGING_SIP_TRUNK_MESSENGER_H_
#define LIBMESSAGING_SIP_TRUNK_MESSENGER_H_

#include <list>
#include <string>

#include "call_records.h"
#include "transport.h"

// CSIPTrunkMessenger carries a SIP trunk's users on channel 116: the whole
// list with two flags, a change of one user's parameters, and the
// confirmation of a user's state. One class serves both ends; what the flags
// and the number mean is up to the two applications.
//
// It stands apart from the CallMessenger family: its bodies end with their
// last field (no sender kind), it has no blocking loop (drive it with
// ProcessMessageFromQueue, from a poller or a timer), and it writes nothing
// to the standard error stream: without a queue every operation is false.
class CSIPTrunkMessenger {
 public:
  // Builds CyclicMessageQueue(116, "/bin/ping", 32768, no link).
  CSIPTrunkMessenger();
  virtual ~CSIPTrunkMessenger();

  // Each returns whether the message was queued.
  bool SetUsersList(std::list<CallParams> const& users, bool first, bool second);
  bool ChangeUserParams(CallParams const& before, CallParams const& after, bool flag);
  bool ConfirmUserState(CallParams const& user, bool state, unsigned long value, bool flag);

  // Handles at most n pending messages without blocking; true if any was.
  virtual bool ProcessMessageFromQueue(int const& n);
  virtual bool IsPartyOnline();

  // Handlers; the defaults do nothing and return 0. A body cut short
  // leaves the missing fields at their defaults.
  virtual int OnSetUsersList(std::list<CallParams> const& users, bool first, bool second);
  virtual int OnChangeUserParams(CallParams const& before, CallParams const& after, bool flag);
  virtual int OnConfirmUserState(CallParams const& user, bool state, unsigned long value, bool flag);
  // The peer came online (true) or went offline.
  virtual int OnPartyStateChanged(bool const& online);

  // Queues the body as it is.
  virtual bool SendMessage(int const* code, std::string* body);
  // Decodes a message of codes 0 to 2 and calls its handler (true); false,
  // calling nothing, for any other code.
  virtual bool DispatchMessage(int const* code, std::string const* body);

 protected:
  CyclicMessageQueue* mQueue;  // owned; null when its allocation failed

 private:
  CSIPTrunkMessenger(CSIPTrunkMessenger const&) = delete;
  CSIPTrunkMessenger& operator=(CSIPTrunkMessenger const&) = delete;
};

#endif  // LIBMESSAGING_SIP_TRUNK_MESSENGER_H_
