// Wire layouts of the call records (the field lists are in call_records.h):
//   CallParams       10 texts (user, displayName, number, tag, host, contact,
//                    sessionId, line, authUser, info), port (4)
//   RegisterParams   CallParams, registered (1)
//   CallExtraParams  flags (4), context (4)
//   PackageParam     event, contentType, content (texts)
//   CallAttachment   kind (4), reference (4), data (text)
//   AlertInfo        enabled (1), uri (text)
#include "call_records.h"

#include "messaging/record.h"

CallParams::CallParams() : port(0) {}
CallParams::CallParams(CallParams const& other) = default;
CallParams& CallParams::operator=(CallParams const& other) = default;
CallParams::~CallParams() = default;

bool operator==(CallParams const& a, CallParams const& b) { return SameRecord(a, b); }
bool operator==(RegisterParams const& a, RegisterParams const& b) { return SameRecord(a, b); }
bool operator==(CallExtraParams const& a, CallExtraParams const& b) { return SameRecord(a, b); }
bool operator==(PackageParam const& a, PackageParam const& b) { return SameRecord(a, b); }
bool operator==(CallAttachment const& a, CallAttachment const& b) { return SameRecord(a, b); }
bool operator==(AlertInfo const& a, AlertInfo const& b) { return SameRecord(a, b); }

std::string& operator<<(std::string& b, CallParams const& r) { return EncodeRecord(b, r); }
std::string& operator>>(std::string& b, CallParams& r) { return DecodeRecord(b, r); }
std::string& operator<<(std::string& b, RegisterParams const& r) { return EncodeRecord(b, r); }
std::string& operator>>(std::string& b, RegisterParams& r) { return DecodeRecord(b, r); }
std::string& operator<<(std::string& b, CallExtraParams const& r) { return EncodeRecord(b, r); }
std::string& operator>>(std::string& b, CallExtraParams& r) { return DecodeRecord(b, r); }
std::string& operator<<(std::string& b, PackageParam const& r) { return EncodeRecord(b, r); }
std::string& operator>>(std::string& b, PackageParam& r) { return DecodeRecord(b, r); }
std::string& operator<<(std::string& b, CallAttachment const& r) { return EncodeRecord(b, r); }
std::string& operator>>(std::string& b, CallAttachment& r) { return DecodeRecord(b, r); }
std::string& operator<<(std::string& b, AlertInfo const& r) { return EncodeRecord(b, r); }
std::string& operator>>(std::string& b, AlertInfo& r) { return DecodeRecord(b, r); }
