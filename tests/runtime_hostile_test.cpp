// The stand-in runtime against what a hostile caller can hand it: sizes at
// and past the limits of its 32-bit lengths, message trees of any depth, and
// allocations that fail and then succeed; and the free lists of its blocks,
// which give everything back.
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "TestSupport.h"
#include "callkyt/CArray.h"
#include "callkyt/CMsg.h"
#include "callkyt/CStream.h"
#include "callkyt/CString.h"

using testing_support::FailingAlloc;
using testing_support::MsgPtr;
using testing_support::Str;

namespace {

MsgPtr NewMsg(int num, CMsgDic* dic = MA_GetMsgDic()) { return MsgPtr(new CMsg(num, 0, 0, dic)); }

CMsg* NewSub() { return new CMsg(2143, 0, 0, MA_GetMsgDic()); }

// Deeper than any stack would take by recursion, under the sanitizers too.
constexpr int kDeep = 200000;

// A chain of `depth` messages, each the only sub-message of the one above,
// built from the bottom as the classes build theirs. Every thousandth one
// also holds a text that moves its records out of the object. Gives the top
// and, in `bottom`, the last.
MsgPtr Chain(int depth, CMsg** bottom) {
  CMsg* top = nullptr;
  for (int level = depth - 1; level >= 0; --level) {
    CMsg* m = NewSub();
    if (!top) *bottom = m;
    if (top && m->SetValue(695, top) != KYT_OK) return nullptr;
    if (level % 1000 == 0 && m->SetValue(800, std::string(100, 't').c_str()) != KYT_OK) {
      return nullptr;
    }
    top = m;
  }
  return MsgPtr(top);
}

// The sub-message `levels` below `msg` along the first ones.
CMsg* Descend(CMsg* msg, int levels) {
  for (int i = 0; i < levels && msg; ++i) {
    if (msg->GetValue(695, &msg) != KYT_OK) return nullptr;
  }
  return msg;
}

TEST(DeepTrees, AreFreedMeasuredAndCheckedForCyclesAtAnyDepth) {
  CMsg* bottom = nullptr;
  MsgPtr root = Chain(kDeep, &bottom);
  ASSERT_NE(root, nullptr);
  ASSERT_EQ(Descend(root.get(), kDeep - 1), bottom);
  EXPECT_EQ(root->GetTreeSize(), kDeep);
  // Each message is a block of 64 bytes; one with a text has its records in
  // a block of 128 more.
  EXPECT_EQ(root->GetTreeMemory(), 64L * kDeep + 128L * (kDeep / 1000));

  // The root of the tree cannot go under its deepest message; another deep
  // tree can, and the check leaves both trees as they were.
  EXPECT_EQ(bottom->SetValue(695, root.get()), KYT_E_ARG);
  CMsg* otherBottom = nullptr;
  MsgPtr other = Chain(kDeep, &otherBottom);
  ASSERT_NE(other, nullptr);
  EXPECT_EQ(otherBottom->SetValue(695, root.get()), KYT_OK);
  CMsg* top = other.release();  // now the root of both chains
  root.release();
  EXPECT_EQ(bottom->SetValue(695, top), KYT_E_ARG);
  EXPECT_EQ(top->GetTreeSize(), 2 * kDeep);
  EXPECT_EQ(Descend(top, 2 * kDeep - 1), bottom);
  EXPECT_EQ(Descend(top, kDeep - 1), otherBottom);
  delete top;  // all 400,000 messages, with no leak

  // A comb: at each level the next level comes first and a leaf after it,
  // so that every walk must come back up to each level to go on.
  MsgPtr comb = NewMsg(2143);
  CMsg* level = comb.get();
  for (int i = 0; i < kDeep; ++i) {
    CMsg* next = NewSub();
    ASSERT_EQ(level->SetValue(695, next), KYT_OK);
    ASSERT_EQ(level->SetValue(695, NewSub()), KYT_OK);
    level = next;
  }
  EXPECT_EQ(comb->GetTreeSize(), 2 * kDeep + 1);
  CMsgArray pair(true);
  ASSERT_EQ(Descend(comb.get(), kDeep - 1)->GetValue(695, &pair), KYT_OK);
  ASSERT_EQ(pair.GetSize(), 2);
  EXPECT_EQ(pair.GetAt(1)->SetValue(695, comb.get()), KYT_E_ARG);  // the leaf at the bottom
  EXPECT_EQ(pair.GetAt(0)->SetValue(695, comb.get()), KYT_E_ARG);  // the last level
}

TEST(DeepTrees, ACycleCheckThatRunsOutOfMemoryRefusesAndFreesNothing) {
  REQUIRE_FAILING_ALLOC();
  CMsg* bottom = nullptr;
  MsgPtr root = Chain(1000, &bottom);
  ASSERT_NE(root, nullptr);
  CMsg* unused = nullptr;

  // A shallow tree is searched without allocating.
  MsgPtr shallow = Chain(30, &unused);
  ASSERT_NE(shallow, nullptr);
  FailingAlloc::FailAt(0);
  EXPECT_EQ(bottom->SetValue(695, shallow.release()), KYT_OK);
  FailingAlloc::Off();
  EXPECT_FALSE(FailingAlloc::Fired());

  // A deep one needs room for its levels. Without it the answer is that
  // memory ran out, and `other`, which might have held the message it was
  // to go under, is left whole to its owner; with it, it goes there.
  MsgPtr other = Chain(1000, &unused);
  ASSERT_NE(other, nullptr);
  CMsg* inner = Descend(root.get(), 500);
  for (CMsg* below : {bottom, inner}) {
    SCOPED_TRACE(below == bottom ? "under the bottom" : "in the middle");
    FailingAlloc::FailAt(0);
    EXPECT_EQ(below->SetValue(695, other.get()), KYT_E_NOMEM);
    FailingAlloc::Off();
    EXPECT_TRUE(FailingAlloc::Fired());
    EXPECT_EQ(other->GetTreeSize(), 1000);
  }
  EXPECT_EQ(inner->SetValue(695, other.release()), KYT_OK);
  EXPECT_EQ(root->GetTreeSize(), 2030);
}

// A terminated text of 2^31 bytes in 1 MiB of memory: one block of 'x'
// mapped again and again, then a page that starts with the terminator. A
// pointer into it is a text of any length up to 2^31, as strlen sees it.
class HugeText {
 public:
  static constexpr size_t kLen = size_t{1} << 31;

  HugeText() {
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    size_ = kLen + page;
    void* base =
        mmap(nullptr, size_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    fd_ = memfd_create("huge-text", 0);
    const std::string block(kBlock, 'x');
    if (base == MAP_FAILED || fd_ < 0 || write(fd_, block.data(), kBlock) != ssize_t{kBlock})
      return;
    base_ = static_cast<char*>(base);
    for (size_t at = 0; at < kLen; at += kBlock) {
      if (mmap(base_ + at, kBlock, PROT_READ, MAP_SHARED | MAP_FIXED, fd_, 0) == MAP_FAILED) return;
    }
    ready_ = mmap(base_ + kLen, page, PROT_READ | PROT_WRITE,
                  MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0) != MAP_FAILED;
  }
  ~HugeText() {
    if (base_) munmap(base_, size_);
    if (fd_ >= 0) close(fd_);
  }
  HugeText(const HugeText&) = delete;
  HugeText& operator=(const HugeText&) = delete;

  bool Ready() const { return ready_; }
  // A text of `len` bytes, at most kLen.
  const char* OfLength(size_t len) const { return base_ + (kLen - len); }

 private:
  static constexpr size_t kBlock = size_t{1} << 20;
  char* base_ = nullptr;
  size_t size_ = 0;
  int fd_ = -1;
  bool ready_ = false;
};

// What a call does when its first allocation is made to fail: "done" if it
// throws nothing, "too long" for std::bad_array_new_length, "no memory" for
// another std::bad_alloc, followed by " after asking" if it reached the
// allocator. A size past a limit must be refused before asking.
std::string Attempt(const std::function<void()>& call) {
  std::string what = "done";
  FailingAlloc::FailAt(0);
  try {
    call();
  } catch (const std::bad_array_new_length&) {
    what = "too long";
  } catch (const std::bad_alloc&) {
    what = "no memory";
  }
  FailingAlloc::Off();
  return FailingAlloc::Fired() ? what + " after asking" : what;
}

// `n` letters, "abc...zab...", so that a shifted or cut copy shows.
std::string Letters(int n) {
  std::string s;
  for (int i = 0; i < n; ++i) s += static_cast<char>('a' + i % 26);
  return s;
}

constexpr const char* kAsked = "no memory after asking";

TEST(Texts, PastKMaxSizeAreRefusedBeforeAskingAndAFailureLeavesThemAsTheyWere) {
  REQUIRE_FAILING_ALLOC();
  HugeText huge;
  ASSERT_TRUE(huge.Ready());
  static_assert(CString::kMaxSize == INT_MAX, "a text's length is an int");
  const char* const over = huge.OfLength(size_t{INT_MAX} + 1);  // read as an int, INT_MIN
  const char* const most = huge.OfLength(INT_MAX);
  EXPECT_EQ(Attempt([&] { CString s(over); }), "too long");
  EXPECT_EQ(Attempt([&] { CString s(most); }), kAsked);
  EXPECT_EQ(Attempt([&] { CString s(most, INT_MAX); }), kAsked);

  // In the object and on the heap, in a kept block or not: a refusal or a
  // failure leaves the string as it was, and the next try succeeds.
  const std::string more = Letters(700);
  const CString other(more.c_str());
  for (int had : {5, 31, 40, 600}) {
    SCOPED_TRACE(had);
    const std::string before = Letters(had);
    CString s(before.c_str());
    const std::pair<std::function<void()>, const char*> calls[] = {
        {[&] { s = over; }, "too long"},
        // Appends whose sum passes INT_MAX by one and by the most an int can.
        {[&] { s.Append(most, INT_MAX - had + 1); }, "too long"},
        {[&] { s.Append(most, INT_MAX); }, "too long"},
        {[&] { s.Append(most, INT_MAX - had); }, kAsked},
        {[&] { s = most; }, kAsked},
        {[&] { s.Assign(most, INT_MAX); }, kAsked},
        {[&] { s.Append(more.c_str(), 700); }, kAsked},
        {[&] { s = other; }, kAsked},
        {[&] { CString copy(other); }, kAsked}};
    for (const auto& call : calls) {
      EXPECT_EQ(Attempt(call.first), call.second);
      EXPECT_EQ(Str(s), before);
    }
    s.Append(more.c_str(), 700);
    EXPECT_EQ(Str(s), before + more);
  }

  // A message refuses a text whose record could not fit its 2^31 bytes.
  MsgPtr msg = NewMsg(10);
  ASSERT_EQ(msg->SetValue(6, CInt(1)), KYT_OK);
  ASSERT_EQ(msg->SetValue(7, "fits"), KYT_OK);  // 13 bytes of records
  int rc = 0;
  for (size_t len : {size_t{INT_MAX} + 1, size_t{0x7ffffff1}, size_t{0x7ffffff0}}) {
    EXPECT_EQ(Attempt([&] { rc = msg->SetValue(7, huge.OfLength(len)); }), "done") << len;
    EXPECT_EQ(rc, KYT_E_NOMEM);
  }
  MsgPtr empty = NewMsg(10);
  EXPECT_EQ(Attempt([&] { rc = empty->SetValue(7, huge.OfLength(0x7ffffff0)); }),
            "done after asking");
  EXPECT_EQ(rc, KYT_E_NOMEM);
  EXPECT_EQ(msg->GetValueCount(), 2);
  EXPECT_EQ(empty->GetValueCount(), 0);

  // A stream holds at most kMaxSize bytes too.
  CStream out;
  out.AppendData("ab", 2);
  EXPECT_THROW(out.AppendData(most, INT_MAX - 1), std::bad_array_new_length);
  EXPECT_THROW(out.AppendData(most, INT_MAX), std::bad_array_new_length);
  EXPECT_STREQ(out.ToStr(), "ab");
}

TEST(ValueArrays, PastKMaxSizeAreRefusedBeforeAskingAndAFailureLeavesThemAsTheyWere) {
  REQUIRE_FAILING_ALLOC();
  // Below 2 GiB of elements, and more than a message can hold under a tag
  // (a value takes at least 6 bytes of its 2^31).
  static_assert(CIntArray::kMaxSize > INT_MAX / 6 && CDblArray::kMaxSize > INT_MAX / 10, "");
  CIntArray ints;
  for (int i = 1; i <= 4; ++i) ints.Add(i);
  CDblArray dbls;
  dbls.Add(0.5);
  CIntArray longer;
  longer.SetSize(50);
  const std::pair<std::function<void()>, const char*> calls[] = {
      {[&] { ints.SetSize(CIntArray::kMaxSize + 1); }, "too long"},
      {[&] { ints.SetSize(INT_MAX); }, "too long"},
      {[&] { dbls.SetSize(CDblArray::kMaxSize + 1); }, "too long"},
      {[&] { ints.SetSize(CIntArray::kMaxSize); }, kAsked},
      {[&] { dbls.SetSize(CDblArray::kMaxSize); }, kAsked},
      // Growing by an element, to a size, to take a copy.
      {[&] { ints.Add(5); }, kAsked},
      {[&] { ints.SetSize(5); }, kAsked},
      {[&] { ints = longer; }, kAsked},
      {[&] { CIntArray copy(ints); }, kAsked},
      {[&] { ints.SetSize(3); }, "done"}};  // shrinking takes nothing
  for (const auto& call : calls) EXPECT_EQ(Attempt(call.first), call.second);
  EXPECT_EQ(Str(dbls.Repr(",", true)), "{5.000000000000000e-01}");
  EXPECT_EQ(ints.Add(9), 4);
  EXPECT_EQ(ints.Add(5), 5);
  EXPECT_EQ(Str(ints.Repr(",", true)), "{1,2,3,9,5}");

  // The text of the elements is a CString: joined with a separator so long
  // that no text of the elements can fit, it is refused before asking; one
  // that might fit asks for its first block (in a new thread, which has no
  // spare one).
  HugeText huge;
  ASSERT_TRUE(huge.Ready());
  CIntArray two;
  two.Add(1);
  two.Add(2);
  EXPECT_EQ(Attempt([&] { two.Repr(huge.OfLength(INT_MAX - 3), true); }), "too long");
  EXPECT_EQ(Attempt([&] { two.Repr(huge.OfLength(HugeText::kLen), true); }), "too long");
  std::thread([&] {
    EXPECT_EQ(Attempt([&] { two.Repr(huge.OfLength(INT_MAX - 4), true); }), kAsked);
  }).join();
  EXPECT_EQ(Str(two.Repr("", true)), "{12}");
}

// ---- failed, then successful allocation ----

// Every value of a message, one line each.
std::string Values(const CMsg& msg) {
  std::string out;
  CMsg::Cursor cursor(msg);
  CMsg::Value v;
  while (cursor.Next(&v)) {
    out += std::to_string(v.tag) + ":" + std::to_string(v.i) + " " +
           std::string(v.text ? v.text : "", v.len) + "\n";
  }
  return out;
}

TEST(FailedAllocation, LeavesMessagesAsTheyWereAndTheNextTrySucceeds) {
  REQUIRE_FAILING_ALLOC();
  // Records in the object, then in a first block, then in ever larger ones
  // past the kept sizes: each text or sub-message that needs more room fails
  // once first and leaves the message as it was; a refused sub-message is
  // freed all the same (LeakSanitizer sees to that); the next try succeeds.
  MsgPtr m = NewMsg(10);
  int fails = 0;
  for (int k = 0; k < 80; ++k) {
    const std::string before = Values(*m);
    const std::string text = Letters(k * 7);
    CMsg* sub = k % 2 ? NewSub() : nullptr;
    auto add = [&] { return sub ? m->SetValue(695, sub) : m->SetValue(7, text.c_str()); };
    int rc = KYT_OK;
    if (Attempt([&] { rc = add(); }) == "done after asking") {
      ++fails;
      EXPECT_EQ(rc, KYT_E_NOMEM);
      EXPECT_EQ(Values(*m), before);
      if (sub) sub = NewSub();
      ASSERT_EQ(add(), KYT_OK);
    } else {
      EXPECT_EQ(rc, KYT_OK);
    }
    EXPECT_EQ(m->GetValueCount(), k + 1);
  }
  EXPECT_GT(fails, 5);

  // Reads into a text and an array that must grow for them.
  MsgPtr values = NewMsg(10);
  ASSERT_EQ(values->SetValue(7, Letters(600).c_str()), KYT_OK);
  for (int i = 0; i < 20; ++i) ASSERT_EQ(values->SetValue(5146, i), KYT_OK);
  CString text("short");
  CIntArray ints;
  ints.Add(-1);
  int rc = KYT_OK, rc2 = KYT_OK;
  EXPECT_EQ(Attempt([&] { rc = values->GetValue(7, &text); }), "done after asking");
  EXPECT_EQ(Attempt([&] { rc2 = values->GetValue(5146, &ints); }), "done after asking");
  EXPECT_EQ(rc, KYT_E_NOMEM);
  EXPECT_EQ(rc2, KYT_E_NOMEM);
  EXPECT_EQ(Str(text) + Str(ints.Repr(",", false)), "short-1");
  EXPECT_EQ(values->GetValue(7, &text), KYT_OK);
  EXPECT_EQ(values->GetValue(5146, &ints), KYT_OK);
  EXPECT_EQ(Str(text), Letters(600));
  EXPECT_EQ(ints.size, 20);
}

// ---- the free lists of blocks ----

// Texts of every size and messages, made and freed.
void Churn() {
  for (int len = 32; len < 600; len += 7) {
    std::vector<CString> texts(50);
    for (CString& t : texts) t = Letters(len).c_str();
  }
  std::vector<MsgPtr> msgs;
  for (int k = 0; k < 100; ++k) {
    msgs.push_back(NewMsg(10));
    ASSERT_EQ(msgs.back()->SetValue(7, Letters(k * 5).c_str()), KYT_OK);
  }
}

TEST(BlockPools, GiveAllBackWhenTheThreadEndsAndKeepNoneWhenTurnedOff) {
  REQUIRE_FAILING_ALLOC();
  MA_GetMsgDic();  // built once, on first use, and kept for the process
  const long before = FailingAlloc::Live();
  std::thread(Churn).join();
  EXPECT_EQ(FailingAlloc::Live(), before);

  // KYT_MSG_POOL=0 turns the lists off, for memory checkers: every freed
  // block goes back at once. This program again, with it, on this case.
  const char* pool = std::getenv("KYT_MSG_POOL");
  if (pool && std::strcmp(pool, "0") == 0) {
    Churn();
    EXPECT_EQ(FailingAlloc::Live(), before);
    return;
  }
  std::string exe = "/proc/self/exe";
  std::string filter =
      "--gtest_filter=BlockPools.GiveAllBackWhenTheThreadEndsAndKeepNoneWhenTurnedOff";
  char* argv[] = {&exe[0], &filter[0], nullptr};
  pid_t pid;
  setenv("KYT_MSG_POOL", "0", 1);  // read once, at start: no change to this process
  const int spawned = posix_spawn(&pid, argv[0], nullptr, nullptr, argv, environ);
  unsetenv("KYT_MSG_POOL");
  ASSERT_EQ(spawned, 0);
  int status = 0;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

}  // namespace
