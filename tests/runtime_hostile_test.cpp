// The stand-in runtime against what a hostile caller can hand it: sizes at
// and past the limits of its 32-bit lengths, message trees of any depth,
// allocations that fail and then succeed, and the block pools at every
// size they keep.
#include <gtest/gtest.h>
#include <malloc.h>
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
  // that no text of the elements can fit, it is refused before asking; one
  // that might fit grows as it is written, and fails when memory does.
  HugeText huge;
  ASSERT_TRUE(huge.Ready());
  CIntArray two;
  two.Add(1);
  two.Add(2);
  EXPECT_EQ(Attempt([&] { two.Repr(huge.OfLength(INT_MAX - 3), true); }), "too long");
  EXPECT_EQ(Attempt([&] { two.Repr(huge.OfLength(HugeText::kLen), true); }), "too long");
  EXPECT_EQ(Attempt([&] { two.Repr(huge.OfLength(INT_MAX - 4), true); }), "no memory after asking");
  EXPECT_EQ(Str(two.Repr("", true)), "{12}");
}

// ---- failed, then successful allocation ----

// `n` letters, "abc...zab...", so that a shifted or cut copy shows.
std::string Letters(int n) {
  std::string s;
  for (int i = 0; i < n; ++i) s += static_cast<char>('a' + i % 26);
  return s;
}

// Every value of a message, one line each.
std::string Values(const CMsg& msg) {
  std::string out;
  CMsg::Cursor cursor(msg);
  CMsg::Value v;
  while (cursor.Next(&v)) {
    out += std::to_string(v.tag) + ":" + std::to_string(static_cast<int>(v.kind)) + " " +
           std::to_string(v.i) + " " + std::string(v.text ? v.text : "", v.len) + "\n";
  }
  return out;
}

TEST(FailedAllocation, LeavesTextsAndArraysAsTheyWereAndTheNextTrySucceeds) {
  REQUIRE_FAILING_ALLOC();
  // Texts in the object and on the heap, pooled and not, growing past it.
  for (int had : {0, 5, 31, 40, 600}) {
    SCOPED_TRACE(had);
    const std::string before = Letters(had);
    const std::string more = Letters(700);
    CString s(before.c_str());
    EXPECT_EQ(Attempt([&] { s.Append(more.c_str(), 700); }), "no memory after asking");
    EXPECT_EQ(Attempt([&] { s.Assign(more.c_str(), 700); }), "no memory after asking");
    EXPECT_EQ(Attempt([&] { s = more.c_str(); }), "no memory after asking");
    EXPECT_EQ(Str(s), before);
    const CString other(more.c_str());
    EXPECT_EQ(Attempt([&] { s = other; }), "no memory after asking");
    EXPECT_EQ(Attempt([&] { CString copy(other); }), "no memory after asking");
    EXPECT_EQ(Str(s), before);
    s.Append(more.c_str(), 700);
    EXPECT_EQ(Str(s), before + more);
  }

  // Arrays that must grow: by an element, to a size, to take a copy.
  CIntArray a;
  for (int i = 1; i <= 4; ++i) a.Add(i);
  CIntArray longer;
  longer.SetSize(50);
  EXPECT_EQ(Attempt([&] { a.Add(5); }), "no memory after asking");
  EXPECT_EQ(Attempt([&] { a.SetSize(5); }), "no memory after asking");
  EXPECT_EQ(Attempt([&] { a = longer; }), "no memory after asking");
  EXPECT_EQ(Attempt([&] { CIntArray copy(a); }), "no memory after asking");
  EXPECT_EQ(Str(a.Repr(",", true)), "{1,2,3,4}");
  EXPECT_EQ(Attempt([&] { a.SetSize(3); }), "done");  // shrinking takes nothing
  EXPECT_EQ(a.Add(9), 4);
  EXPECT_EQ(a.Add(5), 5);
  EXPECT_EQ(Str(a.Repr(",", true)), "{1,2,3,9,5}");
  a = longer;
  EXPECT_EQ(a.size, 50);
}

// Whether the runtime keeps freed blocks for reuse: not when the
// environment says KYT_MSG_POOL=0, nor under the sanitizers, which must see
// each block as an allocation of its own.
bool PoolsExpected() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  return false;
#endif
#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || \
    __has_feature(memory_sanitizer)
  return false;
#endif
#endif
  const char* v = std::getenv("KYT_MSG_POOL");
  return !(v && std::strcmp(v, "0") == 0);
}

TEST(FailedAllocation, LeavesMessagesAsTheyWereAndTheNextTrySucceeds) {
  REQUIRE_FAILING_ALLOC();
  // A message is a block of the smallest kept size: with the pools on, the
  // block just freed, else an allocation that may fail.
  delete new CMsg(10, 0, 0, MA_GetMsgDic());
  EXPECT_EQ(Attempt([] { delete new CMsg(10, 0, 0, MA_GetMsgDic()); }),
            PoolsExpected() ? "done" : "no memory after asking");

  // Records in the object, then in a first block, then in ever larger ones:
  // each value that needs more room fails once first.
  MsgPtr m = NewMsg(10);
  int fails = 0;
  for (int k = 0; k < 40; ++k) {
    const std::string before = Values(*m);
    const std::string text = Letters(k * 7);
    int rc = KYT_OK;
    if (Attempt([&] { rc = m->SetValue(7, text.c_str()); }) == "done after asking") {
      ++fails;
      EXPECT_EQ(rc, KYT_E_NOMEM);
      EXPECT_EQ(Values(*m), before);
      EXPECT_EQ(m->GetValueCount(), k);
      ASSERT_EQ(m->SetValue(7, text.c_str()), KYT_OK);
    } else {
      EXPECT_EQ(rc, KYT_OK);
    }
    EXPECT_EQ(m->GetValueCount(), k + 1);
  }
  EXPECT_GT(fails, 5);

  // A sub-message that cannot be added is freed all the same (LeakSanitizer
  // sees to that), and the next one goes in. The records grow past the kept
  // block sizes, where each growth is an allocation.
  MsgPtr parent = NewMsg(10);
  int refused = 0;
  for (int k = 0; k < 200 && refused < 2; ++k) {
    const int size = parent->GetTreeSize();
    CMsg* sub = new CMsg(2143, 0, 0, MA_GetMsgDic());
    ASSERT_EQ(sub->SetValue(7, "sub"), KYT_OK);
    int rc = KYT_OK;
    if (Attempt([&] { rc = parent->SetValue(695, sub); }) == "done after asking") {
      ++refused;
      EXPECT_EQ(rc, KYT_E_NOMEM);
      EXPECT_EQ(parent->GetTreeSize(), size);
    } else {
      EXPECT_EQ(rc, KYT_OK);
      EXPECT_EQ(parent->GetTreeSize(), size + 1);
    }
  }
  EXPECT_EQ(refused, 2);

  // Reads into a text and an array that must grow for them.
  MsgPtr values = NewMsg(10);
  ASSERT_EQ(values->SetValue(7, Letters(600).c_str()), KYT_OK);
  for (int i = 0; i < 20; ++i) ASSERT_EQ(values->SetValue(5146, i), KYT_OK);
  CString text("short");
  CIntArray ints;
  ints.Add(-1);
  int rc = KYT_OK;
  EXPECT_EQ(Attempt([&] { rc = values->GetValue(7, &text); }), "done after asking");
  EXPECT_EQ(rc, KYT_E_NOMEM);
  EXPECT_EQ(Attempt([&] { rc = values->GetValue(5146, &ints); }), "done after asking");
  EXPECT_EQ(rc, KYT_E_NOMEM);
  EXPECT_EQ(Str(text), "short");
  EXPECT_EQ(Str(ints.Repr(",", false)), "-1");
  EXPECT_EQ(values->GetValue(7, &text), KYT_OK);
  EXPECT_EQ(values->GetValue(5146, &ints), KYT_OK);
  EXPECT_EQ(Str(text), Letters(600));
  EXPECT_EQ(ints.size, 20);
  EXPECT_EQ(ints.GetAt(19), 19);
}

// ---- block pools ----

// The block of a heap text starts where its text does.
size_t BlockSize(const CString& s) { return malloc_usable_size(const_cast<char*>(s.ToStr())); }

TEST(BlockPools, GiveEverySizeABlockOfItsClassAndReuseWhatIsFreed) {
  REQUIRE_FAILING_ALLOC();
  const bool pools = PoolsExpected();
  // A heap text of n bytes takes a block of n + 1 rounded up to the kept
  // sizes, 64 to 512 bytes in steps of 16, and beyond them one of its own.
  for (int block = 64; block <= 512; block += 16) {
    SCOPED_TRACE(block);
    const std::string longest = Letters(block - 1);
    const std::string shortest = Letters(block == 64 ? 32 : block - 16);
    const char* freed;
    {
      CString s(longest.c_str());
      EXPECT_GE(BlockSize(s), static_cast<size_t>(block));
      freed = s.ToStr();
    }
    // The next text of this class takes the block just freed, without
    // asking the heap, and the text of the next class does not.
    std::unique_ptr<CString> reused(new CString);
    EXPECT_EQ(Attempt([&] { *reused = shortest.c_str(); }),
              pools ? "done" : "no memory after asking");
    if (pools) {
      EXPECT_EQ(reused->ToStr(), freed);
      EXPECT_GE(BlockSize(*reused), shortest.size() + 1);
      EXPECT_EQ(Str(*reused), shortest);
    }
    reused.reset();
    {
      CString next(Letters(block).c_str());
      if (pools) {
        EXPECT_NE(next.ToStr(), freed);  // (the heap may well give it again)
      }
      EXPECT_GE(BlockSize(next), static_cast<size_t>(block) + 1);
      CString again(longest.c_str());
      EXPECT_GE(BlockSize(again), static_cast<size_t>(block));
      EXPECT_EQ(Str(again), longest);
      EXPECT_EQ(Str(next), Letters(block));
    }
  }
  // Larger blocks are never kept.
  for (int len : {512, 513, 600, 5000}) {
    { CString s(Letters(len).c_str()); }
    EXPECT_EQ(Attempt([&] { CString s(Letters(len).c_str()); }), "no memory after asking") << len;
  }
  // Messages come from the smallest blocks, and so do records that outgrow
  // one: a freed message is the next one made.
  CMsg* first = new CMsg(10, 0, 0, MA_GetMsgDic());
  void* where = first;
  delete first;
  CMsg* second = nullptr;
  EXPECT_EQ(Attempt([&] { second = new CMsg(10, 0, 0, MA_GetMsgDic()); }),
            pools ? "done" : "no memory after asking");
  if (pools) {
    EXPECT_EQ(static_cast<void*>(second), where);
  }
  delete second;
}

TEST(BlockPools, RecordsMovingThroughEveryClassKeepTheirValues) {
  // Many messages grow side by side through every kept size and beyond, and
  // half of them are freed and made again on the way: a block handed out
  // for a size it cannot hold would spill into a neighbour.
  constexpr int kMessages = 64;
  std::vector<MsgPtr> msgs;
  std::vector<std::string> want(kMessages);
  for (int k = 0; k < kMessages; ++k) msgs.push_back(NewMsg(10));
  for (int round = 0; round < 60; ++round) {
    for (int k = 0; k < kMessages; ++k) {
      if (round % 10 == 9 && k % 2 == round % 4 / 2) {
        msgs[k] = NewMsg(10);
        want[k].clear();
      }
      const std::string text = Letters((k + round) % 23);
      ASSERT_EQ(msgs[k]->SetValue(7, text.c_str()), KYT_OK);
      want[k] += "7:5 0 " + text + "\n";
      const long memory = msgs[k]->GetTreeMemory() - 64;
      EXPECT_TRUE(memory == 0 || memory > 512 || (memory >= 64 && memory % 16 == 0)) << memory;
    }
  }
  for (int k = 0; k < kMessages; ++k) EXPECT_EQ(Values(*msgs[k]), want[k]) << k;
}

TEST(BlockPools, KeepAtMostTheirShareAndGiveAllBackWhenTheThreadEnds) {
  REQUIRE_FAILING_ALLOC();
  // Texts of 40 bytes take blocks of 64; a thread keeps 128 KiB of those.
  auto churn = [](int n) {
    std::vector<CString> texts(static_cast<size_t>(n));
    for (CString& t : texts) t = Letters(40).c_str();
  };
  MA_GetMsgDic();  // built once, on first use, and kept for the process
  churn(3000);
  const long before = FailingAlloc::Live();
  churn(10000);
  EXPECT_LE(FailingAlloc::Live() - before, (128 << 10) / 64);
  const long kept = FailingAlloc::Live();

  // Another thread's blocks, of every size, go back when it ends.
  std::thread([&churn] {
    for (int len = 32; len < 600; len += 7) {
      std::vector<CString> texts(50);
      for (CString& t : texts) t = Letters(len).c_str();
    }
    churn(5000);
    std::vector<MsgPtr> msgs;
    for (int k = 0; k < 100; ++k) msgs.push_back(NewMsg(10));
  }).join();
  EXPECT_EQ(FailingAlloc::Live(), kept);
}

TEST(BlockPools, AreOffWhenTheEnvironmentSaysSo) {
  if (std::getenv("KYT_MSG_POOL")) GTEST_SKIP() << "KYT_MSG_POOL is set already";
  // This program again, with KYT_MSG_POOL=0, on the cases that know the
  // pools: there they expect every block to be an allocation of its own.
  std::vector<std::string> env = {"KYT_MSG_POOL=0"};
  for (char** e = environ; *e; ++e) env.emplace_back(*e);
  std::vector<char*> envp;
  for (std::string& e : env) envp.push_back(&e[0]);
  envp.push_back(nullptr);
  std::string exe = "/proc/self/exe";
  std::string filter =
      "--gtest_filter=BlockPools.*:FailedAllocation.*:-BlockPools.AreOffWhenTheEnvironmentSaysSo";
  std::string brief = "--gtest_brief=1";
  char* argv[] = {&exe[0], &filter[0], &brief[0], nullptr};
  pid_t pid;
  ASSERT_EQ(posix_spawn(&pid, argv[0], nullptr, nullptr, argv, envp.data()), 0);
  int status = 0;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

}  // namespace
