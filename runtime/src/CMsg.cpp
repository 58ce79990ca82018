// Storage of a CMsg: one byte buffer of records, appended in the order of
// SetValue. A record is
//
//   tag   varint of the tag as unsigned 32 bits
//   head  kind in bits 0-2, set-flag in bit 3, boolean value in bit 4
//   data  INT: 4 bytes, DBL: 8 bytes, DATE: length byte and text, only when
//         set; STR: varint length and bytes; MSG: the pointer; BOOL: none
//
// An unset value costs two or three bytes, and a message of a few fields fits
// in the object itself. Readers ask for tags in the order they were written,
// so lookups start at a cursor left by the previous one; while the tags were
// added in ascending order (the usual case) a miss is found without a scan.
#include "callkyt/CMsg.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "Blocks.h"
#include "callkyt/MsgDic.h"

namespace {

constexpr uint32_t kNone = 0xffffffffu;
constexpr uint8_t kSetBit = 0x08;
constexpr uint8_t kTrueBit = 0x10;

inline KytKind KindOf(uint8_t head) { return static_cast<KytKind>(head & 0x07); }

struct Rec {
  int tag;
  uint8_t head;
  const uint8_t* data;  // the value bytes: text of a DATE or STR, else the number
  uint32_t len;         // length of a DATE or STR text
  uint32_t next;        // position of the next record
};

inline uint32_t ReadVarint(const uint8_t* b, uint32_t& pos) {
  uint32_t v = 0;
  for (int shift = 0;; shift += 7) {
    uint8_t c = b[pos++];
    v |= static_cast<uint32_t>(c & 0x7f) << shift;
    if (!(c & 0x80)) return v;
  }
}

inline int VarintLen(uint32_t v) {
  int n = 1;
  while (v >= 0x80) {
    v >>= 7;
    ++n;
  }
  return n;
}

inline uint8_t* WriteVarint(uint8_t* p, uint32_t v) {
  while (v >= 0x80) {
    *p++ = static_cast<uint8_t>(v | 0x80);
    v >>= 7;
  }
  *p++ = static_cast<uint8_t>(v);
  return p;
}

inline Rec Decode(const uint8_t* buf, uint32_t pos) {
  Rec r;
  r.tag = static_cast<int>(ReadVarint(buf, pos));
  r.head = buf[pos++];
  r.len = 0;
  bool set = r.head & kSetBit;
  switch (KindOf(r.head)) {
    case KytKind::kInt:
      r.data = buf + pos;
      pos += set ? 4 : 0;
      break;
    case KytKind::kDbl:
      r.data = buf + pos;
      pos += set ? 8 : 0;
      break;
    case KytKind::kDate:
      if (set) r.len = buf[pos++];
      r.data = buf + pos;
      pos += r.len;
      break;
    case KytKind::kStr:
      r.len = ReadVarint(buf, pos);
      r.data = buf + pos;
      pos += r.len;
      break;
    case KytKind::kMsg:
      r.data = buf + pos;
      pos += sizeof(CMsg*);
      break;
    case KytKind::kNone:
    case KytKind::kBool:  // all in the head byte
      r.data = buf + pos;
      break;
  }
  r.next = pos;
  return r;
}

inline CMsg* SubOf(const Rec& r) {
  CMsg* m;
  std::memcpy(&m, r.data, sizeof m);
  return m;
}

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

using kyt_detail::GiveBlock;
using kyt_detail::kMinBlock;
using kyt_detail::TakeBlock;
static_assert(sizeof(CMsg) == kMinBlock, "message objects come from the smallest blocks");

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
      cursor_(0),
      lastTag_(0),
      sorted_(true),
      attached_(false),
      hasSubs_(false) {}

CMsg::~CMsg() {
  if (hasSubs_) {
    AnySub(buf_, size_, [](CMsg* sub) {
      delete sub;
      return false;
    });
  }
  if (buf_ != local_) GiveBlock(buf_, cap_);
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
  uint32_t need = static_cast<uint32_t>(VarintLen(static_cast<uint32_t>(tag))) + 1 + payload;
  if (cap_ - size_ < need && !Grow(need)) return nullptr;
  uint8_t* p = WriteVarint(buf_ + size_, static_cast<uint32_t>(tag));
  *p++ = static_cast<uint8_t>(static_cast<uint8_t>(kind) | (set ? kSetBit : 0));
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

uint32_t CMsg::Find(int tag) {
  if (sorted_) {
    // The last tag added is the greatest.
    if (count_ == 0 || tag > lastTag_) return kNone;
    // Readers go up the tags: start behind the last hit unless it lies beyond.
    uint32_t pos = cursor_ < size_ ? cursor_ : 0;
    bool fromStart = pos == 0;
    while (pos < size_) {
      Rec r = Decode(buf_, pos);
      if (r.tag >= tag) {
        if (r.tag > tag && !fromStart && pos == cursor_) {
          pos = 0;  // the tag lies before the cursor
          fromStart = true;
          continue;
        }
        cursor_ = pos;
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

int CMsg::SetValue(int tag, CInt v) {
  if (int rc = Check(tag, KytKind::kInt)) return rc;
  uint8_t* p = Append(tag, KytKind::kInt, v.isSet, v.isSet ? 4 : 0);
  if (!p) return KYT_E_NOMEM;
  if (v.isSet) std::memcpy(p, &v.value, 4);
  return KYT_OK;
}

int CMsg::SetValue(int tag, int v) { return SetValue(tag, CInt(v)); }

int CMsg::SetValue(int tag, CDbl v) {
  if (int rc = Check(tag, KytKind::kDbl)) return rc;
  uint8_t* p = Append(tag, KytKind::kDbl, v.isSet, v.isSet ? 8 : 0);
  if (!p) return KYT_E_NOMEM;
  if (v.isSet) std::memcpy(p, &v.value, 8);
  return KYT_OK;
}

int CMsg::SetValue(int tag, double v) { return SetValue(tag, CDbl(v)); }

int CMsg::SetValue(int tag, CBool v) {
  if (int rc = Check(tag, KytKind::kBool)) return rc;
  uint8_t* p = Append(tag, KytKind::kBool, v.isSet, 0);
  if (!p) return KYT_E_NOMEM;
  if (v.isSet && v.value) p[-1] |= kTrueBit;
  return KYT_OK;
}

int CMsg::SetValue(int tag, CDate v) {
  if (int rc = Check(tag, KytKind::kDate)) return rc;
  if (v.isSet && dic_ && !CDate::IsValidText(v.text)) return KYT_E_VALUE;
  uint32_t len = static_cast<uint32_t>(strnlen(v.text, CDate::kMaxLen));
  uint8_t* p = Append(tag, KytKind::kDate, v.isSet, v.isSet ? 1 + len : 0);
  if (!p) return KYT_E_NOMEM;
  if (v.isSet) {
    *p = static_cast<uint8_t>(len);
    std::memcpy(p + 1, v.text, len);
  }
  return KYT_OK;
}

int CMsg::SetValue(int tag, const char* text) {
  if (!text) return KYT_E_ARG;
  if (int rc = Check(tag, KytKind::kStr)) return rc;
  size_t n = std::strlen(text);
  if (n > 0x7ffffff0u) return KYT_E_NOMEM;
  uint32_t len = static_cast<uint32_t>(n);
  uint8_t* p = Append(tag, KytKind::kStr, true, static_cast<uint32_t>(VarintLen(len)) + len);
  if (!p) return KYT_E_NOMEM;
  p = WriteVarint(p, len);
  std::memcpy(p, text, len);
  return KYT_OK;
}

int CMsg::SetValue(int tag, CMsg* sub) {
  if (!sub || sub->attached_ || sub == this) return KYT_E_ARG;
  // `sub` is the root of its tree. It holds this message only if this one is
  // attached somewhere, which a message being built never is.
  if (attached_ && sub->Contains(this)) return KYT_E_ARG;
  if (int rc = Check(tag, KytKind::kMsg)) {
    delete sub;
    return rc;
  }
  uint8_t* p = Append(tag, KytKind::kMsg, true, sizeof sub);
  if (!p) {
    delete sub;
    return KYT_E_NOMEM;
  }
  std::memcpy(p, &sub, sizeof sub);
  sub->attached_ = true;
  hasSubs_ = true;
  return KYT_OK;
}

bool CMsg::Contains(const CMsg* msg) const {
  return hasSubs_ &&
         AnySub(buf_, size_, [msg](const CMsg* sub) { return sub == msg || sub->Contains(msg); });
}

// ---- reading ----

// After a single read the next one usually asks for a later tag: the cursor
// moves behind the record read, unless more values of its tag follow, since
// the cursor must stay at the first record of a tag.
inline void CMsg::Passed(int tag, uint32_t next) {
  if (next < size_) {
    uint32_t at = next;
    if (static_cast<int>(ReadVarint(buf_, at)) == tag) return;
  }
  cursor_ = next;
}

int CMsg::GetValue(int tag, CInt* out) {
  if (!out) return KYT_E_ARG;
  uint32_t pos = Find(tag);
  if (pos == kNone) return KYT_ABSENT;
  Rec r = Decode(buf_, pos);
  Passed(tag, r.next);
  if (KindOf(r.head) != KytKind::kInt) return KYT_E_TYPE;
  *out = CInt();
  if (r.head & kSetBit) {
    std::memcpy(&out->value, r.data, 4);
    out->isSet = true;
  }
  return KYT_OK;
}

int CMsg::GetValue(int tag, CDbl* out) {
  if (!out) return KYT_E_ARG;
  uint32_t pos = Find(tag);
  if (pos == kNone) return KYT_ABSENT;
  Rec r = Decode(buf_, pos);
  Passed(tag, r.next);
  if (KindOf(r.head) != KytKind::kDbl) return KYT_E_TYPE;
  *out = CDbl();
  if (r.head & kSetBit) {
    std::memcpy(&out->value, r.data, 8);
    out->isSet = true;
  }
  return KYT_OK;
}

int CMsg::GetValue(int tag, CBool* out) {
  if (!out) return KYT_E_ARG;
  uint32_t pos = Find(tag);
  if (pos == kNone) return KYT_ABSENT;
  Rec r = Decode(buf_, pos);
  Passed(tag, r.next);
  if (KindOf(r.head) != KytKind::kBool) return KYT_E_TYPE;
  *out = CBool();
  if (r.head & kSetBit) *out = CBool((r.head & kTrueBit) != 0);
  return KYT_OK;
}

int CMsg::GetValue(int tag, CDate* out) {
  if (!out) return KYT_E_ARG;
  uint32_t pos = Find(tag);
  if (pos == kNone) return KYT_ABSENT;
  Rec r = Decode(buf_, pos);
  Passed(tag, r.next);
  if (KindOf(r.head) != KytKind::kDate) return KYT_E_TYPE;
  *out = CDate();
  if (r.head & kSetBit) {
    std::memcpy(out->text, r.data, r.len);
    out->text[r.len] = '\0';
    out->isSet = true;
  }
  return KYT_OK;
}

int CMsg::GetValue(int tag, CString* out) {
  if (!out) return KYT_E_ARG;
  uint32_t pos = Find(tag);
  if (pos == kNone) return KYT_ABSENT;
  Rec r = Decode(buf_, pos);
  Passed(tag, r.next);
  if (KindOf(r.head) != KytKind::kStr) return KYT_E_TYPE;
  try {
    out->Assign(reinterpret_cast<const char*>(r.data), static_cast<int>(r.len));
  } catch (const std::bad_alloc&) {
    return KYT_E_NOMEM;
  }
  return KYT_OK;
}

namespace {

// Visits the records under `tag` from `pos`, the first of them. While the
// tags are sorted they stand together; else they are spread over the rest.
template <class F>
bool EachOfTag(const uint8_t* buf, uint32_t size, bool sorted, uint32_t pos, int tag, F f) {
  while (pos < size) {
    Rec r = Decode(buf, pos);
    if (r.tag == tag) {
      if (!f(r)) return false;
    } else if (sorted) {
      break;
    }
    pos = r.next;
  }
  return true;
}

template <class Arr, class T, KytKind Kind, int Width>
int GetArray(const uint8_t* buf, uint32_t size, bool sorted, uint32_t pos, int tag, Arr* out) {
  int n = 0;
  bool ok = EachOfTag(buf, size, sorted, pos, tag, [&](const Rec& r) {
    if (KindOf(r.head) != Kind) return false;
    if (r.head & kSetBit) ++n;
    return true;
  });
  if (!ok) return KYT_E_TYPE;
  try {
    out->SetSize(n);
  } catch (const std::bad_alloc&) {
    return KYT_E_NOMEM;
  }
  int i = 0;
  EachOfTag(buf, size, sorted, pos, tag, [&](const Rec& r) {
    if (r.head & kSetBit) {
      T v;
      std::memcpy(&v, r.data, Width);
      out->SetAt(i++, v);
    }
    return true;
  });
  return KYT_OK;
}

}  // namespace

int CMsg::GetValue(int tag, CIntArray* out) {
  if (!out) return KYT_E_ARG;
  uint32_t pos = Find(tag);
  if (pos == kNone) return KYT_ABSENT;
  return GetArray<CIntArray, int32_t, KytKind::kInt, 4>(buf_, size_, sorted_, pos, tag, out);
}

int CMsg::GetValue(int tag, CDblArray* out) {
  if (!out) return KYT_E_ARG;
  uint32_t pos = Find(tag);
  if (pos == kNone) return KYT_ABSENT;
  return GetArray<CDblArray, double, KytKind::kDbl, 8>(buf_, size_, sorted_, pos, tag, out);
}

int CMsg::GetValue(int tag, CMsg** out) {
  if (!out) return KYT_E_ARG;
  uint32_t pos = Find(tag);
  if (pos == kNone) return KYT_ABSENT;
  Rec r = Decode(buf_, pos);
  Passed(tag, r.next);
  if (KindOf(r.head) != KytKind::kMsg) return KYT_E_TYPE;
  *out = SubOf(r);
  return KYT_OK;
}

int CMsg::GetValue(int tag, CMsgArray* out) {
  if (!out) return KYT_E_ARG;
  out->msg_ = this;
  out->tag_ = tag;
  out->size_ = 0;
  out->curIndex_ = 0;
  uint32_t pos = Find(tag);
  if (pos == kNone) return KYT_ABSENT;
  int n = 0;
  bool ok = EachOfTag(buf_, size_, sorted_, pos, tag, [&n](const Rec& r) {
    ++n;
    return KindOf(r.head) == KytKind::kMsg;
  });
  if (!ok) return KYT_E_TYPE;
  out->size_ = n;
  out->first_ = out->curPos_ = pos;
  return KYT_OK;
}

int CMsg::GetTreeSize() const {
  int n = 1;
  if (hasSubs_) {
    AnySub(buf_, size_, [&n](const CMsg* sub) {
      n += sub->GetTreeSize();
      return false;
    });
  }
  return n;
}

long CMsg::GetTreeMemory() const {
  long n = static_cast<long>(sizeof(CMsg)) + (buf_ != local_ ? static_cast<long>(cap_) : 0);
  if (hasSubs_) {
    AnySub(buf_, size_, [&n](const CMsg* sub) {
      n += sub->GetTreeMemory();
      return false;
    });
  }
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

// ---- CMsgArray ----

CMsgArray::CMsgArray(bool /*refs*/)
    : msg_(nullptr), tag_(0), size_(0), first_(0), curIndex_(0), curPos_(0) {}

CMsgArray::~CMsgArray() = default;

CMsg* CMsgArray::GetAt(int index) const {
  if (index < 0 || index >= size_) return nullptr;
  if (index < curIndex_) {
    curIndex_ = 0;
    curPos_ = first_;
  }
  const uint8_t* buf = msg_->buf_;
  uint32_t pos = curPos_;
  Rec r = Decode(buf, pos);
  while (curIndex_ < index) {
    do {
      pos = r.next;
      r = Decode(buf, pos);
    } while (r.tag != tag_);
    ++curIndex_;
  }
  curPos_ = pos;
  return SubOf(r);
}
