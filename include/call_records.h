// Records and enumerations of the call-control family: the description of a
// call party, registration and call options, shared by most messengers.
//
// Each record travels as the plain concatenation of its fields in declaration
// order (see codec.h for the widths); none carries a length or a tag, so the
// order of the fields below is part of the wire and never changes.
#ifndef LIBMESSAGING_CALL_RECORDS_H_
#define LIBMESSAGING_CALL_RECORDS_H_

#include <list>
#include <string>

#include "codec.h"

// The enumerations below travel as 4-byte integers and are passed through
// unchecked, so each has int as its fixed underlying type: every received
// value, named or not, is a valid value of the type.

// Kind of call-control sender, appended to every body of the family. Values
// above 8 are refused by the receiver. The online/offline notices of the
// call-control channels 4 to 11 report 1 to 8 (channel id - 3); which process
// kind owns 3 to 7 is the applications' business.
enum ProtocolType : int {
  PROTOCOL_DEFAULT = 0,  // a sender that does not say (CAS, ISDN)
  PROTOCOL_FXO = 1,
  PROTOCOL_SIP = 2,
  PROTOCOL_CMCS = 8,
};

// Why a call failed; the values belong to the applications.
enum CallErrorCode : int {
  CALL_ERROR_NONE = 0,
  CALL_ERROR_BUSY = 1,
  CALL_ERROR_NO_ANSWER = 2,
  CALL_ERROR_REJECTED = 3,
  CALL_ERROR_UNREACHABLE = 4,
  CALL_ERROR_MEDIA = 5,
  CALL_ERROR_INTERNAL = 6,
};

enum ReferResponseType : int {
  REFER_ACCEPTED = 0,
  REFER_REJECTED = 1,
  REFER_FAILED = 2,
  REFER_SUCCEEDED = 3,
};

// What changed in a line process's configuration.
enum CfgChangeType : int {
  CFG_CHANGE_NONE = 0,
  CFG_CHANGE_LINES = 1,
  CFG_CHANGE_USERS = 2,
  CFG_CHANGE_ROUTES = 3,
  CFG_CHANGE_TIMERS = 4,
};

// Kind of additional call information raised between signalling processes.
enum RaiseAddInfoType : int {
  ADD_INFO_NONE = 0,
  ADD_INFO_INFO = 1,
  ADD_INFO_NOTIFY = 2,
  ADD_INFO_MESSAGE = 3,
};

static_assert(sizeof(ProtocolType) == 4 && sizeof(CallErrorCode) == 4 && sizeof(ReferResponseType) == 4 &&
                  sizeof(CfgChangeType) == 4 && sizeof(RaiseAddInfoType) == 4,
              "call-control enumerations travel as 4 bytes");

// One call party. The first text is the party's address or user part and the
// fifth its host part ("user@host" when the host is not empty).
struct CallParams {
  CallParams();
  CallParams(CallParams const& other);
  CallParams& operator=(CallParams const& other);
  ~CallParams();

  std::string user;         // address or user part
  std::string displayName;
  std::string number;       // dialled or presented number
  std::string tag;          // dialog tag
  std::string host;         // host part
  std::string contact;
  std::string sessionId;
  std::string line;         // line or trunk name
  std::string authUser;
  std::string info;         // free text
  unsigned long port;       // line or port number
};

// A user to register: a CallParams (its wire layout is the CallParams
// layout followed by the flag) and whether it is registered.
struct RegisterParams : CallParams {
  RegisterParams() = default;
  explicit RegisterParams(CallParams const& party, bool isRegistered = false)
      : CallParams(party), registered(isRegistered) {}

  bool registered = false;
};

struct CallExtraParams {
  unsigned long flags = 0;
  unsigned long context = 0;
};

struct PackageParam {
  std::string event;
  std::string contentType;
  std::string content;
};

// A default attachment, sent where none is given, is (-1, -1, "").
struct CallAttachment {
  int kind = -1;
  int reference = -1;
  std::string data;
};

struct AlertInfo {
  bool enabled = false;
  std::string uri;
};

bool operator==(CallParams const& a, CallParams const& b);
bool operator==(RegisterParams const& a, RegisterParams const& b);
bool operator==(CallExtraParams const& a, CallExtraParams const& b);
bool operator==(PackageParam const& a, PackageParam const& b);
bool operator==(CallAttachment const& a, CallAttachment const& b);
bool operator==(AlertInfo const& a, AlertInfo const& b);

std::string& operator<<(std::string& body, CallParams const& record);
std::string& operator>>(std::string& body, CallParams& record);
std::string& operator<<(std::string& body, RegisterParams const& record);
std::string& operator>>(std::string& body, RegisterParams& record);
std::string& operator<<(std::string& body, CallExtraParams const& record);
std::string& operator>>(std::string& body, CallExtraParams& record);
std::string& operator<<(std::string& body, PackageParam const& record);
std::string& operator>>(std::string& body, PackageParam& record);
std::string& operator<<(std::string& body, CallAttachment const& record);
std::string& operator>>(std::string& body, CallAttachment& record);
std::string& operator<<(std::string& body, AlertInfo const& record);
std::string& operator>>(std::string& body, AlertInfo& record);

// Field lists, in wire order, for code that walks a record's fields (the
// operators above are such walks; the messengers' encoders and decoders,
// which work on a body in place, are others): Fields(record, visit) calls
// visit(field...).
template <typename Visit>
decltype(auto) Fields(CallParams& r, Visit&& visit) {
  return visit(r.user, r.displayName, r.number, r.tag, r.host, r.contact, r.sessionId, r.line,
               r.authUser, r.info, r.port);
}
template <typename Visit>
decltype(auto) Fields(RegisterParams& r, Visit&& visit) {
  return visit(static_cast<CallParams&>(r), r.registered);
}
template <typename Visit>
decltype(auto) Fields(CallExtraParams& r, Visit&& visit) {
  return visit(r.flags, r.context);
}
template <typename Visit>
decltype(auto) Fields(PackageParam& r, Visit&& visit) {
  return visit(r.event, r.contentType, r.content);
}
template <typename Visit>
decltype(auto) Fields(CallAttachment& r, Visit&& visit) {
  return visit(r.kind, r.reference, r.data);
}
template <typename Visit>
decltype(auto) Fields(AlertInfo& r, Visit&& visit) {
  return visit(r.enabled, r.uri);
}

#endif  // LIBMESSAGING_CALL_RECORDS_H_
