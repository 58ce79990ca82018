// The stand-in runtime against what a hostile caller can hand it: sizes at
// and past the limits of its 32-bit lengths, message trees of any depth,
// allocations that fail and then succeed, and the block pools at every
// size they keep.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <climits>
#include <cstddef>
#include <cstring>
#include <functional>
#include <new>
#include <string>

#include "TestSupport.h"
#include "callkyt/CArray.h"
#include "callkyt/CMsg.h"
#include "callkyt/CStream.h"
#include "callkyt/CString.h"

using testing_support::FailingAlloc;
using testing_support::MsgPtr;
using testing_support::Str;

// The ThreadSanitizer build links no failing operator new (tests/CMakeLists.txt).
#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define RUNTIME_TEST_WITHOUT_FAILING_ALLOC
#endif
#endif

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
  EXPECT_EQ(bottom->GetTreeSize(), 1);

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
  // Two sub-messages outgrow the object: their records take 64 bytes more.
  EXPECT_EQ(comb->GetTreeMemory(), 64L * (2 * kDeep + 1) + 64L * kDeep);
  CMsgArray pair(true);
  ASSERT_EQ(Descend(comb.get(), kDeep - 1)->GetValue(695, &pair), KYT_OK);
  ASSERT_EQ(pair.GetSize(), 2);
  EXPECT_EQ(pair.GetAt(1)->SetValue(695, comb.get()), KYT_E_ARG);  // the leaf at the bottom
  EXPECT_EQ(pair.GetAt(0)->SetValue(695, comb.get()), KYT_E_ARG);  // the last level
  EXPECT_EQ(comb->GetTreeSize(), 2 * kDeep + 1);
}

#ifndef RUNTIME_TEST_WITHOUT_FAILING_ALLOC

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
  EXPECT_EQ(root->GetTreeSize(), 1030);
  EXPECT_EQ(inner->SetValue(695, other.release()), KYT_OK);
  EXPECT_EQ(root->GetTreeSize(), 2030);
  EXPECT_EQ(bottom->SetValue(695, root.get()), KYT_E_ARG);
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
    if (base == MAP_FAILED || fd_ < 0 || ftruncate(fd_, kBlock) != 0) return;
    base_ = static_cast<char*>(base);
    void* block = mmap(nullptr, kBlock, PROT_READ | PROT_WRITE, MAP_SHARED, fd_, 0);
    if (block == MAP_FAILED) return;
    std::memset(block, 'x', kBlock);
    munmap(block, kBlock);
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

TEST(Limits, TextsOfMoreThanKMaxSizeBytesAreRefusedBeforeAnyAllocation) {
  REQUIRE_FAILING_ALLOC();
  HugeText huge;
  ASSERT_TRUE(huge.Ready());
  constexpr size_t kMost = CString::kMaxSize;
  static_assert(kMost == INT_MAX, "a text's length is an int");
  const char* const over = huge.OfLength(kMost + 1);  // read as an int, INT_MIN
  const char* const most = huge.OfLength(kMost);

  EXPECT_EQ(Attempt([&] { CString s(over); }), "too long");
  EXPECT_EQ(Attempt([&] { CString s(most); }), "no memory after asking");
  EXPECT_EQ(Attempt([&] { CString s(most, INT_MAX); }), "no memory after asking");

  // Each refusal leaves the string as it was, in the object or on the heap.
  const std::string longText(40, 'k');
  for (const std::string& before : {std::string("keep"), longText}) {
    SCOPED_TRACE(before.size());
    const int had = static_cast<int>(before.size());
    CString s(before.c_str());
    EXPECT_EQ(Attempt([&] { s = over; }), "too long");
    EXPECT_EQ(Attempt([&] { s = most; }), "no memory after asking");
    EXPECT_EQ(Attempt([&] { s.Assign(most, INT_MAX); }), "no memory after asking");
    // Appends whose sum passes INT_MAX by one and by the most an int can.
    EXPECT_EQ(Attempt([&] { s.Append(most, INT_MAX - had + 1); }), "too long");
    EXPECT_EQ(Attempt([&] { s.Append(most, INT_MAX); }), "too long");
    EXPECT_EQ(Attempt([&] { s.Append(most, INT_MAX - had); }), "no memory after asking");
    EXPECT_EQ(Str(s), before);
    s.Append("!", 1);  // and the string is still usable
    EXPECT_EQ(Str(s), before + "!");
  }

  // A message refuses a text whose record could not fit its 2^31 bytes.
  MsgPtr msg = NewMsg(10);
  ASSERT_EQ(msg->SetValue(6, CInt(1)), KYT_OK);
  int rc = 0;
  EXPECT_EQ(Attempt([&] { rc = msg->SetValue(7, over); }), "done");
  EXPECT_EQ(rc, KYT_E_NOMEM);
  EXPECT_EQ(Attempt([&] { rc = msg->SetValue(7, huge.OfLength(0x7ffffff1)); }), "done");
  EXPECT_EQ(rc, KYT_E_NOMEM);
  MsgPtr empty = NewMsg(10);
  EXPECT_EQ(Attempt([&] { rc = empty->SetValue(7, huge.OfLength(0x7ffffff0)); }),
            "done after asking");
  EXPECT_EQ(rc, KYT_E_NOMEM);
  EXPECT_EQ(msg->GetValueCount(), 1);
  EXPECT_EQ(empty->GetValueCount(), 0);
  ASSERT_EQ(msg->SetValue(7, "fits"), KYT_OK);
  CString read;
  EXPECT_EQ(msg->GetValue(7, &read), KYT_OK);
  EXPECT_EQ(Str(read), "fits");

  // A stream holds at most kMaxSize bytes too.
  CStream out;
  out.AppendData("ab", 2);
  EXPECT_THROW(out.AppendData(most, INT_MAX - 1), std::bad_array_new_length);
  EXPECT_THROW(out.AppendData(most, INT_MAX), std::bad_array_new_length);
  EXPECT_EQ(out.GetSize(), 2);
  EXPECT_STREQ(out.ToStr(), "ab");
}

TEST(Limits, ValueArraysHoldAtMostKMaxSizeElements) {
  REQUIRE_FAILING_ALLOC();
  // Below 2 GiB of elements, and more than a message can hold under a tag
  // (a value takes at least 6 bytes of its 2^31).
  static_assert(CIntArray::kMaxSize == INT_MAX / 4 && CDblArray::kMaxSize == INT_MAX / 8, "");
  static_assert(CIntArray::kMaxSize > INT_MAX / 6 && CDblArray::kMaxSize > INT_MAX / 10, "");
  CIntArray ints;
  ints.Add(1);
  ints.Add(2);
  CDblArray dbls;
  dbls.Add(0.5);
  for (int n : {CIntArray::kMaxSize + 1, INT_MAX}) {
    EXPECT_EQ(Attempt([&] { ints.SetSize(n); }), "too long") << n;
  }
  for (int n : {CIntArray::kMaxSize, CIntArray::kMaxSize - 1, 1 << 28}) {
    EXPECT_EQ(Attempt([&] { ints.SetSize(n); }), "no memory after asking") << n;
  }
  for (int n : {CDblArray::kMaxSize + 1, INT_MAX}) {
    EXPECT_EQ(Attempt([&] { dbls.SetSize(n); }), "too long") << n;
  }
  EXPECT_EQ(Attempt([&] { dbls.SetSize(CDblArray::kMaxSize); }), "no memory after asking");
  EXPECT_EQ(ints.size, 2);
  EXPECT_EQ(ints.GetAt(1), 2);
  EXPECT_EQ(dbls.size, 1);
  EXPECT_EQ(dbls.GetAt(0), 0.5);

  // An element more than room asks for memory; when that fails the array
  // is as it was, and the next try succeeds.
  CIntArray full;
  full.SetSize(4);
  EXPECT_EQ(Attempt([&] { full.Add(7); }), "no memory after asking");
  EXPECT_EQ(full.size, 4);
  EXPECT_EQ(full.Add(7), 5);
  EXPECT_EQ(full.GetAt(4), 7);

  // The text of the elements is a CString: joined with a separator so long
  // that it passes kMaxSize, it is refused before asking.
  HugeText huge;
  ASSERT_TRUE(huge.Ready());
  CIntArray two;
  two.Add(1);
  two.Add(2);
  // Room for two elements of 11 characters, the braces and the separator.
  const int room = 2 * 11 + 2;
  EXPECT_EQ(Attempt([&] { two.Repr(huge.OfLength(INT_MAX - room + 1), true); }), "too long");
  EXPECT_EQ(Attempt([&] { two.Repr(huge.OfLength(HugeText::kLen), true); }), "too long");
  EXPECT_EQ(Attempt([&] { two.Repr(huge.OfLength(INT_MAX - room), true); }),
            "no memory after asking");
  EXPECT_EQ(Str(two.Repr("", true)), "{12}");
}

#endif  // RUNTIME_TEST_WITHOUT_FAILING_ALLOC

}  // namespace
