// The records of a CMsg: one byte buffer, appended in the order of SetValue.
// A record is
//
//   tag   varint of the tag as unsigned 32 bits
//   head  kind in bits 0-2, set-flag in bit 3, boolean value in bit 4
//   data  INT: 4 bytes, DBL: 8 bytes, DATE: length byte and text, only when
//         set; STR: varint length and bytes; MSG: the pointer; BOOL: none
//
// An unset value costs two or three bytes, and a message of a few fields fits
// in the object itself. Only CMsg writes records, so they are decoded without
// checks.
#pragma once

#include <cstdint>
#include <cstring>

#include "callkyt/CMsg.h"

namespace kyt_detail {

constexpr uint8_t kSetBit = 0x08;
constexpr uint8_t kTrueBit = 0x10;

inline KytKind KindOf(uint8_t head) { return static_cast<KytKind>(head & 0x07); }

inline uint8_t Head(KytKind kind, bool set) {
  return static_cast<uint8_t>(static_cast<uint8_t>(kind) | (set ? kSetBit : 0));
}

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

// One decoded record.
struct Rec {
  uint32_t at;  // its position
  int tag;
  uint8_t head;
  const uint8_t* data;  // the value bytes: text of a DATE or STR, else the number
  uint32_t len;         // length of a DATE or STR text
  uint32_t next;        // position of the next record
};

inline Rec Decode(const uint8_t* buf, uint32_t pos) {
  Rec r;
  r.at = pos;
  r.tag = static_cast<int>(ReadVarint(buf, pos));
  r.head = buf[pos++];
  r.len = 0;
  bool set = r.head & kSetBit;
  uint32_t width = 0;
  switch (KindOf(r.head)) {
    case KytKind::kNone:
    case KytKind::kBool:  // all in the head byte
      break;
    case KytKind::kInt:
      width = set ? 4 : 0;
      break;
    case KytKind::kDbl:
      width = set ? 8 : 0;
      break;
    case KytKind::kDate:
      if (set) r.len = buf[pos++];
      width = r.len;
      break;
    case KytKind::kStr:
      r.len = ReadVarint(buf, pos);
      width = r.len;
      break;
    case KytKind::kMsg:
      width = sizeof(CMsg*);
      break;
  }
  r.data = buf + pos;
  r.next = pos + width;
  return r;
}

inline CMsg* SubOf(const Rec& r) {
  CMsg* m;
  std::memcpy(&m, r.data, sizeof m);
  return m;
}

}  // namespace kyt_detail
