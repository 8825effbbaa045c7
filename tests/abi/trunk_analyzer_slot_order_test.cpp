// Slot order and data layout of the two stand-alone call-side messengers
// (see slot_order_test.cpp for how slots are read).
#include <gtest/gtest.h>

#include "libmessaging.h"
#include "support/slots.h"

namespace {

using test::Expected;
using test::Slots;

TEST(SlotOrder, CSIPTrunkMessenger) {
  using M = CSIPTrunkMessenger;
  auto slots = Slots(&M::ProcessMessageFromQueue, &M::IsPartyOnline, &M::OnSetUsersList, &M::OnChangeUserParams,
                     &M::OnConfirmUserState, &M::OnPartyStateChanged, &M::SendMessage, &M::DispatchMessage);
  EXPECT_EQ(slots, Expected(8));
  EXPECT_EQ(sizeof(M), 2 * sizeof(void*));  // vtable pointer, queue
}

TEST(SlotOrder, AnalyzerMessenger) {
  using M = AnalyzerMessenger;
  auto slots = Slots(&M::BeginMessageLoop, &M::ProcessMessageFromQueue, &M::IsPartyOnline, &M::OnPartyStateChanged,
                     &M::OnMakeCall, &M::OnStartRTPStream, &M::OnConnect, &M::OnCloseCall, &M::OnEndCall,
                     &M::OnReportError, &M::OnSipMessage, &M::OnStartFilter, &M::OnStopFilter, &M::SendMessage,
                     &M::DispatchMessage);
  EXPECT_EQ(slots, Expected(15));
  EXPECT_EQ(sizeof(M), 2 * sizeof(void*));  // vtable pointer, queue
}

}  // namespace
