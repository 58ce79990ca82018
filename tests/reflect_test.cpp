// The reflection: fields by path, typed, equality and differences, on
// every class.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "ClassCases.h"
#include "Reflect.h"
#include "TestSupport.h"
#include "equity/M_EqStd.h"
#include "shared/M_KytVolSurface.h"
#include "shared/M_SysReject.h"

using namespace testing_support;
using pricemsg::ConstFieldRef;
using pricemsg::Difference;
using pricemsg::FieldRef;
using pricemsg::Value;
namespace ps = pricemsg::schema;

namespace {

// A value of the field's kind that no other field of the sweep has: `n`
// counts the fields, and the value for n + 1 is another one. Dates are days
// of the calendar, so that any runtime takes them. The double arrays for an
// even n and the next differ only in the sign of a zero, which the
// comparisons tell apart by its bits.
Value ValueFor(pricemsg::TypeTag<CInt>, int n) { return n; }
Value ValueFor(pricemsg::TypeTag<CDbl>, int n) { return n + 0.25; }
Value ValueFor(pricemsg::TypeTag<CBool>, int n) { return n % 2 == 0; }
Value ValueFor(pricemsg::TypeTag<CDate>, int n) {
  char text[16];
  std::snprintf(text, sizeof text, "%04d%02d%02d", 2000 + n % 100, 1 + n % 12, 1 + n % 28);
  return std::string(text);
}
Value ValueFor(pricemsg::TypeTag<CString>, int n) { return "v" + std::to_string(n); }
Value ValueFor(pricemsg::TypeTag<CIntArray>, int n) { return std::vector<int>{n, -n}; }
Value ValueFor(pricemsg::TypeTag<CDblArray>, int n) {
  return std::vector<double>{n / 2 + 0.5, n % 2 ? -0.0 : 0.0};
}
template <class T>
Value ValueFor(pricemsg::TypeTag<T>, int) {
  return {};
}

struct ValuePath {
  std::string path;
  ps::Kind kind;
};

// The value fields of `obj` as paths, one element made in each repeated
// message down to `depth` levels of them.
void CollectPaths(CMsgBase& obj, const std::string& prefix, int depth,
                  std::vector<ValuePath>* out) {
  pricemsg::ForEachField(obj, [&](const ps::FieldInfo& f, auto& member) {
    using M = std::remove_reference_t<decltype(member)>;
    const std::string path = prefix + f.name;
    if constexpr (std::is_same_v<M, CMsgBase>) {
      CollectPaths(member, path + ".", depth, out);
    } else if constexpr (std::is_same_v<M, CMsgBase_Array>) {
      if (depth == 0) return;
      ASSERT_EQ(member.Grow(), 1);
      CollectPaths(member[0], path + "[0].", depth - 1, out);
    } else {
      out->push_back({path, f.kind});
    }
  });
}

// Values compare as Equal compares members: doubles by their bits.
bool SameValue(const Value& a, const Value& b) {
  if (a.index() != b.index()) return false;
  if (const double* x = std::get_if<double>(&a)) {
    return std::memcmp(x, &std::get<double>(b), sizeof *x) == 0;
  }
  if (const auto* x = std::get_if<std::vector<double>>(&a)) {
    const auto& y = std::get<std::vector<double>>(b);
    return x->size() == y.size() &&
           std::memcmp(x->data(), y.data(), x->size() * sizeof(double)) == 0;
  }
  return a == b;
}

class EveryClass : public ::testing::TestWithParam<ClassCase> {};

std::string CaseName(const ::testing::TestParamInfo<ClassCase>& info) { return info.param.name; }

}  // namespace

INSTANTIATE_TEST_SUITE_P(Schema, EveryClass, ::testing::ValuesIn(AllClasses()), CaseName);

// Every value field, set by its path to a value of its own, reads back
// through the reflection; a Copy equals its original; changing any one field
// makes the differences name exactly that path, with both values. The
// reflection pairs each class's walk with its fields in the tables: this
// holds only where the two agree.
TEST_P(EveryClass, FieldsByPathEqualityAndDifferences) {
  const ClassCase& c = GetParam();
  std::unique_ptr<CMsgBase> obj = c.make();
  ASSERT_EQ(pricemsg::ClassOf(*obj), ps::FindClass(c.number));
  std::vector<ValuePath> paths;
  CollectPaths(*obj, "", 2, &paths);

  // The value for the field at `i`, or another one.
  auto valueFor = [&paths](size_t i, int other) {
    const int n = static_cast<int>(i) + 1 + other;
    return pricemsg::WithKind(paths[i].kind, [n](auto type) { return ValueFor(type, n); });
  };
  for (size_t i = 0; i < paths.size(); ++i) {
    std::string why;
    ASSERT_EQ(pricemsg::Set(*obj, paths[i].path, valueFor(i, 0), &why), 0)
        << paths[i].path << ": " << why;
  }
  for (size_t i = 0; i < paths.size(); ++i) {
    Value back;
    ASSERT_EQ(pricemsg::Get(*obj, paths[i].path, &back), 0) << paths[i].path;
    EXPECT_TRUE(SameValue(back, valueFor(i, 0))) << paths[i].path;
  }

  std::unique_ptr<CMsgBase> copy = c.make();
  EXPECT_EQ(pricemsg::Equal(*copy, *obj),
            paths.empty() && obj->msgnum == copy->msgnum && DumpOf(*copy) == DumpOf(*obj));
  c.copy(*copy, *obj);
  EXPECT_TRUE(pricemsg::Equal(*copy, *obj));
  std::vector<Difference> diffs;
  ASSERT_EQ(pricemsg::Diff(*obj, *copy, &diffs), 0);
  EXPECT_TRUE(diffs.empty()) << pricemsg::DiffText(diffs);

  for (size_t i = 0; i < paths.size(); ++i) {
    ASSERT_EQ(pricemsg::Set(*copy, paths[i].path, valueFor(i, 1)), 0) << paths[i].path;
    diffs.clear();
    ASSERT_EQ(pricemsg::Diff(*obj, *copy, &diffs), 0);
    ASSERT_EQ(diffs.size(), 1u) << paths[i].path << "\n" << pricemsg::DiffText(diffs);
    EXPECT_EQ(diffs[0].path, paths[i].path);
    EXPECT_NE(diffs[0].left, diffs[0].right);
    EXPECT_FALSE(pricemsg::Equal(*obj, *copy));
    ASSERT_EQ(pricemsg::Set(*copy, paths[i].path, valueFor(i, 0)), 0);
  }
  EXPECT_TRUE(pricemsg::Equal(*obj, *copy));
}

// Reflection over a request with its real members: what a path reaches is
// the member itself, by name, by tag and through elements.
TEST(Reflect, APathReachesTheMemberItself) {
  M_KytVolSurface surface;
  ASSERT_EQ(surface.maKytVolSfcElmt.Grow(), 1);
  ASSERT_EQ(surface.maKytVolSfcElmt.Grow(), 2);

  FieldRef ref;
  std::string why;
  ASSERT_EQ(pricemsg::Find(surface, "maKytVolSfcElmt[1].mTivMatur.nDate", &ref, &why), 0) << why;
  EXPECT_EQ(std::get<CDate*>(ref.member), &surface.maKytVolSfcElmt[1].mTivMatur.nDate);
  EXPECT_STREQ(ref.field->name, "nDate");
  EXPECT_STREQ(ref.holder->name, "M_Tiv");
  ASSERT_EQ(pricemsg::Find(surface, "T1456[0]", &ref), 0);
  EXPECT_EQ(std::get<CMsgBase*>(ref.member), &surface.maKytVolSfcElmt[0]);
  ASSERT_EQ(pricemsg::Find(surface, 598, &ref), 0);
  EXPECT_EQ(std::get<CInt*>(ref.member), &surface.iVolCrvId);
  ConstFieldRef cref;
  const CMsgBase& constant = surface;
  ASSERT_EQ(pricemsg::Find(constant, "maKytVolSfcElmt", &cref), 0);
  EXPECT_EQ(std::get<const CMsgBase_Array*>(cref.member), &surface.maKytVolSfcElmt);

  // An int sets a double; no value unsets: the flag goes, and a string
  // empties.
  ASSERT_EQ(pricemsg::Set(surface, "maKytVolSfcElmt[1].dVol", 1), 0);
  EXPECT_TRUE(surface.maKytVolSfcElmt[1].dVol.isSet);
  EXPECT_EQ(surface.maKytVolSfcElmt[1].dVol.value, 1.0);
  ASSERT_EQ(pricemsg::Set(surface, "iVolCrvId", 7), 0);
  ASSERT_EQ(pricemsg::Set(surface, "maKytVolSfcElmt[1].mTivMatur.sMatur", "1Y"), 0);
  ASSERT_EQ(pricemsg::Set(surface, "iVolCrvId", std::monostate()), 0);
  EXPECT_FALSE(surface.iVolCrvId.isSet);
  ASSERT_EQ(pricemsg::Set(surface, "maKytVolSfcElmt[1].mTivMatur.sMatur", {}), 0);
  EXPECT_TRUE(surface.maKytVolSfcElmt[1].mTivMatur.sMatur.IsEmpty());

  // A visit hands the members over in tag order, typed, and stops when told.
  std::vector<std::string> names;
  EXPECT_EQ(pricemsg::ForEachField(
                constant,
                [&](const ps::FieldInfo& f, const auto& member) {
                  names.push_back(f.name);
                  return !std::is_same_v<std::decay_t<decltype(member)>, CMsgBase_Array>;
                }),
            pricemsg::REFLECT_STOPPED);
  EXPECT_EQ(names, (std::vector<std::string>{"iVolCrvId", "maKytVolSfcElmt"}));
}

// Every kind of failure gives its own code and a text that names what is
// wrong; the object stays as it was.
TEST(Reflect, FailuresSayWhatIsWrong) {
  M_EqStd req;
  ASSERT_EQ(req.maUnderSpecB.Grow(), 1);
  struct Case {
    const char* path;
    Value value;
    int code;
    const char* why;
  };
  const Case cases[] = {
      {"", 1, pricemsg::REFLECT_E_PATH, "an empty path"},
      {"mOptStd..dStrike", 1, pricemsg::REFLECT_E_PATH, "the step '' of"},
      {"maUnderSpecB[", 1, pricemsg::REFLECT_E_PATH, "an index is a number from 0 in brackets"},
      {"maUnderSpecB[-1]", 1, pricemsg::REFLECT_E_PATH, "an index is a number"},
      {"maUnderSpecB[99999999999]", 1, pricemsg::REFLECT_E_PATH, "an index is a number"},
      {"mOptStd.dStrik", 1.5, pricemsg::REFLECT_E_NAME,
       "M_OptStd has no field 'dStrik'; nearest: dStrike"},
      {"T1", 1, pricemsg::REFLECT_E_NAME, "M_EqStd has no field under the tag T1"},
      {"maUnderSpecB[1]", 1, pricemsg::REFLECT_E_INDEX,
       "M_EqStd.maUnderSpecB[1]: out of range, the array has 1 element"},
      {"mOptStd[0]", 1, pricemsg::REFLECT_E_KIND, "only a repeated message takes an index"},
      {"maUnderSpecB.x", 1, pricemsg::REFLECT_E_PATH, "give an element, as maUnderSpecB[0]"},
      {"mOptStd.dStrike.x", 1, pricemsg::REFLECT_E_KIND, "dStrike is a double of M_OptStd"},
      {"mOptStd.dStrike", "1.5", pricemsg::REFLECT_E_KIND, "dStrike is a double, not a text"},
      {"mOptStd.sOptRight", 2, pricemsg::REFLECT_E_KIND, "sOptRight is a string, not an int"},
      {"mOptStd", 1, pricemsg::REFLECT_E_KIND, "it takes no value, its fields do"},
      {"maUnderSpecB[0]", 1, pricemsg::REFLECT_E_KIND, "it takes no value"},
      {"mOptStd.sOptRight", std::string("a\0b", 3), pricemsg::REFLECT_E_VALUE,
       "a text holds no NUL byte"},
      {"mOptSched.nStartDate", "202611234", pricemsg::REFLECT_E_VALUE,
       "a date is a text of 1 to 8"},
  };
  const std::string before = DumpOf(req);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.path);
    std::string why;
    EXPECT_EQ(pricemsg::Set(req, c.path, c.value, &why), c.code);
    EXPECT_NE(why.find(c.why), std::string::npos) << why;
  }
  EXPECT_EQ(DumpOf(req), before);

  // A date that the runtime refuses leaves the date as it was; one that it
  // takes is set.
  ASSERT_EQ(pricemsg::Set(req, "mOptSched.nStartDate", "20261123"), 0);
  std::string why;
  const int rc = pricemsg::Set(req, "mOptSched.nStartDate", "20260231", &why);
  CDate probe;
  probe.Set("20260231");
  if (probe.isSet) {
    EXPECT_EQ(rc, 0);
  } else {
    EXPECT_EQ(rc, pricemsg::REFLECT_E_VALUE);
    EXPECT_NE(why.find("the runtime refuses it"), std::string::npos) << why;
    EXPECT_STREQ(req.mOptSched.nStartDate.text, "20261123");
    EXPECT_TRUE(req.mOptSched.nStartDate.isSet);
  }

  // An object whose number was changed is no longer of its class; objects
  // of two classes neither copy nor compare.
  M_SysReject reject;
  reject.msgnum = 2143;  // M_Tiv's
  EXPECT_EQ(pricemsg::ClassOf(reject), nullptr);
  EXPECT_EQ(pricemsg::Set(reject, "iSysCode", 1, &why), pricemsg::REFLECT_E_CLASS);
  EXPECT_EQ(why, "an object of number 2143 that is not of that number's class");
  M_SysReject other;
  EXPECT_EQ(pricemsg::Copy(other, reject), pricemsg::REFLECT_E_CLASS);
  EXPECT_FALSE(pricemsg::Equal(other, req));
  std::vector<Difference> diffs;
  EXPECT_EQ(pricemsg::Diff(other, req, &diffs), pricemsg::REFLECT_E_CLASS);
  EXPECT_EQ(pricemsg::Copy(req.maUnderSpecB, req.maUnderData), pricemsg::REFLECT_E_CLASS);
  EXPECT_FALSE(pricemsg::NewMessage(11));
  EXPECT_FALSE(pricemsg::NewMessage("M_Nothing"));
  EXPECT_FALSE(pricemsg::NewArray(-1));
}

// How values compare, and how differences show them.
TEST(Reflect, EqualityOfValuesAndTheTextOfDifferences) {
  M_KytVolSurface a, b;
  struct Case {
    const char* path;
    Value left, right;
    bool equal;
    const char* text;  // the difference's line
  };
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const Case cases[] = {
      {"iVolCrvId", 1, 2, false, "iVolCrvId: 1 | 2\n"},
      {"iVolCrvId", 0, {}, false, "iVolCrvId: 0 | -\n"},
      {"maKytVolSfcElmt[0].dVol", 0.0, -0.0, false, "maKytVolSfcElmt[0].dVol: 0 | -0\n"},
      {"maKytVolSfcElmt[0].dVol", nan, nan, true, ""},
      {"maKytVolSfcElmt[0].dVol", nan, -nan, false, "maKytVolSfcElmt[0].dVol: nan | -nan\n"},
      {"maKytVolSfcElmt[0].dVol", 0.1, 0.30000000000000004, false,
       "maKytVolSfcElmt[0].dVol: 0.1 | 0.30000000000000004\n"},
      {"maKytVolSfcElmt[0].mTivMatur.sMatur", "a\"\n", "a", false,
       "maKytVolSfcElmt[0].mTivMatur.sMatur: \"a\\\"\\n\" | \"a\"\n"},
      {"maKytVolSfcElmt[0].mTivMatur.nDate",
       "20261123",
       {},
       false,
       "maKytVolSfcElmt[0].mTivMatur.nDate: \"20261123\" | -\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.path);
    a.maKytVolSfcElmt.SetSize(1);
    b.maKytVolSfcElmt.SetSize(1);
    ASSERT_EQ(pricemsg::Set(a, c.path, c.left), 0);
    ASSERT_EQ(pricemsg::Set(b, c.path, c.right), 0);
    EXPECT_EQ(pricemsg::Equal(a, b), c.equal);
    std::vector<Difference> diffs;
    ASSERT_EQ(pricemsg::Diff(a, b, &diffs), 0);
    EXPECT_EQ(pricemsg::DiffText(diffs), c.text);
    ASSERT_EQ(pricemsg::Set(a, c.path, {}), 0);
    ASSERT_EQ(pricemsg::Set(b, c.path, {}), 0);
  }
  // An unset value counts for nothing, whatever it holds.
  a.iVolCrvId.value = 5;
  EXPECT_TRUE(pricemsg::Equal(a, b));
  // Arrays of different lengths: the elements that one side lacks.
  a.maKytVolSfcElmt.SetSize(3);
  b.maKytVolSfcElmt.SetSize(1);
  std::vector<Difference> diffs;
  ASSERT_EQ(pricemsg::Diff(a, b, &diffs), 0);
  EXPECT_EQ(pricemsg::DiffText(diffs),
            "maKytVolSfcElmt[1]: (element) | (none)\nmaKytVolSfcElmt[2]: (element) | (none)\n");
  EXPECT_FALSE(pricemsg::Equal(a, b));
  EXPECT_FALSE(pricemsg::Equal(b, a));
}

// A failure text as a whole reads back into data (explain_test reads them
// among other bytes); a text with anything more or less is none.
TEST(Reflect, FailureTextsReadBackIntoData) {
  pricemsg::FailureText f;
  ASSERT_TRUE(pricemsg::ReadFailureText("M_EqStd:SET_SUB_ONE(M3540.T4566) fail", &f));
  EXPECT_EQ(f.op, pricemsg::FailureOp::kSetSub);
  EXPECT_EQ(f.number, 3540);
  EXPECT_EQ(f.tag, 4566);
  ASSERT_TRUE(pricemsg::ReadFailureText("Out of memory", &f));
  EXPECT_EQ(f.op, pricemsg::FailureOp::kNoMessage);
  ASSERT_TRUE(pricemsg::ReadFailureText("M_Tiv_Array : Out of memory", &f));
  EXPECT_EQ(f.op, pricemsg::FailureOp::kArrayNoMemory);
  EXPECT_EQ(f.name, "M_Tiv_Array");
  EXPECT_EQ(pricemsg::ReadFailureText("x M_Tiv:GET_VAL_ONE(M2143.T198) fail y", 2, &f), 34u);
  for (const char* not_one : {"", ":GET_VAL_ONE(M0010.T7) fail", "M_A:GET_VAL_ONE(M0010.T7) fai",
                              "M_A:PUT_VAL_ONE(M0010.T7) fail", "Out of memory!"}) {
    EXPECT_FALSE(pricemsg::ReadFailureText(not_one, &f)) << not_one;
  }
}
