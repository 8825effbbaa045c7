// Virtual slot numbers of member functions, for the slot-order tests.
//
// Under the Itanium C++ ABI (x86-64 and 32-bit PowerPC alike) a pointer to a
// virtual member function holds 1 + the byte offset of its vtable slot.
// Slots 0 and 1 are the complete-object and deleting destructors, so the
// first virtual operation declared after the destructor is slot 2.
#pragma once

#include <cstddef>
#include <cstring>
#include <vector>

namespace test {

template <typename Member>
inline long SlotOf(Member member) {
  struct Representation {
    std::ptrdiff_t pointer;
    std::ptrdiff_t adjustment;
  } representation;
  static_assert(sizeof(Member) == sizeof(Representation), "Itanium member-function pointer");
  std::memcpy(&representation, &member, sizeof representation);
  if ((representation.pointer & 1) == 0) return -1;  // not virtual
  return static_cast<long>((representation.pointer - 1) / static_cast<std::ptrdiff_t>(sizeof(void*)));
}

// `count` consecutive slots from `first`: 2 for the first virtual operation
// after the destructor; a subclass's own operations continue after its
// base's last slot.
inline std::vector<long> Expected(std::size_t count, long first = 2) {
  std::vector<long> slots;
  for (std::size_t i = 0; i < count; ++i) slots.push_back(static_cast<long>(i) + first);
  return slots;
}

template <typename... Members>
std::vector<long> Slots(Members... members) {
  return {SlotOf(members)...};
}

}  // namespace test
