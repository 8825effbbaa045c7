// A link that keeps what a messenger sends instead of putting it on a
// channel; reading from it yields nothing. Shared by the messenger tests and
// the dispatch fuzz target.
#pragma once

#include <deque>
#include <string>
#include <utility>

#include "transport.h"

namespace test {

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

}  // namespace test
