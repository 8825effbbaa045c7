// Texts in message bodies.
//
// A body is a std::string used as a byte buffer: fields are appended with
// operator<< and taken off the front, in the same order, with operator>>.
// A text travels as a 4-byte unsigned length in the host's byte order (the
// layout of a sequence count) followed by its bytes, which may include zeros.
#ifndef VPNUTILS_VPNUTILS_CODEC_H_
#define VPNUTILS_VPNUTILS_CODEC_H_

#include <string>

// Appends `text` to the end of `body` and returns `body`. A body whose
// capacity is below 512 bytes first reserves 512, as the fixed-width
// operators of the messaging codec do.
std::string& operator<<(std::string& body, std::string const& text);

// Takes a text off the front of `body`, erasing the consumed bytes, and
// returns `body`. When the body is too short for the length prefix or for the
// bytes the prefix announces, `text` is left unchanged and `body` is emptied;
// nothing is allocated beyond the bytes the body actually holds, so a forged
// length costs nothing.
std::string& operator>>(std::string& body, std::string& text);

#endif  // VPNUTILS_VPNUTILS_CODEC_H_
