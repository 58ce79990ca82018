// Helpers of the tests of message texts and files in every form: trees at
// the edges of every kind, each form read and written, a directory of the
// running test's own, a check that an operation leaves no block behind, and
// sweeps that fail each allocation of a read or a write in turn.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "MsgJson.h"
#include "MsgText.h"
#include "TestSupport.h"

namespace testing_support {

template <class V>
void Set(CMsg& msg, int tag, V v) {
  ASSERT_GE(msg.SetValue(tag, v), 0) << "T" << tag;
}

// A new sub-message of `number` under `tag` of `parent`.
inline CMsg& Attach(CMsg& parent, int tag, int number) {
  CMsg* sub = new CMsg(number, 0, 0, MA_GetMsgDic());
  EXPECT_GE(parent.SetValue(tag, sub), 0) << "T" << tag;
  return *sub;
}

inline MsgPtr ReadText(const std::string& text, MsgTextError* err = nullptr) {
  return MsgPtr(MA_ReadMsgText(text.data(), text.size(), err));
}

inline MsgPtr ReadJson(const std::string& json, MsgTextError* err = nullptr) {
  return MsgPtr(MA_ReadMsgJson(json.data(), json.size(), err));
}

// The JSON of a tree; fails the test if the writer refuses it.
inline std::string Json(CMsg* msg) {
  std::string out;
  MsgTextError err{};
  EXPECT_EQ(MA_WriteMsgJson(msg, &out, &err), MSGTEXT_OK) << err.reason;
  return out;
}

inline std::string Where(const MsgTextError& err) {
  return std::to_string(err.line) + ":" + std::to_string(err.column) + ": " + err.reason;
}

// Whether the reason of `err` holds `part`.
inline ::testing::AssertionResult Says(const MsgTextError& err, const std::string& part) {
  if (std::strstr(err.reason, part.c_str())) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure()
         << "the reason \"" << err.reason << "\" lacks \"" << part << "\"";
}

inline bool SameBits(double a, double b) {
  if (std::isnan(a)) return std::isnan(b) && std::signbit(a) == std::signbit(b);
  return std::memcmp(&a, &b, sizeof a) == 0;
}

inline std::string Content(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// Doubles at the edges of what a double holds, as the text form and as JSON
// write them.
struct EdgeDouble {
  double value;
  const char* text;
  const char* json;
};
inline const std::vector<EdgeDouble> kEdgeDoubles = {
    {0.1, "0.1", "0.1"},
    {1.0 / 3, "0.3333333333333333", "0.3333333333333333"},
    {-0.0, "-0", "-0.0"},
    {0.0, "0", "0.0"},
    {5e-324, "5e-324", "5e-324"},
    {2.225073858507201e-308, "2.225073858507201e-308", "2.225073858507201e-308"},
    {DBL_MIN, "2.2250738585072014e-308", "2.2250738585072014e-308"},
    {DBL_MAX, "1.7976931348623157e+308", "1.7976931348623157e+308"},
    {-DBL_MAX, "-1.7976931348623157e+308", "-1.7976931348623157e+308"},
    {1e23, "1e+23", "1e+23"},
    {9007199254740993.0, "9007199254740992", "9007199254740992.0"},  // the double nearest
    {-1.5e-7, "-1.5e-07", "-1.5e-07"},
    {HUGE_VAL, "inf", "\"Infinity\""},
    {-HUGE_VAL, "-inf", "\"-Infinity\""},
    {std::nan(""), "nan", "\"NaN\""},
    {-std::nan(""), "-nan", "\"-NaN\""},
};

// M_Greeks: a double array with every edge, single doubles set and unset,
// two elements of a repeated sub-message, one of them empty.
inline MsgPtr Greeks() {
  MsgPtr m = NewMsg(2161);
  for (const EdgeDouble& d : kEdgeDoubles) Set(*m, 612, d.value);
  Set(*m, 615, Dbl(-0.0));
  Set(*m, 616, CDbl());
  CMsg& rho = Attach(*m, 2668, 1925);
  Set(rho, 580, Dbl(5e-324));
  Set(rho, 599, Int(INT_MIN));
  Attach(*m, 2668, 1925);
  return m;
}

// Whether `back` holds the doubles of Greeks() bit for bit.
inline void ExpectGreeksDoubles(CMsg* back) {
  CDblArray deltas;
  ASSERT_GE(back->GetValue(612, &deltas), 0);
  ASSERT_EQ(deltas.size, static_cast<int>(kEdgeDoubles.size()));
  for (int i = 0; i < deltas.size; ++i) {
    EXPECT_TRUE(SameBits(deltas.GetAt(i), kEdgeDoubles[i].value)) << kEdgeDoubles[i].text;
  }
  CDbl theta;
  ASSERT_GE(back->GetValue(615, &theta), 0);
  EXPECT_TRUE(theta.isSet && SameBits(theta.value, -0.0));
}

// M_IrTargetSwitching: every single kind but a date, an int array, a
// sub-message holding another; values added out of tag order, a text that is
// no UTF-8, a value under a tag that the class lacks (T6), a second value of a
// single field (T117, of which a read takes the first) and fields left absent.
inline MsgPtr Switching() {
  MsgPtr m = NewMsg(3685);
  Set(*m, 5146, 3);
  Set(*m, 784, "caf\xe9 \xff");
  Set(*m, 117, Int(INT_MIN));
  Set(*m, 5076, Bool(true));
  CMsg& cpn = Attach(*m, 4702, 3623);
  Set(cpn, 3372, Bool(false));
  Set(cpn, 239, Dbl(1.0 / 3));
  // Every byte that a quoted text escapes, and UTF-8 of two, three and four bytes.
  Set(cpn, 200, "q\" b\\ n\n t\t r\r \x01\x1f\x7f \xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80 #}{/");
  Set(cpn, 337, CDbl());
  Set(Attach(cpn, 4603, 3611), 275, CDbl());
  Set(*m, 118, CInt());
  Set(*m, 5075, Int(INT_MAX));
  Set(*m, 396, Dbl(0.1));
  Set(*m, 5145, "");
  Set(*m, 6, Int(1));
  Set(*m, 117, Int(5));
  Set(*m, 5146, -1);
  Set(*m, 5146, INT_MIN);
  return m;
}

// A directory of the running test's own under the temporary directory (its
// process's too: builds side by side run the same tests), removed with
// everything in it at the end.
struct TempDir {
  std::filesystem::path path =
      std::filesystem::path(::testing::TempDir()) /
      (std::string(::testing::UnitTest::GetInstance()->current_test_info()->test_suite_name()) +
       "-" + ::testing::UnitTest::GetInstance()->current_test_info()->name() + "-" +
       std::to_string(getpid()));
  TempDir() { std::filesystem::create_directories(path); }
  ~TempDir() { std::filesystem::remove_all(path); }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  // The path of `name` in it.
  std::string Path(const std::string& name) const { return (path / name).string(); }
  // Writes `content` to the file `name` in it; gives its path.
  std::string File(const std::string& name, const std::string& content) const {
    std::ofstream(Path(name), std::ios::binary) << content;
    return Path(name);
  }
  // The names in it, sorted.
  std::vector<std::string> Names() const {
    std::vector<std::string> out;
    for (const auto& e : std::filesystem::directory_iterator(path)) {
      out.push_back(e.path().filename());
    }
    std::sort(out.begin(), out.end());
    return out;
  }
};

// Runs `f` on a thread of its own, which starts with no spare message
// blocks, and tells whether every block it allocated is freed again.
inline bool LeavesNothing(const std::function<void()>& f) {
  MA_GetMsgDic();  // built on the first call, and kept
  const long live = FailingAlloc::Live();
  std::thread(f).join();
  return FailingAlloc::Live() == live;
}

// Fails each allocation of `read` in turn: a read that meets the failure
// gives no tree, and says that memory ran out (in the reader or in the
// runtime); one that does not gives the tree that `shown` turns into `want`.
// No run leaves a block behind. Gives the number of failures met.
inline long SweepReads(const std::function<MsgPtr(MsgTextError*)>& read,
                       const std::function<std::string(CMsg*)>& shown, const std::string& want) {
  return ForEachAllocationFailure([&](long n) {
    EXPECT_TRUE(LeavesNothing([&] {
      MsgTextError err{};
      FailingAlloc::FailAt(n);
      MsgPtr msg = read(&err);
      FailingAlloc::Off();
      if (FailingAlloc::Fired()) {
        EXPECT_FALSE(msg) << "allocation " << n;
        EXPECT_EQ(err.code, MSGTEXT_E_NOMEM) << "allocation " << n << ": " << err.reason;
        EXPECT_TRUE(std::strcmp(err.reason, "out of memory") == 0 ||
                    std::strstr(err.reason, "the runtime ran out of memory"))
            << "allocation " << n << ": " << err.reason;
      } else {
        ASSERT_TRUE(msg) << err.reason;
        EXPECT_EQ(shown(msg.get()), want);
      }
    })) << "allocation "
        << n;
  });
}

// Fails each allocation of `write` (which appends to its output) in turn: a
// write that meets the failure gives MSGTEXT_E_NOMEM and leaves its output as
// it was; one that does not appends `want`. No run leaves a block behind.
// Gives the number of failures met.
inline long SweepWrites(const std::function<int(std::string*)>& write, const std::string& want) {
  return ForEachAllocationFailure([&](long n) {
    EXPECT_TRUE(LeavesNothing([&] {
      std::string out = "kept";
      FailingAlloc::FailAt(n);
      const int rc = write(&out);
      FailingAlloc::Off();
      if (FailingAlloc::Fired()) {
        EXPECT_EQ(rc, MSGTEXT_E_NOMEM) << "allocation " << n;
        EXPECT_EQ(out, "kept") << "allocation " << n;
      } else {
        EXPECT_EQ(out, "kept" + want);
      }
    })) << "allocation "
        << n;
  });
}

}  // namespace testing_support
