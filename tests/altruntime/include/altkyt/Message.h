// CMsg, the generic message: a message number and values under tags, and
// CMsgArray, the list of the repeated sub-messages under one tag.
//
// A message keeps what it is given under each tag in the order given: single
// values, repeated values and sub-messages alike. Integers (CInt and plain
// int) are one kind, doubles (CDbl and plain double) another, then booleans,
// dates, texts and sub-messages; a value is read back only as its own kind.
//
// Results: SetValue and GetValue give the number of values the tag holds (1
// or more) on success; GetValue gives kAbsent (-1) for a tag the message does
// not hold, and then resets what it was to fill to its empty or unset state;
// failures are the codes of altkyt/Error.h.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "altkyt/Dictionary.h"
#include "altkyt/Error.h"

struct CInt;
struct CDbl;
struct CBool;
class CDate;
class CString;
class CIntArray;
class CDblArray;
class CMsgArray;

class CMsg {
 public:
  // The message number, read directly.
  int msgnum;

  // A message with no values. `reserved1` and `reserved2` must be 0 and
  // `dic` the dictionary that MA_GetMsgDic gives; a message built otherwise
  // refuses every SetValue and GetValue with kNotUsable. Made with new; the
  // owner of the root frees it with delete, which frees all its sub-messages.
  CMsg(int msgnum, int reserved1, int reserved2, CMsgDic* dic);
  // A sub-message belongs to its parent: deleting it directly is an error,
  // reported on stderr before the process is aborted.
  ~CMsg();
  CMsg(const CMsg&) = delete;
  CMsg& operator=(const CMsg&) = delete;

  // Add one value under `tag` (a tag of 0 or below: kBadTag), after those it
  // holds: an optional value with its flag (an unset one is kept as unset), a
  // text (null: kBadArgument) or one element of a repeated value. A date
  // whose text has no terminator within its nine bytes is kBadArgument.
  int SetValue(int tag, CInt v);
  int SetValue(int tag, CDbl v);
  int SetValue(int tag, CBool v);
  int SetValue(int tag, CDate v);
  int SetValue(int tag, const char* text);
  int SetValue(int tag, int v);
  int SetValue(int tag, double v);
  // Adds `sub` under `tag` and takes it over: it is freed with this message,
  // or at once if it is refused for a bad tag, an unusable message or a lack
  // of memory. Null is refused with kBadArgument. A message that already has
  // a parent, or that is this message or one of its parents, is refused with
  // kSubRefused and left alone.
  int SetValue(int tag, CMsg* sub);

  // Read the first value under `tag` into `out`: value and flag as they were
  // given. A null `out` is kBadArgument.
  int GetValue(int tag, CInt* out);
  int GetValue(int tag, CDbl* out);
  int GetValue(int tag, CBool* out);
  int GetValue(int tag, CDate* out);
  int GetValue(int tag, CString* out);
  // Read every integer (double) value under `tag` in order: the elements
  // added with a plain number, and the single values whose flag is set. An
  // unset single value adds no element.
  int GetValue(int tag, CIntArray* out);
  int GetValue(int tag, CDblArray* out);
  // The first sub-message under `tag`, which stays this message's. `*out` is
  // null after any negative result.
  int GetValue(int tag, CMsg** out);
  // Replaces the content of `out` by every sub-message under `tag`, in order.
  // They stay this message's and are valid while it stands.
  int GetValue(int tag, CMsgArray* out);

 private:
  enum class Kind : uint8_t { kInt, kDbl, kBool, kDate, kText, kMsg };
  struct Value {
    explicit Value(Kind k) : kind(k) {}
    Kind kind;
    bool isSet = true;
    double number = 0.0;  // an integer, a double or a boolean: each exact here
    CMsg* sub = nullptr;
    std::string text;  // a date or a text
  };
  using Values = std::multimap<int, Value>;

  int Check(int tag) const;
  int Add(int tag, Value&& v);
  int SetNumber(int tag, Kind kind, bool isSet, double v);
  // The first value under `tag` (or kAbsent) if it is of `kind` (or
  // kKindMismatch).
  int Find(int tag, Kind kind, const Value** found) const;
  template <class T>
  int Collect(int tag, Kind kind, std::vector<T>* out) const;
  // Find, then fill(value, out); fill(nullptr, out) resets `out` for kAbsent.
  template <class T, class Fill>
  int ReadFirst(int tag, Kind kind, T* out, Fill fill);
  // ReadFirst into a CInt, CDbl or CBool.
  template <class T>
  int ReadNumber(int tag, Kind kind, T* out);
  // Collect, into the list of a CIntArray, CDblArray or CMsgArray; an empty
  // list for kAbsent.
  template <class T, class List>
  int ReadAll(int tag, Kind kind, List* out);

  bool usable_;
  CMsg* parent_ = nullptr;
  // Insertion keeps the order of the values under one tag.
  Values values_;
};

class CMsgArray {
 public:
  // `borrowed` says that the array lists messages that stay their parent's;
  // it must be true, the one kind of array this runtime has. false is a
  // programming error, reported on stderr before the process is aborted.
  explicit CMsgArray(bool borrowed);
  ~CMsgArray() = default;
  CMsgArray(const CMsgArray&) = delete;
  CMsgArray& operator=(const CMsgArray&) = delete;

  int GetSize() const { return static_cast<int>(items_.size()); }
  // The message at `index`; null outside 0 .. GetSize() - 1.
  CMsg* GetAt(int index) const {
    return index >= 0 && index < GetSize() ? items_[static_cast<size_t>(index)] : nullptr;
  }

 private:
  friend class CMsg;
  std::vector<CMsg*> items_;
};
