// The order of virtual operations and of data members is a binary interface:
// processes built separately call through these vtables and read members at
// fixed offsets. See support/slots.h for how slots are read.
#include <gtest/gtest.h>

#include <string>

#include "libmessaging.h"
#include "support/slots.h"

namespace {

using test::Expected;
using test::SlotOf;
using test::Slots;
using Text = std::string;

// Link's order, which CyclicSharedMemory keeps.
template <typename L>
std::vector<long> LinkSlots() {
  return Slots(&L::Create, static_cast<unsigned (L::*)(int const*, Text const*)>(&L::Write),
               static_cast<unsigned (L::*)(int*, Text*, bool)>(&L::Read),
               static_cast<unsigned (L::*)(int const*, char const*, unsigned)>(&L::Write),
               static_cast<unsigned (L::*)(int*, char*, unsigned, bool)>(&L::Read), &L::Error, &L::ResetBuffers,
               &L::IsPartyOnline, &L::IsQueueEmpty, &L::operator bool);
}

TEST(SlotOrder, Transport) {
  EXPECT_EQ(LinkSlots<Link>(), Expected(10));
  EXPECT_EQ(LinkSlots<CyclicSharedMemory>(), Expected(10));
  using Q = CyclicMessageQueue;
  EXPECT_EQ(Slots(static_cast<unsigned (Q::*)(int const*, Text const*)>(&Q::SendMessage),
                  static_cast<unsigned (Q::*)(int*, Text*)>(&Q::GetMessage),
                  static_cast<unsigned (Q::*)(int*, Text*)>(&Q::PeekMessage),
                  static_cast<unsigned (Q::*)(int const*, char const*, unsigned)>(&Q::SendMessage),
                  static_cast<unsigned (Q::*)(int*, char*, unsigned)>(&Q::GetMessage),
                  static_cast<unsigned (Q::*)(int*, char*, unsigned)>(&Q::PeekMessage), &Q::Error, &Q::IsPartyOnline,
                  &Q::IsQueueEmpty, &Q::ResetBuffers, &Q::operator bool),
            Expected(11));
}

TEST(SlotOrder, CallMessenger) {
  using M = CallMessenger;
  EXPECT_EQ(Slots(&M::MakeCall, &M::Ringing, &M::Accept, &M::Done, &M::CloseCall, &M::ReportError, &M::ChangeMedia,
                  &M::OfferMedia, &M::AnswerMedia, &M::CallTransfer, &M::CallForward, &M::UpdateUserInfo,
                  &M::RequestMedia, &M::ResponseMedia, &M::InCallRefer, &M::IsAcceptRefer, &M::ReferResponse,
                  &M::BeginMessageLoop, &M::ProcessMessageFromQueue, &M::GenerateCallID, &M::IsPartyOnline,
                  &M::IsQueueEmpty, &M::ResetQueue, &M::operator bool, &M::OnMakeCall, &M::OnRinging, &M::OnAccept,
                  &M::OnDone, &M::OnCloseCall, &M::OnReportError, &M::OnChangeMedia, &M::OnOfferMedia,
                  &M::OnAnswerMedia, &M::OnCallTransfer, &M::OnCallForward, &M::OnUpdateUserInfo, &M::OnRequestMedia,
                  &M::OnResponseMedia, &M::OnInCallRefer, &M::OnIsAcceptRefer, &M::OnReferResponse,
                  &M::OnPartyStateChanged, &M::SendMessage, &M::DispatchMessage, &M::DoPartyStateChanged, &M::Error),
            Expected(46));
}

// The two stand-alone call-side messengers: a vtable pointer and a queue.
TEST(SlotOrder, TrunkAndAnalyzer) {
  using T = CSIPTrunkMessenger;
  EXPECT_EQ(Slots(&T::ProcessMessageFromQueue, &T::IsPartyOnline, &T::OnSetUsersList, &T::OnChangeUserParams,
                  &T::OnConfirmUserState, &T::OnPartyStateChanged, &T::SendMessage, &T::DispatchMessage),
            Expected(8));
  using A = AnalyzerMessenger;
  EXPECT_EQ(Slots(&A::BeginMessageLoop, &A::ProcessMessageFromQueue, &A::IsPartyOnline, &A::OnPartyStateChanged,
                  &A::OnMakeCall, &A::OnStartRTPStream, &A::OnConnect, &A::OnCloseCall, &A::OnEndCall,
                  &A::OnReportError, &A::OnSipMessage, &A::OnStartFilter, &A::OnStopFilter, &A::SendMessage,
                  &A::DispatchMessage),
            Expected(15));
  EXPECT_EQ(sizeof(T), 2 * sizeof(void*));
  EXPECT_EQ(sizeof(A), 2 * sizeof(void*));
}

// The messengers derived from CallMessenger: each one's own virtual
// operations continue after its base's last slot (CallMessenger ends at 47),
// and overrides stay in the base's slots.
constexpr long kAfterCallMessenger = 48;
constexpr long kAfterSipBase = kAfterCallMessenger + 8;
constexpr long kOnPartyStateChangedSlot = 43;
constexpr long kDispatchMessageSlot = 45;

TEST(SlotOrder, LineMessengers) {
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
  EXPECT_EQ(Slots(&FxoMessenger::GenerateFlash, &CasMessenger::ConfigChanged), std::vector<long>(2, -1));
}

TEST(SlotOrder, SipMessengers) {
  using B = SipBaseMessenger;
  using S = SPMGMessenger;
  EXPECT_EQ(Slots(&B::OnRegisterUser, &B::OnRegisterUsers, &B::OnConfirmRegister, &B::OnMakeReferCall,
                  &B::OnRaiseAddInfo, &B::OnAcceptRaiseAddInfo, &B::PeerConnected, &B::PeerDisconnected),
            Expected(8, kAfterCallMessenger));
  EXPECT_EQ(Slots(&SipMessenger::OnConfigChanged, &SipMessenger::OnIMUserSet, &SipMessenger::OnIMRequest,
                  &SipMessenger::OnIMResponse),
            Expected(4, kAfterSipBase));
  EXPECT_EQ(Slots(&S::OnMakeAlertCall, &S::OnSetConfiguration, &S::OnUserActivated, &S::OnVMIndication),
            Expected(4, kAfterSipBase));
  EXPECT_EQ(Slots(&S::OnRegisterUser, &S::OnRegisterUsers, &S::OnConfirmRegister, &S::OnPartyStateChanged,
                  &S::DispatchMessage, &SipMessenger::DispatchMessage, &B::DispatchMessage),
            std::vector<long>({kAfterCallMessenger, kAfterCallMessenger + 1, kAfterCallMessenger + 2,
                               kOnPartyStateChangedSlot, kDispatchMessageSlot, kDispatchMessageSlot,
                               kDispatchMessageSlot}));
  EXPECT_EQ(Slots(&S::SetConfiguration, &SipMessenger::IMRequest), std::vector<long>(2, -1));
}

// Itanium pointers to data members hold the byte offset: the line and SIP
// messengers of the applications read these behind the vtable pointer.
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
