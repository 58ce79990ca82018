// The array pattern: growth, replacement, access, Load, Copy, Dump, and the
// codes -11, -12, -27 and -28.
#include <gtest/gtest.h>

#include <vector>

#include "RuntimeProbe.h"
#include "TestSupport.h"
#include "shared/M_SysReject.h"
#include "shared/M_Tiv.h"

using namespace testing_support;

TEST(ArrayPattern, GrowsByAnEighthBetweenFourAnd1024) {
  M_SysReject_Array arr;
  std::vector<int> caps;
  for (int i = 0; i < 60; ++i) {
    ASSERT_EQ(arr.Grow(), i + 1);
    if (caps.empty() || caps.back() != arr.capacity) caps.push_back(arr.capacity);
  }
  EXPECT_EQ(caps, (std::vector<int>{4, 8, 12, 16, 20, 24, 28, 32, 36, 40, 45, 50, 56, 63}));

  // A pointer to an element survives the move of the slot array.
  M_SysReject* first = arr.GetAt(0);
  first->iSysCode = Int(42);
  for (int i = 0; i < 100; ++i) arr.Grow();
  EXPECT_EQ(arr.GetAt(0), first);
  EXPECT_EQ(arr[0].iSysCode.value, 42);

  ASSERT_EQ(arr.SetSize(100), 100);
  EXPECT_EQ(arr.capacity, 100);
  arr.Grow();
  EXPECT_EQ(arr.capacity, 112);

  // Past 8192 elements the step stays at 1024.
  ASSERT_EQ(arr.SetSize(9000), 9000);
  arr.Grow();
  EXPECT_EQ(arr.capacity, 10024);
}

TEST(ArrayPattern, SetSizeReplacesEveryElement) {
  M_SysReject_Array arr;
  ASSERT_EQ(arr.SetSize(3), 3);
  arr[1].iSysCode = Int(7);
  M_SysReject* old = arr.GetAt(1);
  ASSERT_EQ(arr.SetSize(3), 3);
  EXPECT_FALSE(arr[1].iSysCode.isSet);
  EXPECT_EQ(arr[1].msgnum, 10);
  (void)old;  // deleted: only its replacement may be used

  EXPECT_EQ(arr.SetSize(0), 0);
  EXPECT_EQ(arr.items, nullptr);
  EXPECT_EQ(arr.capacity, 0);
  EXPECT_EQ(arr.GetAt(0), nullptr);

  // A negative size allocates nothing and is reported back.
  EXPECT_EQ(arr.SetSize(-2), -2);
  EXPECT_EQ(arr.GetSize(), -2);
  EXPECT_EQ(arr.items, nullptr);
  EXPECT_EQ(arr.SetSize(1), 1);
}

TEST(ArrayPattern, IndexOutOfRange) {
  M_SysReject_Array arr;
  arr.SetSize(2);
  for (int bad : {-1, 2}) {
    EXPECT_EQ(arr.GetAt(bad), nullptr);
    EXPECT_EQ(arr.ToMsg(bad), nullptr);
  }
  EXPECT_TRUE(arr.errtext.IsEmpty());
  try {
    arr[5];
    FAIL() << "no exception";
  } catch (const CException& e) {
    if (pricemsg::probe::kAvailable) {
      EXPECT_EQ(pricemsg::probe::ExceptionCode(e), -27);
      EXPECT_EQ(pricemsg::probe::ExceptionText(e),
                "M_SysReject_Array::[] out of index (0 <= 5 < 2)");
    }
  }
  EXPECT_THROW(arr[-1], CException);
  const CMsgBase_Array& base = arr;
  EXPECT_EQ(&base[1], arr.GetAt(1));
}

TEST(ArrayPattern, OutOfMemory) {
  REQUIRE_FAILING_ALLOC();
  M_Tiv_Array arr;
  arr.msgname = "tenors";
  for (int i = 0; i < 4; ++i) arr.Grow();

  FailingAlloc::FailAt(0);  // the new slot array
  EXPECT_EQ(arr.Grow(), -11);
  FailingAlloc::Off();
  EXPECT_EQ(Str(arr.errtext), "tenors : Out of memory");
  EXPECT_EQ(arr.GetSize(), 4);

  FailingAlloc::FailAt(1);  // the element
  EXPECT_EQ(arr.Grow(), -11);
  FailingAlloc::Off();
  EXPECT_EQ(arr.GetSize(), 4);
  EXPECT_EQ(arr.Grow(), 5);

  // A failed SetSize leaves null slots from the failure on; the array can
  // still take another SetSize and be destroyed.
  FailingAlloc::FailAt(3);
  EXPECT_EQ(arr.SetSize(6), -11);
  FailingAlloc::Off();
  EXPECT_EQ(arr.GetSize(), 6);
  EXPECT_NE(arr.items[1], nullptr);
  EXPECT_EQ(arr.items[2], nullptr);
  EXPECT_EQ(arr.items[5], nullptr);
  EXPECT_EQ(arr.SetSize(2), 2);

  M_Tiv_Array empty;  // with no name, the text starts with the separator
  FailingAlloc::FailAt(0);
  EXPECT_EQ(empty.SetSize(3), -11);
  FailingAlloc::Off();
  EXPECT_EQ(Str(empty.errtext), " : Out of memory");
}

TEST(ArrayPattern, LoadBuildsFromNothing) {
  M_SysReject_Array arr;
  EXPECT_EQ(arr.Load(nullptr), -12);
  EXPECT_TRUE(arr.errtext.IsEmpty());

  arr.SetSize(4);
  CMsgArray none(true);
  EXPECT_EQ(arr.Load(&none), 0);
  EXPECT_EQ(arr.GetSize(), 0);

  // Three messages, the second of a wrong number, under the element tag of
  // a holder (M_KytVolSurface holds its elements under 1456).
  MsgPtr holder = NewMsg(1264);
  ASSERT_GE(holder->SetValue(1456, BuildSample(10, true).release()), 0);
  ASSERT_GE(holder->SetValue(1456, BuildSample(2143, true).release()), 0);
  ASSERT_GE(holder->SetValue(1456, BuildSample(10, true).release()), 0);
  CMsgArray three(true);
  ASSERT_GE(holder->GetValue(1456, &three), 0);
  EXPECT_EQ(arr.Load(&three), -28);
  EXPECT_EQ(arr.GetSize(), 3);
  EXPECT_TRUE(arr[0].iSysCode.isSet);
  EXPECT_EQ(Str(arr[1].errtext), "invalid input message of service(2143,10)");
  EXPECT_FALSE(arr[2].iSysCode.isSet);
}

TEST(ArrayPattern, CopyAndDump) {
  M_SysReject_Array src;
  src.SetSize(2);
  src[0].iSysCode = Int(1);
  src[1].iSysCode = Int(2);
  M_SysReject_Array dst;
  dst.SetSize(5);
  dst.errtext = "kept";
  dst.Copy(src);
  EXPECT_EQ(dst.GetSize(), 2);
  EXPECT_EQ(Str(dst.errtext), "kept");
  EXPECT_EQ(DumpOf(dst), DumpOf(src));
  const std::string r = EmptyRepr();
  EXPECT_EQ(DumpOf(src),
            "\nM_SysReject_Array [0]"
            "\n            <msgnum> : 10"
            "\n           <msgname> : M_SysReject"
            "\n            iSysCode : [1]"
            "\n      sSysReasonText : [" + r + "]"
            "\n        iSysRefMsgNo : [<CInt: unset>]"
            "\n--------------------------------------"
            "\nM_SysReject_Array [1]"
            "\n            <msgnum> : 10"
            "\n           <msgname> : M_SysReject"
            "\n            iSysCode : [2]"
            "\n      sSysReasonText : [" + r + "]"
            "\n        iSysRefMsgNo : [<CInt: unset>]"
            "\n--------------------------------------");
  EXPECT_EQ(DumpOf(M_SysReject_Array()), "");

  // Each element goes out as a message of its own.
  MsgPtr one(src.ToMsg(1));
  ASSERT_TRUE(one);
  EXPECT_EQ(one->msgnum, 10);
  MsgPtr again(src.ToMsg(1));
  EXPECT_NE(one.get(), again.get());
  EXPECT_EQ(Text(one.get()), Text(again.get()));
}
