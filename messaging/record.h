// Records name their fields once, in wire order, with an overload
//
//   template <typename Visit>
//   decltype(auto) Fields(CallParams& r, Visit&& visit) { return visit(r.user, ..., r.port); }
//
// and their codec operators and comparison are walks over that list:
//
//   std::string& operator<<(std::string& b, CallParams const& r) { return EncodeRecord(b, r); }
//
// Private to the library.
#ifndef LIBMESSAGING_MESSAGING_RECORD_H_
#define LIBMESSAGING_MESSAGING_RECORD_H_

#include <string>
#include <tuple>

#include "messaging/messenger.h"

// Fields() is written once, for a mutable record; encoding and comparison
// only read through it.
template <typename Record>
Record& Mutable(Record const& record) {
  return const_cast<Record&>(record);
}

template <typename Record>
std::string& EncodeRecord(std::string& body, Record const& record) {
  return Fields(Mutable(record), [&body](auto const&... field) -> std::string& {
    (PutField(body, field), ...);
    return body;
  });
}

template <typename Record>
std::string& DecodeRecord(std::string& body, Record& record) {
  return Fields(record, [&body](auto&... field) -> std::string& {
    (TakeField(body, field), ...);
    return body;
  });
}

template <typename Record>
bool SameRecord(Record const& a, Record const& b) {
  auto tie = [](auto const&... field) { return std::tie(field...); };
  return Fields(Mutable(a), tie) == Fields(Mutable(b), tie);
}

#endif  // LIBMESSAGING_MESSAGING_RECORD_H_
