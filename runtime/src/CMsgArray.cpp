// CMsgArray: the sub-messages under one tag of a message, read in place. It
// keeps the index and position of the last element given, so that reading
// in order decodes each record once.
#include "Records.h"
#include "callkyt/CMsg.h"

CMsgArray::CMsgArray(bool /*refs*/)
    : msg_(nullptr), tag_(0), size_(0), first_(0), curIndex_(0), curPos_(0) {}

CMsgArray::~CMsgArray() = default;

CMsg* CMsgArray::GetAt(int index) const {
  using kyt_detail::Decode;
  if (index < 0 || index >= size_) return nullptr;
  if (index < curIndex_) {
    curIndex_ = 0;
    curPos_ = first_;
  }
  const uint8_t* buf = msg_->buf_;
  uint32_t pos = curPos_;
  kyt_detail::Rec r = Decode(buf, pos);
  while (curIndex_ < index) {
    do {
      pos = r.next;
      r = Decode(buf, pos);
    } while (r.tag != tag_);
    ++curIndex_;
  }
  curPos_ = pos;
  return kyt_detail::SubOf(r);
}
