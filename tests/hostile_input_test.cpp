// Hostile and careless input that the classes and message files must carry
// or refuse cleanly: dates that are no days of the calendar, texts with a
// NUL byte, endless and oversized files, and running out of memory anywhere
// on the way.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>

#include "MsgJson.h"
#include "MsgText.h"
#include "Reflect.h"
#include "TestSupport.h"
#include "TextTesting.h"
#include "shared/M_KytVolSurface.h"
#include "shared/M_SysReject.h"
#include "shared/M_Tiv.h"

using namespace testing_support;

namespace {

// A message of M_Tiv that holds the date `text`: made as the classes make
// theirs, or, where the runtime refuses such a date there, without a
// dictionary, which the runtime checks nothing against.
MsgPtr TivWithDate(const char* text, bool* refused) {
  CDate d;
  d.isSet = true;
  std::memcpy(d.text, text, std::min(std::strlen(text), sizeof d.text - 1));
  MsgPtr msg = NewMsg(2143);
  *refused = msg->SetValue(198, d) < 0;
  if (*refused) {
    msg.reset(new CMsg(2143, 0, 0, nullptr));
    if (msg->SetValue(198, d) < 0) return nullptr;
  }
  return msg;
}

}  // namespace

// A date that is no day of the calendar is carried as its text by Load,
// Copy, Dump and both forms of message file; only the runtime may refuse
// it, where it is sent, and it says where.
TEST(Dates, ACalendarImpossibleDateIsCarriedUnchangedEverywhere) {
  bool runtimeRefuses = false;
  MsgPtr msg = TivWithDate("20260231", &runtimeRefuses);
  if (!msg) GTEST_SKIP() << "this runtime holds no such date in any message";
  M_Tiv tiv;
  ASSERT_EQ(tiv.Load(msg.get()), 0) << tiv.errtext.ToStr();
  EXPECT_STREQ(tiv.nDate.text, "20260231");
  M_Tiv copy;
  copy.Copy(tiv);
  EXPECT_TRUE(pricemsg::Equal(copy, tiv));
  EXPECT_STREQ(copy.nDate.text, "20260231");
  EXPECT_NE(DumpOf(copy).find("nDate : [20260231]"), std::string::npos) << DumpOf(copy);

  // Both forms write it; reading it back hands it to the runtime, which
  // takes it or refuses it at that value, with its code.
  const std::string text = Text(msg.get()), json = Json(msg.get());
  EXPECT_NE(text.find("T198 nDate n \"20260231\""), std::string::npos) << text;
  EXPECT_NE(json.find("\"nDate\": \"20260231\""), std::string::npos) << json;
  MsgTextError err{}, jsonErr{};
  MsgPtr fromText = ReadText(text, &err), fromJson = ReadJson(json, &jsonErr);
  std::unique_ptr<CMsg> sent(copy.ToMsg());
  if (runtimeRefuses) {
    EXPECT_FALSE(fromText);
    EXPECT_EQ(err.code, MSGTEXT_E_TEXT);
    EXPECT_EQ(err.line, 2);
    EXPECT_TRUE(Says(err, "T198 nDate: the runtime refused the value"));
    EXPECT_FALSE(fromJson);
    EXPECT_TRUE(Says(jsonErr, "/nDate: T198 nDate: the runtime refused"));
    EXPECT_FALSE(sent);
    EXPECT_EQ(Str(copy.errtext), "M_Tiv:SET_VAL_ONE(M2143.T198) fail");
  } else {
    ASSERT_TRUE(fromText) << err.reason;
    ASSERT_TRUE(fromJson) << jsonErr.reason;
    EXPECT_EQ(Text(fromText.get()), text);
    EXPECT_EQ(Text(fromJson.get()), text);
    ASSERT_TRUE(sent);
  }
}

// Input that never ends, or ends too late, is refused at once: at the first
// byte that no message file holds, or at the size limit, holding no more.
TEST(Files, EndlessAndOversizedInputIsRefusedAtOnce) {
  MsgTextError err{};
  EXPECT_FALSE(MA_ReadMsgFile("/dev/zero", &err));
  EXPECT_EQ(err.code, MSGTEXT_E_TEXT);
  EXPECT_EQ(Where(err), "1:1: /dev/zero holds a NUL byte at byte 0: it is no message file");
  EXPECT_FALSE(MA_ReadMsgJsonFile("/dev/zero", &err));
  EXPECT_EQ(err.code, MSGTEXT_E_TEXT);

  TempDir dir;
  // A NUL byte after some lines: refused at its line and column.
  using namespace std::string_literals;
  const std::string nul = dir.File("nul.msg", "M10 {\n  T6 i 1\n  T7 s \"a\0\"\n}\n"s);
  M_SysReject reject;
  EXPECT_EQ(MA_LoadMsgFile(nul.c_str(), &reject, &err), MSGTEXT_E_TEXT);
  EXPECT_EQ(Where(err).substr(0, 5), "3:10:");
  // On the first line, after a byte order mark, columns count as elsewhere.
  const std::string bom = dir.File("bom.msg", "\xEF\xBB\xBFM1\0"s);
  EXPECT_FALSE(MA_ReadMsgFile(bom.c_str(), &err));
  EXPECT_EQ(Where(err).substr(0, 4), "1:3:");

  // A pipe that goes on and on is read up to the caller's limit.
  const std::string fifo = dir.Path("endless");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  std::atomic<bool> stop{false};
  signal(SIGPIPE, SIG_IGN);  // the writer learns that the reader has gone by EPIPE
  size_t written = 0;
  std::thread writer([&] {
    const int fd = open(fifo.c_str(), O_WRONLY);
    const std::string line = "# a note that never ends\n";
    while (!stop && fd >= 0 && write(fd, line.data(), line.size()) > 0) written += line.size();
    if (fd >= 0) close(fd);
  });
  EXPECT_FALSE(MA_ReadMsgFile(fifo.c_str(), &err, 1 << 20));
  stop = true;
  writer.join();
  EXPECT_EQ(err.code, MSGTEXT_E_IO);
  EXPECT_TRUE(Says(err, "larger than 1048576 bytes"));
  EXPECT_LT(written, (1u << 20) + (1u << 18)) << "read far past the limit";

  // A regular file over the limit is refused unread; the default takes it.
  const std::string big = dir.File("big.msg", "M10 {\n" + std::string(5000, '#') + "\n}\n");
  EXPECT_FALSE(MA_ReadMsgFile(big.c_str(), &err, 4096));
  EXPECT_EQ(err.code, MSGTEXT_E_IO);
  MsgPtr read(MA_ReadMsgFile(big.c_str(), &err));
  EXPECT_TRUE(read) << err.reason;
}

// Dump throws nothing, whatever fails under it: the stream or the runtime
// running out of memory ends the dump where it stands.
TEST(Dump, NothingThrowsOutOfDumpAndNothingLeaks) {
  REQUIRE_FAILING_ALLOC();
  // A reply whose value arrays' texts take memory of their own.
  std::unique_ptr<CMsgBase> greeks = pricemsg::NewMessage("M_Greeks");
  MsgPtr sample = BuildSample(greeks->msgnum, true);
  ASSERT_EQ(greeks->Load(sample.get()), 0);
  const std::string whole = DumpOf(*greeks);
  const long met = ForEachAllocationFailure([&](long n) {
    EXPECT_TRUE(LeavesNothing([&] {
      CStream out;
      FailingAlloc::FailAt(n);
      EXPECT_NO_THROW(greeks->Dump(&out)) << "allocation " << n;
      FailingAlloc::Off();
    }));
  });
  EXPECT_GT(met, 0);
  EXPECT_EQ(DumpOf(*greeks), whole);
}

#ifdef PRICEMSG_STANDIN_RUNTIME
// A text with a NUL byte cannot travel, since the runtime's texts end at
// the first: ToMsg refuses it at its field rather than send it cut short.
// (Only the stand-in makes such a CString.)
TEST(Texts, ATextWithANulByteIsRefusedNotCut) {
  M_KytVolSurface surface;
  ASSERT_EQ(surface.maKytVolSfcElmt.Grow(), 1);
  surface.maKytVolSfcElmt[0].mTivMatur.sMatur = CString("1Y\0tail", 7);
  std::unique_ptr<CMsg> msg(surface.ToMsg());
  EXPECT_FALSE(msg);
  EXPECT_EQ(surface.errcode, MSG_E_TEXT);
  EXPECT_EQ(Str(surface.maKytVolSfcElmt[0].mTivMatur.errtext),
            "M_Tiv:SET_VAL_ONE(M2143.T800) fail");
  EXPECT_EQ(surface.maKytVolSfcElmt[0].mTivMatur.errcode, MSG_E_TEXT);
  // The same text without its tail travels whole.
  surface.maKytVolSfcElmt[0].mTivMatur.sMatur = "1Y";
  msg.reset(surface.ToMsg());
  EXPECT_TRUE(msg);
}
#endif
