// A CMsg keeps its values as records (Records.h) in one buffer, in the order
// of SetValue. Readers ask for tags in the order they were written, so
// lookups start at the hint left by the previous one; while the tags were
// added in ascending order (the usual case) a miss is found without a scan.
#include "callkyt/CMsg.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

#include "Blocks.h"
#include "Records.h"
#include "callkyt/MsgDic.h"

using kyt_detail::Decode;
using kyt_detail::KindOf;
using kyt_detail::kSetBit;
using kyt_detail::kTrueBit;
using kyt_detail::Rec;
using kyt_detail::SubOf;

namespace {

// Running out of memory is told by the code and, as the C library tells it,
// by errno, so that a caller that knows no code of this runtime can tell it
// from a refusal.
int NoMemory() {
  errno = ENOMEM;
  return KYT_E_NOMEM;
}

constexpr uint32_t kNone = 0xffffffffu;

// Calls f with each sub-message of the records, in order, until f gives true;
// gives whether one did.
template <class F>
bool AnySub(const uint8_t* buf, uint32_t size, F f) {
  for (uint32_t pos = 0; pos < size;) {
    Rec r = Decode(buf, pos);
    if (KindOf(r.head) == KytKind::kMsg && f(SubOf(r))) return true;
    pos = r.next;
  }
  return false;
}

// Visits `first` and the records after it under its tag, until f gives
// false; gives whether none did. While the tags are sorted the records of a
// tag stand together; else they are spread over the rest.
template <class F>
bool EachOfTag(const uint8_t* buf, uint32_t size, bool sorted, const Rec& first, F f) {
  if (!f(first)) return false;
  for (uint32_t pos = first.next; pos < size;) {
    Rec r = Decode(buf, pos);
    if (r.tag == first.tag) {
      if (!f(r)) return false;
    } else if (sorted) {
      break;
    }
    pos = r.next;
  }
  return true;
}

// Reads the set values under the tag of a first record into a CIntArray or
// CDblArray (all of the array's kind: CMsg::Get sees to it).
struct TakeAll {
  const uint8_t* buf;
  uint32_t size;
  bool sorted;

  template <class T>
  int operator()(const Rec& first, kyt_detail::ValueArray<T>& out) const {
    int n = 0;
    EachOfTag(buf, size, sorted, first, [&n](const Rec& r) {
      if (r.head & kSetBit) ++n;
      return true;
    });
    try {
      out.SetSize(n);
    } catch (const std::bad_alloc&) {
      return NoMemory();
    }
    int i = 0;
    EachOfTag(buf, size, sorted, first, [&](const Rec& r) {
      if (r.head & kSetBit) {
        T v;
        std::memcpy(&v, r.data, sizeof v);
        out.SetAt(i++, v);
      }
      return true;
    });
    return KYT_OK;
  }
};

// A CInt or CDbl from its record.
template <class V>
int TakeNumber(const Rec& r, V& out) {
  out = V();
  if (r.head & kSetBit) {
    std::memcpy(&out.value, r.data, sizeof out.value);
    out.isSet = true;
  }
  return KYT_OK;
}

int TakeBool(const Rec& r, CBool& out) {
  out = r.head & kSetBit ? CBool((r.head & kTrueBit) != 0) : CBool();
  return KYT_OK;
}

int TakeDate(const Rec& r, CDate& out) {
  out = CDate();
  if (r.head & kSetBit) {
    std::memcpy(out.text, r.data, r.len);
    out.text[r.len] = '\0';
    out.isSet = true;
  }
  return KYT_OK;
}

int TakeText(const Rec& r, CString& out) {
  try {
    out.Assign(reinterpret_cast<const char*>(r.data), static_cast<int>(r.len));
  } catch (const std::bad_alloc&) {
    return NoMemory();
  }
  return KYT_OK;
}

int TakeSub(const Rec& r, CMsg*& out) {
  out = SubOf(r);
  return KYT_OK;
}

using kyt_detail::GiveBlock;
using kyt_detail::kMinBlock;
using kyt_detail::TakeBlock;
static_assert(sizeof(CMsg) == kMinBlock, "message objects come from the smallest blocks");

// The messages that a walk of a tree is in, each with the position of its
// next record to look at. The first levels live in the walk itself; deeper
// ones go to the heap, so that a tree of any depth is walked without
// recursion and an ordinary one without allocation.
class WalkStack {
 public:
  struct Level {
    const CMsg* msg;
    uint32_t pos;
  };

  bool Empty() const { return n_ == 0; }
  Level& Top() { return n_ <= kInline ? inline_[n_ - 1] : deep_.back(); }
  // Throws std::bad_alloc when a deep level finds no memory.
  void Push(const CMsg* msg) {
    if (n_ < kInline) {
      inline_[n_] = {msg, 0};
    } else {
      deep_.push_back({msg, 0});
    }
    ++n_;
  }
  void Pop() {
    if (n_ > kInline) deep_.pop_back();
    --n_;
  }

 private:
  static constexpr int kInline = 32;
  Level inline_[kInline];
  std::vector<Level> deep_;
  int n_ = 0;
};

}  // namespace

void* CMsg::operator new(size_t size) {
  if (void* p = TakeBlock(size)) return p;
  throw std::bad_alloc();
}

void CMsg::operator delete(void* p) noexcept {
  if (p) GiveBlock(p, sizeof(CMsg));
}

CMsg::CMsg(int num, int /*reserved1*/, int /*reserved2*/, CMsgDic* dic)
    : msgnum(num),
      count_(0),
      dic_(dic),
      buf_(local_),
      size_(0),
      cap_(sizeof local_),
      readHint_(0),
      lastTag_(0),
      sorted_(true),
      attached_(false),
      hasSubs_(false) {}

CMsg::~CMsg() {
  if (hasSubs_) FreeSubs();
  if (buf_ != local_) GiveBlock(buf_, cap_);
}

// Frees every message below this one, in a loop rather than by recursion, so
// that a tree of any depth goes in a stack of fixed size and without memory:
// the messages to free wait in a list linked through their dictionary field,
// which a message on its way out needs no longer.
void CMsg::FreeSubs() noexcept {
  CMsg* doomed = nullptr;
  auto takeSubs = [&doomed](CMsg& m) {
    AnySub(m.buf_, m.size_, [&doomed](CMsg* sub) {
      sub->nextDoomed_ = doomed;
      doomed = sub;
      return false;
    });
    m.hasSubs_ = false;
  };
  takeSubs(*this);
  while (doomed) {
    CMsg* m = doomed;
    doomed = m->nextDoomed_;
    if (m->hasSubs_) takeSubs(*m);
    delete m;  // holds no sub-message now
  }
}

// Records that outgrow the object move to the heap, which then grows by half
// again: most messages stop in their first block.
bool CMsg::Grow(uint32_t need) {
  if (need > 0x7fffffffu - size_) return false;
  uint64_t cap = buf_ == local_ ? kMinBlock : cap_ + cap_ / 2;
  if (cap < size_ + need) cap = size_ + need;
  cap = kyt_detail::BlockFor(static_cast<size_t>(cap));
  if (cap > 0x7fffffffu) cap = size_ + need;
  uint8_t* p = static_cast<uint8_t*>(TakeBlock(static_cast<size_t>(cap)));
  if (!p) return false;
  std::memcpy(p, buf_, size_);
  if (buf_ != local_) GiveBlock(buf_, cap_);
  buf_ = p;
  cap_ = static_cast<uint32_t>(cap);
  return true;
}

uint8_t* CMsg::Append(int tag, KytKind kind, bool set, uint32_t payload) {
  uint32_t need =
      static_cast<uint32_t>(kyt_detail::VarintLen(static_cast<uint32_t>(tag))) + 1 + payload;
  if (cap_ - size_ < need && !Grow(need)) return nullptr;
  uint8_t* p = kyt_detail::WriteVarint(buf_ + size_, static_cast<uint32_t>(tag));
  *p++ = kyt_detail::Head(kind, set);
  size_ += need;
  if (count_ > 0 && tag < lastTag_) sorted_ = false;
  lastTag_ = tag;
  ++count_;
  return p;
}

int CMsg::Check(int tag, KytKind kind) const {
  if (!dic_) return KYT_OK;
  KytKind known = dic_->TagKind(tag);
  if (known == KytKind::kNone) return KYT_E_TAG;
  return known == kind ? KYT_OK : KYT_E_TYPE;
}

uint32_t CMsg::Find(int tag) const {
  if (sorted_) {
    // The last tag added is the greatest.
    if (count_ == 0 || tag > lastTag_) return kNone;
    // Readers go up the tags: start behind the last hit unless it lies beyond.
    const uint32_t hint = readHint_.load(std::memory_order_relaxed);
    uint32_t pos = hint < size_ ? hint : 0;
    bool fromStart = pos == 0;
    while (pos < size_) {
      Rec r = Decode(buf_, pos);
      if (r.tag >= tag) {
        if (r.tag > tag && !fromStart && pos == hint) {
          pos = 0;  // the tag lies before the hint
          fromStart = true;
          continue;
        }
        // The first record of its tag: the one before holds a smaller tag.
        readHint_.store(pos, std::memory_order_relaxed);
        return r.tag == tag ? pos : kNone;
      }
      pos = r.next;
    }
    return kNone;
  }
  for (uint32_t pos = 0; pos < size_;) {
    Rec r = Decode(buf_, pos);
    if (r.tag == tag) return pos;
    pos = r.next;
  }
  return kNone;
}

// ---- writing ----

// Checks the value against the dictionary, appends its record with room for
// `payload` bytes, and lets `write` fill them in.
template <class Write>
int CMsg::Put(int tag, KytKind kind, bool set, uint32_t payload, Write write) {
  if (int rc = Check(tag, kind)) return rc;
  uint8_t* p = Append(tag, kind, set, payload);
  if (!p) return NoMemory();
  write(p);
  return KYT_OK;
}

int CMsg::SetValue(int tag, CInt v) {
  return Put(tag, KytKind::kInt, v.isSet, v.isSet ? 4 : 0, [&v](uint8_t* p) {
    if (v.isSet) std::memcpy(p, &v.value, 4);
  });
}

int CMsg::SetValue(int tag, int v) { return SetValue(tag, CInt(v)); }

int CMsg::SetValue(int tag, CDbl v) {
  return Put(tag, KytKind::kDbl, v.isSet, v.isSet ? 8 : 0, [&v](uint8_t* p) {
    if (v.isSet) std::memcpy(p, &v.value, 8);
  });
}

int CMsg::SetValue(int tag, double v) { return SetValue(tag, CDbl(v)); }

int CMsg::SetValue(int tag, CBool v) {
  return Put(tag, KytKind::kBool, v.isSet, 0, [&v](uint8_t* p) {
    if (v.isSet && v.value) p[-1] |= kTrueBit;
  });
}

int CMsg::SetValue(int tag, CDate v) {
  if (v.isSet && dic_ && !CDate::IsValidText(v.text)) {
    int rc = Check(tag, KytKind::kDate);  // a wrong tag comes first
    return rc ? rc : KYT_E_VALUE;
  }
  // The text of an unset date is never looked at.
  uint32_t len = v.isSet ? static_cast<uint32_t>(strnlen(v.text, CDate::kMaxLen)) : 0;
  return Put(tag, KytKind::kDate, v.isSet, v.isSet ? 1 + len : 0, [&](uint8_t* p) {
    if (!v.isSet) return;
    *p = static_cast<uint8_t>(len);
    std::memcpy(p + 1, v.text, len);
  });
}

int CMsg::SetValue(int tag, const char* text) {
  if (!text) return KYT_E_ARG;
  size_t n = std::strlen(text);
  if (n > 0x7ffffff0u) return NoMemory();
  uint32_t len = static_cast<uint32_t>(n);
  uint32_t payload = static_cast<uint32_t>(kyt_detail::VarintLen(len)) + len;
  return Put(tag, KytKind::kStr, true, payload,
             [&](uint8_t* p) { std::memcpy(kyt_detail::WriteVarint(p, len), text, len); });
}

int CMsg::SetValue(int tag, CMsg* sub) {
  if (!sub || sub->attached_ || sub == this) return KYT_E_ARG;
  // `sub` is the root of its tree. It holds this message only if this one is
  // attached somewhere, which a message being built never is.
  if (attached_) {
    try {
      if (sub->AnyBelow([this](const CMsg& m) { return &m == this; })) return KYT_E_ARG;
    } catch (const std::bad_alloc&) {
      return NoMemory();
    }
  }
  int rc = Put(tag, KytKind::kMsg, true, sizeof sub, [&](uint8_t* p) {
    std::memcpy(p, &sub, sizeof sub);
    sub->attached_ = true;
    hasSubs_ = true;
  });
  if (rc != KYT_OK) delete sub;
  return rc;
}

// Calls f with every message below this one, depth first, until f gives
// true; gives whether it did.
template <class F>
bool CMsg::AnyBelow(F f) const {
  if (!hasSubs_) return false;
  WalkStack walk;
  walk.Push(this);
  while (!walk.Empty()) {
    WalkStack::Level& level = walk.Top();
    const CMsg& m = *level.msg;
    const CMsg* sub = nullptr;
    while (level.pos < m.size_ && !sub) {
      Rec r = Decode(m.buf_, level.pos);
      if (KindOf(r.head) == KytKind::kMsg) sub = SubOf(r);
      level.pos = r.next;
    }
    if (!sub) {
      walk.Pop();
    } else if (f(*sub)) {
      return true;
    } else if (sub->hasSubs_) {
      walk.Push(sub);
    }
  }
  return false;
}

// ---- reading ----

// After a read the next one usually asks for a later tag: the hint moves
// behind the record read, unless more values of its tag follow, since a hint
// must be the first record of its tag.
inline void CMsg::Passed(int tag, uint32_t next) const {
  if (next < size_) {
    uint32_t at = next;
    if (static_cast<int>(kyt_detail::ReadVarint(buf_, at)) == tag) return;
  }
  readHint_.store(next, std::memory_order_relaxed);
}

// Finds the first record under `tag` and lets `take` read from it into
// `*out`, when it is of `kind`.
template <class Out, class Take>
int CMsg::Get(int tag, KytKind kind, Out* out, Take take) const {
  if (!out) return KYT_E_ARG;
  uint32_t pos = Find(tag);
  if (pos == kNone) return KYT_ABSENT;
  Rec r = Decode(buf_, pos);
  Passed(tag, r.next);
  if (KindOf(r.head) != kind) return KYT_E_TYPE;
  // With a dictionary every value under a tag is of the tag's kind; without
  // one, a tag may hold values of several kinds, and is then of none.
  if (!dic_ && !EachOfTag(buf_, size_, sorted_, r,
                          [kind](const Rec& e) { return KindOf(e.head) == kind; })) {
    return KYT_E_TYPE;
  }
  return take(r, *out);
}

int CMsg::GetValue(int tag, CInt* out) const {
  return Get(tag, KytKind::kInt, out, TakeNumber<CInt>);
}
int CMsg::GetValue(int tag, CDbl* out) const {
  return Get(tag, KytKind::kDbl, out, TakeNumber<CDbl>);
}
int CMsg::GetValue(int tag, CBool* out) const { return Get(tag, KytKind::kBool, out, TakeBool); }
int CMsg::GetValue(int tag, CDate* out) const { return Get(tag, KytKind::kDate, out, TakeDate); }
int CMsg::GetValue(int tag, CString* out) const { return Get(tag, KytKind::kStr, out, TakeText); }
int CMsg::GetValue(int tag, CMsg** out) const { return Get(tag, KytKind::kMsg, out, TakeSub); }

int CMsg::GetValue(int tag, CIntArray* out) const {
  return Get(tag, KytKind::kInt, out, TakeAll{buf_, size_, sorted_});
}

int CMsg::GetValue(int tag, CDblArray* out) const {
  return Get(tag, KytKind::kDbl, out, TakeAll{buf_, size_, sorted_});
}

int CMsg::GetValue(int tag, CMsgArray* out) const {
  if (out) {
    out->msg_ = this;
    out->size_ = 0;
  }
  return Get(tag, KytKind::kMsg, out, [this](const Rec& first, CMsgArray& a) {
    int n = 0;
    EachOfTag(buf_, size_, sorted_, first, [&n](const Rec&) {
      ++n;
      return true;
    });
    a.tag_ = first.tag;
    a.size_ = n;
    a.curIndex_ = 0;
    a.first_ = a.curPos_ = first.at;
    return KYT_OK;
  });
}

int CMsg::GetTreeSize() const {
  int n = 1;
  AnyBelow([&n](const CMsg&) {
    ++n;
    return false;
  });
  return n;
}

long CMsg::GetTreeMemory() const {
  auto own = [](const CMsg& m) {
    return static_cast<long>(sizeof(CMsg)) + (m.buf_ != m.local_ ? static_cast<long>(m.cap_) : 0);
  };
  long n = own(*this);
  AnyBelow([&n, &own](const CMsg& m) {
    n += own(m);
    return false;
  });
  return n;
}

bool CMsg::Cursor::Next(Value* out) {
  if (pos_ >= msg_.size_) return false;
  Rec r = Decode(msg_.buf_, pos_);
  Value v{};
  v.tag = r.tag;
  v.kind = KindOf(r.head);
  v.isSet = (r.head & kSetBit) != 0;
  switch (v.kind) {
    case KytKind::kNone:
      break;
    case KytKind::kInt:
      if (v.isSet) std::memcpy(&v.i, r.data, 4);
      break;
    case KytKind::kDbl:
      if (v.isSet) std::memcpy(&v.d, r.data, 8);
      break;
    case KytKind::kBool:
      v.b = v.isSet && (r.head & kTrueBit);
      break;
    case KytKind::kDate:
    case KytKind::kStr:
      v.text = reinterpret_cast<const char*>(r.data);
      v.len = static_cast<int>(r.len);
      break;
    case KytKind::kMsg:
      v.msg = SubOf(r);
      break;
  }
  pos_ = r.next;
  *out = v;
  return true;
}
