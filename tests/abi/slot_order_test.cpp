// The order of virtual operations is a binary interface: processes built
// separately call through these vtables. Under the Itanium C++ ABI (x86-64
// and 32-bit PowerPC alike) a pointer to a virtual member function holds
// 1 + the byte offset of its vtable slot, so the order can be asserted here.
// Slots 0 and 1 are the complete-object and deleting destructors.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include "libmessaging.h"
#include "support/slots.h"

namespace {

using test::Expected;
using test::Slots;
using Text = std::string;

TEST(SlotOrder, Link) {
  auto slots = Slots(&Link::Create, static_cast<unsigned (Link::*)(int const*, Text const*)>(&Link::Write),
                     static_cast<unsigned (Link::*)(int*, Text*, bool)>(&Link::Read),
                     static_cast<unsigned (Link::*)(int const*, char const*, unsigned)>(&Link::Write),
                     static_cast<unsigned (Link::*)(int*, char*, unsigned, bool)>(&Link::Read), &Link::Error,
                     &Link::ResetBuffers, &Link::IsPartyOnline, &Link::IsQueueEmpty, &Link::operator bool);
  EXPECT_EQ(slots, Expected(10));
}

TEST(SlotOrder, CyclicMessageQueue) {
  using Q = CyclicMessageQueue;
  auto slots = Slots(static_cast<unsigned (Q::*)(int const*, Text const*)>(&Q::SendMessage),
                     static_cast<unsigned (Q::*)(int*, Text*)>(&Q::GetMessage),
                     static_cast<unsigned (Q::*)(int*, Text*)>(&Q::PeekMessage),
                     static_cast<unsigned (Q::*)(int const*, char const*, unsigned)>(&Q::SendMessage),
                     static_cast<unsigned (Q::*)(int*, char*, unsigned)>(&Q::GetMessage),
                     static_cast<unsigned (Q::*)(int*, char*, unsigned)>(&Q::PeekMessage), &Q::Error,
                     &Q::IsPartyOnline, &Q::IsQueueEmpty, &Q::ResetBuffers, &Q::operator bool);
  EXPECT_EQ(slots, Expected(11));
}

TEST(SlotOrder, CyclicSharedMemoryKeepsTheLinkOrder) {
  using C = CyclicSharedMemory;
  auto slots = Slots(&C::Create, static_cast<unsigned (C::*)(int const*, Text const*)>(&C::Write),
                     static_cast<unsigned (C::*)(int*, Text*, bool)>(&C::Read),
                     static_cast<unsigned (C::*)(int const*, char const*, unsigned)>(&C::Write),
                     static_cast<unsigned (C::*)(int*, char*, unsigned, bool)>(&C::Read), &C::Error,
                     &C::ResetBuffers, &C::IsPartyOnline, &C::IsQueueEmpty, &C::operator bool);
  EXPECT_EQ(slots, Expected(10));
}

TEST(SlotOrder, CallMessenger) {
  using M = CallMessenger;
  auto slots = Slots(
      &M::MakeCall, &M::Ringing, &M::Accept, &M::Done, &M::CloseCall, &M::ReportError, &M::ChangeMedia,
      &M::OfferMedia, &M::AnswerMedia, &M::CallTransfer, &M::CallForward, &M::UpdateUserInfo, &M::RequestMedia,
      &M::ResponseMedia, &M::InCallRefer, &M::IsAcceptRefer, &M::ReferResponse, &M::BeginMessageLoop,
      &M::ProcessMessageFromQueue, &M::GenerateCallID, &M::IsPartyOnline, &M::IsQueueEmpty, &M::ResetQueue,
      &M::operator bool, &M::OnMakeCall, &M::OnRinging, &M::OnAccept, &M::OnDone, &M::OnCloseCall,
      &M::OnReportError, &M::OnChangeMedia, &M::OnOfferMedia, &M::OnAnswerMedia, &M::OnCallTransfer,
      &M::OnCallForward, &M::OnUpdateUserInfo, &M::OnRequestMedia, &M::OnResponseMedia, &M::OnInCallRefer,
      &M::OnIsAcceptRefer, &M::OnReferResponse, &M::OnPartyStateChanged, &M::SendMessage, &M::DispatchMessage,
      &M::DoPartyStateChanged, &M::Error);
  EXPECT_EQ(slots, Expected(46));
}

}  // namespace

namespace {

// Data members are an interface too: subclasses built elsewhere (the line and
// SIP messengers of the applications) read them at fixed offsets behind the
// vtable pointer. Itanium pointers to data members hold the byte offset.
template <typename Member>
std::ptrdiff_t OffsetOf(Member member) {
  std::ptrdiff_t offset;
  static_assert(sizeof member == sizeof offset, "Itanium data-member pointer");
  std::memcpy(&offset, &member, sizeof offset);
  return offset;
}

TEST(MemberOrder, CallMessenger) {
  struct Open : CallMessenger {
    static std::ptrdiff_t Protocol() { return OffsetOf(&Open::mProtocolType); }
    static std::ptrdiff_t Queue() { return OffsetOf(&Open::mQueue); }
  };
  std::ptrdiff_t const pointer = sizeof(void*);
  EXPECT_EQ(Open::Protocol(), pointer);
  EXPECT_EQ(Open::Queue(), (pointer + 4 + pointer - 1) / pointer * pointer);
  EXPECT_EQ(static_cast<std::ptrdiff_t>(sizeof(CallMessenger)), Open::Queue() + pointer);
}

}  // namespace
