// Slot order of the messengers derived from CallMessenger: each one's own
// virtual operations continue after its base's last slot (CallMessenger ends
// at 47), and overrides stay in the base's slots.
#include <gtest/gtest.h>

#include "libmessaging.h"
#include "support/slots.h"

namespace {

using test::Expected;
using test::SlotOf;
using test::Slots;

constexpr long kAfterCallMessenger = 48;
constexpr long kAfterSipBase = kAfterCallMessenger + 8;

// Slots CallMessenger gives to the operations its subclasses override.
constexpr long kOnPartyStateChangedSlot = 43;
constexpr long kDispatchMessageSlot = 45;

TEST(CallFamilySlotOrder, LineMessengers) {
  EXPECT_EQ(Slots(&CasMessenger::CasEventRaise, &CasMessenger::OnConfigChanged, &CasMessenger::OnCasEventRaise),
            Expected(3, kAfterCallMessenger));
  EXPECT_EQ(Slots(&FxoMessenger::OnConfigChanged, &FxoMessenger::OnGenerateFlash), Expected(2, kAfterCallMessenger));
  EXPECT_EQ(Slots(&IsdnMessenger::OnConfigChanged), Expected(1, kAfterCallMessenger));
  EXPECT_EQ(Slots(&CmCsMessenger::OnRaiseAddInfo, &CmCsMessenger::OnAcceptRaiseAddInfo),
            Expected(2, kAfterCallMessenger));
  EXPECT_EQ(Slots(&CasMessenger::DispatchMessage, &FxoMessenger::DispatchMessage, &IsdnMessenger::DispatchMessage,
                  &CmCsMessenger::DispatchMessage),
            std::vector<long>(4, kDispatchMessageSlot));
  // Sends other than CasEventRaise are not virtual.
  EXPECT_EQ(SlotOf(&FxoMessenger::GenerateFlash), -1);
  EXPECT_EQ(SlotOf(&CasMessenger::ConfigChanged), -1);
}

TEST(CallFamilySlotOrder, SipMessengers) {
  using B = SipBaseMessenger;
  EXPECT_EQ(Slots(&B::OnRegisterUser, &B::OnRegisterUsers, &B::OnConfirmRegister, &B::OnMakeReferCall,
                  &B::OnRaiseAddInfo, &B::OnAcceptRaiseAddInfo, &B::PeerConnected, &B::PeerDisconnected),
            Expected(8, kAfterCallMessenger));
  EXPECT_EQ(Slots(&SipMessenger::OnConfigChanged, &SipMessenger::OnIMUserSet, &SipMessenger::OnIMRequest,
                  &SipMessenger::OnIMResponse),
            Expected(4, kAfterSipBase));
  using S = SPMGMessenger;
  EXPECT_EQ(Slots(&S::OnMakeAlertCall, &S::OnSetConfiguration, &S::OnUserActivated, &S::OnVMIndication),
            Expected(4, kAfterSipBase));
  EXPECT_EQ(Slots(&S::OnRegisterUser, &S::OnRegisterUsers, &S::OnConfirmRegister, &S::OnPartyStateChanged,
                  &S::DispatchMessage, &SipMessenger::DispatchMessage, &B::DispatchMessage),
            std::vector<long>({kAfterCallMessenger, kAfterCallMessenger + 1, kAfterCallMessenger + 2,
                               kOnPartyStateChangedSlot, kDispatchMessageSlot, kDispatchMessageSlot,
                               kDispatchMessageSlot}));
  EXPECT_EQ(SlotOf(&S::SetConfiguration), -1);
  EXPECT_EQ(SlotOf(&SipMessenger::IMRequest), -1);
}

}  // namespace
