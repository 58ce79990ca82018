// CMsg and CMsgArray.
#include "altkyt/Message.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <type_traits>
#include <utility>

#include "altkyt/Lists.h"
#include "altkyt/Text.h"
#include "altkyt/Values.h"

CMsg::CMsg(int msgnum, int reserved1, int reserved2, CMsgDic* dic)
    : msgnum(msgnum), usable_(dic && dic == MA_GetMsgDic() && reserved1 == 0 && reserved2 == 0) {}

CMsg::~CMsg() {
  if (parent_) {
    std::fprintf(stderr,
                 "altkyt: message %d deleted while it belongs to message %d; only the root of "
                 "a message tree is deleted\n",
                 msgnum, parent_->msgnum);
    std::abort();
  }
  for (auto& entry : values_) {
    if (CMsg* sub = entry.second.sub) {
      sub->parent_ = nullptr;
      delete sub;
    }
  }
}

int CMsg::Check(int tag) const {
  if (!usable_) return altkyt::kNotUsable;
  if (tag <= 0) return altkyt::kBadTag;
  return 0;
}

int CMsg::Add(int tag, Value&& v) {
  int rc = Check(tag);
  if (rc < 0) return rc;
  try {
    values_.emplace(tag, std::move(v));
  } catch (const std::exception&) {
    return altkyt::NoMemory();
  }
  return static_cast<int>(values_.count(tag));
}

int CMsg::Find(int tag, Kind kind, const Value** found) const {
  int rc = Check(tag);
  if (rc < 0) return rc;
  auto it = values_.find(tag);
  if (it == values_.end()) return altkyt::kAbsent;
  if (it->second.kind != kind) return altkyt::kKindMismatch;
  *found = &it->second;
  return static_cast<int>(values_.count(tag));
}

template <class T>
int CMsg::Collect(int tag, Kind kind, std::vector<T>* out) const {
  int rc = Check(tag);
  if (rc < 0) return rc;
  auto range = values_.equal_range(tag);
  if (range.first == range.second) return altkyt::kAbsent;
  int count = 0;
  for (auto it = range.first; it != range.second; ++it, ++count) {
    if (it->second.kind != kind) return altkyt::kKindMismatch;
  }
  try {
    for (auto it = range.first; it != range.second; ++it) {
      const Value& v = it->second;
      if (!v.isSet) continue;
      if constexpr (std::is_same_v<T, CMsg*>) {
        out->push_back(v.sub);
      } else {
        out->push_back(static_cast<T>(v.number));
      }
    }
  } catch (const std::exception&) {
    return altkyt::NoMemory();
  }
  return count;
}

// ---- SetValue ----

// A number of one kind, set or unset.
int CMsg::SetNumber(int tag, Kind kind, bool isSet, double v) {
  Value value(kind);
  value.isSet = isSet;
  value.number = v;
  return Add(tag, std::move(value));
}

int CMsg::SetValue(int tag, CInt v) { return SetNumber(tag, Kind::kInt, v.isSet != 0, v.value); }
int CMsg::SetValue(int tag, CDbl v) { return SetNumber(tag, Kind::kDbl, v.isSet != 0, v.value); }
int CMsg::SetValue(int tag, CBool v) { return SetNumber(tag, Kind::kBool, v.isSet != 0, v.value); }
int CMsg::SetValue(int tag, int v) { return SetNumber(tag, Kind::kInt, true, v); }
int CMsg::SetValue(int tag, double v) { return SetNumber(tag, Kind::kDbl, true, v); }

int CMsg::SetValue(int tag, CDate v) {
  // A date's text must end within its 9 bytes.
  size_t len = strnlen(v.text, sizeof v.text);
  if (len == sizeof v.text) return altkyt::kBadArgument;
  try {
    Value value(Kind::kDate);
    value.isSet = v.isSet != 0;
    value.text.assign(v.text, len);
    return Add(tag, std::move(value));
  } catch (const std::exception&) {
    return altkyt::NoMemory();
  }
}

int CMsg::SetValue(int tag, const char* text) {
  if (!text) return altkyt::kBadArgument;
  try {
    Value value(Kind::kText);
    value.text = text;
    return Add(tag, std::move(value));
  } catch (const std::exception&) {
    return altkyt::NoMemory();
  }
}

int CMsg::SetValue(int tag, CMsg* sub) {
  if (!sub) return altkyt::kBadArgument;
  // Not ours to free: it belongs to another message, or freeing it would free
  // this message too.
  if (sub->parent_) return altkyt::kSubRefused;
  for (const CMsg* m = this; m; m = m->parent_) {
    if (m == sub) return altkyt::kSubRefused;
  }
  Value value(Kind::kMsg);
  value.sub = sub;
  int rc = Add(tag, std::move(value));
  if (rc < 0) {
    delete sub;
    return rc;
  }
  sub->parent_ = this;
  return rc;
}

// ---- GetValue ----
//
// On kAbsent the target is reset to its empty or unset state; on a failure it
// is left as it was.

template <class T, class Fill>
int CMsg::ReadFirst(int tag, Kind kind, T* out, Fill fill) {
  if (!out) return altkyt::kBadArgument;
  const Value* v = nullptr;
  int rc = Find(tag, kind, &v);
  if (rc == altkyt::kAbsent) fill(nullptr, out);
  if (rc < 0) return rc;
  try {
    fill(v, out);
  } catch (const std::exception&) {
    return altkyt::NoMemory();
  }
  return rc;
}

template <class T>
int CMsg::ReadNumber(int tag, Kind kind, T* out) {
  return ReadFirst(tag, kind, out, [](const Value* v, T* o) {
    *o = T();
    if (v) o->value = static_cast<decltype(o->value)>(v->number), o->isSet = v->isSet;
  });
}

int CMsg::GetValue(int tag, CInt* out) { return ReadNumber(tag, Kind::kInt, out); }
int CMsg::GetValue(int tag, CDbl* out) { return ReadNumber(tag, Kind::kDbl, out); }
int CMsg::GetValue(int tag, CBool* out) { return ReadNumber(tag, Kind::kBool, out); }

int CMsg::GetValue(int tag, CDate* out) {
  return ReadFirst(tag, Kind::kDate, out, [](const Value* v, CDate* o) {
    o->Set(v ? v->text.c_str() : nullptr);  // null: unset
    if (v) o->isSet = v->isSet;
  });
}

int CMsg::GetValue(int tag, CString* out) {
  return ReadFirst(tag, Kind::kText, out,
                   [](const Value* v, CString* o) { *o = v ? v->text.c_str() : ""; });
}

// Every value of `kind` under `tag`, as the list of `out`.
template <class T, class List>
int CMsg::ReadAll(int tag, Kind kind, List* out) {
  if (!out) return altkyt::kBadArgument;
  std::vector<T> items;
  int rc = Collect(tag, kind, &items);
  if (rc < 0 && rc != altkyt::kAbsent) return rc;
  out->items_.swap(items);
  if constexpr (!std::is_same_v<List, CMsgArray>) {
    out->size = static_cast<int32_t>(out->items_.size());
  }
  return rc;
}

int CMsg::GetValue(int tag, CIntArray* out) { return ReadAll<int32_t>(tag, Kind::kInt, out); }
int CMsg::GetValue(int tag, CDblArray* out) { return ReadAll<double>(tag, Kind::kDbl, out); }
int CMsg::GetValue(int tag, CMsgArray* out) { return ReadAll<CMsg*>(tag, Kind::kMsg, out); }

int CMsg::GetValue(int tag, CMsg** out) {
  if (!out) return altkyt::kBadArgument;
  *out = nullptr;
  const Value* v = nullptr;
  int rc = Find(tag, Kind::kMsg, &v);
  if (rc < 0) return rc;
  *out = v->sub;
  return rc;
}

// ---- CMsgArray ----

CMsgArray::CMsgArray(bool borrowed) {
  if (!borrowed) {
    std::fprintf(stderr,
                 "altkyt: CMsgArray(false) asks for an array that owns its messages; this "
                 "runtime has only borrowing arrays: CMsgArray(true)\n");
    std::abort();
  }
}
