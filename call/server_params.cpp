// Server parameters in one text field: [KEY#main:second] pairs,
// [NP#flag:number] and [KEY#text] items. See sip_messengers.h for the rules
// applications rely on, including the reading side's stricter need-ping form.
#include <climits>
#include <cstring>
#include <string>

#include "sip_messengers.h"

namespace {

constexpr char kNeedPingKey[] = "[NP#";

void AppendItem(std::string& out, char const* key, std::string const* main, std::string const* second) {
  if (!main || main->empty()) return;
  out += key;
  out += *main;
  if (second && !second->empty()) out += ':' + *second;
  out += ']';
}

// The item behind `key` up to (not including) its "]". False when the key is
// absent or the item is not closed.
bool FindItem(std::string const& in, char const* key, std::string& item) {
  std::size_t at = in.find(key);
  if (at == std::string::npos) return false;
  at += std::strlen(key);
  std::size_t close = in.find(']', at);
  if (close == std::string::npos) return false;
  item.assign(in, at, close - at);
  return true;
}

void ReadPair(std::string const& in, char const* key, std::string* main, std::string* second) {
  std::string item;
  if (!FindItem(in, key, item)) return;
  std::size_t colon = item.find(':');
  if (main) main->assign(item, 0, colon);
  if (second && colon != std::string::npos) second->assign(item, colon + 1, std::string::npos);
}

void ReadText(std::string const& in, char const* key, std::string* text) {
  std::string item;
  if (text && FindItem(in, key, item)) *text = item;
}

// Decimal digits from `at`; 0 when the value does not fit an unsigned int.
unsigned int ReadNumber(std::string const& in, std::size_t at) {
  unsigned long long value = 0;
  for (; at < in.size() && in[at] >= '0' && in[at] <= '9'; ++at) {
    value = value * 10 + static_cast<unsigned>(in[at] - '0');
    if (value > UINT_MAX) return 0;
  }
  return static_cast<unsigned int>(value);
}

// Only the full form flag, ":", number, "]" counts; the flag stays false
// otherwise, whatever the writer meant.
void ReadNeedPing(std::string const& in, bool* needPing, unsigned int* number) {
  if (needPing) *needPing = false;
  std::size_t at = in.find(kNeedPingKey);
  if (at == std::string::npos) return;
  std::size_t const flag = at + sizeof kNeedPingKey - 1, colon = flag + 1;
  if (colon >= in.size() || in[colon] != ':' || in.find(']', colon) == std::string::npos) return;
  if (needPing) *needPing = in[flag] != '0';
  if (number) *number = ReadNumber(in, colon + 1);
}

}  // namespace

void packServerParams(std::string& out, std::string const* opMain, std::string const* opSecond,
                      std::string const* bpMain, std::string const* bpSecond, std::string const* boMain,
                      std::string const* boSecond, bool const* needPing, unsigned int const* pingNumber,
                      std::string const* spMain, std::string const* spSecond, std::string const* urip,
                      std::string const* bnd) {
  AppendItem(out, "[OP#", opMain, opSecond);
  AppendItem(out, "[BP#", bpMain, bpSecond);
  AppendItem(out, "[BO#", boMain, boSecond);
  if (needPing) {
    out += kNeedPingKey;
    out += *needPing ? '1' : '0';
    if (pingNumber) {
      char digits[16];
      out += ':';
      out.append(digits, itoad(*pingNumber, digits, true));
    }
    out += ']';
  }
  AppendItem(out, "[SP#", spMain, spSecond);
  AppendItem(out, "[URIP#", urip, nullptr);
  AppendItem(out, "[BND#", bnd, nullptr);
}

void unpackServerParams(std::string const& in, std::string* opMain, std::string* opSecond, std::string* bpMain,
                        std::string* bpSecond, std::string* boMain, std::string* boSecond, bool* needPing,
                        unsigned int* pingNumber, std::string* spMain, std::string* spSecond,
                        std::string* urip, std::string* bnd) {
  ReadNeedPing(in, needPing, pingNumber);
  ReadPair(in, "[OP#", opMain, opSecond);
  ReadPair(in, "[BP#", bpMain, bpSecond);
  ReadPair(in, "[BO#", boMain, boSecond);
  ReadPair(in, "[SP#", spMain, spSecond);
  ReadText(in, "[URIP#", urip);
  ReadText(in, "[BND#", bnd);
}

char* itoad(unsigned int value, char* buffer, bool returnEnd) {
  char reversed[10];
  int count = 0;
  do {
    reversed[count++] = static_cast<char>('0' + value % 10);
    value /= 10;
  } while (value != 0);
  char* end = buffer;
  while (count > 0) *end++ = reversed[--count];
  *end = '\0';
  return returnEnd ? end : buffer;
}
