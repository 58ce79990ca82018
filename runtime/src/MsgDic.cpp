#include "callkyt/MsgDic.h"

CMsgDic::CMsgDic(const KytDicData& data) : data_(data) {
  int32_t maxTag = 0;
  for (int32_t i = 0; i < data.fieldCount; ++i) {
    if (data.fields[i].tag > maxTag) maxTag = data.fields[i].tag;
  }
  kinds_.assign(static_cast<size_t>(maxTag) + 1, KytKind::kNone);
  single_.assign(kinds_.size(), -1);
  array_.assign(kinds_.size(), -1);
  for (int32_t i = 0; i < data.fieldCount; ++i) {
    const KytFieldInfo& f = data.fields[i];
    kinds_[f.tag] = f.kind;
    (f.isArray ? array_ : single_)[f.tag] = i;
    fieldByName_.emplace(f.name, i);
  }
  int32_t maxNum = 0;
  for (int32_t i = 0; i < data.msgCount; ++i) {
    if (data.msgs[i].msgnum > maxNum) maxNum = data.msgs[i].msgnum;
  }
  msgIndex_.assign(static_cast<size_t>(maxNum) + 1, -1);
  for (int32_t i = 0; i < data.msgCount; ++i) {
    msgIndex_[data.msgs[i].msgnum] = i;
    msgByName_.emplace(data.msgs[i].name, i);
  }
}

const KytFieldInfo* CMsgDic::FindField(int tag, bool array) const {
  if (tag < 0 || static_cast<size_t>(tag) >= kinds_.size()) return nullptr;
  int32_t first = (array ? array_ : single_)[tag];
  int32_t other = (array ? single_ : array_)[tag];
  int32_t i = first >= 0 ? first : other;
  return i >= 0 ? &data_.fields[i] : nullptr;
}

const KytFieldInfo* CMsgDic::FindField(std::string_view name) const {
  auto it = fieldByName_.find(name);
  return it == fieldByName_.end() ? nullptr : &data_.fields[it->second];
}

const KytMsgInfo* CMsgDic::FindMessage(int msgnum) const {
  if (msgnum < 0 || static_cast<size_t>(msgnum) >= msgIndex_.size()) return nullptr;
  int32_t i = msgIndex_[msgnum];
  return i >= 0 ? &data_.msgs[i] : nullptr;
}

const KytMsgInfo* CMsgDic::FindMessage(std::string_view name) const {
  auto it = msgByName_.find(name);
  return it == msgByName_.end() ? nullptr : &data_.msgs[it->second];
}

const KytFieldInfo* CMsgDic::FindMessageField(const KytMsgInfo& msg, int tag) const {
  // A message has a few dozen fields at most, in tag order.
  for (int32_t i = 0; i < msg.fieldCount; ++i) {
    const KytFieldInfo& f = GetMessageField(msg, i);
    if (f.tag == tag) return &f;
    if (f.tag > tag) break;
  }
  return nullptr;
}

CMsgDic* MA_GetMsgDic() {
  static CMsgDic dic(*MA_GetDicData());
  return &dic;
}
