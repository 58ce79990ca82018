// CMsg: the generic tagged message of the runtime, and CMsgArray, the view of
// the repeated sub-messages under one tag.
//
// A message has a number and holds values under tags: integers, doubles,
// booleans and dates (each set or unset), texts, and sub-messages that it
// owns. Values under one tag keep the order in which they were added, so an
// array travels as repeated values under its tag. A single value and an array
// under one tag are the same thing on the wire: a single read takes the first
// value, an array read takes all set values (an unset single value reads as an
// empty array).
//
// Results of GetValue: 0 when the object was filled, KYT_ABSENT when the tag
// holds nothing, below -1 on failure (see the codes below). SetValue gives 0
// or a failure code. A read asks for one kind of value; a tag that holds a
// value of any other kind fails it with KYT_E_TYPE, even when its first value
// is of the kind asked, so that single and array reads of a tag agree.
//
// With a dictionary (MA_GetMsgDic()), SetValue refuses a tag the dictionary
// does not know and a value whose type contradicts the tag's, and a set date
// that is not "YYYYMMDD". A message built with a null dictionary checks
// nothing; tests use that to build replies that a checked message would
// refuse, with values of several kinds under one tag.
//
// A tree may be of any depth: freeing it, measuring it and the check for
// cycles in SetValue walk it without recursion.
//
// Reading leaves a message as it was: every GetValue is const, and any number
// of threads may read one message at the same time, as long as none of them
// changes it. A message remembers where the last read ended, so that reads in
// the order of the values skip what lies behind them; that position is a hint
// that a read takes or ignores. It is kept with relaxed atomic loads and
// stores, and whichever thread stored it, it is always the start of a record
// of this message (records are only ever appended), so a reader that finds
// another reader's hint is at most slower, never wrong.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "CArray.h"
#include "CString.h"
#include "CValue.h"

class CMsgDic;
class CMsgArray;
class CStream;

// The type of a value under a tag, as the dictionary and CMsg::Value give it;
// kNone for a tag that the dictionary does not know.
enum class KytKind : uint8_t { kNone, kInt, kDbl, kBool, kDate, kStr, kMsg };

enum KytResult {
  KYT_OK = 0,
  KYT_ABSENT = -1,   // the tag holds nothing: not a failure
  KYT_E_TYPE = -2,   // the value is not of the type asked or allowed
  KYT_E_TAG = -3,    // the dictionary does not know the tag
  KYT_E_ARG = -4,    // a null pointer, or a sub-message that cannot be attached
  KYT_E_VALUE = -5,  // a set date that is not a valid "YYYYMMDD"
  KYT_E_NOMEM = -6,  // the runtime ran out of memory
  KYT_E_IO = -7,     // a message file could not be written (errno tells why)
};

// The process-wide message dictionary. Built on the first call, never
// changed afterwards, and safe to use from any number of threads.
CMsgDic* MA_GetMsgDic();

class CMsg final {
 public:
  // `reserved1` and `reserved2` are kept for the service's routing and are
  // passed as 0. `dic` is the dictionary that SetValue checks against, or null.
  CMsg(int msgnum, int reserved1, int reserved2, CMsgDic* dic);
  ~CMsg();
  CMsg(const CMsg&) = delete;
  CMsg& operator=(const CMsg&) = delete;

  // Messages, and record buffers of up to 512 bytes, come from
  // per-thread free lists: a message tree is made and freed many times a
  // second, always from the same few block sizes. KYT_MSG_POOL=0 in the
  // environment turns the lists off (for memory checkers).
  static void* operator new(size_t size);
  static void operator delete(void* p) noexcept;

  int msgnum;

  // A read that fails leaves the object as it was; CMsgArray is the one
  // exception, left empty.
  int GetValue(int tag, CInt* out) const;
  int GetValue(int tag, CDbl* out) const;
  int GetValue(int tag, CBool* out) const;
  int GetValue(int tag, CDate* out) const;
  int GetValue(int tag, CString* out) const;
  int GetValue(int tag, CIntArray* out) const;
  int GetValue(int tag, CDblArray* out) const;
  // The first sub-message under the tag. It stays owned by this message, and
  // is given non-const, as the message's own part, to be read in turn.
  int GetValue(int tag, CMsg** out) const;
  // All sub-messages under the tag, in order; valid while this message is
  // unchanged.
  int GetValue(int tag, CMsgArray* out) const;

  int SetValue(int tag, CInt v);
  int SetValue(int tag, CDbl v);
  int SetValue(int tag, CBool v);
  int SetValue(int tag, CDate v);
  int SetValue(int tag, const char* text);
  // One element of a repeated value.
  int SetValue(int tag, int v);
  int SetValue(int tag, double v);
  // Adds a sub-message and takes it over, also when the value is refused:
  // a refused sub-message is freed at once. A message that already belongs
  // to a tree (this one or another) is refused with KYT_E_ARG and left alone.
  // When this message belongs to a tree, `sub` is searched for it first;
  // should memory for that search of a very deep tree run out, the result
  // is KYT_E_NOMEM and `sub` is left alone too, as it may hold this message.
  int SetValue(int tag, CMsg* sub);

  CMsgDic* GetDic() const { return dic_; }

  // The number of values held, counting each element of a repeated value.
  int GetValueCount() const { return count_; }
  // The number of messages in the tree: this one and all below it. The walk
  // keeps the messages it is in on a stack of its own, which takes memory
  // beyond 32 levels: std::bad_alloc when that runs out.
  int GetTreeSize() const;
  // The bytes of memory the tree holds: its message objects and the value
  // buffers that did not fit in them. Walks as GetTreeSize does.
  long GetTreeMemory() const;

  // Reading the values in the order they were added, for printers and tools.
  struct Value {
    int tag;
    KytKind kind;
    bool isSet;
    int32_t i;
    double d;
    bool b;
    const char* text;  // for dates and texts; not terminated
    int len;
    CMsg* msg;
  };
  class Cursor {
   public:
    explicit Cursor(const CMsg& msg) : msg_(msg), pos_(0) {}
    bool Next(Value* out);

   private:
    const CMsg& msg_;
    uint32_t pos_;
  };

 private:
  friend class CMsgArray;

  // The steps that every SetValue and every GetValue share (CMsg.cpp).
  template <class Write>
  int Put(int tag, KytKind kind, bool set, uint32_t payload, Write write);
  template <class Out, class Take>
  int Get(int tag, KytKind kind, Out* out, Take take) const;

  uint8_t* Append(int tag, KytKind kind, bool set, uint32_t payload);
  bool Grow(uint32_t need);
  int Check(int tag, KytKind kind) const;
  uint32_t Find(int tag) const;
  void Passed(int tag, uint32_t next) const;
  template <class F>
  bool AnyBelow(F f) const;
  void FreeSubs() noexcept;

  // 64 bytes in all: a message of a few fields keeps its records inside.
  int32_t count_;
  union {
    CMsgDic* dic_;
    CMsg* nextDoomed_;  // while the tree above frees it: the next to free
  };
  uint8_t* buf_;
  uint32_t size_;
  uint32_t cap_;
  mutable std::atomic<uint32_t> readHint_;  // where the last read ended
  int32_t lastTag_;
  bool sorted_;
  bool attached_;  // a sub-message of another message
  bool hasSubs_;
  uint8_t local_[21];
};

class CMsgArray {
 public:
  // `refs` says that the array refers to messages owned by their parent
  // message; it is the only mode and is always true.
  explicit CMsgArray(bool refs);
  ~CMsgArray();
  CMsgArray(const CMsgArray&) = delete;
  CMsgArray& operator=(const CMsgArray&) = delete;

  int GetSize() const { return size_; }
  // The message at `index`, or null for an index out of range. Fastest when
  // read in order. An array keeps its place for the next call: it belongs to
  // one reader at a time.
  CMsg* GetAt(int index) const;

 private:
  friend class CMsg;

  const CMsg* msg_;
  int tag_;
  int size_;
  uint32_t first_;
  mutable int curIndex_;
  mutable uint32_t curPos_;
};
