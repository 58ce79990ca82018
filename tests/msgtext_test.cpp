// Message files: reading back the text form of message trees, by hand and
// for the generated request classes, with its errors and its memory use.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "ClassCases.h"
#include "TestSupport.h"
#include "callkyt/MsgDic.h"
#include "callkyt/MsgText.h"

using namespace testing_support;
namespace fs = std::filesystem;

namespace {

MsgPtr Read(const std::string& text, KytTextError* err = nullptr) {
  return MsgPtr(MA_ReadMsgText(text.data(), text.size(), err));
}

CMsg* Sub(CMsg* parent, int tag, int num) {
  CMsg* sub = new CMsg(num, 0, 0, MA_GetMsgDic());
  EXPECT_EQ(parent->SetValue(tag, sub), KYT_OK);
  return sub;
}

// Every kind of value, set and unset, texts with every escape, doubles at
// the edges of what a double holds, repeated values and sub-messages.
MsgPtr HandTree() {
  MsgPtr root(new CMsg(2161, 0, 0, MA_GetMsgDic()));  // M_Greeks
  CMsg& m = *root;
  CDate date;
  date.Set("20240229");
  // A braced list runs its calls in order, and the order is kept.
  for (int rc :
       {m.SetValue(6, CInt(INT_MIN)), m.SetValue(8, CInt()),
        m.SetValue(7, "q\" b\\ n\n t\t r\r \x01\x1f\x7f \xc3\xa9 #}{"), m.SetValue(775, ""),
        m.SetValue(800, std::string(300, 'w').c_str()), m.SetValue(198, date),
        m.SetValue(188, CDate()), m.SetValue(101, CBool(true)), m.SetValue(876, CBool(false)),
        m.SetValue(175, CBool()), m.SetValue(580, CDbl())}) {
    EXPECT_EQ(rc, KYT_OK);
  }
  for (double d :
       {0.1, 1.0 / 3, -0.0, 5e-324, 2.225073858507201e-308, DBL_MIN, DBL_MAX, -DBL_MAX, 1e23,
        9007199254740991.0, -1.5e-7, HUGE_VAL, -HUGE_VAL, std::nan(""), -std::nan("")}) {
    EXPECT_EQ(m.SetValue(239, d), KYT_OK);
  }
  for (int i : {3, -1, INT_MAX}) EXPECT_EQ(m.SetValue(5146, i), KYT_OK);
  CMsg* unknown = Sub(&m, 695, 99);  // a number the dictionary lacks
  EXPECT_EQ(unknown->SetValue(612, -2.5), KYT_OK);
  CMsg* tiv = Sub(unknown, 695, 2143);
  EXPECT_EQ(tiv->SetValue(198, CDate()), KYT_OK);
  Sub(Sub(tiv, 695, 2143), 695, 2143);
  Sub(unknown, 695, 2143);
  EXPECT_EQ(m.SetValue(6, CInt(1)), KYT_OK);  // a tag again after the others
  return root;
}

// A directory of the running test's own under the temporary directory.
struct TempDir {
  fs::path path = fs::path(::testing::TempDir()) /
                  ::testing::UnitTest::GetInstance()->current_test_info()->name();
  TempDir() { fs::create_directories(path); }
  ~TempDir() { fs::remove_all(path); }
};

}  // namespace

TEST(MsgFile, ReadsBackWhatItWrites) {
  const std::string text = Text(HandTree().get());
  KytTextError err{7, 7, "stale"};
  MsgPtr back = Read(text, &err);
  ASSERT_TRUE(back) << err.line << ":" << err.column << " " << err.reason;
  EXPECT_EQ(Text(back.get()), text);
  EXPECT_EQ(err.line, 0);
  EXPECT_STREQ(err.reason, "");

  // As kept by hand: a byte order mark, notes, blank lines, CRLF, tabs, no
  // names, a twin's name, upper-case hex, no final newline.
  MsgPtr edited = Read(
      "\xEF\xBB\xBF# golden reply\r\nM2161 {\r\n\r\n\tT6  i\t-7   \r\n  # inside\r\n"
      "  T612 dDelta d 0.5\r\n  T7 s \"\\x41\\x7F\"\r\n  T695 m M2143{\r\n  }\r\n}");
  ASSERT_TRUE(edited);
  EXPECT_EQ(Text(edited.get()),
            "M2161 M_Greeks {\n  T6 iSysCode i -7\n  T612 daDelta d 0.5\n"
            "  T7 sSysReasonText s \"A\\x7f\"\n  T695 mTivMatur m M2143 M_Tiv {\n  }\n}\n");
}

TEST(MsgFile, ReportsWhereAndWhyATextIsWrong) {
  struct Case {
    std::string text;
    int line, column;
    const char* reason;
  };
  const std::string head = "M2161 {\n";
  const Case cases[] = {
      {"", 1, 1, "holds no message"},
      {"T6 i 1\n", 1, 1, "expected a message"},
      {head + "  T6 i 1", 2, 9, "M2161 opened at line 1: '}' is missing"},
      {head + "  T695 m M2143 {\n    T800 s \"x\"\n}\n", 5, 1, "M2161 opened at line 1"},
      {head + "  T7 s \"ab", 2, 8, "not closed"},
      {head + "  T7 s \"a\\qb\"\n}\n", 2, 10, "unknown escape \\q"},
      {head + "  T7 s \"a\\x4\"\n}\n", 2, 10, "two hex digits"},
      {head + "  T7 s \"a\\x00\"\n}\n", 2, 10, "NUL"},
      {head + "  T6 q 1\n}\n", 2, 6, "'q' is not a type letter"},
      {head + "  T6 iSysCode q 1\n}\n", 2, 15, "expected a type letter"},
      {head + "  T6 iSysRefMsgNo i 1\n}\n", 2, 6, "does not fit tag 6, which is 'iSysCode'"},
      {head + "  T612 dDelto d 1\n}\n", 2, 8, "which is 'dDelta' or 'daDelta'"},
      {"M2161 M_Tiv {\n}\n", 1, 7, "does not fit M2161, which is 'M_Greeks'"},
      {"M99 M_Tiv {\n}\n", 1, 5, "'M_Tiv' is message M2143, not M99"},
      {head + "}\n\nM2161 {\n}\n", 4, 1, "after the end of the message"},
      {head + "  T6 i 1 2\n}\n", 2, 10, "after the value"},
      {head + "  T6 d 1.5\n}\n", 2, 6, "takes an integer (i), not a double (d)"},
      {head + "  T99999 i 1\n}\n", 2, 3, "does not know tag 99999"},
      {head + "  T198 n \"20230229\"\n}\n", 2, 10, "'20230229' is not a valid date"},
      {head + "  T6 i 2147483648\n}\n", 2, 8, "out of the range of an integer"},
      {head + "  T239 d 1e-400\n}\n", 2, 10, "out of the range of a double"},
      {head + "  T239 d infinity\n}\n", 2, 10, "expected a number"},
  };
  for (const Case& c : cases) {
    KytTextError err{};
    EXPECT_FALSE(Read(c.text, &err)) << c.text;
    EXPECT_EQ(err.line, c.line) << c.text << "\n" << err.reason;
    EXPECT_EQ(err.column, c.column) << c.text << "\n" << err.reason;
    EXPECT_NE(std::strstr(err.reason, c.reason), nullptr) << c.text << "\n" << err.reason;
  }

  // Nesting is bounded: 64 levels read, the 65th is refused at its header.
  auto nested = [](int levels) {
    std::string text = "M2143 {\n";
    for (int i = 1; i < levels; ++i) text += "T695 m M2143 {\n";
    for (int i = 0; i < levels; ++i) text += "}\n";
    return text;
  };
  MsgPtr deep = Read(nested(kMsgTextMaxDepth));
  ASSERT_TRUE(deep);
  EXPECT_EQ(Depth(*deep), kMsgTextMaxDepth);
  KytTextError err{};
  EXPECT_FALSE(Read(nested(kMsgTextMaxDepth + 1), &err));
  EXPECT_EQ(err.line, kMsgTextMaxDepth + 1);
  EXPECT_EQ(err.column, 8);

  // Damaged texts: every prefix, and each byte replaced by bytes that mean
  // something to the reader. A text that is taken must be one the writer
  // can write again, and that text must read back as itself.
  const std::string good = Text(HandTree().get());
  auto check = [](const std::string& text) {
    MsgPtr msg = Read(text);
    if (!msg) return;
    std::string again = Text(msg.get());
    MsgPtr back = Read(again);
    ASSERT_TRUE(back) << text;
    EXPECT_EQ(Text(back.get()), again) << text;
  };
  for (size_t n = 0; n < good.size(); ++n) {
    check(good.substr(0, n));
    for (char c : {'\0', '\n', '"', '\\', '{', '}', '-', 'M', 'T', '\xff'}) {
      std::string damaged = good;
      damaged[n] = c;
      check(damaged);
    }
  }
}

TEST(MsgFile, ReadingAFileLeaksNothingWhenMemoryRunsOut) {
  MA_GetMsgDic();
  TempDir dir;
  const std::string path = (dir.path / "hand.msg").string();
  MsgPtr tree = HandTree();
  ASSERT_EQ(MA_WriteMsgFile(tree.get(), path.c_str()), KYT_OK);
  const std::string text = Text(tree.get());
  long live = FailingAlloc::Live();
  long points = ForEachAllocationFailure([&](long n) {
    // A thread of its own starts with no spare message blocks.
    std::thread([&] {
      KytTextError err{};
      FailingAlloc::FailAt(n);
      MsgPtr msg(MA_ReadMsgFile(path.c_str(), &err));
      FailingAlloc::Off();
      if (FailingAlloc::Fired()) {
        EXPECT_FALSE(msg) << "allocation " << n;
        EXPECT_STREQ(err.reason, "out of memory") << "allocation " << n;
      } else {
        ASSERT_TRUE(msg) << err.reason;
        EXPECT_EQ(Text(msg.get()), text);
      }
    }).join();
    EXPECT_EQ(FailingAlloc::Live(), live) << "allocation " << n;
  });
  EXPECT_GT(points, 10);
}

// Requests of every kind in files: a filled sample is loaded into its class,
// written from the object to a file, read back and loaded into a new object,
// which dumps the same. Every 40th class, and the three deepest.
TEST(MsgFile, RequestsRoundTripThroughFiles) {
  const std::vector<ClassCase>& all = AllClasses();
  std::vector<const ClassCase*> picked;
  for (size_t i = 0; i < all.size(); i += 40) picked.push_back(&all[i]);
  std::vector<std::pair<int, const ClassCase*>> byDepth;
  for (const ClassCase& c : all) {  // one element in each repeated sub-message
    byDepth.push_back({-Depth(*BuildSample(c.number, true, 0)), &c});
  }
  std::stable_sort(byDepth.begin(), byDepth.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  for (int i = 0; i < 3; ++i) picked.push_back(byDepth[i].second);
  EXPECT_GE(-byDepth[2].first, 6);  // several levels down

  TempDir dir;
  for (const ClassCase* c : picked) {
    SCOPED_TRACE(c->name);
    std::unique_ptr<CMsgBase> obj = c->make();
    ASSERT_EQ(obj->Load(BuildSample(c->number, true, 2, c->number).get()), 0);
    MsgPtr msg(obj->ToMsg());
    ASSERT_TRUE(msg) << obj->errtext.ToStr();
    const std::string path = (dir.path / (std::string(c->name) + ".msg")).string();
    ASSERT_EQ(MA_WriteMsgFile(msg.get(), path.c_str()), KYT_OK);
    KytTextError err{};
    MsgPtr back(MA_ReadMsgFile(path.c_str(), &err));
    ASSERT_TRUE(back) << path << ":" << err.line << ":" << err.column << ": " << err.reason;
    EXPECT_EQ(Text(back.get()), Text(msg.get()));
    std::unique_ptr<CMsgBase> fresh = c->make();
    ASSERT_EQ(fresh->Load(back.get()), 0) << fresh->errtext.ToStr();
    EXPECT_EQ(DumpOf(*fresh), DumpOf(*obj));
  }

  // A file is replaced whole; a write that fails leaves no part behind.
  MsgPtr small = Read("M2143 {\n}\n");
  const std::string path = (dir.path / (std::string(all[0].name) + ".msg")).string();
  ASSERT_EQ(MA_WriteMsgFile(small.get(), path.c_str()), KYT_OK);
  std::ifstream in(path);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), "M2143 M_Tiv {\n}\n");
  const fs::path taken = dir.path / "taken";  // a directory stands there
  fs::create_directory(taken);
  EXPECT_EQ(MA_WriteMsgFile(small.get(), taken.string().c_str()), KYT_E_IO);
  EXPECT_EQ(errno, EISDIR);
  EXPECT_FALSE(fs::exists(taken.string() + ".part"));
  EXPECT_FALSE(fs::exists(path + ".part"));
  KytTextError err{};
  EXPECT_FALSE(MA_ReadMsgFile((dir.path / "lost.msg").string().c_str(), &err));
  EXPECT_EQ(err.line, 0);
  EXPECT_NE(std::strstr(err.reason, "No such file"), nullptr) << err.reason;
}
