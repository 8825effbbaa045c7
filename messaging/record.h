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

template <typename Record>
std::string& EncodeRecord(std::string& body, Record const& record) {
  AppendFields(body, record);
  return body;
}

// The string form takes the record off the front of `body`: what the reader
// consumed is erased, all of it when the body was too short.
template <typename Record>
std::string& DecodeRecord(std::string& body, Record& record) {
  BodyReader reader(body);
  Pass(reader, record);
  body.erase(0, static_cast<std::size_t>(reader.At() - body.data()));
  return body;
}

template <typename Record>
bool SameRecord(Record const& a, Record const& b) {
  auto tie = [](auto const&... field) { return std::tie(field...); };
  return Fields(Mutable(a), tie) == Fields(Mutable(b), tie);
}

#endif  // LIBMESSAGING_MESSAGING_RECORD_H_
