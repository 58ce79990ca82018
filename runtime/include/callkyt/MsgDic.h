// The message dictionary: every field with its tag and type, and every
// message with its number, name and fields. The data comes from
// libcallkyt_dat, which is generated from the schema; CMsgDic indexes it.
#pragma once

#include <cstdint>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "CMsg.h"

struct KytFieldInfo {
  int32_t tag;
  KytKind kind;     // the element type for the array forms
  uint8_t isArray;  // ia, da and ma fields
  const char* name;
  const char* subName;  // the message class of an m or ma field, else null
  int32_t subNum;       // its number, else 0
};

struct KytMsgInfo {
  int32_t msgnum;
  const char* name;
  int32_t firstField;  // into KytDicData::msgFields
  int32_t fieldCount;
};

struct KytDicData {
  const KytFieldInfo* fields;  // sorted by tag, the single form first
  int32_t fieldCount;
  const KytMsgInfo* msgs;  // sorted by number
  int32_t msgCount;
  const uint16_t* msgFields;  // indices into fields, each message's in tag order
};

// Defined in libcallkyt_dat.
const KytDicData* MA_GetDicData();

class CMsgDic {
 public:
  explicit CMsgDic(const KytDicData& data);
  CMsgDic(const CMsgDic&) = delete;
  CMsgDic& operator=(const CMsgDic&) = delete;

  // The kind of the values under a tag; kNone for an unknown tag.
  KytKind TagKind(int tag) const {
    return tag >= 0 && static_cast<size_t>(tag) < kinds_.size() ? kinds_[tag] : KytKind::kNone;
  }
  // The field of a tag in the form asked for, or in the other form when the
  // tag has only that one; null for an unknown tag.
  const KytFieldInfo* FindField(int tag, bool array) const;
  const KytFieldInfo* FindField(std::string_view name) const;

  const KytMsgInfo* FindMessage(int msgnum) const;
  const KytMsgInfo* FindMessage(std::string_view name) const;
  // The field of a message with the given tag, or null.
  const KytFieldInfo* FindMessageField(const KytMsgInfo& msg, int tag) const;

  int GetMessageCount() const { return data_.msgCount; }
  const KytMsgInfo& GetMessage(int index) const { return data_.msgs[index]; }
  const KytFieldInfo& GetMessageField(const KytMsgInfo& msg, int index) const {
    return data_.fields[data_.msgFields[msg.firstField + index]];
  }

 private:
  const KytDicData& data_;
  std::vector<KytKind> kinds_;
  std::vector<int32_t> single_;  // tag -> field index, or -1
  std::vector<int32_t> array_;
  std::vector<int32_t> msgIndex_;  // number -> message index, or -1
  std::unordered_map<std::string_view, int32_t> fieldByName_;
  std::unordered_map<std::string_view, int32_t> msgByName_;
};
