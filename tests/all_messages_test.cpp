// Every generated class against the dictionary it was generated with.
#include <gtest/gtest.h>

#include "ClassCases.h"
#include "TestSupport.h"

using namespace testing_support;

namespace {

class AllMessages : public ::testing::TestWithParam<ClassCase> {};

std::string CaseName(const ::testing::TestParamInfo<ClassCase>& info) { return info.param.name; }

}  // namespace

INSTANTIATE_TEST_SUITE_P(Schema, AllMessages, ::testing::ValuesIn(AllClasses()), CaseName);

// A new object writes every field unset; a filled message loads and writes
// back unchanged; a second object loading that message, and a copy, dump the
// same; another number is refused; the array holds, copies and writes
// elements.
TEST_P(AllMessages, RoundTripsThroughTheRuntime) {
  const ClassCase& c = GetParam();
  std::unique_ptr<CMsgBase> fresh = c.make();
  ASSERT_EQ(fresh->msgnum, c.number);
  ASSERT_EQ(Str(fresh->msgname), c.name);
  MsgPtr empty(fresh->ToMsg());
  ASSERT_TRUE(empty) << fresh->errtext.ToStr();
  EXPECT_EQ(Text(empty.get()), Text(BuildSample(c.number, false).get()));

  MsgPtr sample = BuildSample(c.number, true, 2, static_cast<unsigned>(c.number));
  std::unique_ptr<CMsgBase> obj = c.make();
  ASSERT_EQ(obj->Load(sample.get()), 0) << obj->errtext.ToStr();
  MsgPtr back(obj->ToMsg());
  ASSERT_TRUE(back) << obj->errtext.ToStr();
  std::string text = Text(sample.get());
  EXPECT_EQ(Text(back.get()), text);

  std::string dump = DumpOf(*obj);
  std::unique_ptr<CMsgBase> other = c.make();
  ASSERT_EQ(other->Load(back.get()), 0) << other->errtext.ToStr();
  EXPECT_EQ(DumpOf(*other), dump);
  std::unique_ptr<CMsgBase> copy = c.make();
  c.copy(*copy, *obj);
  EXPECT_EQ(DumpOf(*copy), dump);

  MsgPtr wrong = NewMsg(c.number + 1);
  std::unique_ptr<CMsgBase> refuser = c.make();
  EXPECT_EQ(refuser->Load(wrong.get()), -28);
  EXPECT_EQ(Str(refuser->errtext), "invalid input message of service(" +
                                       std::to_string(c.number + 1) + "," +
                                       std::to_string(c.number) + ")");

  std::unique_ptr<CMsgBase_Array> arr = pricemsg::NewArray(c.number);
  ASSERT_EQ(arr->Grow(), 1);
  ASSERT_EQ(arr->Grow(), 2);
  c.copy((*arr)[1], *obj);
  MsgPtr element(arr->ToMsg(1));
  ASSERT_TRUE(element);
  EXPECT_EQ(Text(element.get()), text);
  std::unique_ptr<CMsgBase_Array> arrCopy = pricemsg::NewArray(c.number);
  pricemsg::Copy(*arrCopy, *arr);
  EXPECT_EQ(DumpOf(*arrCopy), DumpOf(*arr));
}
