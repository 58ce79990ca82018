// Message files: the schema tables they are checked against, the text of
// trees at the edges of every kind, every refusal with its place, trees that
// cannot be written, the memory they leave, and files written whole or not at
// all whatever stands in the way.
#include <gtest/gtest.h>
#include <sys/fsuid.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "RuntimeFaults.h"
#include "SchemaTables.h"
#include "TestSupport.h"
#include "TextTesting.h"

using namespace testing_support;
namespace fs = std::filesystem;
namespace schema = pricemsg::schema;

namespace {

const std::string kSwitchingText = R"(M3685 M_IrTargetSwitching {
  T117 iAppEndPeriodNo i -2147483648
  T118 iAppStartPeriodNo i -
  T396 dRate d 0.1
  T784 sTgtOccPayoffType s "caf)"
                                   "\xe9 \xff"
                                   R"("
  T4702 mIrVanillaCpnB m M3623 M_IrVanillaCpnB {
    T200 sDayCntConv s "q\" b\\ n\n t\t r\r \x01\x1f\x7f é € 😀 #}{/"
    T239 dFixedRate d 0.3333333333333333
    T337 dMargin d -
    T3372 bFixedYN b N
    T4603 mKytRateIndexB m M3611 M_KytRateIndexB {
      T275 dGearing d -
    }
  }
  T5075 iSwitObservedPeriodNo i 2147483647
  T5076 bSwitOccuredYN b Y
  T5145 sAppPeriodType s ""
  T5146 iaAppPeriodNo i 3
  T5146 iaAppPeriodNo i -1
  T5146 iaAppPeriodNo i -2147483648
}
)";

const std::string kTivText = "M2143 M_Tiv {\n}\n";

}  // namespace

// The lookups of classes, fields and members serve every read of every
// class in the sweeps of the text and JSON forms and their refusals; the
// word list is looked up here: every phrase, and nothing near one.
TEST(SchemaTables, FindEveryWordAndNothingNear) {
  for (const schema::WordInfo& w : schema::Words()) {
    EXPECT_EQ(schema::FindWord(w.phrase), &w) << w.phrase;
    EXPECT_FALSE(schema::FindWord(std::string(w.phrase) + " ")) << w.phrase;
    EXPECT_FALSE(schema::FindWord(std::string(w.phrase).substr(1))) << w.phrase;
  }
  EXPECT_FALSE(schema::FindWord(""));
  EXPECT_FALSE(schema::FindMember(*schema::FindClass(2161), "dDelta"));  // the twin of daDelta
}

TEST(MsgText, WritesEachFieldAsItsClassSaysAndReadsItBackExactly) {
  std::string out = "kept\n";
  ASSERT_EQ(MA_WriteMsgText(Switching().get(), &out), MSGTEXT_OK);
  EXPECT_EQ(out, "kept\n" + kSwitchingText);
  MsgTextError err{7, 7, "stale"};
  MsgPtr back = ReadText(kSwitchingText, &err);
  ASSERT_TRUE(back) << Where(err);
  EXPECT_EQ(Where(err), "0:0: ");
  EXPECT_EQ(Text(back.get()), kSwitchingText);

  // Doubles read back bit for bit.
  std::string greeks = "M2161 M_Greeks {\n";
  for (const EdgeDouble& d : kEdgeDoubles)
    greeks += std::string("  T612 daDelta d ") + d.text + "\n";
  greeks +=
      "  T615 dTheta d -0\n  T616 dRho d -\n  T2668 maRhoValue m M1925 M_RhoValue {\n"
      "    T580 dValue d 5e-324\n    T599 iRateCrvId i -2147483648\n  }\n"
      "  T2668 maRhoValue m M1925 M_RhoValue {\n  }\n}\n";
  EXPECT_EQ(Text(Greeks().get()), greeks);
  back = ReadText(greeks);
  ASSERT_TRUE(back);
  ExpectGreeksDoubles(back.get());

  // As kept by hand: a byte order mark, notes, blank lines, CRLF, tabs, no
  // names, upper-case hex, a block opened without a blank, no final newline.
  back = ReadText(
      "\xEF\xBB\xBF# golden reply\r\nM10 {\r\n\r\n\tT6  i\t-7   \r\n  # inside\r\n"
      "  T7 s \"\\x41\\x7F\"\r\n}");
  ASSERT_TRUE(back);
  EXPECT_EQ(Text(back.get()),
            "M10 M_SysReject {\n  T6 iSysCode i -7\n  T7 sSysReasonText s \"A\\x7f\"\n}\n");
  back = ReadText("M2143{\n}");
  ASSERT_TRUE(back);
  EXPECT_EQ(Text(back.get()), kTivText);
}

TEST(MsgText, RefusesATextThatDoesNotFitTheClassesAtTheItemConcerned) {
  struct Case {
    std::string text;
    int line, column;
    const char* reason;
  };
  const std::string sys = "M10 {\n";
  const std::string sw = "M3685 {\n";
  // A leap day of a common year, which CDate::Set may refuse itself.
  CDate leapDay;
  leapDay.Set("20230229");  // what its result says differs between runtimes
  const bool setTakesAnyDate = leapDay.isSet;
  if (!setTakesAnyDate) {
    std::memcpy(leapDay.text, "20230229", sizeof leapDay.text);
    leapDay.isSet = true;
  }
  const Case cases[] = {
      // The layout.
      {"", 1, 1, "holds no message"},
      {"# only a note\n\n", 3, 1, "holds no message"},
      {"# only a note", 1, 14, "holds no message"},
      {"T6 i 1\n", 1, 1, "expected a message"},
      {"Mx {\n}\n", 1, 2, "expected a message number"},
      {"M10 M_SysReject\r\n}\r\n", 1, 16, "expected '{'"},
      {"M10 1x {\n}\n", 1, 5, "expected a class name or '{'"},
      {"M10 { T6 i 1\n}\n", 1, 7, "unexpected text after '{'"},
      {sys + "  T6 i 1", 2, 9, "M_SysReject (M10) opened at line 1: '}' is missing"},
      {sw + "  T4702 m M3623 {\n    T239 d 1\n}\n", 5, 1, "M_IrTargetSwitching (M3685) opened"},
      {sys + "}\n\nM10 {\n}\n", 4, 1, "after the end of the message"},
      {sys + "} x\n", 2, 3, "unexpected text after '}'"},
      {sys + "  X\n}\n", 2, 3, "expected a value 'T<tag> ...' or '}'"},
      {sys + "\tT6 i 1 \t2\r\n}\n", 2, 10, "after the value"},
      {sys + "  T6 i\r\n}\n", 2, 7, "expected an integer, found the end of the line"},
      {sys + "  Tx i 1\n}\n", 2, 4, "expected a tag number"},
      {sys + "  T6\n}\n", 2, 5, "expected a type letter (i, d, b, n, s or m) after the tag"},
      {sys + "  T6 q 1\n}\n", 2, 6, "'q' is not a type letter (i, d, b, n, s or m)"},
      {sys + "  T6 iSysCode q 1\n}\n", 2, 15, "expected a type letter"},
      // Classes, tags, names and letters.
      {"M9 {\n}\n", 1, 1, "no class has the number M9"},
      {"M10 M_Tiv {\n}\n", 1, 5, "'M_Tiv' is class M2143, not M10, which is 'M_SysReject'"},
      {"M10 M_Nope {\n}\n", 1, 5, "class name 'M_Nope' does not fit M10"},
      {sys + "  T612 d 1\n}\n", 2, 3, "M_SysReject (M10) has no field with tag 612"},
      {sys + "  T6 iSysRefMsgNo i 1\n}\n", 2, 6, "'iSysRefMsgNo' does not fit T6 of M_SysReject"},
      {"M2161 {\n  T612 dDelta d 1\n}\n", 2, 8,
       "does not fit T612 of M_Greeks, which is 'daDelta'"},
      {sys + "  T6 d 1.5\n}\n", 2, 6, "T6 iSysCode holds int, written i, not d"},
      {"M2161 {\n  T2668 d 1\n}\n", 2, 9, "holds repeated message, written m, not d"},
      {sys + "  T6 i 1\n  # again\n  T6 i 2\n}\n", 4, 3,
       "a second value for T6 iSysCode, which holds one (the first is on line 2)"},
      {sw + "  T4702 m M3623 {\n  }\n  T4702 m M3623 {\n  }\n}\n", 4, 3, "second value for T4702"},
      {"M2161 {\n  T2668 m M2143 {\n  }\n}\n", 2, 11,
       "T2668 maRhoValue holds M_RhoValue (M1925), not M_Tiv (M2143)"},
      {"M2161 {\n  T2668 m {\n  }\n}\n", 2, 11, "expected a message 'M<number> {'"},
      // Values, shown up to 24 bytes.
      {sys + "  T6 i 2147483648\n}\n", 2, 8, "out of the range of an integer"},
      {sys + "  T6 i 123456789012345678901234567\n}\n", 2, 8,
       "'123456789012345678901234...' is out of the range of an integer"},
      {sys + "  T6 i 0x1\n}\n", 2, 8, "expected an integer"},
      {sw + "  T5146 i -\n}\n", 2, 11,
       "T5146 iaAppPeriodNo is an array: its elements cannot be unset"},
      {"M2161 {\n  T615 d 1e-400\n}\n", 2, 10, "out of the range of a double"},
      {"M2161 {\n  T612 d infinity\n}\n", 2, 10, "expected a number"},
      {sw + "  T5076 b y\n}\n", 2, 11, "expected Y, N or - for a boolean"},
      {"M2143 {\n  T198 n 20240101\n}\n", 2, 10, "expected a quoted date or -"},
      {"M2143 {\n  T198 n \"\"\n}\n", 2, 10, "an empty date"},
      {"M2143 {\n  T198 n \"202401011\"\n}\n", 2, 10, "a date of 9 characters: it holds at most 8"},
      {"M2143 {\n  T198 n \"20230229\"\n}\n", 2, 10,
       setTakesAnyDate ? "T198 nDate: the runtime refused the value"
                       : "the runtime did not take the date '20230229'"},
      {sys + "  T7 s x\n}\n", 2, 8, "expected a quoted text"},
      {sys + "  T7 s \"ab", 2, 8, "not closed"},
      {sys + "  T7 s \"ab\\\n}\n", 2, 8, "not closed"},
      {sys + "  T7 s \"a\\qb\"\n}\n", 2, 10, "unknown escape \\q"},
      {sys + "  T7 s \"a\\x4\"\n}\n", 2, 10, "two hex digits"},
      {sys + "  T7 s \"a\\x+4\"\n}\n", 2, 10, "two hex digits"},
      {sys + "  T7 s \"a\\x00\"\n}\n", 2, 10, "NUL"},
      {sys + std::string("  T7 s \"a\0\"\n}\n", 14), 2, 10, "NUL"},
      {sys + "  T7 s \"a\\\x01\"\n}\n", 2, 10, "a backslash before '\\x01' is not an escape"},
  };
  // Which dates a runtime takes is its own affair: the calendar's refusal is
  // tried only where the runtime refuses that date, in CDate::Set or in
  // SetValue.
  const bool takesAnyDate = setTakesAnyDate && NewMsg(2143)->SetValue(198, leapDay) >= 0;
  for (const Case& c : cases) {
    if (takesAnyDate && c.text.find("\"20230229\"") != std::string::npos) continue;
    MsgTextError err{};
    bool refused = false;
    EXPECT_TRUE(LeavesNothing([&] { refused = !ReadText(c.text, &err); })) << c.text;
    EXPECT_TRUE(refused) << c.text;
    EXPECT_EQ(err.code, MSGTEXT_E_TEXT) << c.text;
    EXPECT_EQ(Where(err).substr(0, Where(err).find(' ')),
              std::to_string(c.line) + ":" + std::to_string(c.column) + ":")
        << c.text << "\n"
        << err.reason;
    EXPECT_TRUE(Says(err, c.reason)) << c.text;
    // On the first line after a byte order mark, columns count from the byte
    // after it.
    if (c.line == 1 && !c.text.empty()) {
      EXPECT_FALSE(ReadText("\xEF\xBB\xBF" + c.text, &err));
      EXPECT_EQ(err.column, c.column) << c.text;
    }
  }
  // No text at all has no position.
  MsgTextError err{5, 5, ""};
  EXPECT_FALSE(MA_ReadMsgText(nullptr, 3, &err));
  EXPECT_EQ(Where(err), "0:0: no text: a null pointer");
  EXPECT_FALSE(MA_ReadMsgText(nullptr, 0, nullptr));  // and nowhere to tell why

  // The runtime's refusal of a value, and of a sub-message when its block
  // closes, which is told at the line that opened it.
  const std::string text = sw + "  T396 d 1\n  T4702 m M3623 {\n    T239 d 2\n  }\n}\n";
  for (auto [tag, line, column] : {std::tuple{396, 2, 10}, std::tuple{4702, 3, 3}}) {
    ASSERT_TRUE(ArmFault(FaultOp::kSet, tag, -17));
    EXPECT_TRUE(LeavesNothing([&] { EXPECT_FALSE(ReadText(text, &err)); }));
    ClearFaults();
    EXPECT_EQ(err.line, line);
    EXPECT_EQ(err.column, column);
    EXPECT_TRUE(Says(err, "the runtime refused the"));
    EXPECT_TRUE(Says(err, "(code -17)"));
  }
}

// Neither form writes a tree that the classes do not describe, nor one whose
// values the runtime fails to give: the failure names the field, and the
// output is as it was. A field that the runtime finds absent is left out.
TEST(MsgText, BothFormsRefuseATreeTheyCannotWriteAndLeaveTheOutputAsItWas) {
  struct Case {
    std::function<MsgPtr()> tree;
    int fault;  // a tag whose read fails with -13, or 0
    int code;
    const char* text;  // in the reason of the text form
    const char* json;  // in the reason of JSON
  };
  const Case cases[] = {
      {[] { return NewMsg(9); }, 0, MSGTEXT_E_CLASS, "no class has the number M9",
       "no class has the number M9"},
      {[] {
         MsgPtr m = NewMsg(3685);
         Attach(*m, 4702, 2143);
         return m;
       },
       0, MSGTEXT_E_CLASS,
       "M_IrTargetSwitching (M3685) T4702 mIrVanillaCpnB: a message M2143 where the field holds "
       "M_IrVanillaCpnB (M3623)",
       "/mIrVanillaCpnB: a message M2143 where the field holds M_IrVanillaCpnB (M3623)"},
      {[] {
         MsgPtr m = Greeks();
         Attach(*m, 2668, 10);
         return m;
       },
       0, MSGTEXT_E_CLASS, "M_Greeks (M2161) T2668 maRhoValue: a message M10 where",
       "/maRhoValue/2: a message M10 where the field holds M_RhoValue (M1925)"},
      {Switching, 396, MSGTEXT_E_RUNTIME,
       "M_IrTargetSwitching (M3685) T396 dRate: the runtime failed to give the value (code -13)",
       "/dRate: T396: the runtime failed to give the value (code -13)"},
      {Switching, 4603, MSGTEXT_E_RUNTIME, "M_IrVanillaCpnB (M3623) T4603 mKytRateIndexB: the",
       "/mIrVanillaCpnB/mKytRateIndexB: T4603: the runtime"},
      {Greeks, 612, MSGTEXT_E_RUNTIME, "M_Greeks (M2161) T612 daDelta: the runtime",
       "/daDelta: T612: the runtime"},
      {Greeks, 580, MSGTEXT_E_RUNTIME, "M_RhoValue (M1925) T580 dValue: the runtime",
       "/maRhoValue/0/dValue: T580: the runtime"},
      {Greeks, 2668, MSGTEXT_E_RUNTIME, "T2668 maRhoValue: the runtime", "/maRhoValue: T2668"},
  };
  for (const Case& c : cases) {
    for (auto write : {MA_WriteMsgText, MA_WriteMsgJson}) {
      const char* reason = write == MA_WriteMsgText ? c.text : c.json;
      SCOPED_TRACE(reason);
      MsgPtr tree = c.tree();
      std::string out = "kept";
      MsgTextError err{};
      if (c.fault) {
        ASSERT_TRUE(ArmFault(FaultOp::kGet, c.fault, -13));
      }
      EXPECT_EQ(write(tree.get(), &out, &err), c.code);
      ClearFaults();
      EXPECT_EQ(out, "kept");
      EXPECT_EQ(err.line, 0);
      EXPECT_TRUE(Says(err, reason));
      EXPECT_EQ(write(nullptr, &out, &err), MSGTEXT_E_ARG);
      EXPECT_EQ(write(tree.get(), nullptr, &err), MSGTEXT_E_ARG);
    }
  }
  MsgPtr tiv = NewMsg(2143);
  Set(*tiv, 800, "1Y");
  ASSERT_TRUE(ArmFault(FaultOp::kGet, 800, -1));
  EXPECT_EQ(Text(tiv.get()), kTivText);
  ClearFaults();
}

TEST(MsgText, LeaksNothingWhenMemoryRunsOut) {
  REQUIRE_FAILING_ALLOC();
  TempDir dir;
  const std::string path = dir.Path("switching.msg");
  MsgPtr tree = Switching();
  ASSERT_EQ(MA_WriteMsgFile(tree.get(), path.c_str()), MSGTEXT_OK);
  long points =
      SweepReads([&](MsgTextError* err) { return MsgPtr(MA_ReadMsgFile(path.c_str(), err)); }, Text,
                 kSwitchingText);
  EXPECT_GT(points, 5);
  points = SweepWrites([&](std::string* out) { return MA_WriteMsgText(tree.get(), out); },
                       kSwitchingText);
  EXPECT_GT(points, 3);

  // A file write that runs out of memory has changed nothing: the old file
  // stays whole and no temporary file is left beside it.
  points = ForEachAllocationFailure([&](long n) {
    dir.File("switching.msg", kTivText);
    FailingAlloc::FailAt(n);
    const int rc = MA_WriteMsgFile(tree.get(), path.c_str());
    FailingAlloc::Off();
    EXPECT_EQ(rc, FailingAlloc::Fired() ? MSGTEXT_E_NOMEM : MSGTEXT_OK) << "allocation " << n;
    EXPECT_EQ(Content(path), FailingAlloc::Fired() ? kTivText : kSwitchingText) << n;
    EXPECT_EQ(dir.Names(), (std::vector<std::string>{"switching.msg"})) << "allocation " << n;
  });
  EXPECT_GT(points, 3);
}

// A directory of the test's own, and a small tree to write there.
class MsgFile : public ::testing::Test {
 protected:
  TempDir dir;
  MsgPtr tiv = ReadText(kTivText);
};

// A file is replaced whole, and read back; what cannot be written leaves it.
TEST_F(MsgFile, AFileIsReplacedWholeOrLeftAsItWas) {
  const std::string path = dir.Path("tiv.msg");
  MsgTextError err{};
  ASSERT_EQ(MA_WriteMsgFile(Switching().get(), path.c_str()), MSGTEXT_OK);
  MsgPtr back(MA_ReadMsgFile(path.c_str(), &err));
  ASSERT_TRUE(back) << Where(err);
  EXPECT_EQ(Text(back.get()), kSwitchingText);
  ASSERT_EQ(MA_WriteMsgFile(tiv.get(), path.c_str()), MSGTEXT_OK);
  EXPECT_EQ(Content(path), kTivText);
  EXPECT_EQ(MA_WriteMsgFile(NewMsg(9).get(), path.c_str(), &err), MSGTEXT_E_CLASS);
  EXPECT_EQ(MA_WriteMsgFile(tiv.get(), dir.Path("no/such.msg").c_str(), &err), MSGTEXT_E_IO);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(MA_WriteMsgFile(tiv.get(), "", &err), MSGTEXT_E_ARG);
  EXPECT_EQ(MA_WriteMsgFile(tiv.get(), nullptr, &err), MSGTEXT_E_ARG);
  EXPECT_EQ(Content(path), kTivText);
  EXPECT_EQ(dir.Names(), (std::vector<std::string>{"tiv.msg"}));

  err = MsgTextError{9, 9, ""};
  EXPECT_FALSE(MA_ReadMsgFile("", &err));
  EXPECT_EQ(Where(err), "0:0: no file name");
  EXPECT_FALSE(MA_ReadMsgFile(nullptr, nullptr));
}

namespace {

// What stands at `path` itself, a link not followed: its type and mode,
// device and inode.
std::tuple<bool, mode_t, dev_t, ino_t> EntryAt(const fs::path& path) {
  struct stat st;
  if (lstat(path.c_str(), &st) != 0) return {false, 0, 0, 0};
  return {true, st.st_mode, st.st_dev, st.st_ino};
}

// The name that the writer of this process gives its `n`-th temporary file.
std::string TemporaryName(unsigned long n) {
  return ".msgfile-" + std::to_string(getpid()) + "-" + std::to_string(n) + ".tmp";
}

}  // namespace

// Whatever stands under a name that the writer tries for its temporary
// file, and a link at the target itself, the write goes to the target's
// own name and nowhere else.
TEST_F(MsgFile, APlantedLinkNeverRedirectsTheWrite) {
  const fs::path files = dir.path / "files", elsewhere = dir.path / "elsewhere";
  fs::create_directory(files);
  fs::create_directory(elsewhere);
  const fs::path victim = elsewhere / "victim";
  const fs::path unborn = elsewhere / "unborn";  // what a dangling link names
  std::ofstream(victim) << "victim\n";
  const fs::path target = files / "tiv.msg";

  // Every name the writer of this process may try next, and the one that a
  // writer might derive from the target's name, is a link out of the
  // directory: the write finds no name of its own and gives up.
  constexpr unsigned long kPlanted = 1500;
  fs::create_symlink(victim, target.string() + ".part");
  for (unsigned long n = 0; n < kPlanted; ++n) {
    fs::create_symlink(n % 2 ? unborn : victim, files / TemporaryName(n));
  }
  MsgTextError err{};
  EXPECT_EQ(MA_WriteMsgFile(tiv.get(), target.c_str(), &err), MSGTEXT_E_IO);
  EXPECT_EQ(errno, EEXIST);
  EXPECT_TRUE(Says(err, "cannot create a file beside"));
  EXPECT_FALSE(fs::exists(fs::symlink_status(target)));

  // With half the names free, writes skip the links that stand between:
  // of two writes, one meets a link first.
  for (unsigned long n = 0; n < kPlanted; n += 2) fs::remove(files / TemporaryName(n));
  for (int write = 0; write < 2; ++write) {
    ASSERT_EQ(MA_WriteMsgFile(tiv.get(), target.c_str(), &err), MSGTEXT_OK) << err.reason;
  }
  EXPECT_EQ(Content(target), kTivText);
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(target)));
  size_t entries = 0, links = 0;
  for (const auto& e : fs::directory_iterator(files)) {
    ++entries;
    links += fs::is_symlink(e.symlink_status());
  }
  EXPECT_EQ(links, kPlanted / 2 + 1);
  EXPECT_EQ(entries, links + 1);  // and the file itself, no temporary one

  // A link at the target is replaced by the file; what it names is left
  // alone, be it a file, nothing, or a FIFO.
  const fs::path fifo = elsewhere / "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  for (const fs::path& named : {victim, unborn, fifo}) {
    const fs::path link = dir.path / "link.msg";
    fs::create_symlink(named, link);
    ASSERT_EQ(MA_WriteMsgFile(tiv.get(), link.c_str(), &err), MSGTEXT_OK) << err.reason;
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(link))) << named;
    EXPECT_EQ(Content(link), kTivText);
    fs::remove(link);
  }
  EXPECT_EQ(Content(victim), "victim\n");
  EXPECT_FALSE(fs::exists(unborn));
}

// What is not a regular file is refused with its kind named, and left as
// it was; the writer opens none of them, so a FIFO without a reader does
// not hold it up.
TEST_F(MsgFile, ASpecialFileOrDirectoryIsRefusedAndLeftAlone) {
  const fs::path fifo = dir.path / "fifo", sub = dir.path / "sub";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0644), 0);
  fs::create_directory(sub);
  std::ofstream(sub / "kept") << "kept";
  // A device of our own where we may make one; else the system's null
  // device, which a process that may not make devices cannot replace either.
  const fs::path null = dir.path / "null";
  const bool ownDevice = mknod(null.c_str(), S_IFCHR | 0666, makedev(1, 3)) == 0;
  const std::pair<fs::path, const char*> specials[] = {
      {fifo, "it is a FIFO, not a regular file"},
      {ownDevice ? null : "/dev/null", "it is a character device, not a regular file"},
      {sub, "Is a directory"},
      {sub.string() + "/", "Is a directory"},
      {sub / "..", "Is a directory"},
      {".", "Is a directory"},
  };
  for (const auto& [path, reason] : specials) {
    SCOPED_TRACE(path);
    const auto before = EntryAt(path);
    MsgTextError err{};
    errno = 0;
    EXPECT_EQ(MA_WriteMsgFile(tiv.get(), path.c_str(), &err), MSGTEXT_E_IO);
    EXPECT_EQ(errno, std::strstr(reason, "directory") ? EISDIR : EINVAL);
    EXPECT_TRUE(Says(err, reason));
    EXPECT_TRUE(Says(err, path.c_str()));
    EXPECT_EQ(EntryAt(path), before);
  }
  EXPECT_EQ(dir.Names().size(), ownDevice ? 3u : 2u);
  EXPECT_EQ(Content(sub / "kept"), "kept");
}

// A rewrite keeps the mode of the file it replaces, narrow or wide, and its
// owner and group; a new file gets 0666 under the umask.
TEST_F(MsgFile, ARewriteKeepsTheFilesModeAndANewFileFollowsTheUmask) {
  auto modeOf = [](const std::string& p) {
    struct stat st;
    return stat(p.c_str(), &st) == 0 ? st.st_mode & 07777 : 0u;
  };
  const mode_t umaskBefore = umask(022);
  for (const mode_t mask : {022, 077, 0}) {
    umask(mask);
    const std::string fresh = dir.Path("fresh-" + std::to_string(mask));
    ASSERT_EQ(MA_WriteMsgFile(tiv.get(), fresh.c_str()), MSGTEXT_OK);
    EXPECT_EQ(modeOf(fresh), 0666u & ~mask) << std::oct << mask;
  }
  umask(0);  // the umask narrows nothing of an old file's mode, nor widens it
  const std::string path = dir.Path("kept.msg");
  for (const mode_t mode : {0600, 0640, 0604, 0400, 0755, 0666}) {
    dir.File("kept.msg", "old\n");
    ASSERT_EQ(chmod(path.c_str(), mode), 0);
    ASSERT_EQ(MA_WriteMsgFile(tiv.get(), path.c_str()), MSGTEXT_OK);
    EXPECT_EQ(modeOf(path), mode);
    EXPECT_EQ(Content(path), kTivText);
  }
  umask(umaskBefore);
  // Owner and group, where this process may give a file away.
  if (geteuid() == 0 && chown(path.c_str(), 65534, 65534) == 0) {
    ASSERT_EQ(MA_WriteMsgFile(tiv.get(), path.c_str()), MSGTEXT_OK);
    struct stat st;
    ASSERT_EQ(stat(path.c_str(), &st), 0);
    EXPECT_EQ(st.st_uid, 65534u);
    EXPECT_EQ(st.st_gid, 65534u);
  }
}

// Names of up to 255 bytes are written and read; the temporary file's name
// does not grow with them.
TEST_F(MsgFile, LongNamesAreWrittenAndTheTemporaryNameStaysShort) {
  MsgTextError err{};
  const std::string longest = dir.Path(std::string(255, 'n'));
  ASSERT_EQ(MA_WriteMsgFile(tiv.get(), longest.c_str(), &err), MSGTEXT_OK) << err.reason;
  EXPECT_EQ(Text(MsgPtr(MA_ReadMsgFile(longest.c_str(), &err)).get()), kTivText);
  fs::remove(longest);
  EXPECT_EQ(MA_WriteMsgFile(tiv.get(), dir.Path(std::string(256, 'n')).c_str(), &err),
            MSGTEXT_E_IO);
  EXPECT_EQ(errno, ENAMETOOLONG);
  EXPECT_TRUE(Says(err, "File name too long"));
  EXPECT_TRUE(dir.Names().empty());
}

// Played as another user, on a thread of its own that gives up the power to
// write anywhere: a directory that others may only read is told; one they
// may write but not list is written. A file that the caller could not write
// in place is not replaced, nor one whose owner the new file could not keep
// (root's file that anyone may write).
TEST_F(MsgFile, WhatTheCallerMayNotWriteIsLeftAsItWas) {
  const fs::path locked = dir.path / "locked", blind = dir.path / "blind";
  fs::create_directory(locked);
  fs::create_directory(blind);
  ASSERT_EQ(chmod(locked.c_str(), 0555), 0);
  ASSERT_EQ(chmod(blind.c_str(), 0333), 0);
  const std::string readOnly = dir.File("read-only.msg", "old\n");
  const std::string shared = dir.File("shared.msg", "old\n");
  ASSERT_EQ(chmod(readOnly.c_str(), 0444), 0);
  ASSERT_EQ(chmod(shared.c_str(), 0666), 0);
  ASSERT_EQ(chmod(dir.path.c_str(), 0777), 0);
  const auto sharedBefore = EntryAt(shared);
  const bool root = geteuid() == 0;
  const std::tuple<std::string, int, int> targets[] = {
      {(locked / "tiv.msg").string(), MSGTEXT_E_IO, EACCES},
      {(blind / "tiv.msg").string(), MSGTEXT_OK, 0},
      {readOnly, MSGTEXT_E_IO, EACCES},
      {shared, root ? MSGTEXT_E_IO : MSGTEXT_OK, root ? EPERM : 0},
  };
  std::vector<std::pair<int, int>> results;  // each write's result and errno
  std::thread([&] {
    if (root) setfsuid(65534);
    for (const auto& [path, rc, error] : targets) {
      results.emplace_back(MA_WriteMsgFile(tiv.get(), path.c_str()), 0);
      if (results.back().first != MSGTEXT_OK) results.back().second = errno;
    }
  }).join();
  chmod(locked.c_str(), 0755);
  chmod(blind.c_str(), 0755);
  for (size_t i = 0; i < results.size(); ++i) {
    EXPECT_EQ(results[i], std::make_pair(std::get<1>(targets[i]), std::get<2>(targets[i])))
        << std::get<0>(targets[i]);
  }
  EXPECT_TRUE(fs::is_empty(locked));
  EXPECT_EQ(Content(blind / "tiv.msg"), kTivText);
  EXPECT_EQ(std::distance(fs::directory_iterator(blind), fs::directory_iterator()), 1);
  EXPECT_EQ(Content(readOnly), "old\n");
  EXPECT_EQ(Content(shared), root ? "old\n" : kTivText);
  EXPECT_EQ(EntryAt(shared), sharedBefore) << "its mode and owner";
}

// Two threads write one path over and over while a third reads it: every
// read finds one of the two texts whole, every write succeeds, and no
// temporary file is left behind.
TEST_F(MsgFile, ConcurrentWritersNeverShowAPartialFile) {
  const std::string path = dir.Path("shared.msg");
  MsgPtr large = Switching();
  ASSERT_EQ(MA_WriteMsgFile(tiv.get(), path.c_str()), MSGTEXT_OK);
  std::atomic<int> writing{2}, failed{0};
  auto writer = [&](CMsg* msg) {
    for (int i = 0; i < 150; ++i) failed += MA_WriteMsgFile(msg, path.c_str()) != MSGTEXT_OK;
    --writing;
  };
  std::thread a(writer, tiv.get()), b(writer, large.get());
  int reads = 0, torn = 0;
  std::string first;
  while (writing > 0 || reads++ == 0) {
    const std::string seen = Content(path);
    if (seen != kTivText && seen != kSwitchingText && torn++ == 0) first = seen;
  }
  a.join();
  b.join();
  EXPECT_EQ(failed, 0);
  EXPECT_EQ(torn, 0) << "torn reads, the first:\n" << first;
  EXPECT_EQ(dir.Names(), (std::vector<std::string>{"shared.msg"}));
}

// A write that fails half way, here at a limit on the size of files, has
// changed nothing and leaves no temporary file.
TEST_F(MsgFile, AWriteThatFailsHalfWayChangesNothing) {
  const std::string path = dir.File("kept.msg", "old\n");
  const auto before = EntryAt(path);
  const auto oldHandler = signal(SIGXFSZ, SIG_IGN);
  rlimit limit;
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
  rlimit small = limit;
  small.rlim_cur = 64;
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  MsgTextError err{};
  const int rc = MA_WriteMsgFile(Switching().get(), path.c_str(), &err);
  const int failure = errno;
  setrlimit(RLIMIT_FSIZE, &limit);
  signal(SIGXFSZ, oldHandler);
  EXPECT_EQ(rc, MSGTEXT_E_IO);
  EXPECT_EQ(failure, EFBIG);
  EXPECT_TRUE(Says(err, "File too large"));
  EXPECT_EQ(Content(path), "old\n");
  EXPECT_EQ(EntryAt(path), before);
  EXPECT_EQ(dir.Names(), (std::vector<std::string>{"kept.msg"}));
}
